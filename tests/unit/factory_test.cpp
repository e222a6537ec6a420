// The plugin's root object: the cameras that it makes and deletes, and its meta-object.

#include "driver_test.h"
#include "zrn_camera_factory.h"

#include <QCoreApplication>
#include <QMetaMethod>

#include <chrono>
#include <future>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class FactoryProbe : public CZRNCameraFactory
{
public:
    FactoryProbe()
        : CZRNCameraFactory(nullptr)
    {
    }
    using CZRNCameraFactory::m_cameraCount;
    using CZRNCameraFactory::m_cameraList;
    using CZRNCameraFactory::m_listLock;
};

class Factory : public DriverTest
{
protected:
    Factory() { clearLogs(); }
    void TearDown() override
    {
        m_factory.reset();
        DriverTest::TearDown();
    }

    std::unique_ptr<FactoryProbe> m_factory = std::make_unique<FactoryProbe>();
    FactoryProbe& factory = *m_factory;
};

} // namespace

TEST_F(Factory, TellsNameAndVersion)
{
    EXPECT_EQ(factory.name(), "ZRNCamera");
    EXPECT_EQ(factory.version(), QVersionNumber(2, 2, 1));
    EXPECT_EQ(factory.parent(), nullptr);
    QObject parent;
    const auto* child = new CZRNCameraFactory(&parent);
    EXPECT_EQ(child->parent(), &parent);
}

TEST_F(Factory, DoesNotEnumerateByItself)
{
    const FactoryProbe other;
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    EXPECT_EQ(other.m_cameraCount, 0);
    EXPECT_THAT(other.m_cameraList, IsEmpty());
}

TEST_F(Factory, EnumeratesThroughTheCameraClass)
{
    bus.addCamera(1);
    bus.addCamera(2);
    EXPECT_EQ(factory.enumDevice(), 2);
    expectedLeaks.descriptors += 2;
    EXPECT_EQ(CameraProbe::m_cameraNodeMap.size(), 2);
    EXPECT_EQ(CameraProbe::m_enumCount, 2);
}

TEST_F(Factory, TellsAfterAnEnumerationWhetherGuardsAreInEffect)
{
    EXPECT_EQ(factory.property("guards"), QVariant(QString()));
    factory.enumDevice();
    EXPECT_EQ(factory.property("guards"), QVariant("not needed"));
    bus.setGuardFault("a cause");
    factory.enumDevice();
    EXPECT_EQ(factory.property("guards"), QVariant("a cause"));
    EXPECT_EQ(factory.metaObject()->indexOfProperty("guards"), -1);
}

TEST_F(Factory, AnEnumerationElsewhereLeavesThePropertyToTheFactorysThread)
{
    int argumentCount = 0;
    const QCoreApplication application(argumentCount, nullptr);
    std::thread([this] { factory.enumDevice(); }).join();
    EXPECT_EQ(factory.property("guards"), QVariant(QString()));
    QCoreApplication::sendPostedEvents(&factory);
    EXPECT_EQ(factory.property("guards"), QVariant("not needed"));
}

TEST_F(Factory, AnEnumerationElsewhereIsToldWithTheNewestFindings)
{
    int argumentCount = 0;
    const QCoreApplication application(argumentCount, nullptr);
    bus.addCamera(1);
    factory.setProperty("devices", QStringList{"001/001"});
    factory.enumDevice();
    EXPECT_EQ(factory.property("deviceSerials").toMap().size(), 1);
    factory.setProperty("devices", QStringList());
    std::thread([this] { factory.enumDevice(); }).join();
    expectedLeaks.descriptors += 1;
    EXPECT_EQ(factory.property("deviceSerials").toMap().size(), 1);

    // What the other thread has left to be told is older than this.
    factory.setProperty("devices", QStringList{"001/001"});
    factory.enumDevice();
    QCoreApplication::sendPostedEvents(&factory);
    EXPECT_EQ(factory.property("deviceSerials").toMap().size(), 1);

    factory.setProperty("devices", QStringList());
    std::thread([this] { factory.enumDevice(); }).join();
    expectedLeaks.descriptors += 1;
    QCoreApplication::sendPostedEvents(&factory);
    EXPECT_THAT(factory.property("deviceSerials").toMap(), IsEmpty());
}

