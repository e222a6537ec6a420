#include "client/silence.h"

#include <gmock/gmock.h>

namespace zrn
{
namespace
{

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;

TEST(SilenceTest, NamesWhatIsWrong)
{
    BusCamera camera;
    camera.port = "1-2";
    camera.kernelDrivers = {"uvcvideo"};
    camera.videoNodes = {"/dev/video2"};
    EXPECT_THAT(explainSilence({}, true, "1-2", {camera}, std::nullopt),
                Contains(AllOf(HasSubstr("uvcvideo"), HasSubstr("fuser -v /dev/video2"))));
}

TEST(SilenceTest, SpeaksOfUnusableFramesFirst)
{
    StreamCounters counters;
    counters.unusable = 1;
    counters.lastFailure = ErrorCode::SplitFailed;
    const auto sentences = explainSilence(counters, false, "1-2", {}, 0);
    EXPECT_THAT(sentences.front(), HasSubstr("1035"));
    EXPECT_THAT(sentences[1], HasSubstr("does not answer control requests"));
    EXPECT_THAT(sentences, Contains(HasSubstr("No device")).Times(1));
}

TEST(SilenceTest, SaysThatAllIsInOrder)
{
    BusCamera camera;
    camera.port = "1-2";
    camera.nodeExists = camera.accessible = true;
    BusCamera other; // without a node: nothing is said of it
    other.port = "1-3";
    const auto sentences = explainSilence({}, true, "1-2", {camera, other}, 0);
    ASSERT_EQ(sentences.size(), 2U);
    EXPECT_THAT(sentences.front(), HasSubstr("answers control requests"));
    EXPECT_THAT(sentences.back(), HasSubstr("in order"));
}

} // namespace
} // namespace zrn
