#include "atomic_field.h"
#include "sensor_types.h"
#include "zrn_camera.h"

#include <QMutexLocker>
#include <QWriteLocker>

#include <shared_mutex>
#include <utility>

namespace
{

// The host puts two characters in front of the serial key.
constexpr int serialPrefixLength = 2;
constexpr auto serialPrefix = "ZR";

constexpr uint8_t manualExposureMode = 1;

} // namespace

ErrorCode CZRNCamera::connectDeviceBySerial(const QString& serial)
{
    const Operation operation;
    if (!operation) {
        return ErrorCode::NothingEnumerated;
    }
    const QMutexLocker lifecycle(&m_lifecycleMutex);
    if (isConnected()) {
        return ErrorCode::AlreadyConnected;
    }

    NodeReference node;
    {
        const std::shared_lock table(m_nodeTableLock);
        if (m_enumCount < 1) {
            return ErrorCode::NothingEnumerated;
        }
        if (serial.isEmpty()) {
            return ErrorCode::BadArgument;
        }
        const auto found =
            m_cameraNodeMap.constFind(serial.right(serial.length() - serialPrefixLength));
        if (found == m_cameraNodeMap.constEnd()) {
            return ErrorCode::SerialNotFound;
        }
        node = NodeReference(found.value());
    }
    if (!node) {
        logInfo() << "CameraNode is nullptr";
        return ErrorCode::NodeNotOpen;
    }
    if (!shared(node->isOpen).load()) {
        logInfo() << "CameraNode not openned";
        return ErrorCode::NodeNotOpen;
    }
    return connectNode(std::move(node));
}

ErrorCode CZRNCamera::connectDeviceByIndex(int index)
{
    const Operation operation;
    if (!operation) {
        return ErrorCode::NothingEnumerated;
    }
    const QMutexLocker lifecycle(&m_lifecycleMutex);
    if (isConnected()) {
        return ErrorCode::AlreadyConnected;
    }

    NodeReference node;
    {
        const std::shared_lock table(m_nodeTableLock);
        if (m_enumCount < 1) {
            return ErrorCode::NothingEnumerated;
        }
        Operation::print(QString::asprintf("index:%d  camCount:%d \n", index, m_enumCount));
        if (index < 0 || index >= m_enumCount) {
            return ErrorCode::BadArgument;
        }
        node = NodeReference(m_cameraNodeMap.values().value(index, nullptr));
    }
    if (!node) {
        return ErrorCode::IndexNotFound;
    }
    if (!shared(node->isOpen).load()) {
        return ErrorCode::NodeNotOpen;
    }
    logDebug() << "get handle:" << static_cast<void*>(DeviceAccess(node).handle());
    return connectNode(std::move(node));
}

ErrorCode CZRNCamera::connectNode(NodeReference node)
{
    std::optional<QSize> firstFrame;
    {
        const DeviceAccess device(node);
        firstFrame = readFrameSize(device);
        if (!firstFrame) {
            return ErrorCode::NoFrameDescriptor;
        }
        m_serial = device.serial();
    }
    {
        const QWriteLocker locker(&m_nodeLock);
        m_currentNode = node.take();
    }
    initializeCamera(*firstFrame, true);
    return ErrorCode::Success;
}

std::optional<QSize> CZRNCamera::readFrameSize(const DeviceAccess& device)
{
    const uvc_format_desc_t* formats = device.formats();
    if (!formats) {
        return std::nullopt;
    }
    for (const uvc_format_desc_t* format = formats; format; format = format->next) {
        logFormat(*format);
        for (const uvc_frame_desc_t* frame = format->frame_descs; frame; frame = frame->next) {
            logFrame(*frame);
        }
    }
    const uvc_frame_desc_t* firstFrame = formats->frame_descs;
    return firstFrame ? std::optional(QSize(firstFrame->wWidth, firstFrame->wHeight))
                      : std::nullopt;
}

void CZRNCamera::logFormat(const uvc_format_desc_t& format)
{
    logInfo() << "bDescriptorSubtype:" << format.bDescriptorSubtype;
}

void CZRNCamera::logFrame(const uvc_frame_desc_t& frame)
{
    logInfo() << "\tw:" << frame.wWidth << ",h:" << frame.wHeight
              << ",defaultFrameInterval:" << frame.dwDefaultFrameInterval;
}

bool CZRNCamera::initializeCamera()
{
    const Operation operation;
    const FrameGeometry geometry = frameGeometry();
    return initializeCamera({geometry.width, geometry.height}, false);
}

