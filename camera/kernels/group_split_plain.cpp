// The kernels for a build without Highway.

#include "group_split.h"
#include "group_split_loop.h"

namespace kernels
{

void split(GroupLayout layout, const Rows& rows, const Streams& streams)
{
    callForLayout(layout, [&]<GroupLayout known>() { splitPlainly<known>(rows, streams); });
}

const char* instructionSet()
{
    return "plain";
}

} // namespace kernels
