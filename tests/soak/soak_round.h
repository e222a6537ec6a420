#pragma once

#include "chaos.h"
#include "factory_interface.h"
#include "operation_log.h"
#include "random.h"
#include "stream_ledger.h"
#include "usage_trend.h"
#include "virtual_camera.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace soak
{

class SoakCamera;

/// Sums over all rounds.
struct Account {
    std::uint64_t rounds = 0;
    std::uint64_t starts = 0;   ///< of streams
    std::uint64_t restarts = 0; ///< of streams that had fallen silent
    std::uint64_t sent = 0;     ///< frames, by the virtual cameras' counters
    Outcomes outcomes;
    FaultCounts faults;
};

/// Runs cameras, faults and host threads for a few seconds at a time.
class Soak
{
public:
    Soak(IFactory& factory, OperationLog& log, UsageTrend& usage, std::size_t cameraCount,
         unsigned seed);

    /// Enumerates, connects, streams under faults, closes everything, and settles the frames.
    void runRound();

    [[nodiscard]] const Account& account() const { return m_account; }

private:
    void makeCamerasReady();
    void stream(std::vector<std::unique_ptr<SoakCamera>>& cameras);
    /// One round of the client library: streams that are kept alive, each with some queue policy.
    void streamThroughLibrary();
    template <typename Streaming>
    void settle(std::size_t index, const Streaming& camera);

    IFactory& m_factory;
    OperationLog& m_log;
    UsageTrend& m_usage;
    Random m_random;
    std::vector<VirtualCamera> m_devices;
    std::vector<std::uint64_t> m_framesSeen; ///< of each camera, as its counter says
    Account m_account;
};

} // namespace soak
