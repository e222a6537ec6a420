#pragma once

#include "group_split.h"

#include <cstddef>
#include <utility>

/// What the kernels of every instruction set are made of.
namespace kernels
{

/// Deals groups one byte after another.
template <GroupLayout layout>
void splitPlainly(const Rows& rows, const Streams& streams)
{
    constexpr const GroupTraits& traits = traitsOf(layout);
    constexpr std::size_t share = groupSize / traits.streams;
    for (std::size_t row = 0; row < rows.count; ++row) {
        const unsigned char* source = rows.source + 2 * rows.pitch * row;
        for (std::size_t group = 0; group < rows.groups; ++group) {
            for (std::size_t stream = 0; stream < traits.streams; ++stream) {
                unsigned char* target = streams[stream] + rows.pitch * row;
                for (std::size_t i = 0; i < share; ++i) {
                    const auto position = static_cast<std::ptrdiff_t>(share * group + i);
                    target[traits.directions[stream] == Direction::Up ? position : -position] =
                        source[groupSize * group + traits.order[2 * share * stream + i]];
                }
            }
        }
    }
}

template <typename Function, std::size_t... rows>
void callForLayout(GroupLayout layout, Function function, std::index_sequence<rows...> /*table*/)
{
    static_assert(((groupLayouts[rows].layout == GroupLayout{rows}) && ...));
    static_cast<void>(((GroupLayout{rows} == layout &&
                        (function.template operator()<GroupLayout{rows}>(), true)) ||
                       ...));
}

/// Calls a function template's instance for a layout that is known at run time only.
template <typename Function>
void callForLayout(GroupLayout layout, Function function)
{
    callForLayout(layout, function, std::make_index_sequence<groupLayouts.size()>());
}

} // namespace kernels
