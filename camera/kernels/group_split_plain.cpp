// The kernels for a build without Highway.

#include "group_order.h"
#include "group_split.h"

namespace kernels
{

void splitAlternating(ConstBytes source, std::size_t groups, const std::array<Bytes, 2>& streams)
{
    splitPlainly<alternatingOrder, 2, twoUp>(source, 0, groups, streams);
}

void splitReversedQuads(ConstBytes source, std::size_t groups, const std::array<Bytes, 2>& streams)
{
    splitPlainly<reversedQuadsOrder, 2, twoUp>(source, 0, groups, streams);
}

void splitSides(ConstBytes source, std::size_t groups, const std::array<Bytes, 4>& streams)
{
    splitPlainly<sidesOrder, 4, fourUp>(source, 0, groups, streams);
}

void splitBothEnds(ConstBytes source, std::size_t groups, const std::array<Bytes, 4>& streams)
{
    splitPlainly<sidesOrder, 4, towardsEachOther>(source, 0, groups, streams);
}

void splitStrips(ConstBytes source, std::size_t groups, const std::array<Bytes, 8>& streams)
{
    splitPlainly<stripsOrder, 8, eightUp>(source, 0, groups, streams);
}

const char* instructionSet()
{
    return "plain";
}

} // namespace kernels