TEST_F(Factory, AnEnumerationDoesNotWaitForTheListOfCameras)
{
    using namespace std::chrono_literals;
    factory.m_listLock.lockForWrite();
    std::future<int> count =
        std::async(std::launch::async, [this] { return factory.enumDevice(); });
    EXPECT_EQ(count.wait_for(10s), std::future_status::ready);
    factory.m_listLock.unlock();
    EXPECT_EQ(count.get(), 0);
}

TEST_F(Factory, MakesUnconnectedCamerasWithoutDevices)
{
    for (int count = 1; count <= 40; ++count) {
        DeviceInterface* device = factory.createDevice();
        ASSERT_NE(device, nullptr);
        EXPECT_EQ(factory.m_cameraCount, count);
        ASSERT_EQ(factory.m_cameraList.size(), count);
        EXPECT_EQ(static_cast<DeviceInterface*>(factory.m_cameraList.last()), device);
        EXPECT_EQ(code(device->disconnectDevice()), 777U);
    }
    EXPECT_THAT(bus.callTexts(), IsEmpty());
}

TEST_F(Factory, RefusesToDeleteANullPointer)
{
    DeviceInterface* device = nullptr;
    EXPECT_EQ(code(factory.deleteDevice(device)), 512U);
}

TEST_F(Factory, ForgetsACameraThatDiesWithItsParent)
{
    connect();
    DeviceInterface* lost = factory.createDevice();
    DeviceInterface* kept = factory.createDevice();
    auto* const object = dynamic_cast<CZRNCamera*>(lost);
    ASSERT_EQ(code(lost->connectDeviceBySerial("ZR4711")), 0U);
    ASSERT_EQ(code(object->startStream(0)), 0U);
    {
        QObject parent;
        object->setParent(&parent);
    }
    EXPECT_EQ(factory.m_cameraCount, 1);
    ASSERT_EQ(factory.m_cameraList.size(), 1);
    EXPECT_EQ(static_cast<DeviceInterface*>(factory.m_cameraList.first()), kept);
    EXPECT_EQ(code(factory.deleteDevice(lost)), 776U);
    EXPECT_EQ(bus.outstanding().handles, 0);
    m_factory.reset();
}

TEST_F(Factory, TakesACameraFromItsParent)
{
    QObject parent;
    DeviceInterface* device = factory.createDevice();
    dynamic_cast<QObject*>(device)->setParent(&parent);
    dynamic_cast<QObject*>(factory.createDevice())->setParent(&parent);
    EXPECT_EQ(code(factory.deleteDevice(device)), 0U);
    EXPECT_EQ(parent.children().size(), 1);
    m_factory.reset();
    EXPECT_THAT(parent.children(), IsEmpty());
}

TEST_F(Factory, DeletesOnlyItsOwnCameras)
{
    FactoryProbe other;
    DeviceInterface* foreign = other.createDevice();
    DeviceInterface* const before = foreign;
    EXPECT_EQ(code(factory.deleteDevice(foreign)), 776U);
    EXPECT_EQ(foreign, before);
    EXPECT_EQ(foreign->types(), 1);
    EXPECT_EQ(other.m_cameraCount, 1);

    CZRNCamera onTheStack;
    DeviceInterface* loose = &onTheStack;
    EXPECT_EQ(code(factory.deleteDevice(loose)), 776U);
    EXPECT_EQ(loose, static_cast<DeviceInterface*>(&onTheStack));
}

TEST_F(Factory, DeletingTwiceFindsAClearedPointer)
{
    DeviceInterface* device = factory.createDevice();
    EXPECT_EQ(code(factory.deleteDevice(device)), 0U);
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(code(factory.deleteDevice(device)), 512U);
    EXPECT_EQ(factory.m_cameraCount, 0);
    EXPECT_THAT(factory.m_cameraList, IsEmpty());
}

