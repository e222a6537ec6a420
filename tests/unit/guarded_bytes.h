#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <vector>

/// Bytes between two guard zones, so that a write outside them shows even without a sanitizer.
class GuardedBytes
{
public:
    /// @param misalignment how far the first byte lies behind an aligned address.
    explicit GuardedBytes(std::size_t size, std::size_t misalignment = 0)
        : m_begin(guardSize + misalignment)
        , m_size(size)
        , m_bytes(m_begin + size + guardSize, guard)
    {
        std::ranges::fill(bytes(), garbage);
    }

    [[nodiscard]] unsigned char* data() { return m_bytes.data() + m_begin; }
    [[nodiscard]] std::span<unsigned char> bytes() { return {data(), m_size}; }

    [[nodiscard]] bool guardsIntact() const
    {
        const auto isGuard = [](unsigned char byte) { return byte == guard; };
        const auto begin = m_bytes.begin() + static_cast<std::ptrdiff_t>(m_begin);
        return std::all_of(m_bytes.begin(), begin, isGuard) &&
               std::all_of(begin + static_cast<std::ptrdiff_t>(m_size), m_bytes.end(), isGuard);
    }

private:
    static constexpr std::size_t guardSize = 4096;
    static constexpr unsigned char guard = 0xC7;
    static constexpr unsigned char garbage = 0xA5;

    std::size_t m_begin;
    std::size_t m_size;
    std::vector<unsigned char> m_bytes;
};

/// Reproducible noise in a block of exactly this size. Every byte is non-zero, so that a pixel that
/// was not reached differs from one that was.
inline std::vector<unsigned char> noise(std::size_t size, std::uint32_t seed)
{
    std::mt19937 generator(seed);
    std::vector<unsigned char> bytes(size);
    for (unsigned char& byte : bytes) {
        byte = static_cast<unsigned char>(1 + generator() % 255);
    }
    bytes.shrink_to_fit();
    return bytes;
}

/// Equality of two byte ranges, told by their first difference instead of by megabytes of numbers.
inline ::testing::AssertionResult sameBytes(std::span<const unsigned char> expected,
                                            std::span<const unsigned char> actual)
{
    if (expected.size() != actual.size()) {
        return ::testing::AssertionFailure()
               << "expected " << expected.size() << " bytes, got " << actual.size();
    }
    const auto [e, a] = std::ranges::mismatch(expected, actual);
    if (e == expected.end()) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure()
           << "byte " << e - expected.begin() << ": expected " << int{*e} << ", got " << int{*a};
}
