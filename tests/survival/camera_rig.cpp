#include "camera_rig.h"

#include "checks/images.h"
#include "client/frame_numbers.h"
#include "client/property_keys.h"
#include "hosts_libraries.h"
#include "serious_lines.h"

#include <thread>

namespace survival
{
namespace
{

std::vector<std::uint8_t> pixelsOf(const CameraSpace::ImageBlock& block)
{
    const auto* data = reinterpret_cast<const std::uint8_t*>(block.data.constData());
    return {data, data + block.data.size() - ContractSpace::trailerBytes};
}

} // namespace

zrn::DriverPlugin& CameraRig::driver()
{
    static zrn::DriverPlugin plugin(ZRN_PLUGIN);
    return plugin;
}

void CameraRig::SetUp()
{
    if (hasUnguardedDriver()) {
        expectLog(" libuvc's faults are not guarded against: ");
        expectLog(" camera is gone and cannot be closed, serial: ");
    }
    bus.restore();
    enumerateUntilPresent();
    EXPECT_TRUE(driver()
                    .factory()
                    .property(IFactory::guardsProperty)
                    .toString()
                    .endsWith(QString::fromStdString(expectedGuards())));
}

void CameraRig::TearDown()
{
    camera.reset();
    bus.restore();
}

void CameraRig::enumerateUntilPresent()
{
    constexpr int attempts = 100;
    constexpr milliseconds pause(20);
    for (int i = 0; i < attempts; ++i) {
        if (driver().factory().enumDevice() > 0) {
            return;
        }
        std::this_thread::sleep_for(pause);
    }
    FAIL() << "the camera is not found";
}

void CameraRig::connect()
{
    camera.reset();
    camera = std::make_unique<zrn::CameraObject>(driver().factory());
    ASSERT_EQ((*camera)->connectDeviceBySerial(QString::fromStdString(bus.serial())),
              ErrorCode::Success);
}

void CameraRig::start()
{
    ASSERT_EQ((*camera)->startStream(0), ErrorCode::Success);
}

ErrorCode CameraRig::grab()
{
    ContractSpace::Images images;
    return ContractSpace::grab(**camera, images);
}

void CameraRig::expectExactFrame()
{
    ContractSpace::Images images;
    ASSERT_EQ(ContractSpace::grab(**camera, images), ErrorCode::Success);
    const quint64 trailer = ContractSpace::trailerOf(*images.front());
    const auto frame = bus.sentFrame(static_cast<std::uint32_t>(trailer),
                                     static_cast<unsigned>(zrn::knownFrameNumberBits(trailer)));
    ASSERT_TRUE(frame) << "the camera sent no frame with trailer " << std::hex << trailer;

    const zrnsim::SentImages sent = zrnsim::expectedImages(*frame);
    ASSERT_EQ(images.size(), static_cast<std::size_t>(sent.hasA) + sent.hasB);
    EXPECT_EQ(trailer, sent.trailer);
    // Compared as a whole: a listing of all bytes helps nobody.
    EXPECT_TRUE(!sent.hasA || pixelsOf(*images.front()) == sent.a) << "image A differs";
    EXPECT_TRUE(!sent.hasB || pixelsOf(*images.back()) == sent.b) << "image B differs";
}

bool CameraRig::isOnline()
{
    return camera->property(zrn::keys::heartBeat).toMap().value(zrn::keys::online).toBool();
}

} // namespace survival
