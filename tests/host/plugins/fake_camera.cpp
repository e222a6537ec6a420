#include "fake_camera.h"

#include <QStringList>

#include <chrono>
#include <cstdio>

int FakeCamera::cameraCount = 0;

namespace
{

const QStringList serials{QStringLiteral("ZR1001"), QStringLiteral("ZR1002"),
                          QStringLiteral("ZR18446744073709551615")};

CameraSpace::ImageBlock* makeImage(quint32 frame, int direction)
{
    auto* block = new CameraSpace::ImageBlock;
    block->width = FakeCamera::width;
    block->height = FakeCamera::height;
    block->bitsPerPixel = 8;
    const int pixels = FakeCamera::width * FakeCamera::height;
    block->data.reserve(pixels + 8);
    for (int i = 0; i < pixels; ++i) {
        block->data.append(static_cast<char>(static_cast<int>(frame) + direction * i));
    }
    quint64 trailer = 0;
    for (int byte = 0; byte < 4; ++byte) {
        const auto value = static_cast<qint64>(static_cast<qint8>(frame >> (8 * byte)));
        trailer |= static_cast<quint64>(value) << (8 * byte);
    }
    block->data.append(reinterpret_cast<const char*>(&trailer), sizeof trailer);
    return block;
}

} // namespace

bool hasFault(const char* name)
{
    return qEnvironmentVariable("ZRN_FAKE_FAULT")
        .split(QLatin1Char(','))
        .contains(QLatin1String(name));
}

ErrorCode FakeCamera::connectDeviceBySerial(const QString& serial)
{
    const int index = serials.indexOf(serial);
    if (index < 0 || index >= cameraCount) {
        return ErrorCode::SerialNotFound;
    }
    return connectDeviceByIndex(index);
}

ErrorCode FakeCamera::connectDeviceByIndex(int index)
{
    std::printf("index:%d  camCount:%d \n", index, cameraCount);
    if (cameraCount < 1) {
        return ErrorCode::NothingEnumerated;
    }
    if (index < 0 || index >= cameraCount) {
        return ErrorCode::BadArgument;
    }
    if (index == 1 && hasFault("second-not-open")) {
        return ErrorCode::NodeNotOpen;
    }
    m_serial = serials[index];
    m_properties = {
        {QStringLiteral("Serial"), m_serial}, {QStringLiteral("SensorCount"), index == 1 ? 1 : 2},
        {QStringLiteral("FrameRate"), 500.0}, {QStringLiteral("MaxGrabWaitTime"), 1000U},
        {QStringLiteral("Gamma"), 100},       {QStringLiteral("EnableCheckGain"), true}};
    return ErrorCode::Success;
}

ErrorCode FakeCamera::reconnectDevice()
{
    return connected();
}

ErrorCode FakeCamera::disconnectDevice()
{
    m_serial.clear();
    return ErrorCode::Success;
}

ErrorCode FakeCamera::getProperty(const QString& key, QMap<QString, QVariant>& values)
{
    if (connected() != ErrorCode::Success) {
        return ErrorCode::NoCamera;
    }
    if (!m_properties.contains(key)) {
        return ErrorCode::NotSupported;
    }
    values[QStringLiteral("value")] = m_properties[key];
    return ErrorCode::Success;
}

ErrorCode FakeCamera::setProperty(const QString& key, const QMap<QString, QVariant>& values)
{
    if (!m_properties.contains(key)) {
        return ErrorCode::NotSupported;
    }
    m_properties[key] = values[QStringLiteral("value")];
    return ErrorCode::Success;
}

ErrorCode FakeCamera::executeCommand(const QString& command, QMap<QString, QVariant>&)
{
    if (command != QLatin1String("ClearState")) {
        return ErrorCode::NotSupported;
    }
    return hasFault("no-reset") ? ErrorCode::CommandFailed : ErrorCode::Success;
}

ErrorCode FakeCamera::getExposureTimeRange(unsigned int& minimum, unsigned int& maximum,
                                           signed char)
{
    minimum = 100;
    maximum = 50000;
    return connected();
}

