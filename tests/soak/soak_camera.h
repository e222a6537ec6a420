#pragma once

#include "client/camera_object.h"
#include "operation_log.h"
#include "pauses.h"
#include "random.h"
#include "stream_ledger.h"

#include <atomic>
#include <memory>
#include <shared_mutex>
#include <vector>

namespace soak
{

/// One camera for one round: what host threads do with it, and the ledgers of its streams.
class SoakCamera
{
public:
    /// Makes the camera object, and connects it. @param index of the virtual camera
    SoakCamera(IFactory& factory, OperationLog& log, std::size_t index, const std::string& serial);
    SoakCamera(const SoakCamera&) = delete;
    SoakCamera& operator=(const SoakCamera&) = delete;

    [[nodiscard]] std::size_t index() const { return m_index; }

    void start(Random& random);
    /// Stops the stream and throws away what is cached.
    void stop();
    void discard();
    /// Deletes the camera object, whatever it does. No other thread may use it any more.
    void close();
    /// Whether grabs have found nothing for a while.
    [[nodiscard]] bool isSilent() const;

    /// Grabs until the round ends.
    void grabThread(Pauses& pauses, unsigned seed);
    /// Reads and writes controls and properties until the round ends.
    void controlThread(Pauses& pauses, unsigned seed);

    /// For whoever damages the stream from outside.
    void noteBrokenWire();
    void noteStopping();

    /// What became of the frames that the virtual camera has begun since the first start.
    [[nodiscard]] Outcomes settle(const std::vector<SentFrame>& sent) const;

private:
    /// The run of a stream, from before its start on.
    struct Session {
        Seconds begun;
        std::shared_ptr<StreamLedger> ledger;
    };

    [[nodiscard]] std::shared_ptr<StreamLedger> ledger() const;
    bool grabOnce(bool dropsOlder);

    OperationLog& m_log;
    std::size_t m_index;
    std::unique_ptr<zrn::CameraObject> m_camera;
    mutable std::mutex m_mutex; ///< guards m_sessions
    std::vector<Session> m_sessions;
    std::shared_mutex m_grabGate; ///< a grab belongs to one session
    std::atomic<int> m_emptyGrabs = 0;
};

} // namespace soak
