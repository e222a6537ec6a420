// A process in which the driver cannot put its guards in place.

#include "checks/images.h"
#include "client/camera_object.h"
#include "client/driver_plugin.h"
#include "client/property_keys.h"
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

TEST(Unguarded, FramesHaveTheTimeOfTheirHandOver)
{
    survival::expectLog(" libuvc's faults are not guarded against: ");
    zrn::DriverPlugin driver(ZRN_PLUGIN);
    ASSERT_EQ(driver.factory().enumDevice(), 1);
    zrn::CameraObject camera(driver.factory());
    ASSERT_EQ(camera->connectDeviceByIndex(0), ErrorCode::Success);
    ASSERT_NE(camera.frameTimes(), nullptr);
    camera.writeProperty(zrn::keys::maxGrabWaitTime, 60'000);
    ASSERT_EQ(camera->startStream(0), ErrorCode::Success);
    qint64 last = 0;
    for (int i = 0; i < 5; ++i) {
        QList<CameraSpace::ImageBlock*> images;
        CameraSpace::FrameTimes times;
        ASSERT_EQ(camera.frameTimes()->grabTimedImage(images, times), ErrorCode::Success);
        qDeleteAll(images);
        EXPECT_EQ(times.payloadSource, CameraSpace::FrameTimeSource::Callback);
        EXPECT_EQ(times.firstPayload, times.handOver);
        EXPECT_EQ(times.lastPayload, times.handOver);
        EXPECT_EQ(times.hasSourceClock, 0U);
        EXPECT_GT(times.handOver, last);
        last = times.handOver;
    }
    camera->stopStream(0);
}

} // namespace
