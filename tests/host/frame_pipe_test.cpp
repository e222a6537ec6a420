#include "common/frame_pipe.h"

#include <QByteArray>
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>

namespace
{

/// The header's rate of a stream whose camera is set to one.
QByteArray rateFor(double rate)
{
    char* text = nullptr;
    std::size_t size = 0;
    std::FILE* const stream = ::open_memstream(&text, &size);
    zrnhost::FramePipe pipe(stream, zrnhost::FramePipe::Format::Y4m, [rate] { return rate; });
    EXPECT_TRUE(pipe.write({}));
    EXPECT_TRUE(pipe.write({}));
    std::fclose(stream);
    const QByteArray header = QByteArray(text, static_cast<int>(size)).split('\n').first();
    std::free(text);
    return header.split(' ').at(3);
}

} // namespace

TEST(FramePipeTest, TheHeaderHasTheRateOfTheCamera)
{
    EXPECT_EQ(rateFor(30), "F30:1");
    EXPECT_EQ(rateFor(1e7 / 166'667), "F60:1") << "an interval in 100 ns";
    EXPECT_EQ(rateFor(1e7 / 333'667), "F2997:100");
    EXPECT_EQ(rateFor(7.5), "F15:2");
    for (const double unknown : {0.0, -1.0, std::numeric_limits<double>::infinity(),
                                 std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EQ(rateFor(unknown), "F0:0");
    }
}
