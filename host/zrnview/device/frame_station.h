#pragma once

#include "zrnview/model/newest.h"
#include "zrnview/model/picture.h"
#include "zrnview/model/series.h"

#include <atomic>
#include <thread>
#include <vector>

namespace zrnview
{

/// Between a source of frames and the screen: prepares the newest frame on a thread of its own and
/// keeps it until the screen asks. Delivering never waits for either.
///
/// Thread safety: deliver() belongs to the source's thread, the rest is thread-safe.
class FrameStation
{
public:
    FrameStation();
    ~FrameStation();
    FrameStation(const FrameStation&) = delete;
    FrameStation& operator=(const FrameStation&) = delete;

    /// Hands over a frame that is recordable.
    void deliver(LiveFrame frame);

    /// The newest prepared frame that has not been taken; null if there is none.
    std::shared_ptr<const Display> takeDisplay();
    /// What is known of the frames since the last call, at most some thousand of the newest.
    std::vector<FrameSample> takeSamples();

    /// Factor of the difference picture; 0 makes none, which saves the work.
    void setAmplification(int factor) { m_amplification.store(factor); }

private:
    Newest<LiveFrame> m_incoming;
    Newest<std::shared_ptr<const Display>> m_prepared;
    std::atomic<int> m_amplification = 0;
    RateMeter m_rate;
    std::mutex m_samplesMutex;
    std::vector<FrameSample> m_samples;
    std::thread m_thread;
};

} // namespace zrnview
