#pragma once

#include "usb_user.h"

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

namespace company
{

/// What happens in one step of a case, and how long it takes.
class Teller
{
public:
    Teller(TellStep tell, void* context)
        : m_tell(tell)
        , m_context(context)
    {
    }

    /// Makes a step, which returns its outcome.
    template <typename Step>
    void operator()(const std::string& name, const Step& step) const
    {
        const auto start = std::chrono::steady_clock::now();
        const std::string outcome = step();
        const std::chrono::duration<double, std::milli> taken =
            std::chrono::steady_clock::now() - start;
        m_tell(m_context, name.c_str(), outcome.c_str(), m_isTimed ? taken.count() : 0);
    }

    /// For steps whose times are told elsewhere.
    [[nodiscard]] Teller withoutTimes() const
    {
        Teller other = *this;
        other.m_isTimed = false;
        return other;
    }

    /// The same for a step whose time is not the user's.
    template <typename Step>
    void untimed(const std::string& name, const Step& step) const
    {
        m_tell(m_context, name.c_str(), step().c_str(), 0);
    }

private:
    TellStep m_tell;
    void* m_context;
    bool m_isTimed = true;
};

/// Length, first bytes and hash of what was transferred.
inline std::string describe(std::span<const std::uint8_t> data)
{
    std::uint64_t hash = 14695981039346656037U;
    for (const std::uint8_t byte : data) {
        hash = (hash ^ byte) * 1099511628211U;
    }
    std::string text = std::to_string(data.size()) + " bytes";
    char part[24];
    for (const std::uint8_t byte : data.first(std::min<std::size_t>(data.size(), 8))) {
        std::snprintf(part, sizeof part, " %02x", byte);
        text += part;
    }
    std::snprintf(part, sizeof part, " #%016llx", static_cast<unsigned long long>(hash));
    return text + part;
}

} // namespace company
