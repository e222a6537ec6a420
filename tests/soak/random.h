#pragma once

#include <cstddef>
#include <random>

namespace soak
{

using Random = std::mt19937;

inline int pick(Random& random, int lowest, int highest)
{
    return std::uniform_int_distribution<int>(lowest, highest)(random);
}

template <typename Container>
const auto& pickFrom(Random& random, const Container& container)
{
    return container[static_cast<std::size_t>(
        pick(random, 0, static_cast<int>(std::size(container)) - 1))];
}

} // namespace soak