TEST_F(Factory, KeepsTheOthersInTheirOrder)
{
    DeviceInterface* first = factory.createDevice();
    DeviceInterface* second = factory.createDevice();
    DeviceInterface* third = factory.createDevice();
    EXPECT_EQ(code(factory.deleteDevice(second)), 0U);
    EXPECT_EQ(factory.m_cameraCount, 2);
    ASSERT_EQ(factory.m_cameraList.size(), 2);
    EXPECT_EQ(static_cast<DeviceInterface*>(factory.m_cameraList[0]), first);
    EXPECT_EQ(static_cast<DeviceInterface*>(factory.m_cameraList[1]), third);
}

TEST_F(Factory, DeletingAConnectedCameraDisconnectsIt)
{
    bus.addCamera(1);
    factory.enumDevice();
    expectedLeaks.descriptors += 1;
    DeviceInterface* device = factory.createDevice();
    ASSERT_EQ(code(device->connectDeviceBySerial("ZR1")), 0U);
    ASSERT_EQ(code(dynamic_cast<CameraInterface&>(*device).startStream(0)), 0U);
    clearLogs();
    EXPECT_EQ(code(factory.deleteDevice(device)), 0U);
    EXPECT_THAT(bus.callTexts(),
                ElementsAre("uvc_stop_streaming handle1", "uvc_close handle1",
                            "uvc_unref_device context2/device0", "uvc_exit context2"));
    EXPECT_EQ(CameraProbe::m_cameraNodeMap.size(), 1);
}

TEST_F(Factory, ItsEndStopsAndDeletesEveryCameraAndThenReleasesTheNodes)
{
    bus.addCamera(1);
    bus.addCamera(2);
    bus.addCamera(3);
    factory.enumDevice();
    expectedLeaks.descriptors += 3;
    DeviceInterface* second = factory.createDevice();
    ASSERT_EQ(code(second->connectDeviceBySerial("ZR2")), 0U);
    ASSERT_EQ(code(dynamic_cast<CameraInterface&>(*second).startStream(0)), 0U);
    factory.createDevice();
    DeviceInterface* first = factory.createDevice();
    ASSERT_EQ(code(first->connectDeviceBySerial("ZR1")), 0U);
    factory.m_cameraList.insert(1, nullptr);
    clearLogs();

    m_factory.reset();
    EXPECT_THAT(bus.callTexts(),
                ElementsAre("uvc_stop_streaming handle2", "uvc_close handle2",
                            "uvc_unref_device context3/device1", "uvc_exit context3",
                            "uvc_close handle1", "uvc_unref_device context2/device0",
                            "uvc_exit context2", "uvc_close handle3",
                            "uvc_unref_device context4/device2", "uvc_exit context4"));
    EXPECT_TRUE(CameraProbe::m_cameraNodeMap.isEmpty());
    const std::string start = "start CZRNCamera::stopStream function";
    // Each camera is stopped once by the factory, and once more where it disconnects.
    EXPECT_EQ(std::ranges::count(log.lines(), debugLine(start)), 5);
    EXPECT_THAT(log.lines(QtWarningMsg), IsEmpty());
}

