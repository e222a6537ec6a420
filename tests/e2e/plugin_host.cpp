#include "plugin_host.h"

#include <cstring>
#include <stdexcept>

using CameraSpace::ImageBlock;

PluginHost::PluginHost(QLibrary::LoadHints hints)
    : m_loader(QStringLiteral(ZRN_PLUGIN_PATH))
{
    m_loader.setLoadHints(hints);
    m_factory = qobject_cast<IFactory*>(m_loader.instance());
    if (!m_factory) {
        throw std::runtime_error(m_loader.errorString().toStdString());
    }
}

PluginHost::~PluginHost()
{
    m_loader.unload();
}

bool PluginHost::unload()
{
    return m_loader.unload();
}

HostCamera::HostCamera(IFactory& factory)
    : m_factory(factory)
    , m_device(factory.createDevice())
    , m_camera(dynamic_cast<CameraSpace::CameraInterface*>(m_device))
{
    if (!m_camera) {
        throw std::runtime_error("the device is no camera");
    }
}

HostCamera::~HostCamera()
{
    m_factory.deleteDevice(m_device);
}

QVariant HostCamera::property(const char* key)
{
    QMap<QString, QVariant> values;
    m_device->getProperty(QString::fromLatin1(key), values);
    return values.value(QStringLiteral("value"));
}

ErrorCode HostCamera::setProperty(const char* key, const QVariant& value)
{
    return m_device->setProperty(QString::fromLatin1(key), {{QStringLiteral("value"), value}});
}

Grab grab(CameraSpace::CameraInterface& camera)
{
    QList<ImageBlock*> blocks;
    Grab grab = {camera.grabImage(blocks), {}};
    for (ImageBlock* block : blocks) {
        grab.images.emplace_back(block);
    }
    return grab;
}

quint64 trailerOf(const ImageBlock& image)
{
    quint64 trailer = 0;
    std::memcpy(&trailer, image.data.constData() + image.data.size() - sizeof(trailer),
                sizeof(trailer));
    return trailer;
}
