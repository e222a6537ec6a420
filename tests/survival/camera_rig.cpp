#include "camera_rig.h"

#include "checks/images.h"
#include "client/frame_numbers.h"
#include "client/property_keys.h"
#include "hosts_libraries.h"
#include "loaded_libuvc.h"
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

testing::AssertionResult CameraRig::grabExactFrame()
{
    ContractSpace::Images images;
    const ErrorCode result = ContractSpace::grab(**camera, images);
    if (result != ErrorCode::Success) {
        return testing::AssertionFailure() << "grab: " << static_cast<int>(result);
    }
    const quint64 trailer = ContractSpace::trailerOf(*images.front());
    const auto frame = bus.sentFrame(static_cast<std::uint32_t>(trailer),
                                     static_cast<unsigned>(zrn::knownFrameNumberBits(trailer)));
    if (!frame) {
        return testing::AssertionFailure()
               << "the camera sent no frame with trailer " << std::hex << trailer;
    }
    const zrnsim::SentImages sent = zrnsim::expectedImages(*frame);
    if (images.size() != static_cast<std::size_t>(sent.hasA) + sent.hasB) {
        return testing::AssertionFailure() << images.size() << " images";
    }
    if (trailer != sent.trailer) {
        return testing::AssertionFailure()
               << "trailer " << std::hex << trailer << ", sent " << sent.trailer;
    }
    if (sent.hasA && pixelsOf(*images.front()) != sent.a) {
        return testing::AssertionFailure() << "image A differs";
    }
    if (sent.hasB && pixelsOf(*images.back()) != sent.b) {
        return testing::AssertionFailure() << "image B differs";
    }
    return testing::AssertionSuccess();
}

void CameraRig::expectExactFrame()
{
    EXPECT_TRUE(grabExactFrame());
}

void CameraRig::expectExactFrameSoon()
{
    const int mostBefore = libuvcIs007OrNewer() ? 64 : 0; // more than the driver keeps
    for (int i = 0; i < mostBefore; ++i) {
        if (grabExactFrame()) {
            return;
        }
    }
    expectExactFrame();
}

bool CameraRig::isOnline()
{
    return camera->property(zrn::keys::heartBeat).toMap().value(zrn::keys::online).toBool();
}

} // namespace survival
