// Conversion of exposure times between microseconds and the device's count.

#include "exposure_units.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace
{

constexpr std::uint32_t largest = 0xffffffff;

} // namespace

TEST(ExposureUnits, MicrosecondsAreTakenAsTheyAre)
{
    constexpr ExposureStep step = ExposureStep::One;
    EXPECT_EQ(exposureToDevice(step, 0), 0);
    EXPECT_EQ(exposureToDevice(step, 12345), 12345);
    EXPECT_EQ(exposureToDevice(step, 32768), -32768);
    EXPECT_EQ(exposureToDevice(step, 0x1ffff), -1);
    EXPECT_EQ(exposureFromDevice(step, 12345), 12345U);
    EXPECT_EQ(exposureFromDevice(step, -1), largest);
    EXPECT_EQ(exposureLimitFromDevice(step, 12345), 12345U);
    EXPECT_EQ(exposureLimitFromDevice(step, largest), largest);
}

TEST(ExposureUnits, StepsOfHundredMicrosecondsTruncateAndWrap)
{
    constexpr ExposureStep step = ExposureStep::Hundred;
    EXPECT_EQ(exposureToDevice(step, 99), 0);
    EXPECT_EQ(exposureToDevice(step, 12345), 123);
    EXPECT_EQ(exposureToDevice(step, 4'000'000), -25536);
    EXPECT_EQ(exposureToDevice(step, largest), static_cast<std::int16_t>(42949672));
    EXPECT_EQ(exposureFromDevice(step, 123), 12300U);
    EXPECT_EQ(exposureFromDevice(step, -1), 4294967196U);
    EXPECT_EQ(exposureFromDevice(step, -32768), 4291690496U);
    EXPECT_EQ(exposureLimitFromDevice(step, 5000), 500000U);
    EXPECT_EQ(exposureLimitFromDevice(step, largest), 4294967196U);
    EXPECT_EQ(exposureLimitFromDevice(step, 50'000'000), 705032704U);
}

TEST(ExposureUnits, FractionalStepsTruncateAndSaturate)
{
    constexpr ExposureStep step = ExposureStep::Fractional;
    EXPECT_EQ(exposureToDevice(step, 22), 0);
    EXPECT_EQ(exposureToDevice(step, 23), 1);
    EXPECT_EQ(exposureToDevice(step, 1000), 45);
    EXPECT_EQ(exposureToDevice(step, 728'106), -32768);
    EXPECT_EQ(exposureToDevice(step, largest), static_cast<std::int16_t>(193292857));
    EXPECT_EQ(exposureFromDevice(step, 0), 0U);
    EXPECT_EQ(exposureFromDevice(step, 1), 22U);
    EXPECT_EQ(exposureFromDevice(step, 45), 999U);
    EXPECT_EQ(exposureFromDevice(step, 32767), 728082U);
    EXPECT_EQ(exposureFromDevice(step, -1), 0U);
    EXPECT_EQ(exposureFromDevice(step, -32768), 0U);
    EXPECT_EQ(exposureLimitFromDevice(step, 45), 999U);
    EXPECT_EQ(exposureLimitFromDevice(step, 5000), 111100U);
    EXPECT_EQ(exposureLimitFromDevice(step, largest), largest);
    EXPECT_EQ(exposureLimitFromDevice(step, 0xffff8000), largest);
    EXPECT_EQ(exposureLimitFromDevice(step, 193'292'856), 4294967260U);
    EXPECT_EQ(exposureLimitFromDevice(step, 193'292'859), largest);
}
