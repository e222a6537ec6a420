#pragma once

#include "camera_interface.h"

#include <condition_variable>
#include <mutex>

/// Faults that the environment variable ZRN_FAKE_FAULT asks for, by name.
bool hasFault(const char* name);

/// A camera without hardware: 64 x 48 pixels, a frame each 2 ms, the frame number in the trailer.
/// Image A counts up from the frame number, image B down from it.
class FakeCamera : public CameraSpace::CameraInterface
{
public:
    static constexpr int width = 64;
    static constexpr int height = 48;

    virtual ~FakeCamera() = default;

    QString name() override { return QStringLiteral("FakeCamera"); }
    int types() override { return 1; }
    ErrorCode connectDeviceBySerial(const QString& serial) override;
    ErrorCode connectDeviceByIndex(int index) override;
    ErrorCode reconnectDevice() override;
    ErrorCode disconnectDevice() override;
    ErrorCode getProperty(const QString& key, QMap<QString, QVariant>& values) override;
    ErrorCode setProperty(const QString& key, const QMap<QString, QVariant>& values) override;
    ErrorCode executeCommand(const QString& command, QMap<QString, QVariant>& values) override;

    ErrorCode getExposureTimeRange(unsigned int& minimum, unsigned int& maximum,
                                   signed char) override;
    ErrorCode setExposureTime(unsigned int value, signed char) override;
    ErrorCode getExposureTime(unsigned int& value, signed char) override;
    ErrorCode getGainRange(unsigned short& minimum, unsigned short& maximum, signed char) override;
    ErrorCode setGain(unsigned short value, signed char) override;
    ErrorCode getGain(unsigned short& value, signed char) override;
    ErrorCode getMaxImageSize(unsigned int& widthOut, unsigned int& heightOut,
                              signed char) override;
    ErrorCode setInterestSize(unsigned int, unsigned int, signed char) override;
    ErrorCode getInterestSize(unsigned int& widthOut, unsigned int& heightOut,
                              signed char) override;
    ErrorCode setAOIOffset(unsigned int, unsigned int, signed char) override;
    ErrorCode getAOIOffset(unsigned int&, unsigned int&, signed char) override;
    ErrorCode getPixelFormat(CameraSpace::PixelFormatType& format, signed char) override;
    ErrorCode setTriggerMode(CameraSpace::TriggerMode mode, signed char) override;
    ErrorCode getTriggerMode(CameraSpace::TriggerMode& mode, signed char) override;
    ErrorCode discardFrames(signed char) override;
    ErrorCode startStream(signed char) override;
    ErrorCode stopStream(signed char) override;
    ErrorCode grabImage(QList<CameraSpace::ImageBlock*>& images) override;

    static int cameraCount;

private:
    ErrorCode connected() const
    {
        return m_serial.isEmpty() ? ErrorCode::NoCamera : ErrorCode::Success;
    }

    QString m_serial;
    QMap<QString, QVariant> m_properties;
    unsigned int m_exposure = 1000;
    unsigned short m_gain = 10;
    CameraSpace::TriggerMode m_mode = CameraSpace::TriggerMode::Oldest;
    std::mutex m_mutex;
    std::condition_variable m_stopped;
    bool m_streaming = false;
    quint32 m_frame = 0;
};
