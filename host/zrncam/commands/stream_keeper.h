#pragma once

#include "commands/capture.h"
#include "common/camera.h"
#include "common/frame_numbers.h"
#include "common/stream_pace.h"
#include "progress.h"
#include "session.h"

#include <chrono>
#include <optional>
#include <vector>

/// A stretch of a stream without frames, and how it ended.
struct Outage {
    enum class Cause {
        Silent, ///< the camera answered, but sent nothing
        Gone,   ///< the camera did not answer
    };
    enum class Repair {
        None,        ///< the run ended first
        Restarted,   ///< stopping and starting the stream helped
        Reconnected, ///< the camera was enumerated and connected again
    };

    double begin = 0.0;   ///< seconds into the run: the last frame before
    double seconds = 0.0; ///< until the next frame, or the end of the run
    Cause cause = Cause::Silent;
    Repair repair = Repair::None;
    quint64 missing = 0;       ///< frame numbers skipped; 0 when the camera began to count anew
    bool isRenumbered = false; ///< the camera began to count anew
    /// Whether `missing` is all of them: the outage was too short to lose more frames than the
    /// trailers of two can tell, and frames came before and after it.
    bool isMissingExact = false;

    QString text() const;
    QJsonObject json() const;
};

/// Keeps one camera streaming whatever happens to it: asks its status when no frame comes, starts
/// the stream again while the camera answers, and looks for the camera on the bus when it does not.
/// Tells the begin and the end of each outage.
///
/// Thread safety: thread-bound.
class StreamKeeper
{
public:
    /// @param camera connected; its serial is the one that is looked for again.
    StreamKeeper(Session& session, zrnhost::Camera& camera, const CaptureOptions& capture,
                 Interrupt& interrupt, Progress& progress);

    /// Starts the stream for the first time. @throws DriverError
    void start();
    /// A frame came: an outage is over. @param second seconds into the run
    void noteFrame(double second, const zrnhost::FrameStep& step);
    /// No frame came: takes the next step towards one.
    void repair();
    /// The run is over.
    void finish(double second);

    const std::vector<Outage>& outages() const { return m_outages; }

private:
    bool isOnline();
    bool restart();
    bool reconnect();
    bool startQuietly();
    void beginOutage(bool online);
    void endOutage(double second);

    Session& m_session;
    zrnhost::Camera& m_camera;
    const CaptureOptions m_capture;
    const QString m_serial;
    Interrupt& m_interrupt;
    Progress& m_progress;
    std::optional<RunningStream> m_stream;
    std::optional<Outage> m_outage;
    int m_vainRestarts = 0; ///< in this outage
    double m_lastFrame = 0.0;
    zrnhost::StreamPace m_pace; ///< between frames, without the outages
    std::vector<Outage> m_outages;
};
