#include "driver_test.h"

#include <numeric>
#include <sstream>

namespace
{

/// The factories of a process end the driver's threads; these tests do without.
class ThreadsEnd : public testing::Environment
{
public:
    void TearDown() override { Operation::endWriting(); }
};

const auto* const threadsEnd = testing::AddGlobalTestEnvironment(new ThreadsEnd);

} // namespace

DriverTest::DriverTest()
    : bus(fakeuvc::Bus::instance())
{
    bus.reset();
    // Before the lines of what comes next.
    bus.setAfterDelivery(Operation::awaitStreamLines);
    CameraProbe::m_kernelDeviceFolder = "/nonexistent"; // as after every device has left
}

void DriverTest::TearDown()
{
    bus.setHook({});
    m_camera.reset();
    CZRNCamera::releaseZRNCameraLibrary();
    CameraProbe::m_enumCount = 0;
    EXPECT_EQ(bus.outstanding(), expectedLeaks);
    EXPECT_THAT(bus.misuses(), testing::IsEmpty());
}

fakeuvc::Camera& DriverTest::connect(int sensorType, int width, int height)
{
    return connect(camera, sensorType, width, height);
}

fakeuvc::Camera& DriverTest::connect(CameraProbe& probe, int sensorType, int width, int height)
{
    constexpr std::uint64_t serial = 4711;
    fakeuvc::Camera& device = bus.addCamera(serial, sensorType, width, height);
    enumerate();
    EXPECT_EQ(code(probe.connectDeviceBySerial("ZR4711")), 0U);
    clearLogs();
    return device;
}

int DriverTest::enumerate()
{
    const int count = CZRNCamera::enumZRNCameraDevices();
    // The descriptor of an opened device stays with libuvc.
    expectedLeaks.descriptors += count;
    clearLogs();
    return count;
}

CameraNode* DriverTest::node(const QString& serialKey)
{
    return CameraProbe::m_cameraNodeMap.value(serialKey, nullptr);
}

void DriverTest::clearLogs()
{
    bus.clearCalls();
    log.clear();
}

std::string DriverTest::addressText(const void* pointer)
{
    std::ostringstream stream;
    stream << pointer;
    return stream.str();
}

std::vector<unsigned char> DriverTest::frameOf(int width, int height, int bytesPerPosition,
                                               unsigned char first)
{
    std::vector<unsigned char> frame(static_cast<std::size_t>(width * height * bytesPerPosition));
    std::iota(frame.begin(), frame.end(), first);
    return frame;
}
