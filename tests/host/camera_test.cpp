#include "common/camera.h"
#include "common/driver_error.h"
#include "common/driver_plugin.h"
#include "common/image_blocks.h"
#include "common/property_keys.h"

#include <gtest/gtest.h>

using namespace zrnhost;

namespace
{

class CameraTest : public testing::Test
{
protected:
    CameraTest()
        : m_plugin(QStringLiteral(TEST_PLUGIN_DIR "/libfake_driver.so"))
    {
        m_plugin.factory().enumDevice();
    }

    int liveCameras()
    {
        int count = -1;
        QMetaObject::invokeMethod(&m_plugin.factory(), "liveCameras", Q_RETURN_ARG(int, count));
        return count;
    }

    DriverPlugin m_plugin;
};

} // namespace

TEST_F(CameraTest, IsDeletedThroughItsFactory)
{
    {
        Camera first(m_plugin.factory());
        Camera second(m_plugin.factory());
        EXPECT_EQ(liveCameras(), 2);
    }
    EXPECT_EQ(liveCameras(), 0);
}

TEST_F(CameraTest, ReadsAndWritesProperties)
{
    Camera camera(m_plugin.factory());
    ASSERT_EQ(camera->connectDeviceByIndex(2), ErrorCode::Success);
    EXPECT_EQ(camera.property(keys::serial).toString(), QStringLiteral("ZR18446744073709551615"));
    EXPECT_EQ(camera.writeProperty(keys::maxGrabWaitTime, 250), ErrorCode::Success);
    EXPECT_EQ(camera.property(keys::maxGrabWaitTime), QVariant(250));

    QVariant untouched(17);
    EXPECT_EQ(camera.readProperty("NoSuchKey", untouched), ErrorCode::NotSupported);
    EXPECT_EQ(untouched, QVariant(17));
    EXPECT_THROW(camera.property("NoSuchKey"), DriverError);
}

TEST_F(CameraTest, GrabsOwnedImages)
{
    Camera camera(m_plugin.factory());
    ImageBlocks images;
    ASSERT_EQ(camera->connectDeviceByIndex(0), ErrorCode::Success);
    EXPECT_EQ(grab(*camera, images), ErrorCode::NotStreaming);
    EXPECT_TRUE(images.empty());
    ASSERT_EQ(camera->startStream(0), ErrorCode::Success);
    ASSERT_EQ(grab(*camera, images), ErrorCode::Success);
    ASSERT_EQ(images.size(), 2U);
    EXPECT_TRUE(isWellFormed(*images[0]));
    EXPECT_EQ(trailerOf(*images[1]), 0U);
    ASSERT_EQ(grab(*camera, images), ErrorCode::Success);
    EXPECT_EQ(images.size(), 2U);
}

TEST(SerialTest, BothFormsAreUnderstood)
{
    EXPECT_EQ(serialNumberOf(QStringLiteral("ZR4711")), QStringLiteral("4711"));
    EXPECT_EQ(serialFromUser(QStringLiteral("4711")), QStringLiteral("ZR4711"));
    EXPECT_EQ(serialFromUser(QStringLiteral("ZR4711")), QStringLiteral("ZR4711"));
    EXPECT_EQ(serialFromUser(QString()), QString());
}
