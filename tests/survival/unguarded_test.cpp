// A process in which the driver cannot put its guards in place.

#include "common/driver_plugin.h"
#include "hosts_libraries.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>

namespace
{

std::atomic<int> criticalLines = 0;

void count(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    if (type == QtCriticalMsg && std::string(context.category) == "ZRNCamera" &&
        text.contains(QString::fromStdString(survival::expectedGuards()))) {
        ++criticalLines;
    }
}

TEST(Unguarded, IsToldOnce)
{
    const auto before = qInstallMessageHandler(count);
    zrnhost::DriverPlugin driver(QStringLiteral(ZRN_PLUGIN));
    EXPECT_EQ(driver.factory().enumDevice(), 1);
    EXPECT_EQ(criticalLines, 1);
    EXPECT_EQ(driver.factory().enumDevice(), 1);
    EXPECT_EQ(criticalLines, 1);
    EXPECT_TRUE(driver.factory()
                    .property(IFactory::guardsProperty)
                    .toString()
                    .endsWith(QString::fromStdString(survival::expectedGuards())));
    qInstallMessageHandler(before);
}

} // namespace
