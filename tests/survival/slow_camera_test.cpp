// Cameras that answer late, but answer.

#include "camera_rig.h"
#include "serious_lines.h"

#include <chrono>
#include <thread>

namespace
{

using survival::milliseconds;
using survival::within;

class SlowCamera : public survival::CameraRig
{
protected:
    void SetUp() override
    {
        CameraRig::SetUp();
        connect();
    }
    void delay(const char* request, const char* target, int time, int count)
    {
        bus.tell("control-fault", {{"action", "delay"},
                                   {"request", request},
                                   {"target", target},
                                   {"milliseconds", time},
                                   {"count", count}});
    }
    ErrorCode readGain()
    {
        unsigned short gain = 0;
        return (*camera)->getGain(gain, 0);
    }
};

TEST_F(SlowCamera, IsHeardAgainAfterALateAnswer)
{
    survival::expectLog(" uvc_get_gain get cur failed ret: -");
    delay("get-cur", "gain", 2500, 1);
    EXPECT_EQ(readGain(), ErrorCode::GainReadFailed);
    delay("get-cur", "gain", 150, -1);
    const auto lapse = std::chrono::steady_clock::now();
    while (readGain() != ErrorCode::Success) {
        ASSERT_LT(std::chrono::steady_clock::now() - lapse, std::chrono::seconds(8))
            << "the camera is deaf for good";
    }
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(readGain(), ErrorCode::Success);
    }
}

TEST_F(SlowCamera, WorksWithAnswersThatJustComeInTime)
{
    delay("get-cur", "gain", 1900, -1);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(readGain(), ErrorCode::Success);
    }
}

TEST_F(SlowCamera, MayTakeLongToReset)
{
    delay("set-cur", "contrast", 2500, 1);
    QMap<QString, QVariant> values;
    EXPECT_EQ(
        within(milliseconds(5500), "reset",
               [&] { return (*camera)->executeCommand(QStringLiteral("ClearState"), values); }),
        ErrorCode::Success);
}

TEST_F(SlowCamera, ThatNeverEndsItsResetHoldsNobodyUp)
{
    survival::expectLog("reset camera state failed, ret: -");
    bus.tell("control-fault",
             {{"action", "ignore"}, {"request", "set-cur"}, {"target", "contrast"}, {"count", 1}});
    QMap<QString, QVariant> values;
    EXPECT_EQ(
        within(milliseconds(7000), "reset",
               [&] { return (*camera)->executeCommand(QStringLiteral("ClearState"), values); }),
        ErrorCode::CommandFailed);
}

} // namespace
