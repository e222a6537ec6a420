#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

/// What a host makes of a frame, written down plainly and apart from both driver and simulator: a
/// pair of images into which a layout puts one byte after another, and which forgets what would lie
/// outside. Rows are left where they arrive.
///
/// @tparam Layout the driver's or the simulator's enumeration, which have the same names.
template <typename Layout>
class UnpackingModel
{
public:
    UnpackingModel(Layout layout, std::size_t width, std::size_t height,
                   const std::vector<unsigned char>& frame)
        : a(width * height)
        , b(width * height)
        , m_width(static_cast<Index>(width))
        , m_height(static_cast<Index>(height))
        , m_frame(frame)
    {
        switch (layout) {
        case Layout::Interleaved:
        case Layout::InterleavedShifted:
            interleaved();
            break;
        case Layout::ReversedQuads:
            reversedQuads();
            break;
        case Layout::Single:
            single();
            break;
        case Layout::BothEnds:
            bothEnds();
            break;
        case Layout::BothEndsMirrored:
            bothEnds();
            mirror(a);
            mirror(b);
            break;
        case Layout::Strips:
            strips();
            break;
        }
    }

    std::vector<unsigned char> a;
    std::vector<unsigned char> b;

private:
    using Image = std::vector<unsigned char>;
    using Index = std::int64_t;

    [[nodiscard]] Index pixels() const { return m_width * m_height; }

    void put(Image& image, Index to, Index from) const
    {
        const bool exists = from < static_cast<Index>(m_frame.size());
        if (exists && to >= 0 && to < pixels()) {
            image[static_cast<std::size_t>(to)] = m_frame[static_cast<std::size_t>(from)];
        }
    }

    void interleaved()
    {
        for (Index i = 0; i < pixels(); ++i) {
            put(a, i, 2 * i);
            put(b, i, 2 * i + 1);
        }
    }

    void reversedQuads()
    {
        for (Index g = 0; g < pixels() / 4; ++g) {
            const Index t = 8 * g;
            for (Index n = 0; n < 4; ++n) {
                put(a, 4 * g + n, t + 3 - n);
                put(b, 4 * g + n, t + 7 - n);
            }
        }
    }

    void single()
    {
        for (Index i = 0; i < pixels(); ++i) {
            put(a, i, i);
        }
    }

    void bothEnds()
    {
        for (Index y = 0; y < m_height; ++y) {
            const Index left = y * m_width;
            const Index right = left + m_width - 1;
            Index s = 2 * m_width * y;
            for (Index k = 0; 8 * k < 2 * m_width; ++k) {
                for (Image* image : {&a, &b}) {
                    put(*image, left + 2 * k, s++);
                    put(*image, right - 2 * k, s++);
                    put(*image, left + 2 * k + 1, s++);
                    put(*image, right - 2 * k - 1, s++);
                }
            }
        }
    }

    void mirror(Image& image) const
    {
        for (Index y = 0; m_width >= 4 && y < m_height; ++y) {
            for (Index j = 0; j < m_width / 4; ++j) {
                const Index row = y * m_width;
                std::swap(image[static_cast<std::size_t>(row + m_width / 2 + j)],
                          image[static_cast<std::size_t>(row + m_width - 1 - j)]);
            }
        }
    }

    void strips()
    {
        constexpr std::array<Index, 4> strip = {0, 320, 640, 960};
        for (Index k = 0; k < 2 * pixels(); ++k) {
            const Index r = k / (2 * m_width);
            const Index q = (k - r * 2 * m_width) >> 3;
            put((k & 4) == 0 ? a : b, strip[static_cast<std::size_t>(k & 3)] + m_width * r + q, k);
        }
    }

    Index m_width;
    Index m_height;
    const std::vector<unsigned char>& m_frame;
};