ErrorCode FakeCamera::setExposureTime(unsigned int value, signed char)
{
    if (value < 100 || value > 50000) {
        return ErrorCode::BadArgument;
    }
    m_exposure = value;
    return connected();
}

ErrorCode FakeCamera::getExposureTime(unsigned int& value, signed char)
{
    value = m_exposure;
    return hasFault("exposure-unreadable") ? ErrorCode::ExposureReadFailed : connected();
}

ErrorCode FakeCamera::getGainRange(unsigned short& minimum, unsigned short& maximum, signed char)
{
    minimum = 1;
    maximum = 255;
    return connected();
}

ErrorCode FakeCamera::setGain(unsigned short value, signed char)
{
    if (hasFault("gain-refused")) {
        return ErrorCode::GainWriteFailed;
    }
    m_gain = value;
    return connected();
}

ErrorCode FakeCamera::getGain(unsigned short& value, signed char)
{
    value = m_gain;
    return connected();
}

ErrorCode FakeCamera::getMaxImageSize(unsigned int& widthOut, unsigned int& heightOut, signed char)
{
    widthOut = width;
    heightOut = height;
    return connected();
}

ErrorCode FakeCamera::setInterestSize(unsigned int, unsigned int, signed char)
{
    return ErrorCode::NotSupported;
}

ErrorCode FakeCamera::getInterestSize(unsigned int& widthOut, unsigned int& heightOut,
                                      signed char selector)
{
    return getMaxImageSize(widthOut, heightOut, selector);
}

ErrorCode FakeCamera::setAOIOffset(unsigned int, unsigned int, signed char)
{
    return ErrorCode::NotSupported;
}

ErrorCode FakeCamera::getAOIOffset(unsigned int&, unsigned int&, signed char)
{
    return ErrorCode::NotSupported;
}

ErrorCode FakeCamera::getPixelFormat(CameraSpace::PixelFormatType& format, signed char)
{
    format = CameraSpace::PixelFormatType::Packed16;
    return connected();
}

ErrorCode FakeCamera::setTriggerMode(CameraSpace::TriggerMode mode, signed char)
{
    m_mode = mode;
    return ErrorCode::NotSupported;
}

ErrorCode FakeCamera::getTriggerMode(CameraSpace::TriggerMode& mode, signed char)
{
    mode = m_mode;
    return ErrorCode::NotSupported;
}

ErrorCode FakeCamera::discardFrames(signed char)
{
    return ErrorCode::Success;
}

ErrorCode FakeCamera::startStream(signed char)
{
    if (hasFault("no-start")) {
        return ErrorCode::StreamStartFailed;
    }
    const std::lock_guard lock(m_mutex);
    m_streaming = true;
    return connected();
}

ErrorCode FakeCamera::stopStream(signed char)
{
    const std::lock_guard lock(m_mutex);
    if (!m_streaming) {
        return ErrorCode::NotStreaming;
    }
    m_streaming = false;
    m_stopped.notify_all();
    return ErrorCode::Success;
}

ErrorCode FakeCamera::grabImage(QList<CameraSpace::ImageBlock*>& images)
{
    const bool silent = hasFault("silent");
    const std::chrono::milliseconds wait(
        silent ? m_properties[QStringLiteral("MaxGrabWaitTime")].toInt() : 2);
    std::unique_lock lock(m_mutex);
    if (!m_streaming) {
        return ErrorCode::NotStreaming;
    }
    if (m_stopped.wait_for(lock, wait, [this] { return !m_streaming; }) || silent) {
        return ErrorCode::GrabTimeout;
    }
    if (hasFault("split-fails")) {
        return ErrorCode::SplitFailed;
    }
    if (hasFault("gap") && m_frame == 5) {
        m_frame += 3;
    }
    images.append(makeImage(m_frame, 1));
    images.append(makeImage(m_frame, -1));
    ++m_frame;
    return ErrorCode::Success;
}
