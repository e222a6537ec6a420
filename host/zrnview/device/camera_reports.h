#pragma once

#include "camera_types.h"
#include "client/stream.h"
#include "error_code.h"
#include "zrnview/model/settings.h"

#include <QMetaType>

#include <vector>

/// What a camera's thread tells the window.
namespace zrnview
{

/// What does not change while a camera is connected.
struct CameraFacts : zrn::CameraFacts {
    zrn::Range<std::chrono::microseconds> exposure;
    ErrorCode exposureRangeCode = ErrorCode::Success;
    zrn::Range<std::uint32_t> gain;
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
    Absent,     ///< given back
    Connecting, ///< found, its thread is taking it over
    Unusable,   ///< found, but could not be connected
    Idle,       ///< connected, not streaming
    Streaming,  ///< frames arrive
    Silent,     ///< streaming, but no frame arrives
    Lost,       ///< does not answer any more, as after it was unplugged; looked for
};

/// How a camera is doing; sent several times a second.
struct CameraHealth {
    CameraState state = CameraState::Connecting;
    bool answersControls = true; ///< whether the last liveness probes were answered
    double driverRate = 0;       ///< frames per second, as the driver measures
    zrn::StreamCounters counters;
    ErrorCode code = ErrorCode::Success; ///< why the state is Unusable, or why no frame came
    QString refusal; ///< why a lost camera cannot be had, although it is on the bus; may be empty
};

/// Makes the types known to queued signals. Call once before any camera is used.
void registerReportTypes();

} // namespace zrnview

Q_DECLARE_METATYPE(zrnview::CameraFacts)
Q_DECLARE_METATYPE(zrnview::SettingReadings)
Q_DECLARE_METATYPE(zrnview::PropertyReadings)
Q_DECLARE_METATYPE(zrnview::CameraHealth)
Q_DECLARE_METATYPE(ErrorCode)