bool CZRNCamera::initializeCamera(QSize firstFrame, bool isNewCamera)
{
    const NodeReference node = currentNode();
    if (!node) {
        return false;
    }

    qint32 sensorType = 0;
    const DoubleSensor* doubleSensor = findDoubleSensor(firstFrame.width(), firstFrame.height());
    if (doubleSensor) {
        sensorType = doubleSensor->sensorType;
        publishGeometry({doubleSensor->streamedWidth, doubleSensor->streamedHeight},
                        doubleSensor->format, sensorType, isNewCamera);
    } else {
        uint16_t contrast = 0;
        const uvc_error_t result =
            DeviceAccess(node).call(uvc_get_contrast, &contrast, UVC_GET_CUR);
        if (result != UVC_SUCCESS) {
            logCritical() << "uvc_get_contrast failed ret:" << result;
            contrast = 0;
        }
        sensorType = reportedSensorType(contrast);
        publishGeometry(firstFrame, CameraSpace::PixelFormatType::Packed16, sensorType,
                        isNewCamera);
    }
    logDebug() << "m_sensorType: " << sensorType;

    // What cannot be read keeps its value. The limits are read aside because other threads check
    // against the fields.
    unsigned int minExposure = shared(m_minExposureTime).load();
    unsigned int maxExposure = shared(m_maxExposureTime).load();
    getExposureTimeRange(minExposure, maxExposure, 0);
    shared(m_minExposureTime).store(minExposure);
    shared(m_maxExposureTime).store(maxExposure);
    if (m_category.isDebugEnabled()) {
        Operation::write(
            {QtDebugMsg, m_category.categoryName(),
             QString::asprintf("MinExposure:%u  maxExposure:%u\n", minExposure, maxExposure)});
    }

    unsigned short minGain = shared(m_minGain).load();
    unsigned short maxGain = shared(m_maxGain).load();
    getGainRange(minGain, maxGain, 0);
    shared(m_minGain).store(minGain);
    shared(m_maxGain).store(maxGain);

    long colorGains = shared(m_colorRGBGain).load();
    colorRGBGainIO(true, colorGains);
    shared(m_colorRGBGain).store(colorGains);

    DeviceAccess(node).call(uvc_set_ae_mode, manualExposureMode);
    return true;
}

ErrorCode CZRNCamera::reconnectDevice()
{
    const Operation operation;
    if (!operation) {
        return ErrorCode::NotConnected;
    }
    const QMutexLocker lifecycle(&m_lifecycleMutex);
    if (m_serial.isEmpty()) {
        return ErrorCode::BadArgument;
    }
    std::optional<QSize> firstFrame;
    {
        const DeviceAccess device = accessDevice();
        if (!device) {
            return ErrorCode::NotConnected;
        }
        firstFrame = readFrameSize(device);
        if (!firstFrame) {
            return ErrorCode::NoFrameDescriptor;
        }
    }
    initializeCamera(*firstFrame, false);
    return ErrorCode::Success;
}

ErrorCode CZRNCamera::disconnectDevice()
{
    const Operation operation;
    if (!operation) {
        return ErrorCode::NotConnected;
    }
    const QMutexLocker lifecycle(&m_lifecycleMutex);
    logDebug() << "start CZRNCamera::disconnectDevice function";
    if (!isConnected()) {
        return ErrorCode::NotConnected;
    }
    stopStream(0);

    const NodeReference node = currentNode();
    if (!node) {
        return ErrorCode::NotConnected; // the process has begun to exit, and closes its cameras
    }
    void* closedHandle = nullptr;
    bool closed = false;
    {
        // Waits for the control requests that run, and only then lets others wait for the closing.
        const NodeClosing closing(*node.get());
        const QWriteLocker locker(&m_nodeLock);
        closedHandle = node->handle;
        closed = closeNode(*node.get());
        shared(node->isOpen).store(false);
        NodeReference::release(std::exchange(m_currentNode, nullptr));
    }
    if (!closed) {
        logAbandoned(*node.get());
    }
    logDebug() << "end CZRNCamera::disconnectDevice function :" << closedHandle;
    return ErrorCode::Success;
}

bool CZRNCamera::heartBeartQuery()
{
    const Operation operation;
    if (!isConnected()) {
        return false;
    }
    unsigned short gain = 0;
    return getGain(gain, 0) == ErrorCode::Success;
}

bool CZRNCamera::readSerial(QString& serial)
{
    const Operation operation;
    const DeviceAccess device = accessDevice();
    if (!device) {
        return false;
    }
    serial = hostSerial(device.serial());
    return serial.length() > serialPrefixLength;
}

QString CZRNCamera::hostSerial(const QString& serialKey)
{
    return QLatin1String(serialPrefix) + serialKey;
}
