// A process in which the driver cannot put its guards in place.

#include "client/driver_plugin.h"
#include "hosts_libraries.h"
#include "serious_lines.h"

#include <gtest/gtest.h>

namespace
{

TEST(Unguarded, IsToldOnce)
{
    const std::string missing = "ZRNCamera:  libuvc's faults are not guarded against: ";
    survival::expectLog(missing.c_str());
    zrn::DriverPlugin driver(ZRN_PLUGIN);
    EXPECT_EQ(driver.factory().enumDevice(), 1);
    const std::map<std::string, int> lines = survival::seriousLines();
    ASSERT_EQ(lines.size(), 1U);
    const auto& [line, count] = *lines.begin();
    EXPECT_EQ(count, 1);
    EXPECT_EQ(line.rfind(missing, 0), 0U);
    EXPECT_NE(line.find(survival::expectedGuards()), std::string::npos);
    EXPECT_EQ(driver.factory().enumDevice(), 1);
    EXPECT_EQ(survival::seriousLines(), lines);
    EXPECT_TRUE(driver.factory()
                    .property(IFactory::guardsProperty)
                    .toString()
                    .endsWith(QString::fromStdString(survival::expectedGuards())));
}

} // namespace
