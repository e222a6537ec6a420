// Frames on standard output.

#include "tool_run.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace
{

constexpr int width = 64;
constexpr int height = 48;
constexpr int frameBytes = 2 * width * height; // both images

} // namespace

TEST(ZrncamPipe, GetsThePixelsOfBothImages)
{
    const ToolResult result = ToolRun::of({"grab", "-n", "3", "-o", "-"});
    EXPECT_EQ(result.exitCode, 0);
    ASSERT_EQ(result.output.size(), 3 * frameBytes);
    // Image A of a frame begins with its number, image B with twice that.
    EXPECT_EQ(result.output[2 * frameBytes], 2);
    EXPECT_EQ(result.output[2 * frameBytes + frameBytes / 2], 4);
    EXPECT_EQ(result.errors, "3 frames, 0 missing\n");
}

TEST(ZrncamPipe, IsForPlayersToo)
{
    const ToolResult result =
        ToolRun::of({"stream", "--seconds", "0.2", "-o", "-", "--y4m", "--json"});
    EXPECT_EQ(result.exitCode, 0);
    const auto headerEnd = result.output.indexOf('\n') + 1;
    const QByteArray header = result.output.left(headerEnd);
    EXPECT_EQ(header, "YUV4MPEG2 W64 H96 F500:1 Ip A1:1 Cmono\n") << "the driver's rate";
    const QByteArray mark("FRAME\n");
    const auto step = mark.size() + frameBytes;
    ASSERT_EQ((result.output.size() - headerEnd) % step, 0);
    for (auto at = headerEnd; at < result.output.size(); at += step) {
        EXPECT_EQ(result.output.mid(at, mark.size()), mark);
    }
    EXPECT_TRUE(result.errors.contains("\"frames\":")) << result.errors.constData();
}

TEST(ZrncamPipe, ASingleFrameIsAVideoToo)
{
    const ToolResult result = ToolRun::of({"grab", "-o", "-", "--y4m"});
    EXPECT_TRUE(result.output.startsWith("YUV4MPEG2 W64 H96 F500:1 "));
    EXPECT_EQ(result.output.size(), result.output.indexOf('\n') + 1 + 6 + frameBytes);
}

TEST(ZrncamPipe, EndsWhenTheReaderGoes)
{
    ToolRun run({"stream", "--seconds", "3600", "-o", "-"});
    const ToolResult result =
        run.under({"bash", "-c", R"("$0" "$@" | head -c 100 >/dev/null; exit ${PIPESTATUS[0]})"})
            .finish();
    EXPECT_EQ(result.exitCode, 0) << result.errors.constData();
    EXPECT_TRUE(result.errors.contains("frames/s measured")) << result.errors.constData();
}

TEST(ZrncamPipe, AFullDiskIsNamed)
{
    ToolRun run({"stream", "--seconds", "3600", "-o", "-"});
    const ToolResult result = run.under({"bash", "-c", R"("$0" "$@" >/dev/full)"}).finish();
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_TRUE(result.errors.contains("the frames cannot be written: No space left on device"))
        << result.errors.constData();
}

TEST(ZrncamPipe, WhatAFullDiskDidNotTakeIsNotCounted)
{
    for (const QStringList& format : {QStringList{}, QStringList{"--y4m"}}) {
        ToolRun run(QStringList{"grab", "-n", "2", "-o", "-"} + format);
        const ToolResult result = run.under({"bash", "-c", R"("$0" "$@" >/dev/full)"}).finish();
        EXPECT_EQ(result.exitCode, 7);
        EXPECT_TRUE(result.errors.contains("0 of 1 frame written, 0 missing\n"))
            << result.errors.constData();
    }
}

TEST(ZrncamPipe, TakesOneCameraAndIsThereForY4m)
{
    EXPECT_EQ(ToolRun::of({"grab", "-o", "-", "--all"}).exitCode, 2);
    EXPECT_EQ(ToolRun::of({"grab", "--y4m"}).exitCode, 2);
    EXPECT_EQ(ToolRun::of({"stream", "-o", "file"}).exitCode, 2);
}
