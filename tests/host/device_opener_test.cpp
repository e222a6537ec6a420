// Opening chosen cameras through a factory: on which thread its properties are used.

#include "common/device_opener.h"

#include <QDynamicPropertyChangeEvent>
#include <QThread>
#include <QVariantMap>
#include <gtest/gtest.h>

#include <thread>

namespace
{

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
        return serials.size();
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

zrnhost::BusReader busOfOne()
{
    return [] { return std::vector{cameraAt(2)}; };
}

} // namespace

TEST(DeviceOpenerTest, EveryThreadOpensOnTheFactorysOwn)
{
    ThreadBoundFactory factory(true);
    {
        zrnhost::DeviceOpener opener(factory, busOfOne());
        EXPECT_TRUE(opener.canChoose());
        EXPECT_EQ(opener.open(cameraAt(2)), "ZR1");
        for (int i = 0; i < 2; ++i) {
            std::thread([&] { EXPECT_EQ(opener.open(cameraAt(2)), "ZR1"); }).join();
        }
        EXPECT_EQ(opener.open(cameraAt(2)), "ZR1");
    }
    EXPECT_EQ(factory.strayCalls, 0);
    EXPECT_EQ(factory.thread(), QThread::currentThread());
}

TEST(DeviceOpenerTest, AFactoryThatCannotChooseStaysWhereItIs)
{
    ThreadBoundFactory factory(false);
    const zrnhost::DeviceOpener opener(factory, busOfOne());
    EXPECT_FALSE(opener.canChoose());
    EXPECT_EQ(factory.thread(), QThread::currentThread());
}
