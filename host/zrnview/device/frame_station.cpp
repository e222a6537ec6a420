#include "zrnview/device/frame_station.h"

namespace zrnview
{
namespace
{

constexpr std::size_t keptSamples = 4096;

} // namespace

FrameStation::FrameStation()
    : m_thread([this] {
        while (const std::optional<LiveFrame> frame = m_incoming.waitAndTake()) {
            m_prepared.put(
                std::make_shared<const Display>(prepare(*frame, m_amplification.load())));
        }
    })
{
}

FrameStation::~FrameStation()
{
    m_incoming.close();
    m_thread.join();
}

void FrameStation::deliver(LiveFrame frame)
{
    FrameSample sample;
    sample.seconds = frame.seconds;
    sample.number = frame.frame.step.number;
    sample.isFirst = frame.isFirst;
    sample.missing = frame.isFirst ? 0 : frame.frame.step.missing; // what was before is not its
    sample.rate = m_rate.arrived(frame.seconds);
    sample.waitMilliseconds = frame.waitMilliseconds;
    {
        const std::lock_guard lock(m_samplesMutex);
        if (m_samples.size() >= keptSamples) {
            m_samples.erase(m_samples.begin(), m_samples.begin() + keptSamples / 2);
        }
        m_samples.push_back(sample);
    }
    m_incoming.put(std::move(frame));
}

std::shared_ptr<const Display> FrameStation::takeDisplay()
{
    return m_prepared.take().value_or(nullptr);
}

std::vector<FrameSample> FrameStation::takeSamples()
{
    const std::lock_guard lock(m_samplesMutex);
    return std::exchange(m_samples, {});
}

} // namespace zrnview
