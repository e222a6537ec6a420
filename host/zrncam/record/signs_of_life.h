#pragma once

#include "client/stream.h"

#include <QString>

#include <map>
#include <mutex>

/// Tells a service manager that the cameras are being recorded: as long as each one sends frames,
/// is known to be out, or has frames that are being written to the end.
///
/// Thread safety: thread-safe.
class SignsOfLife
{
public:
    /// What one camera tells. It counts from its first sign until this object ends.
    ///
    /// Thread safety: thread-bound.
    class OfCamera
    {
    public:
        OfCamera(SignsOfLife& signs, QString name)
            : m_signs(signs)
            , m_name(std::move(name))
        {
        }
        ~OfCamera();
        OfCamera(const OfCamera&) = delete;
        OfCamera& operator=(const OfCamera&) = delete;

        void tell(const zrn::StreamCounters& counters);
        void tellWriting();

    private:
        SignsOfLife& m_signs;
        const QString m_name;
        std::uint64_t m_frames = 0;
    };

private:
    void tell(const QString& name, bool isAlive);
    void forget(const QString& name);
    void tellManager();

    std::mutex m_mutex;
    std::map<QString, bool> m_cameras; ///< whether there was a sign since the manager was told
};
