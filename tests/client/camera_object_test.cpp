#include "checks/images.h"
#include "client/camera_object.h"
#include "client/driver_plugin.h"
#include "client/error.h"
#include "client/property_keys.h"

#include <gtest/gtest.h>

using namespace zrn;

namespace
{

class CameraObjectTest : public testing::Test
{
protected:
    CameraObjectTest()
        : m_plugin(TEST_PLUGIN_DIR "/libfake_driver.so")
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

TEST_F(CameraObjectTest, IsDeletedThroughItsFactory)
{
    {
        CameraObject first(m_plugin.factory());
        CameraObject second(m_plugin.factory());
        EXPECT_EQ(liveCameras(), 2);
    }
    EXPECT_EQ(liveCameras(), 0);
}

TEST_F(CameraObjectTest, ReadsAndWritesProperties)
{
    CameraObject camera(m_plugin.factory());
    ASSERT_EQ(camera->connectDeviceByIndex(2), ErrorCode::Success);
    EXPECT_EQ(camera.property(keys::serial).toString(), QStringLiteral("ZR18446744073709551615"));
    EXPECT_EQ(camera.writeProperty(keys::maxGrabWaitTime, 250), ErrorCode::Success);
    EXPECT_EQ(camera.property(keys::maxGrabWaitTime), QVariant(250));

    QVariant untouched(17);
    EXPECT_EQ(camera.readProperty("NoSuchKey", untouched), ErrorCode::NotSupported);
    EXPECT_EQ(untouched, QVariant(17));
    EXPECT_THROW(camera.property("NoSuchKey"), Error);
}

TEST_F(CameraObjectTest, GrabsOwnedImages)
{
    CameraObject camera(m_plugin.factory());
    ContractSpace::Images images;
    ASSERT_EQ(camera->connectDeviceByIndex(0), ErrorCode::Success);
    EXPECT_EQ(ContractSpace::grab(*camera, images), ErrorCode::NotStreaming);
    EXPECT_TRUE(images.empty());
    ASSERT_EQ(camera->startStream(0), ErrorCode::Success);
    ASSERT_EQ(ContractSpace::grab(*camera, images), ErrorCode::Success);
    ASSERT_EQ(images.size(), 2U);
    EXPECT_TRUE(ContractSpace::isWellFormed(*images[0]));
    EXPECT_EQ(ContractSpace::trailerOf(*images[1]), 0U);
    ASSERT_EQ(ContractSpace::grab(*camera, images), ErrorCode::Success);
    EXPECT_EQ(images.size(), 2U);
}
