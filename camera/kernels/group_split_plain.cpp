// The kernels for a build without Highway.

#include "group_order.h"
#include "group_split.h"

namespace kernels
{

void splitAlternating(const Rows& rows, const std::array<Bytes, 2>& streams)
{
    splitPlainly<alternatingOrder, 2, twoUp>(rows, streams);
}

void splitReversedQuads(const Rows& rows, const std::array<Bytes, 2>& streams)
{
    splitPlainly<reversedQuadsOrder, 2, twoUp>(rows, streams);
}

void splitSides(const Rows& rows, const std::array<Bytes, 4>& streams)
{
    splitPlainly<sidesOrder, 4, fourUp>(rows, streams);
}

void splitBothEnds(const Rows& rows, const std::array<Bytes, 4>& streams)
{
    splitPlainly<sidesOrder, 4, towardsEachOther>(rows, streams);
}

void splitStrips(const Rows& rows, const std::array<Bytes, 8>& streams)
{
    splitPlainly<stripsOrder, 8, eightUp>(rows, streams);
}

const char* instructionSet()
{
    return "plain";
}

} // namespace kernels
