#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <utility>
#include <vector>

/// What libuvc hands to a frame callback, said in its own way: it collects bytes, and whoever
/// asks for the held frame sees the last one. 0.0.6 collects what comes; 0.0.7 has a buffer of the
/// size that the camera announced.
class FrameModel
{
public:
    struct Held {
        std::uint32_t sequence = 0;
        std::vector<std::uint8_t> bytes;
    };

    /// @param onHeld called for each frame that is held, as one replaces another
    /// @param buffer bytes; nothing: as many as come
    explicit FrameModel(std::function<void(const Held&)> onHeld,
                        std::optional<std::size_t> buffer = std::nullopt)
        : m_onHeld(std::move(onHeld))
        , m_buffer(buffer)
    {
    }

    void process(std::span<const std::uint8_t> payload)
    {
        if (payload.empty() || payload[0] > payload.size()) {
            return;
        }
        std::span data = payload.subspan(payload[0]);
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
            if (m_buffer && m_collected.size() + data.size() > *m_buffer) {
                data = data.first(*m_buffer - m_collected.size());
            }
            m_collected.insert(m_collected.end(), data.begin(), data.end());
            if (info & 2U || m_collected.size() == m_buffer) {
                hold();
            }
        }
    }

private:
    void hold() { m_onHeld({m_next++, std::exchange(m_collected, {})}); }

    std::function<void(const Held&)> m_onHeld;
    std::optional<std::size_t> m_buffer;
    std::uint32_t m_next = 1;
    std::uint8_t m_frameId = 0;
    std::vector<std::uint8_t> m_collected;
};
