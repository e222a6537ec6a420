// Processes that end while their threads use cameras, again and again: ZRN_LEAVINGS times each.

#include <QByteArray>
#include <QProcess>
#include <gmock/gmock.h>

#include <string>
#include <tuple>

namespace
{

constexpr int fewLeavings = 10;
constexpr int longestMs = 20'000;

int leavings()
{
    const int set = qEnvironmentVariableIntValue("ZRN_LEAVINGS");
    return set > 0 ? set : fewLeavings;
}

class LeavingHost : public testing::TestWithParam<std::tuple<const char*, const char*>>
{
};

} // namespace

TEST_P(LeavingHost, EndsEveryTime)
{
    const auto [activity, way] = GetParam();
    for (int i = 0; i < leavings(); ++i) {
        SCOPED_TRACE("leaving " + std::to_string(i));
        constexpr int step = 7;
        constexpr int longestDelay = 61;
        QProcess host;
        host.start(ZRN_LEAVING_HOST_PATH,
                   {ZRN_PLUGIN_PATH, activity, way, QString::number(i * step % longestDelay)});
        ASSERT_TRUE(host.waitForFinished(longestMs)) << "the process does not end";
        const std::string printed = host.readAllStandardError().toStdString();
        ASSERT_EQ(host.exitStatus(), QProcess::NormalExit) << printed;
        ASSERT_EQ(host.exitCode(), 0) << printed;
        ASSERT_THAT(printed, testing::Not(testing::HasSubstr("late"))) << printed;
    }
}

INSTANTIATE_TEST_SUITE_P(EveryWay, LeavingHost,
                         testing::Combine(testing::Values("alone", "crowd"),
                                          testing::Values("return", "thread", "handler", "signal",
                                                          "quick_exit", "_exit", "fork")),
                         [](const auto& test) {
                             return std::string(std::get<0>(test.param)) + "_" +
                                    std::get<1>(test.param);
                         });
