#include "client/camera.h"
#include "scripted_driver.h"

#include <gmock/gmock.h>

using namespace zrn;
using namespace std::chrono_literals;

namespace
{

class CameraTest : public testing::Test
{
protected:
    std::shared_ptr<Camera> open(CameraChoice choice = {}) const
    {
        return Camera::open(driver, std::move(choice), {200ms, {}});
    }

    /// The name of the error that a choice ends in.
    std::string failure(const CameraChoice& choice) const
    {
        try {
            open(choice);
        } catch (const Error& error) {
            return error.name();
        }
        return "none";
    }

    const std::shared_ptr<ScriptedDevice> first =
        std::make_shared<ScriptedDevice>(QStringLiteral("ZR1"));
    const std::shared_ptr<ScriptedDevice> second =
        std::make_shared<ScriptedDevice>(QStringLiteral("ZR2"));
    const std::shared_ptr<Driver> driver = ScriptedFactory::driverFor({first, second});
};

TEST_F(CameraTest, OpensTheFirstThatIsFree)
{
    const auto camera = open();
    EXPECT_EQ(camera->facts().serial, "ZR1");
    EXPECT_EQ(camera->facts().width, 64U);
    EXPECT_EQ(open()->facts().serial, "ZR2");
    EXPECT_EQ(first->openCount, 1);
}

TEST_F(CameraTest, OpensBySerialPortAndIndex)
{
    EXPECT_EQ(open({"ZR2", "", -1})->facts().serial, "ZR2");
    EXPECT_EQ(open({"", "ZR2", -1})->port(), "ZR2"); // the scripted bus names ports so
    EXPECT_EQ(open({"", "", 1})->facts().serial, "ZR2");
}

TEST_F(CameraTest, SaysWhyACameraCannotBeHad)
{
    EXPECT_EQ(failure({"ZR9", "", -1}), "NoSuchSerial");
    EXPECT_EQ(failure({"", "9-9", -1}), "NothingAtPort");
    EXPECT_EQ(failure({"", "", 7}), "NoSuchIndex");
    second->heldElsewhere = true;
    EXPECT_EQ(failure({"", "ZR2", -1}), "InUse");
    second->heldElsewhere = false;
    second->connectAnswer = ErrorCode::NoFrameDescriptor;
    EXPECT_EQ(failure({"", "ZR2", -1}), "NoFrameDescriptor");
    first->unplug();
    second->unplug();
    EXPECT_EQ(failure({}), "NoCameraOnBus");
}

TEST_F(CameraTest, TellsOnceWhatItWaitsFor)
{
    first->heldElsewhere = true;
    std::vector<std::string> told;
    EXPECT_THROW(Camera::open(driver, {"", "ZR1", -1},
                              {1500ms, [&](const Error& error) { told.push_back(error.name()); }}),
                 Error);
    EXPECT_THAT(told, testing::ElementsAre("InUse"));
}

TEST_F(CameraTest, ReadsAndSets)
{
    const auto camera = open();
    EXPECT_EQ(camera->knownExposure(), 1000us);
    camera->setExposure(2500us);
    EXPECT_EQ(camera->exposure(), 2500us);
    EXPECT_EQ(camera->knownExposure(), 2500us);
    EXPECT_EQ(camera->exposureRange().maximum, 500000us);
    camera->setGain(40);
    EXPECT_EQ(camera->gain(), 40U);
    EXPECT_EQ(camera->gainRange().minimum, 1U);
    camera->setOrder(FrameOrder::Newest);
    EXPECT_EQ(camera->order(), FrameOrder::Newest);
    camera->setProperty(keys::gamma, 300);
    EXPECT_EQ(camera->property(keys::gamma), Value(300));
    EXPECT_TRUE(camera->status().isOnline);
    EXPECT_DOUBLE_EQ(camera->status().frameRate, 100.0);
}

TEST_F(CameraTest, RefusalsCarryCodeNameAndRemedy)
{
    const auto camera = open();
    try {
        camera->setExposure(1us);
        FAIL() << "no exception";
    } catch (const Error& error) {
        EXPECT_EQ(error.code(), ErrorCode::BadArgument);
        EXPECT_EQ(error.name(), "BadArgument");
        EXPECT_EQ(error.tried(), "setting the exposure time to 1");
        EXPECT_FALSE(error.remedy().empty());
    }
    EXPECT_THROW(camera->setGain(65536), Error);
    EXPECT_THROW(static_cast<void>(camera->property("NoSuchKey")), Error);
    EXPECT_EQ(camera->knownExposure(), 1000us);
}

TEST_F(CameraTest, SettingsSurviveAReturn)
{
    const auto camera = open();
    camera->setExposure(2500us);
    camera->setProperty(keys::gamma, 300);
    camera->setProperty(keys::rGain, 7); // rewrites the carrier of gamma
    camera->setProperty(keys::sharp, 400);
    first->unplug();
    EXPECT_THROW(camera->reopen(), Error);
    first->replug();
    camera->reopen();
    const std::lock_guard lock(first->mutex);
    EXPECT_EQ(first->exposure, 2500U);
    EXPECT_EQ(first->gamma, 7);
    EXPECT_EQ(first->sharpness, 400);
}

TEST_F(CameraTest, TellsOfEachChangeOfASetting)
{
    const auto camera = open();
    std::vector<std::string> told;
    const auto watch = [&] {
        return camera->watchSettings([&told](const SettingChange& setting) {
            told.push_back(setting.key + " " + toText(setting.value));
        });
    };
    camera->setProperty(keys::maxGrabWaitTime, 50);
    camera->readSettings();
    auto watching = watch();
    EXPECT_THAT(told, testing::ElementsAre("Exposure 1000", "Gain 16", "MaxGrabWaitTime 50",
                                           "BGain 60", "GBGain 20", "GRGain 50", "Gamma 100",
                                           "Hue 20", "RGain 100", "Sharp 50"));
    told.clear();
    camera->setExposure(2500us);
    EXPECT_THROW(camera->setExposure(1us), Error); // refused, hence no change
    camera->setExposure(2500us);
    camera->setGain(17);
    camera->setOrder(FrameOrder::Newest);
    camera->setProperty(keys::rGain, 7); // changes what it shares a control with
    EXPECT_THAT(told, testing::ElementsAre("Exposure 2500", "Gain 17", "FrameOrder newest",
                                           "RGain 7", "Gamma 7"));
    told.clear();
    {
        const std::lock_guard lock(first->mutex);
        first->gain = 40; // by another program
    }
    EXPECT_EQ(camera->gain(), 40U);
    EXPECT_THAT(told, testing::ElementsAre("Gain 40"));
    told.clear();
    first->replug();
    camera->reopen();
    EXPECT_THAT(told, testing::Contains("Gain 16")) << "which it came back with";
    EXPECT_EQ(told.back(), "Gamma 7") << "set again with the rest";
    told.clear();
    watching.reset();
    camera->setGain(18);
    EXPECT_TRUE(told.empty());
    watching = watch();
    EXPECT_THAT(told, testing::Contains("Gain 18"));
}

TEST_F(CameraTest, IsForOthersWhileItIsClosed)
{
    const auto camera = open();
    camera->setExposure(2500us);
    camera->close();
    EXPECT_FALSE(first->isOpen);
    EXPECT_FALSE(camera->status().isOnline);
    first->heldElsewhere = true;
    try {
        camera->reopen();
        FAIL() << "another program has it";
    } catch (const Error& error) {
        EXPECT_FALSE(isAbsence(error)) << error.what();
    }
    first->unplug();
    try {
        camera->reopen();
        FAIL() << "it is not on the bus";
    } catch (const Error& error) {
        EXPECT_TRUE(isAbsence(error)) << error.what();
    }
    first->heldElsewhere = false;
    first->replug();
    camera->reopen();
    EXPECT_EQ(camera->exposure(), 2500us);
}

TEST_F(CameraTest, AResetForgetsWhatWasSet)
{
    const auto camera = open();
    camera->setExposure(2500us);
    camera->run(keys::clearState);
    EXPECT_EQ(first->resets, 1);
    first->replug();
    camera->reopen();
    EXPECT_EQ(camera->exposure(), 1000us);
}

TEST_F(CameraTest, ReturningLeavesOthersAlone)
{
    const auto camera = open({"ZR1", "", -1});
    const auto other = open({"ZR2", "", -1});
    const int generation = second->generation;
    first->replug();
    camera->reopen();
    EXPECT_EQ(second->generation, generation);
    EXPECT_TRUE(other->status().isOnline);
}

TEST(DriverTest, IsLoadedOncePerProcess)
{
    const std::string file = TEST_PLUGIN_DIR "/libfake_driver.so";
    const auto driver = Driver::load(file);
    EXPECT_EQ(Driver::load(file), driver);
    EXPECT_EQ(driver->name(), "FakeDriver");
    EXPECT_EQ(driver->version(), "9.8.7");
    EXPECT_EQ(driver->file(), file);
    EXPECT_THROW(Driver::load(TEST_PLUGIN_DIR "/libwrong_key.so"), Error);
}

TEST(DriverTest, OneThatCannotChooseOpensAllOnce)
{
    const auto driver = Driver::load(TEST_PLUGIN_DIR "/libfake_driver.so");
    const auto first = Camera::open(driver, {"", "", 0});
    const auto second = Camera::open(driver, {"ZR1002", "", -1});
    EXPECT_EQ(first->facts().serial, "ZR1001");
    EXPECT_TRUE(first->status().isOnline);
    EXPECT_TRUE(second->status().isOnline);
    EXPECT_THROW(Camera::open(driver, {"", "1-1", -1}), Error);
}

TEST(SerialTest, BothFormsAreUnderstood)
{
    EXPECT_EQ(serialNumberOf("ZR4711"), "4711");
    EXPECT_EQ(serialFromUser("4711"), "ZR4711");
    EXPECT_EQ(serialFromUser("ZR4711"), "ZR4711");
    EXPECT_EQ(serialFromUser(""), "");
}

} // namespace
