// Loading a driver, and opening chosen cameras: on which thread the factory is used.

#include "client/driver.h"
#include "client/error.h"
#include "factory_interface.h"

#include <QDynamicPropertyChangeEvent>
#include <QFile>
#include <QStringList>
#include <QTemporaryDir>
#include <QThread>
#include <QVariantMap>
#include <gtest/gtest.h>

#include <thread>

namespace
{

constexpr const char* fakeDriver = TEST_PLUGIN_DIR "/libfake_driver.so";

zrn::BusCamera cameraAt(unsigned address)
{
    zrn::BusCamera camera;
    camera.bus = 1;
    camera.address = address;
    camera.accessible = true;
    return camera;
}

/// A factory that opens whatever is chosen, and counts what is done to it on other threads than its
/// own.
class ThreadBoundFactory : public IFactory
{
public:
    explicit ThreadBoundFactory(bool canChoose)
    {
        if (canChoose) {
            setProperty(deviceSerialsProperty, QVariantMap());
        }
    }
    bool event(QEvent* event) override
    {
        if (event->type() == QEvent::DynamicPropertyChange) {
            noteThread();
        }
        return IFactory::event(event);
    }

    QString name() override { return {}; }
    QVersionNumber version() override { return {}; }
    int enumDevice() override
    {
        noteThread();
        QVariantMap serials;
        for (const QString& place : property(devicesProperty).toStringList()) {
            serials[place] = QStringLiteral("ZR1");
        }
        setProperty(deviceSerialsProperty, serials);
        return static_cast<int>(serials.size());
    }
    BaseDeviceSpace::DeviceInterface* createDevice() override { return nullptr; }
    ErrorCode deleteDevice(BaseDeviceSpace::DeviceInterface*&) override
    {
        return ErrorCode::NothingEnumerated;
    }

    int strayCalls = 0;

private:
    void noteThread() { strayCalls += thread() == QThread::currentThread() ? 0 : 1; }
};

zrn::BusReaders busOfOne()
{
    const zrn::BusReader read = [] { return std::vector{cameraAt(2)}; };
    return {read, read, [](const zrn::BusCamera&, const std::string&) {}};
}

} // namespace

TEST(DriverTest, EveryThreadUsesTheFactoryOnItsOwn)
{
    const auto factory = std::make_shared<ThreadBoundFactory>(true);
    {
        zrn::Driver driver(factory, busOfOne());
        EXPECT_TRUE(driver.canChoose());
        const auto use = [&driver] {
            EXPECT_EQ(driver.guards(), "");
            EXPECT_EQ(driver.open(cameraAt(2)), "ZR1");
            driver.close("ZR1");
            driver.openAll();
        };
        use();
        for (int i = 0; i < 2; ++i) {
            std::thread(use).join();
        }
        use();
    }
    EXPECT_EQ(factory->strayCalls, 0);
    EXPECT_EQ(factory->thread(), QThread::currentThread());
}

TEST(DriverTest, AFactoryThatCannotChooseStaysWhereItIs)
{
    const auto factory = std::make_shared<ThreadBoundFactory>(false);
    const zrn::Driver driver(factory, busOfOne());
    EXPECT_FALSE(driver.canChoose());
    EXPECT_EQ(factory->thread(), QThread::currentThread());
}

TEST(DriverTest, AFileIsLoadedOnceWhateverItIsCalled)
{
    const QTemporaryDir folder;
    const QString link = folder.filePath("driver.so");
    ASSERT_TRUE(QFile::link(fakeDriver, link));
    const auto driver = zrn::Driver::load(fakeDriver);
    EXPECT_EQ(zrn::Driver::load(fakeDriver), driver);
    EXPECT_EQ(zrn::Driver::load(link.toStdString()), driver);
}

TEST(DriverTest, AFileThatCannotBeLoadedIsTriedAgain)
{
    const std::string noPlugin = TEST_PLUGIN_DIR "/libnot_a_plugin.so";
    EXPECT_THROW(zrn::Driver::load(noPlugin), zrn::Error);
    EXPECT_THROW(zrn::Driver::load(noPlugin), zrn::Error);
}

TEST(DriverTest, IsLoadedByOneThreadWhileTheLastOwnerLetsGoOnAnother)
{
    const auto comeAndGo = [] {
        for (int i = 0; i < 200; ++i) {
            const auto driver = zrn::Driver::load(fakeDriver);
            EXPECT_EQ(driver->name(), "FakeDriver");
            EXPECT_EQ(driver->openAll(), 3);
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(comeAndGo);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}
