// The smallest useful host: loads the plugin, connects to the first camera, and writes three images
// as PGM.
//
//     minimal_host PLUGIN FOLDER

#include "camera_interface.h"
#include "factory_interface.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QPluginLoader>

#include <memory>

using BaseDeviceSpace::DeviceInterface;
using CameraSpace::CameraInterface;
using CameraSpace::ImageBlock;

namespace
{

bool succeeded(const char* step, ErrorCode code)
{
    if (code != ErrorCode::Success) {
        qCritical() << step << "failed with code" << static_cast<quint32>(code);
    }
    return code == ErrorCode::Success;
}

/// Pixels first, trailer last: a PGM file holds only the pixels.
bool writeImage(const ImageBlock& image, const QString& path)
{
    QFile file(path);
    const QByteArray header = "P5\n" + QByteArray::number(image.width) + ' ' +
                              QByteArray::number(image.height) + "\n255\n";
    const QByteArray pixels = image.data.left(image.width * image.height);
    return file.open(QIODevice::WriteOnly) && file.write(header) == header.size() &&
           file.write(pixels) == pixels.size();
}

bool grabImages(CameraInterface& camera, const QString& folder)
{
    for (int i = 0; i < 3; ++i) {
        QList<ImageBlock*> blocks;
        const ErrorCode result = camera.grabImage(blocks);
        // The blocks are ours now, whatever happens next.
        const std::unique_ptr<QList<ImageBlock*>, void (*)(QList<ImageBlock*>*)> owner(
            &blocks, [](QList<ImageBlock*>* list) { qDeleteAll(*list); });
        if (!succeeded("grabImage", result)) {
            return false;
        }
        for (int n = 0; n < blocks.size(); ++n) {
            const QString path = QStringLiteral("%1/image-%2-%3.pgm").arg(folder).arg(i).arg(n);
            if (!writeImage(*blocks.at(n), path)) {
                qCritical() << "cannot write" << path;
                return false;
            }
        }
    }
    return true;
}

bool run(IFactory& factory, const QString& folder)
{
    if (factory.enumDevice() < 1) {
        qCritical() << "no camera found";
        return false;
    }
    DeviceInterface* device = factory.createDevice();
    auto* camera = dynamic_cast<CameraInterface*>(device);

    const bool done = camera && succeeded("connect", device->connectDeviceByIndex(0)) &&
                      succeeded("startStream", camera->startStream(0)) &&
                      grabImages(*camera, folder) && succeeded("stopStream", camera->stopStream(0));
    factory.deleteDevice(device);
    return done;
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 3) {
        qCritical() << "usage: minimal_host PLUGIN FOLDER";
        return 2;
    }

    // Qt looks for a name that is not absolute in its own folders alone.
    QPluginLoader loader(QFileInfo(arguments.at(1)).absoluteFilePath());
    auto* factory = qobject_cast<IFactory*>(loader.instance());
    if (!factory) {
        qCritical() << "cannot load the plugin:" << loader.errorString();
        return 1;
    }
    return run(*factory, arguments.at(2)) ? 0 : 1;
}
