// The kernels on Highway: this file is compiled once for each instruction set, by including itself.
//
// A kernel loads as many vectors as there are streams and sorts each 16-byte block by stream with
// one table look-up. What is left is to transpose a square of equal pieces: one row for each
// vector, one column for each stream.

#include "group_split.h"
#include "group_split_loop.h"

// Where there is no vector unit that Highway knows, the plain loop beats emulated vectors.
#define HWY_BROKEN_EMU128 1
// Their vectors have no size at compile time and fit no array; ARM has NEON as well.
#define HWY_DISABLED_TARGETS (HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128 | HWY_RVV)

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/group_split_highway.cpp"
#include <hwy/foreach_target.h> // before highway.h
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace kernels::HWY_NAMESPACE
{

#if HWY_TARGET == HWY_SCALAR

template <GroupLayout layout>
void splitAs(const Rows& rows, const Streams& streams)
{
    splitPlainly<layout>(rows, streams);
}

#else

namespace hn = hwy::HWY_NAMESPACE;

// Longer vectors would gain nothing on data that comes from memory, but ask for longer rows.
constexpr std::size_t blockSize = 16;
constexpr std::size_t vectorSize = HWY_ARCH_X86 && HWY_MAX_BYTES >= 32 ? 32 : 16;
using Tag = hn::CappedTag<std::uint8_t, vectorSize>;
using Vector = hn::VFromD<Tag>;

/// Loads a vector whose second block, where it has one, lies @p stride bytes behind the first.
HWY_INLINE Vector loadBlocks(const std::uint8_t* source, [[maybe_unused]] std::size_t stride)
{
    const Tag tag;
#if HWY_ARCH_X86 && HWY_MAX_BYTES >= 32
    const hn::Half<Tag> block;
    return hn::Combine(tag, hn::LoadU(block, source + stride), hn::LoadU(block, source));
#else
    return hn::LoadU(tag, source);
#endif
}

/// The pieces of a 16-byte block, one for each of its streams.
template <std::size_t count>
using Pieces = hn::Repartition<hwy::UnsignedFromSize<blockSize / count>, Tag>;

/// Transposes, within each block, a square of pieces. The rows are a plain array: the members of
/// std::array are not compiled for the instruction set of their elements.
template <std::size_t count>
HWY_INLINE void transpose(Vector (&rows)[count])
{
    const Tag tag;
    const Pieces<count> pieces;
    // Each round moves the highest bit of the row number to the lowest place of the column number.
    for (std::size_t round = 1; round < count; round *= 2) {
        Vector next[count];
        for (std::size_t i = 0; i < count / 2; ++i) {
            const auto upper = hn::BitCast(pieces, rows[i]);
            const auto lower = hn::BitCast(pieces, rows[i + count / 2]);
            next[2 * i] = hn::BitCast(tag, hn::InterleaveLower(pieces, upper, lower));
            next[2 * i + 1] = hn::BitCast(tag, hn::InterleaveUpper(pieces, upper, lower));
        }
        for (std::size_t i = 0; i < count; ++i) {
            rows[i] = next[i];
        }
    }
}

/// The order with the piece of each downward stream reversed in itself.
constexpr GroupOrder orderInVectors(const GroupTraits& traits)
{
    GroupOrder order = traits.order;
    const std::size_t pieceSize = blockSize / traits.streams;
    for (std::size_t i = 0; i < traits.streams; ++i) {
        if (traits.directions[i] == Direction::Down) {
            const auto piece = order.begin() + i * pieceSize;
            std::reverse(piece, piece + pieceSize);
        }
    }
    return order;
}

/// Deals as many groups as one vector for each stream holds.
template <GroupLayout layout>
HWY_INLINE void splitVectors(const std::uint8_t* source, std::size_t position,
                             const Streams& streams)
{
    constexpr const GroupTraits& traits = traitsOf(layout);
    constexpr std::size_t streamCount = traits.streams;
    static constexpr GroupOrder vectorOrder = orderInVectors(traits);
    const Tag tag;
    const Pieces<streamCount> pieces;
    const Vector table = hn::LoadDup128(tag, vectorOrder.data());
    Vector vectors[streamCount];
    for (std::size_t i = 0; i < streamCount; ++i) {
        vectors[i] = hn::TableLookupBytes(
            loadBlocks(source + i * blockSize, streamCount * blockSize), table);
    }
    transpose(vectors);
    for (std::size_t i = 0; i < streamCount; ++i) {
        if (traits.directions[i] == Direction::Up) {
            hn::StoreU(vectors[i], tag, streams[i] + position);
        } else {
            const auto reversed = hn::Reverse(pieces, hn::BitCast(pieces, vectors[i]));
            hn::StoreU(hn::BitCast(tag, reversed), tag, streams[i] - position - (vectorSize - 1));
        }
    }
}

/// Calls for the memory that the next row's vectors will go to.
template <GroupLayout layout>
HWY_INLINE void prefetchTargets(std::size_t position, std::size_t nextRow, const Streams& streams)
{
    constexpr int forWriting = 1;
    constexpr const GroupTraits& traits = traitsOf(layout);
    for (std::size_t i = 0; i < traits.streams; ++i) {
        const std::uint8_t* const target = streams[i] + nextRow;
        const bool isUp = traits.directions[i] == Direction::Up;
        __builtin_prefetch(isUp ? target + position : target - position, forWriting);
    }
}

template <GroupLayout layout>
void splitAs(const Rows& rows, const Streams& streams)
{
    constexpr std::size_t streamCount = traitsOf(layout).streams;
    constexpr std::size_t step = streamCount * vectorSize / groupSize;
    constexpr std::size_t share = groupSize / streamCount;
    if (rows.groups < step) {
        splitPlainly<layout>(rows, streams);
        return;
    }
    // The last vectors of a row end with its last group; they may deal groups a second time.
    const std::size_t last = rows.groups - step;
    // Processors see by themselves where one or two streams go on. More of them begin anew in the
    // middle of each row, and cost up to half as much again without this.
    constexpr bool prefetches = streamCount > 2;
    // Copies, because the bytes that are written might change the originals.
    const Rows from = rows;
    Streams to = streams;
    for (std::size_t row = 0; row < from.count; ++row) {
        const auto deal = [source = from.source + 2 * from.pitch * row, &to](std::size_t group) {
            splitVectors<layout>(source + groupSize * group, share * group, to);
        };
        deal(0);
        // From here on, vectors are stored to where a multiple of their size begins, which halves
        // the time: the images of a host lie where no vector is at home.
        const std::size_t head = vectorSize - reinterpret_cast<std::uintptr_t>(to[0]) % vectorSize;
        const std::size_t nextRow = row + 1 < from.count ? from.pitch : 0;
        for (std::size_t group = head / share; group < last; group += step) {
            if constexpr (prefetches) {
                prefetchTargets<layout>(share * group, nextRow, to);
            }
            deal(group);
        }
        deal(last);
        for (std::size_t i = 0; i < streamCount; ++i) {
            to[i] += from.pitch;
        }
    }
}

#endif

void split(GroupLayout layout, const Rows& rows, const Streams& streams)
{
    callForLayout(layout, [&]<GroupLayout known>() { splitAs<known>(rows, streams); });
}

const char* instructionSet()
{
    return hwy::TargetName(HWY_TARGET);
}

} // namespace kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kernels
{

HWY_EXPORT(split);
HWY_EXPORT(instructionSet);

void split(GroupLayout layout, const Rows& rows, const Streams& streams)
{
    HWY_DYNAMIC_DISPATCH(split)(layout, rows, streams);
}

const char* instructionSet()
{
    return HWY_DYNAMIC_DISPATCH(instructionSet)();
}

} // namespace kernels
#endif
