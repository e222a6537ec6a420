#pragma once

#include <cstdint>
#include <vector>

/// Payloads as a camera sends them: a header, then a piece of a frame.
namespace payloads
{

using Payload = std::vector<std::uint8_t>;

constexpr std::uint8_t frameId = 0x01;
constexpr std::uint8_t endOfFrame = 0x02;
constexpr std::uint8_t presentationTime = 0x04;
constexpr std::uint8_t sourceClock = 0x08;
constexpr std::uint8_t error = 0x40;

constexpr std::size_t headerSize = 2; ///< without clocks

inline Payload payload(std::size_t data, std::uint8_t info)
{
    Payload result(headerSize + data);
    result[0] = headerSize;
    result[1] = info;
    return result;
}

} // namespace payloads
