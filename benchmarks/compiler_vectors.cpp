#include "compiler_vectors.h"

#include <cstddef>
#include <cstring>

#ifdef __x86_64__
// Clones exist where the linker chooses among functions when the program starts.
#define CLONES [[gnu::target_clones("avx2", "default")]]
#else
#define CLONES
#endif

namespace
{

using Wide [[gnu::vector_size(32)]] = unsigned char;
using Half [[gnu::vector_size(16)]] = unsigned char;

// By reference: vectors that a function returns have no place where there is no AVX.
template <typename Vector>
void load(Vector& vector, const unsigned char* from)
{
    std::memcpy(&vector, from, sizeof(vector));
}

template <typename Vector>
void store(unsigned char* to, const Vector& vector)
{
    std::memcpy(to, &vector, sizeof(vector));
}

} // namespace

CLONES void interleavedWithVectors(const unsigned char* s, std::size_t pixels, unsigned char* a,
                                   unsigned char* b)
{
    for (std::size_t i = 0; i < pixels; i += sizeof(Wide)) {
        Wide low;
        Wide high;
        load(low, s + 2 * i);
        load(high, s + 2 * i + sizeof(Wide));
        store(a + i, __builtin_shufflevector(low, high, 0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22,
                                             24, 26, 28, 30, 32, 34, 36, 38, 40, 42, 44, 46, 48, 50,
                                             52, 54, 56, 58, 60, 62));
        store(b + i, __builtin_shufflevector(low, high, 1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23,
                                             25, 27, 29, 31, 33, 35, 37, 39, 41, 43, 45, 47, 49, 51,
                                             53, 55, 57, 59, 61, 63));
    }
}

CLONES void bothEndsWithVectors(const unsigned char* s, std::size_t width, std::size_t height,
                                unsigned char* a, unsigned char* b)
{
    for (std::size_t y = 0; y < height; ++y) {
        unsigned char* const rowA = a + y * width;
        unsigned char* const rowB = b + y * width;
        for (std::size_t i = 0; i < width / 2; i += sizeof(Half)) {
            const unsigned char* const groups = s + 2 * y * width + 4 * i;
            Wide low;
            Wide high;
            load(low, groups);
            load(high, groups + sizeof(Wide));
            const std::size_t right = width - i - sizeof(Half);
            store(rowA + i, __builtin_shufflevector(low, high, 0, 2, 8, 10, 16, 18, 24, 26, 32, 34,
                                                    40, 42, 48, 50, 56, 58));
            store(rowA + right, __builtin_shufflevector(low, high, 59, 57, 51, 49, 43, 41, 35, 33,
                                                        27, 25, 19, 17, 11, 9, 3, 1));
            store(rowB + i, __builtin_shufflevector(low, high, 4, 6, 12, 14, 20, 22, 28, 30, 36, 38,
                                                    44, 46, 52, 54, 60, 62));
            store(rowB + right, __builtin_shufflevector(low, high, 63, 61, 55, 53, 47, 45, 39, 37,
                                                        31, 29, 23, 21, 15, 13, 7, 5));
        }
    }
}

bool unpackWithCompilerVectors(FrameLayout layout, const unsigned char* frame, int width,
                               int height, unsigned char* imageA, unsigned char* imageB)
{
    const auto columns = static_cast<std::size_t>(width);
    const auto rows = static_cast<std::size_t>(height);
    switch (layout) {
    case FrameLayout::Interleaved:
        interleavedWithVectors(frame, columns * rows, imageA, imageB);
        return true;
    case FrameLayout::BothEnds:
        bothEndsWithVectors(frame, columns, rows, imageA, imageB);
        return true;
    default:
        return false;
    }
}
