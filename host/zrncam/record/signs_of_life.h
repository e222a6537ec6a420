#pragma once

#include "client/stream.h"

#include <QString>

#include <map>
#include <mutex>

/// Tells a service manager that the cameras are being recorded: as long as each one sends frames,
/// or is known to be out.
///
/// Thread safety: thread-safe.
class SignsOfLife
{
public:
    void tell(const QString& name, const zrn::StreamCounters& counters);
    /// It is done, or its frames are being written to the end.
    void forget(const QString& name);

private:
    struct Camera {
        std::uint64_t frames = 0;
        bool isAlive = false; ///< since the last sign
    };

    void tellAlive();

    std::mutex m_mutex;
    std::map<QString, Camera> m_cameras;
};
