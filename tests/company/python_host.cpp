// The driver for a process that is no Qt program: its cameras stream from one call to the other.

#include "streaming_cameras.h"

#include <QPluginLoader>

namespace
{

std::unique_ptr<company::StreamingCameras> streaming;

} // namespace

extern "C" __attribute__((visibility("default"))) int startCameras()
{
    QPluginLoader plugin(QStringLiteral(ZRN_PLUGIN));
    auto* const factory = qobject_cast<IFactory*>(plugin.instance());
    if (!factory) {
        return -1;
    }
    streaming = std::make_unique<company::StreamingCameras>(*factory);
    return static_cast<int>(streaming->count());
}

extern "C" __attribute__((visibility("default"))) int stopCameras()
{
    const bool isGood = streaming->allDeliver();
    streaming.reset();
    return isGood ? 0 : 1;
}
