// Each kernel on each instruction set that this machine has, against the plain loop.

#include "guarded_bytes.h"
#include "kernels/group_order.h"
#include "kernels/group_split.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace
{

/// Lets the kernels find only one instruction set.
class GroupSplit : public ::testing::TestWithParam<std::int64_t>
{
protected:
    GroupSplit() { choose(GetParam()); }
    ~GroupSplit() override { choose(0); }

    static void choose(std::int64_t target)
    {
        hwy::SetSupportedTargetsForTest(target);
        hwy::GetChosenTarget().DeInit();
    }
};

/// Streams that lie apart from each other, each with its own misalignment.
template <std::size_t count>
class Streams
{
public:
    /// @param length bytes of each row.
    Streams(std::size_t length, std::size_t rows, std::size_t pitch,
            const kernels::Directions<count>& directions)
        : m_length(length)
        , m_directions(directions)
    {
        for (std::size_t i = 0; i < count; ++i) {
            m_bytes.emplace_back((rows - 1) * pitch + length, 3 * i);
        }
    }

    [[nodiscard]] std::array<unsigned char*, count> starts()
    {
        std::array<unsigned char*, count> starts{};
        for (std::size_t i = 0; i < count; ++i) {
            const bool down = m_directions[i] == kernels::Direction::Down && m_length > 0;
            starts[i] = m_bytes[i].data() + (down ? m_length - 1 : 0);
        }
        return starts;
    }

    void expectSameAs(Streams& expected)
    {
        for (std::size_t i = 0; i < count; ++i) {
            EXPECT_TRUE(sameBytes(expected.m_bytes[i].bytes(), m_bytes[i].bytes()))
                << "stream " << i;
            EXPECT_TRUE(m_bytes[i].guardsIntact()) << "stream " << i;
        }
    }

private:
    std::size_t m_length;
    kernels::Directions<count> m_directions;
    std::vector<GuardedBytes> m_bytes;
};

/// Also compares the bytes between the rows, which no kernel may touch.
template <const kernels::GroupOrder& order, std::size_t count,
          const kernels::Directions<count>& directions, typename Kernel>
void expectDealsLikePlainLoop(Kernel kernel)
{
    for (std::size_t groups = 0; groups <= 200; ++groups) {
        SCOPED_TRACE(::testing::Message() << groups << " groups");
        const std::size_t rowCount = 1 + groups % 3;
        // The rows are longer than their groups, by an odd number of bytes for some.
        const std::size_t pitch = 4 * groups + groups % 5;
        const std::size_t length = groups * kernels::groupSize / count;
        const std::size_t misalignment = groups % 7;
        const std::vector<unsigned char> source =
            noise(misalignment + (rowCount - 1) * 2 * pitch + kernels::groupSize * groups, 3);
        const kernels::Rows rows = {source.data() + misalignment, groups, rowCount, pitch};
        Streams<count> expected(length, rowCount, pitch, directions);
        Streams<count> actual(length, rowCount, pitch, directions);
        kernels::splitPlainly<order, count, directions>(rows, expected.starts());
        kernel(rows, actual.starts());
        actual.expectSameAs(expected);
    }
}

TEST_P(GroupSplit, Alternating)
{
    expectDealsLikePlainLoop<kernels::alternatingOrder, 2, kernels::twoUp>(
        kernels::splitAlternating);
}

TEST_P(GroupSplit, ReversedQuads)
{
    expectDealsLikePlainLoop<kernels::reversedQuadsOrder, 2, kernels::twoUp>(
        kernels::splitReversedQuads);
}

TEST_P(GroupSplit, Sides)
{
    expectDealsLikePlainLoop<kernels::sidesOrder, 4, kernels::fourUp>(kernels::splitSides);
}

TEST_P(GroupSplit, BothEnds)
{
    expectDealsLikePlainLoop<kernels::sidesOrder, 4, kernels::towardsEachOther>(
        kernels::splitBothEnds);
}

TEST_P(GroupSplit, Strips)
{
    expectDealsLikePlainLoop<kernels::stripsOrder, 8, kernels::eightUp>(kernels::splitStrips);
}

std::vector<std::int64_t> instructionSets()
{
    std::vector<std::int64_t> targets;
    for (std::int64_t rest = hwy::SupportedTargets(); rest != 0; rest &= rest - 1) {
        targets.push_back(rest & -rest);
    }
    return targets;
}

INSTANTIATE_TEST_SUITE_P(Kernels, GroupSplit, ::testing::ValuesIn(instructionSets()),
                         [](const ::testing::TestParamInfo<std::int64_t>& target) {
                             return std::string(hwy::TargetName(target.param));
                         });

} // namespace
