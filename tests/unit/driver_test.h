#pragma once

#include "camera_probe.h"
#include "fake_uvc.h"
#include "log_capture.h"

#include <QList>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

/// Result codes are compared and printed as the numbers that hosts see.
constexpr unsigned code(ErrorCode result)
{
    return static_cast<unsigned>(result);
}

/// Size of the images of the camera that DriverTest::connect() plugs in.
constexpr int imageWidth = 8;
constexpr int imageHeight = 4;

/// Lines about frames come from a thread of the driver; a test sees them with the frame.
class DriverLogCapture : public LogCapture
{
public:
    template <typename... Level>
    [[nodiscard]] std::vector<LogLine> lines(Level... level) const
    {
        Operation::awaitStreamLines();
        return LogCapture::lines(level...);
    }
    void clear()
    {
        Operation::awaitStreamLines();
        LogCapture::clear();
    }
};

/// The base of every test of the driver: an empty bus, captured log, and at the end a driver that
/// has closed everything and used libuvc rightly.
class DriverTest : public testing::Test
{
protected:
    DriverTest();
    void TearDown() override;

    /// Plugs in one camera, enumerates and connects `camera` to it; the logs begin empty after
    /// that.
    fakeuvc::Camera& connect(int sensorType = 2, int width = imageWidth, int height = imageHeight);
    fakeuvc::Camera& connect(CameraProbe& probe, int sensorType, int width, int height);
    /// Enumerates and forgets the calls and messages of it. @return how many cameras were opened.
    int enumerate();
    /// The node of an enumerated camera, or null.
    static CameraNode* node(const QString& serialKey);
    /// Forgets the calls and messages so far.
    void clearLogs();

    /// How a pointer is logged.
    static std::string addressText(const void* pointer);
    /// One frame whose bytes count up from @p first.
    static std::vector<unsigned char> frameOf(int width, int height, int bytesPerPosition,
                                              unsigned char first = 0);

    fakeuvc::Bus& bus;
    DriverLogCapture log;
    fakeuvc::Outstanding expectedLeaks; ///< what libuvc objects the driver may keep

private:
    std::unique_ptr<CameraProbe> m_camera = std::make_unique<CameraProbe>();

protected:
    CameraProbe& camera = *m_camera; ///< destroyed before the nodes
};
