// Each kernel on each instruction set that this machine has, against the plain loop.

#include "guarded_bytes.h"
#include "kernels/group_split.h"
#include "kernels/group_split_loop.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <array>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

namespace
{

using kernels::GroupLayout;

/// Lets the kernels find only one instruction set.
class GroupSplit : public ::testing::TestWithParam<std::tuple<std::int64_t, GroupLayout>>
{
protected:
    GroupSplit() { choose(std::get<std::int64_t>(GetParam())); }
    ~GroupSplit() override { choose(0); }

    static void choose(std::int64_t target)
    {
        hwy::SetSupportedTargetsForTest(target);
        hwy::GetChosenTarget().DeInit();
    }
};

/// Streams that lie apart from each other, each with its own misalignment.
template <GroupLayout layout>
class Streams
{
public:
    /// @param length bytes of each row.
    Streams(std::size_t length, std::size_t rows, std::size_t pitch)
        : m_length(length)
    {
        for (std::size_t i = 0; i < count; ++i) {
            m_bytes.emplace_back((rows - 1) * pitch + length, 3 * i);
        }
    }

    [[nodiscard]] kernels::Streams starts()
    {
        kernels::Streams starts{};
        for (std::size_t i = 0; i < count; ++i) {
            const bool isDown =
                kernels::traitsOf(layout).directions[i] == kernels::down && m_length > 0;
            starts[i] = m_bytes[i].data() + (isDown ? m_length - 1 : 0);
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
    static constexpr std::size_t count = kernels::traitsOf(layout).streams;

    std::size_t m_length;
    std::vector<GuardedBytes> m_bytes;
};

/// Also compares the bytes between the rows, which no kernel may touch.
template <GroupLayout layout>
void expectDealsLikePlainLoop()
{
    for (std::size_t groups = 0; groups <= 200; ++groups) {
        SCOPED_TRACE(::testing::Message() << groups << " groups");
        const std::size_t rowCount = 1 + groups % 3;
        // The rows are longer than their groups, by an odd number of bytes for some.
        const std::size_t pitch = 4 * groups + groups % 5;
        const std::size_t length = groups * kernels::groupSize / kernels::traitsOf(layout).streams;
        const std::size_t misalignment = groups % 7;
        const std::vector<unsigned char> source =
            noise(misalignment + (rowCount - 1) * 2 * pitch + kernels::groupSize * groups, 3);
        const kernels::Rows rows = {source.data() + misalignment, groups, rowCount, pitch};
        Streams<layout> expected(length, rowCount, pitch);
        Streams<layout> actual(length, rowCount, pitch);
        kernels::splitPlainly<layout>(rows, expected.starts());
        kernels::split(layout, rows, actual.starts());
        actual.expectSameAs(expected);
    }
}

TEST_P(GroupSplit, DealsLikeThePlainLoop)
{
    kernels::callForLayout(std::get<GroupLayout>(GetParam()),
                           []<GroupLayout layout>() { expectDealsLikePlainLoop<layout>(); });
}

std::vector<GroupLayout> layouts()
{
    std::vector<GroupLayout> layouts;
    for (const kernels::GroupTraits& traits : kernels::groupLayouts) {
        layouts.push_back(traits.layout);
    }
    return layouts;
}

std::vector<std::int64_t> instructionSets()
{
    std::vector<std::int64_t> targets;
    for (std::int64_t rest = hwy::SupportedTargets(); rest != 0; rest &= rest - 1) {
        targets.push_back(rest & -rest);
    }
    return targets;
}

std::string nameOf(const ::testing::TestParamInfo<GroupSplit::ParamType>& info)
{
    const auto [target, layout] = info.param;
    return std::string(hwy::TargetName(target)) + "Layout" +
           std::to_string(static_cast<std::size_t>(layout));
}

INSTANTIATE_TEST_SUITE_P(Kernels, GroupSplit,
                         ::testing::Combine(::testing::ValuesIn(instructionSets()),
                                            ::testing::ValuesIn(layouts())),
                         nameOf);

} // namespace