TEST_F(Factory, ManyThreadsMayMakeAndDeleteCameras)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this] {
            for (int n = 0; n < 50; ++n) {
                DeviceInterface* device = factory.createDevice();
                factory.createDevice();
                EXPECT_EQ(code(factory.deleteDevice(device)), 0U);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(factory.m_cameraCount, 200);
    EXPECT_EQ(factory.m_cameraList.size(), 200);
}

// The meta-object

TEST_F(Factory, ListsItsOperationsAsInvokableMethods)
{
    struct Method {
        const char* signature;
        const char* result;
        QList<QByteArray> types;
        QList<QByteArray> names;
    };
    const std::vector<Method> methods = {
        {"name()", "QString", {}, {}},
        {"version()", "QVersionNumber", {}, {}},
        {"enumDevice()", "int", {}, {}},
        {"createDevice()", "DeviceInterface*", {}, {}},
        {"deleteDevice(DeviceInterface*&)", "ErrorCode", {"DeviceInterface*&"}, {"device"}},
    };
    const QMetaObject* meta = factory.metaObject();
    EXPECT_STREQ(meta->className(), "CZRNCameraFactory");
    EXPECT_STREQ(meta->superClass()->className(), "IFactory");
    EXPECT_EQ(meta->superClass()->superClass(), &QObject::staticMetaObject);
    ASSERT_EQ(meta->methodCount() - meta->methodOffset(), 5);
    for (int i = 0; i < 5; ++i) {
        const QMetaMethod method = meta->method(meta->methodOffset() + i);
        const Method& expected = methods[static_cast<std::size_t>(i)];
        EXPECT_EQ(method.methodSignature(), expected.signature);
        EXPECT_STREQ(method.typeName(), expected.result);
        EXPECT_EQ(method.parameterTypes(), expected.types);
        EXPECT_EQ(method.parameterNames(), expected.names);
        EXPECT_EQ(method.methodType(), QMetaMethod::Method);
        EXPECT_EQ(method.access(), QMetaMethod::Public);
    }
}

TEST_F(Factory, DispatchesMetaCallsThroughTheVirtualOperations)
{
    class Overriding : public CZRNCameraFactory
    {
    public:
        Overriding()
            : CZRNCameraFactory(nullptr)
        {
        }
        QString name() override { return "other"; }
        QVersionNumber version() override { return QVersionNumber(9); }
        int enumDevice() override { return 77; }
        DeviceInterface* createDevice() override { return &m_camera; }
        ErrorCode deleteDevice(DeviceInterface*& device) override
        {
            device = nullptr;
            return ErrorCode::IndexNotFound;
        }
        CZRNCamera m_camera;
    };
    Overriding other;
    const int offset = CZRNCameraFactory::staticMetaObject.methodOffset();
    const auto call = [&other, offset](int index, void* result, void* argument) {
        std::array<void*, 2> arguments = {result, argument};
        other.qt_metacall(QMetaObject::InvokeMetaMethod, offset + index, arguments.data());
    };
    QString name;
    QVersionNumber version;
    int count = 0;
    DeviceInterface* device = nullptr;
    auto result = ErrorCode::Success;
    call(0, &name, nullptr);
    call(1, &version, nullptr);
    call(2, &count, nullptr);
    call(3, &device, nullptr);
    EXPECT_EQ(name, "other");
    EXPECT_EQ(version, QVersionNumber(9));
    EXPECT_EQ(count, 77);
    EXPECT_EQ(device, static_cast<DeviceInterface*>(&other.m_camera));
    call(4, &result, &device);
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(code(result), 770U);
}

TEST_F(Factory, IsInvokableByName)
{
    QString name;
    EXPECT_TRUE(QMetaObject::invokeMethod(&factory, "name", Q_RETURN_ARG(QString, name)));
    EXPECT_EQ(name, "ZRNCamera");
    DeviceInterface* device = nullptr;
    EXPECT_TRUE(QMetaObject::invokeMethod(&factory, "createDevice",
                                          Q_RETURN_ARG(DeviceInterface*, device)));
    EXPECT_NE(device, nullptr);
}

TEST_F(Factory, AnswersItsMetaCasts)
{
    CZRNCameraFactory* const object = &factory;
    EXPECT_EQ(object->qt_metacast("CZRNCameraFactory"), static_cast<void*>(object));
    EXPECT_EQ(object->qt_metacast("Quorvane.Device.IFactory.2.0.200324"),
              static_cast<void*>(object));
    EXPECT_EQ(object->qt_metacast("IFactory"), static_cast<void*>(static_cast<IFactory*>(object)));
    EXPECT_EQ(object->qt_metacast("QObject"), static_cast<void*>(static_cast<QObject*>(object)));
    for (const char* name : {"", "Quorvane.Device.IFactory.2.0", "CameraInterface",
                             "Quorvane.Hardware.ZRNCameraFactory.v2.0"}) {
        EXPECT_EQ(object->qt_metacast(name), nullptr) << name;
    }
    EXPECT_EQ(qobject_cast<IFactory*>(static_cast<QObject*>(object)), object);
    EXPECT_STREQ(qobject_interface_iid<IFactory*>(), "Quorvane.Device.IFactory.2.0.200324");
}
