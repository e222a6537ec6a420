// Conversion of exposure times between microseconds and the device's count.

#include "exposure_units.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <initializer_list>

namespace
{

constexpr std::array unscaledTypes = {-1, 2,  3,  4,  6,  7,  8,   9,
                                      10, 11, 12, 13, 14, 16, 255, -2147483647};
constexpr std::array hundredTypes = {0, 15};
constexpr std::array fractionalTypes = {1, 5};

constexpr std::uint32_t largest = 0xffffffff;

} // namespace

TEST(ExposureUnits, MostSensorsTakeTheValueAsItIs)
{
    for (const int type : unscaledTypes) {
        EXPECT_EQ(exposureToDevice(type, 0), 0) << type;
        EXPECT_EQ(exposureToDevice(type, 12345), 12345) << type;
        EXPECT_EQ(exposureToDevice(type, 32768), -32768) << type;
        EXPECT_EQ(exposureToDevice(type, 0x1ffff), -1) << type;
        EXPECT_EQ(exposureFromDevice(type, 12345), 12345U) << type;
        EXPECT_EQ(exposureFromDevice(type, -1), largest) << type;
        EXPECT_EQ(exposureLimitFromDevice(type, 12345), 12345U) << type;
        EXPECT_EQ(exposureLimitFromDevice(type, largest), largest) << type;
    }
}

TEST(ExposureUnits, StepsOfHundredMicrosecondsTruncateAndWrap)
{
    for (const int type : hundredTypes) {
        EXPECT_EQ(exposureToDevice(type, 99), 0) << type;
        EXPECT_EQ(exposureToDevice(type, 12345), 123) << type;
        EXPECT_EQ(exposureToDevice(type, 4'000'000), -25536) << type;
        EXPECT_EQ(exposureToDevice(type, largest), static_cast<std::int16_t>(42949672)) << type;
        EXPECT_EQ(exposureFromDevice(type, 123), 12300U) << type;
        EXPECT_EQ(exposureFromDevice(type, -1), 4294967196U) << type;
        EXPECT_EQ(exposureFromDevice(type, -32768), 4291690496U) << type;
        EXPECT_EQ(exposureLimitFromDevice(type, 5000), 500000U) << type;
        EXPECT_EQ(exposureLimitFromDevice(type, largest), 4294967196U) << type;
        EXPECT_EQ(exposureLimitFromDevice(type, 50'000'000), 705032704U) << type;
    }
}

TEST(ExposureUnits, FractionalStepsTruncateAndSaturate)
{
    for (const int type : fractionalTypes) {
        EXPECT_EQ(exposureToDevice(type, 22), 0) << type;
        EXPECT_EQ(exposureToDevice(type, 23), 1) << type;
        EXPECT_EQ(exposureToDevice(type, 1000), 45) << type;
        EXPECT_EQ(exposureToDevice(type, 728'106), -32768) << type;
        EXPECT_EQ(exposureToDevice(type, largest), static_cast<std::int16_t>(193292857)) << type;
        EXPECT_EQ(exposureFromDevice(type, 0), 0U) << type;
        EXPECT_EQ(exposureFromDevice(type, 1), 22U) << type;
        EXPECT_EQ(exposureFromDevice(type, 45), 999U) << type;
        EXPECT_EQ(exposureFromDevice(type, 32767), 728082U) << type;
        EXPECT_EQ(exposureFromDevice(type, -1), 0U) << type;
        EXPECT_EQ(exposureFromDevice(type, -32768), 0U) << type;
        EXPECT_EQ(exposureLimitFromDevice(type, 45), 999U) << type;
        EXPECT_EQ(exposureLimitFromDevice(type, 5000), 111100U) << type;
        EXPECT_EQ(exposureLimitFromDevice(type, largest), largest) << type;
        EXPECT_EQ(exposureLimitFromDevice(type, 0xffff8000), largest) << type;
        EXPECT_EQ(exposureLimitFromDevice(type, 193'292'856), 4294967260U) << type;
        EXPECT_EQ(exposureLimitFromDevice(type, 193'292'859), largest) << type;
    }
}
