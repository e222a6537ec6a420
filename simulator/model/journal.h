#pragma once

#include "model/control_fault.h"
#include "model/frame.h"

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>

namespace zrnsim
{

/// Everything that a camera ever did, for tests to account for.
struct Counters {
    std::uint64_t framesProduced = 0;   ///< taken by the sensor, whatever became of them
    std::uint64_t framesOverrun = 0;    ///< dropped by the camera: the host did not fetch in time
    std::uint64_t framesUnrendered = 0; ///< dropped by the simulator: no memory for the picture
    std::uint64_t framesStarted = 0;    ///< at least one payload was fetched
    std::uint64_t framesSent = 0;       ///< fetched to the last payload
    std::uint64_t framesCut = 0;        ///< started, and ended by a stop, an unplug or a fault
    std::uint64_t payloadsSent = 0;
    std::uint64_t payloadsLost = 0; ///< left out by a fault
    std::uint64_t payloadsWithError = 0;
    std::uint64_t bytesSent = 0; ///< payload headers included
    std::uint64_t transfersCompleted = 0;
    std::uint64_t transfersFailed = 0; ///< by a fault or a halt
    std::uint64_t controlRequests = 0;
    std::uint64_t controlStalls = 0;
    std::uint64_t controlFaults = 0; ///< requests that a fault touched
    std::uint64_t streamStarts = 0;
    std::uint64_t streamStops = 0;
    std::uint64_t resets = 0;                      ///< state resets through the contrast control
    std::map<std::string, std::uint64_t> requests; ///< answered requests by "request target"
};

/// One control request as it was answered.
struct TraceEntry {
    std::uint64_t index = 0;
    Clock::time_point time;
    SetupPacket setup;
    RequestName name;
    ControlStatus status = ControlStatus::Done;
    Bytes data; ///< what travelled in the data stage
};

/// One frame as it was sent.
struct SentFrame {
    std::uint64_t index = 0;
    Clock::time_point started;
    FrameRequest request;
    std::size_t bytes = 0;
    FrameFault fault;
    bool complete = false;
    /// When the host had got the transfer that it begins in: the bytes are in the host's memory,
    /// and the answer to the request that takes the transfer back is about to leave. Known where
    /// a transport tells.
    std::optional<Clock::time_point> taken;
};

/// The newest entries of an endless list; entries keep their index for ever.
template <typename Entry>
class Log
{
public:
    explicit Log(std::size_t capacity)
        : m_capacity(capacity)
    {
    }

    void append(Entry entry)
    {
        entry.index = m_next++;
        if (m_entries.size() == m_capacity) {
            m_entries.pop_front();
        }
        m_entries.push_back(std::move(entry));
    }

    /// The newest entry; there must be one.
    Entry& last() { return m_entries.back(); }

    /// The entry of this index; null when it is not kept.
    Entry* find(std::uint64_t index)
    {
        const std::uint64_t first = m_next - m_entries.size();
        return index < first || index >= m_next ? nullptr : &m_entries[index - first];
    }

    /// The kept entries with this index or a higher one.
    std::vector<Entry> since(std::uint64_t index) const
    {
        std::vector<Entry> result;
        for (const Entry& entry : m_entries) {
            if (entry.index >= index) {
                result.push_back(entry);
            }
        }
        return result;
    }

    std::uint64_t next() const { return m_next; }

private:
    std::size_t m_capacity;
    std::uint64_t m_next = 0;
    std::deque<Entry> m_entries;
};

} // namespace zrnsim
