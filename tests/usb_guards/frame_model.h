#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <utility>
#include <vector>

/// What libuvc 0.0.6 hands to a frame callback, said in its own way: it collects bytes, and whoever
/// asks for the held frame sees the last one.
class FrameModel
{
public:
    struct Held {
        std::uint32_t sequence = 0;
        std::vector<std::uint8_t> bytes;
    };

    /// @param onHeld called for each frame that is held, as one replaces another
    explicit FrameModel(std::function<void(const Held&)> onHeld)
        : m_onHeld(std::move(onHeld))
    {
    }

    void process(std::span<const std::uint8_t> payload)
    {
        if (payload.empty() || payload[0] > payload.size()) {
            return;
        }
        const std::span data = payload.subspan(payload[0]);
        std::uint8_t info = 0;
        if (payload[0] >= 2) {
            info = payload[1];
            if (info & 0x40U) {
                return;
            }
            if ((info & 1U) != m_frameId && !m_collected.empty()) {
                hold();
            }
            m_frameId = info & 1U;
        }
        if (!data.empty()) {
            m_collected.insert(m_collected.end(), data.begin(), data.end());
            if (info & 2U) {
                hold();
            }
        }
    }

private:
    void hold() { m_onHeld({m_next++, std::exchange(m_collected, {})}); }

    std::function<void(const Held&)> m_onHeld;
    std::uint32_t m_next = 1;
    std::uint8_t m_frameId = 0;
    std::vector<std::uint8_t> m_collected;
};
