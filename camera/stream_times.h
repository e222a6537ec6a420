#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>

/// What the payloads of one frame told.
struct PayloadTimes {
    std::int64_t first = 0;  ///< nanoseconds of CLOCK_MONOTONIC
    std::int64_t last = 0;   ///< likewise
    std::uint64_t bytes = 0; ///< of the frame
    std::optional<std::uint32_t> presentationTime;
    struct SourceClock {
        std::uint32_t time = 0;
        std::uint16_t busFrame = 0;

        bool operator==(const SourceClock&) const = default;
    };
    std::optional<SourceClock> sourceClock;

    bool operator==(const PayloadTimes&) const = default;
};

/// The times of a stream's last frames, by the numbers that libuvc gives to them.
///
/// Whoever sees the payloads notes a frame before libuvc knows of it; the frame callback looks it
/// up. Neither waits for the other: an entry tells its number last and loses it first, so that who
/// finds the same number before and after reading has read one frame.
///
/// Thread safety: note() belongs to one thread at a time, the others are thread-safe.
class StreamTimes
{
public:
    /// How far the callback may lag behind.
    static constexpr std::size_t capacity = 256;

    /// @param frameSize bytes of a whole frame
    explicit StreamTimes(std::uint64_t frameSize)
        : m_frameSize(frameSize)
    {
    }

    struct Found {
        PayloadTimes times;
        std::uint64_t wholeFrames = 0; ///< whole frames up to this one, itself included
    };

    void note(std::uint32_t sequence, const PayloadTimes& frame)
    {
        m_wholeFrames += isWhole(frame.bytes) ? 1U : 0U;
        Entry& entry = m_entries[sequence % capacity];
        entry.sequence.store(none, std::memory_order_relaxed);
        // Each of these keeps the line above before itself.
        constexpr auto order = std::memory_order_release;
        entry.first.store(frame.first, order);
        entry.last.store(frame.last, order);
        entry.bytes.store(frame.bytes, order);
        entry.wholeFrames.store(m_wholeFrames, order);
        const PayloadTimes::SourceClock clock =
            frame.sourceClock.value_or(PayloadTimes::SourceClock{});
        entry.clocks.store(std::uint64_t{frame.presentationTime.value_or(0)} << 32U | clock.time,
                           order);
        entry.flags.store((frame.presentationTime ? hasPresentationTime : 0U) |
                              (frame.sourceClock ? hasSourceClock : 0U) |
                              std::uint32_t{clock.busFrame},
                          order);
        entry.sequence.store(sequence, order);
        m_isUsed.store(true, order);
    }

    /// @return nothing where this frame was not noted, or so many after it that it is forgotten
    [[nodiscard]] std::optional<Found> find(std::uint32_t sequence) const
    {
        constexpr auto order = std::memory_order_acquire;
        const Entry& entry = m_entries[sequence % capacity];
        if (sequence == none || entry.sequence.load(order) != sequence) {
            return std::nullopt;
        }
        Found found;
        found.times.first = entry.first.load(order);
        found.times.last = entry.last.load(order);
        found.times.bytes = entry.bytes.load(order);
        found.wholeFrames = entry.wholeFrames.load(order);
        const std::uint64_t clocks = entry.clocks.load(order);
        const std::uint32_t flags = entry.flags.load(order);
        if (entry.sequence.load(std::memory_order_relaxed) != sequence) {
            return std::nullopt;
        }
        if (flags & hasPresentationTime) {
            found.times.presentationTime = static_cast<std::uint32_t>(clocks >> 32U);
        }
        if (flags & hasSourceClock) {
            found.times.sourceClock = {static_cast<std::uint32_t>(clocks),
                                       static_cast<std::uint16_t>(flags)};
        }
        return found;
    }

    [[nodiscard]] bool isWhole(std::uint64_t bytes) const { return bytes == m_frameSize; }

    /// Whether anything was ever noted.
    [[nodiscard]] bool isUsed() const { return m_isUsed.load(std::memory_order_acquire); }

private:
    static constexpr std::uint32_t none = 0; ///< libuvc counts from 1
    static constexpr std::uint32_t hasPresentationTime = 0x10000;
    static constexpr std::uint32_t hasSourceClock = 0x20000;

    struct Entry {
        std::atomic<std::uint32_t> sequence = none;
        std::atomic<std::uint32_t> flags = 0;
        std::atomic<std::int64_t> first = 0;
        std::atomic<std::int64_t> last = 0;
        std::atomic<std::uint64_t> bytes = 0;
        std::atomic<std::uint64_t> wholeFrames = 0;
        std::atomic<std::uint64_t> clocks = 0;
    };

    const std::uint64_t m_frameSize;
    std::uint64_t m_wholeFrames = 0;
    std::atomic<bool> m_isUsed = false;
    std::array<Entry, capacity> m_entries;
};
