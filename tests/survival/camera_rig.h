#pragma once

#include "client/camera_object.h"
#include "client/driver_plugin.h"
#include "virtual_camera.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <memory>

namespace survival
{

using std::chrono::milliseconds;

/// A number that a long run sets, or what an ordinary test run has time for.
inline int fromEnvironment(const char* name, int ordinary)
{
    const char* const text = std::getenv(name);
    return text == nullptr ? ordinary : std::atoi(text);
}

/// Bounds hold for a machine of ordinary speed; ZRN_TIME_FACTOR stretches them for an emulated
/// one, and for a sanitizer.
inline double timeFactor()
{
    const char* const factor = std::getenv("ZRN_TIME_FACTOR");
    return factor == nullptr ? 1 : std::atof(factor);
}

/// Runs an operation and expects that it returns within a bound. @return what the operation returns
template <typename Operation>
auto within(milliseconds bound, const char* name, const Operation& operation)
{
    const auto start = std::chrono::steady_clock::now();
    const auto result = operation();
    const auto taken =
        std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start);
    EXPECT_LE(static_cast<double>(taken.count()), static_cast<double>(bound.count()) * timeFactor())
        << name;
    testing::Test::RecordProperty(std::string(name) + " ms", static_cast<int>(taken.count()));
    return result;
}

/// A host with one camera of the driver, and the virtual bus underneath. Every test starts with
/// the cameras plugged in and enumerated, and leaves nothing open.
class CameraRig : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// The driver, loaded once for all tests of the process.
    static zrn::DriverPlugin& driver();

    /// Enumerates until the camera is there again, as a host would after replugging.
    void enumerateUntilPresent();
    /// Connects a new camera object to the first camera of the bus, by serial.
    void connect();
    void start();
    /// Grabs one frame and compares each image with what the virtual camera has sent.
    void expectExactFrame();
    /// The same of one of the next frames. libuvc 0.0.7 makes several of one that is too long; they
    /// may come before.
    void expectExactFrameSoon();
    /// The record of the device status property.
    bool isOnline();
    ErrorCode grab();
    testing::AssertionResult grabExactFrame();

    VirtualCamera bus;
    std::unique_ptr<zrn::CameraObject> camera;
};

} // namespace survival
