#include "stream_ledger.h"

#include "frame_trailer.h"

#include <algorithm>
#include <array>
#include <chrono>

namespace soak
{
namespace
{

/// libuvc collects one frame while it hands over another.
constexpr std::size_t framesInLibrary = 2;

/// The trailer of images of the frame with this number.
std::uint64_t trailerOf(std::uint32_t number)
{
    std::array<unsigned char, 6> header = {};
    for (std::size_t i = 0; i < sizeof(number); ++i) {
        header[2 + i] = static_cast<unsigned char>(number >> (8 * i));
    }
    return frameTrailer(header);
}

} // namespace

Seconds now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

StreamLedger::StreamLedger(int cacheSlots)
    : m_cacheSlots(static_cast<std::size_t>(cacheSlots))
{
}

void StreamLedger::noteStarted()
{
    const std::lock_guard locker(m_mutex);
    m_started = now();
}

void StreamLedger::noteStopping()
{
    const std::lock_guard locker(m_mutex);
    m_stopping = m_stopping.value_or(now());
}

void StreamLedger::noteArrival(std::optional<std::uint32_t> number)
{
    const std::lock_guard locker(m_mutex);
    m_arrivals.push_back({number, now()});
}

std::optional<std::uint32_t> StreamLedger::noteDelivery(std::uint64_t trailer, bool dropsOlder)
{
    const std::lock_guard locker(m_mutex);
    // Trailers may repeat every 128 frames, which is more than the cache holds.
    const auto found = std::find_if(m_arrivals.rbegin(), m_arrivals.rend(), [&](const Arrival& a) {
        return a.number && trailerOf(*a.number) == trailer;
    });
    if (found == m_arrivals.rend()) {
        ++m_foreignDeliveries;
        return std::nullopt;
    }
    ++found->deliveries;
    m_deliveries.push_back({static_cast<std::size_t>(m_arrivals.rend() - found) - 1, now(),
                            m_arrivals.size(), dropsOlder});
    return found->number;
}

void StreamLedger::noteDiscard()
{
    const std::lock_guard locker(m_mutex);
    m_discards.push_back(now());
}

void StreamLedger::noteBrokenWire()
{
    const std::lock_guard locker(m_mutex);
    m_brokenWire = m_brokenWire.value_or(now());
}

Outcomes StreamLedger::settle(const std::vector<SentFrame>& sent) const
{
    const std::lock_guard locker(m_mutex);
    Outcomes outcomes;
    for (std::size_t i = 0; i < sent.size(); ++i) {
        const SentFrame& frame = sent[i];
        const auto arrival = std::ranges::find_if(
            m_arrivals, [&](const Arrival& a) { return a.number == frame.number; });
        const bool hasArrived = arrival != m_arrivals.end();
        ++outcomes[hasArrived
                       ? outcomeOfArrived(static_cast<std::size_t>(arrival - m_arrivals.begin()))
                       : outcomeOfLost(frame, i + framesInLibrary >= sent.size())];
    }
    if (m_foreignDeliveries > 0) {
        outcomes["unexplained: delivered without having been sent"] += m_foreignDeliveries;
    }
    return outcomes;
}

std::string StreamLedger::outcomeOfArrived(std::size_t position) const
{
    const Arrival& arrival = m_arrivals[position];
    if (arrival.deliveries > 0) {
        return arrival.deliveries == 1 ? "delivered" : "unexplained: delivered twice";
    }
    if (arrival.time < m_started) {
        return "arrived before the start had returned";
    }
    const auto next = std::ranges::find_if(
        m_deliveries, [&](const Delivery& delivery) { return delivery.arrival > position; });
    const bool isDiscarded = std::ranges::any_of(m_discards, [&](Seconds time) {
        return time >= arrival.time && (next == m_deliveries.end() || time <= next->time);
    });
    if (isDiscarded) {
        return "discarded by the host";
    }
    if (next == m_deliveries.end()) {
        return "left in the cache at the end";
    }
    if (next->dropsOlder) {
        return "skipped for the newest";
    }
    return next->arrivedBefore - position > m_cacheSlots ? "overwritten in the cache"
                                                         : "unexplained: lost in the driver";
}

std::string StreamLedger::outcomeOfLost(const SentFrame& frame, bool isLast) const
{
    constexpr Seconds underWay = 1; // in transfers, on a busy machine
    if (!frame.isComplete) {
        return "cut off on the camera's side";
    }
    if (frame.isDamaged) {
        return "damaged on purpose, and refused";
    }
    if (m_brokenWire && frame.begun > *m_brokenWire - underWay) {
        return "lost on a broken wire";
    }
    if (isLast || (m_stopping && frame.begun > *m_stopping - underWay)) {
        return "under way when the stream was stopped";
    }
    const bool isOvertaken = std::ranges::any_of(
        m_arrivals, [&](const Arrival& arrival) { return arrival.time > frame.begun; });
    return isOvertaken ? "overtaken in libuvc, which hands over the newest"
                       : "unexplained: lost on the way to the driver";
}

} // namespace soak
