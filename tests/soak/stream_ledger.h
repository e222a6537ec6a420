#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace soak
{

/// Seconds of the monotonic clock, which the virtual camera's records use too.
using Seconds = double;
Seconds now();

/// What the virtual camera has recorded of a frame that it began to send.
struct SentFrame {
    std::uint32_t number = 0;
    Seconds begun = 0;
    bool isComplete = false; ///< all of it left the camera
    bool isDamaged = false;  ///< sent with a wrong size, lost payloads or error bits
};

/// What became of frames, by outcome.
using Outcomes = std::map<std::string, std::uint64_t>;

/// Everything that happens to the frames of one camera from the start of a stream to its stop, and
/// what that means for each frame. Thread-safe.
class StreamLedger
{
public:
    /// @param cacheSlots how many frames the driver keeps.
    explicit StreamLedger(int cacheSlots);

    void noteStarted();  ///< startStream has returned
    void noteStopping(); ///< stopStream is about to be called, or the camera to go
    /// A frame reached the driver. @param number nothing when it has the wrong size.
    void noteArrival(std::optional<std::uint32_t> number);
    /// A grab gave a frame with this trailer. @param dropsOlder the newest frame was asked for.
    /// @return the number of the frame, or nothing when none with that trailer had arrived.
    std::optional<std::uint32_t> noteDelivery(std::uint64_t trailer, bool dropsOlder);
    /// discardFrames has returned.
    void noteDiscard();
    /// From now on the camera or the wire loses transfers, until the stream ends.
    void noteBrokenWire();

    /// Sorts frames into outcomes. Those that start with "unexplained" should not be.
    [[nodiscard]] Outcomes settle(const std::vector<SentFrame>& sent) const;

private:
    struct Arrival {
        std::optional<std::uint32_t> number;
        Seconds time;
        int deliveries = 0;
    };
    struct Delivery {
        std::size_t arrival; ///< position in m_arrivals
        Seconds time;
        std::size_t arrivedBefore; ///< arrivals up to then
        bool dropsOlder;
    };

    [[nodiscard]] std::string outcomeOfArrived(std::size_t arrival) const;
    [[nodiscard]] std::string outcomeOfLost(const SentFrame& frame, bool isLast) const;

    mutable std::mutex m_mutex;
    std::size_t m_cacheSlots;
    Seconds m_started = 0;
    std::optional<Seconds> m_stopping;
    std::optional<Seconds> m_brokenWire;
    std::vector<Arrival> m_arrivals;
    std::vector<Delivery> m_deliveries;
    std::vector<Seconds> m_discards;
    std::uint64_t m_foreignDeliveries = 0;
};

} // namespace soak
