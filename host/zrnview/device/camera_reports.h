#pragma once

#include "camera_types.h"
#include "client/stream.h"
#include "error_code.h"
#include "zrnview/model/settings.h"

#include <QMetaType>

#include <memory>
#include <vector>

/// What a camera's thread tells the window.
namespace zrnview
{

/// A camera that was opened, on its way to the thread that will use it.
struct ConnectedCamera {
    QString serial; ///< as the driver gives it
    QString port;
    ErrorCode code = ErrorCode::Success; ///< why it is not connected
    std::shared_ptr<zrn::Camera> camera;
};
using ConnectedCameraPointer = std::shared_ptr<ConnectedCamera>;

/// What does not change while a camera is connected.
struct CameraFacts {
    QString serial;
    unsigned int width = 0;  ///< of each image
    unsigned int height = 0; ///< of each image
    CameraSpace::PixelFormatType pixelFormat{};
    int sensorCount = 2;              ///< value of the SensorCount property
    unsigned int exposureMinimum = 0; ///< microseconds
    unsigned int exposureMaximum = 0; ///< microseconds
    ErrorCode exposureRangeCode = ErrorCode::Success;
    unsigned short gainMinimum = 0;
    unsigned short gainMaximum = 0;
};

/// One setting, read from the camera and perhaps written before.
struct SettingReading {
    Setting setting{};
    bool written = false;
    qint64 wanted = 0;                        ///< what was written
    ErrorCode writeCode = ErrorCode::Success; ///< answer to the write
    ErrorCode readCode = ErrorCode::Success;  ///< answer to the read
    qint64 value = 0;                         ///< what was read, unless that failed
};
using SettingReadings = std::vector<SettingReading>;

/// One property of the table.
struct PropertyReading {
    const char* key;
    ErrorCode code = ErrorCode::Success;
    zrn::Value value;
};
using PropertyReadings = std::vector<PropertyReading>;

enum class CameraState {
    Absent,     ///< given back, or not yet taken
    Connecting, ///< found, its thread is taking it over
    Unusable,   ///< found, but could not be connected
    Idle,       ///< connected, not streaming
    Streaming,  ///< frames arrive
    Silent,     ///< streaming, but no frame arrives
    Lost,       ///< does not answer any more, as after it was unplugged
};

/// How a camera is doing; sent several times a second.
struct CameraHealth {
    CameraState state = CameraState::Absent;
    bool answersControls = true; ///< whether the last liveness probes were answered
    double driverRate = 0;       ///< frames per second, as the driver measures
    double silentSeconds = 0;    ///< time without a frame, where state is Silent
    zrn::StreamCounters counters;
    ErrorCode code = ErrorCode::Success; ///< why the state is Unusable, or why no frame came
};

/// Makes the types known to queued signals. Call once before any camera is used.
void registerReportTypes();

} // namespace zrnview

Q_DECLARE_METATYPE(zrnview::ConnectedCameraPointer)
Q_DECLARE_METATYPE(zrnview::CameraFacts)
Q_DECLARE_METATYPE(zrnview::SettingReadings)
Q_DECLARE_METATYPE(zrnview::PropertyReadings)
Q_DECLARE_METATYPE(zrnview::CameraHealth)
Q_DECLARE_METATYPE(ErrorCode)
