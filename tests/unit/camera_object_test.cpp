// The camera object itself: its fields and their defaults, its meta-object and its end.

#include "driver_test.h"

#include <QMetaMethod>
#include <QMetaObject>

#include <thread>
#include <type_traits>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class CameraObject : public DriverTest
{
};

template <typename Field>
std::uintptr_t addressOf(const Field& field)
{
    return reinterpret_cast<std::uintptr_t>(&field);
}

} // namespace

TEST_F(CameraObject, StartsWithItsDefaults)
{
    const CameraProbe fresh;
    EXPECT_EQ(fresh.m_currentNode, nullptr);
    EXPECT_EQ(fresh.m_sensorType, -1);
    EXPECT_EQ(fresh.m_cacheFrameCount, 16);
    EXPECT_EQ(fresh.m_serial, "");
    EXPECT_EQ(fresh.m_imageWidth, 1280);
    EXPECT_EQ(fresh.m_imageHeight, 1024);
    EXPECT_EQ(fresh.m_maxExposureTime, 0U);
    EXPECT_EQ(fresh.m_minExposureTime, 1000U);
    EXPECT_EQ(fresh.m_exposureTime, 10);
    EXPECT_EQ(fresh.m_maxGain, 255);
    EXPECT_EQ(fresh.m_minGain, 1);
    EXPECT_EQ(fresh.m_gain, 10);
    EXPECT_EQ(static_cast<unsigned>(fresh.m_pixelFormat), 264U);
    EXPECT_THAT(fresh.m_frameIndexQueue, IsEmpty());
    EXPECT_EQ(fresh.m_writeIndex, 0);
    EXPECT_FALSE(fresh.m_isStreaming);
    EXPECT_EQ(fresh.m_grabTimeout, 1000);
    EXPECT_THAT(fresh.m_frameBuffers, IsEmpty());
    EXPECT_THAT(fresh.m_bufferLocks, IsEmpty());
    EXPECT_TRUE(fresh.m_exposureReadBack);
    EXPECT_EQ(fresh.m_auxParameter, 10);
    EXPECT_TRUE(fresh.m_gainReadBack);
    EXPECT_TRUE(fresh.m_fpsTimer.isNull());
    EXPECT_EQ(static_cast<unsigned>(fresh.m_triggerMode), 2U);
    EXPECT_EQ(fresh.m_streamCtrl, nullptr);
    EXPECT_EQ(fresh.parent(), nullptr);
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(CameraObject, FieldsStandInTheirOrder)
{
    const CameraProbe fresh;
    const std::vector<std::uintptr_t> addresses = {addressOf(fresh.m_currentNode),
                                                   addressOf(fresh.m_sensorType),
                                                   addressOf(fresh.m_cacheFrameCount),
                                                   addressOf(fresh.m_nodeLock),
                                                   addressOf(fresh.m_serial),
                                                   addressOf(fresh.m_imageWidth),
                                                   addressOf(fresh.m_imageHeight),
                                                   addressOf(fresh.m_maxExposureTime),
                                                   addressOf(fresh.m_minExposureTime),
                                                   addressOf(fresh.m_exposureTime),
                                                   addressOf(fresh.m_maxGain),
                                                   addressOf(fresh.m_minGain),
                                                   addressOf(fresh.m_gain),
                                                   addressOf(fresh.m_colorRGBGain),
                                                   addressOf(fresh.m_controlMutex),
                                                   addressOf(fresh.m_pixelFormat),
                                                   addressOf(fresh.m_frameIndexQueue),
                                                   addressOf(fresh.m_writeIndex),
                                                   addressOf(fresh.m_isStreaming),
                                                   addressOf(fresh.m_grabTimeout),
                                                   addressOf(fresh.m_frameBuffers),
                                                   addressOf(fresh.m_bufferLocks),
                                                   addressOf(fresh.m_exposureReadBack),
                                                   addressOf(fresh.m_auxParameter),
                                                   addressOf(fresh.m_gainReadBack),
                                                   addressOf(fresh.m_frameReady),
                                                   addressOf(fresh.m_frameMutex),
                                                   addressOf(fresh.m_fpsTimer),
                                                   addressOf(fresh.m_fpsFrameCount),
                                                   addressOf(fresh.m_frameRate),
                                                   addressOf(fresh.m_triggerMode),
                                                   addressOf(fresh.m_receivedFrameCount),
                                                   addressOf(fresh.m_streamCtrl)};
    EXPECT_TRUE(std::is_sorted(addresses.begin(), addresses.end()));
}

TEST_F(CameraObject, FieldsHaveTheirTypes)
{
    static_assert(std::is_same_v<decltype(CameraProbe::m_currentNode), CameraNode*>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_sensorType), qint32>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_cacheFrameCount), qint32>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_nodeLock), QReadWriteLock>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_serial), QString>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_imageWidth), qint32>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_imageHeight), qint32>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_maxExposureTime), quint32>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_minExposureTime), quint32>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_exposureTime), qint32>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_maxGain), quint16>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_minGain), quint16>);
    static_assert(sizeof(CameraProbe::m_gain) == 4);
    static_assert(sizeof(CameraProbe::m_colorRGBGain) == 8);
    static_assert(std::is_same_v<decltype(CameraProbe::m_controlMutex), QMutex>);
    static_assert(sizeof(CameraProbe::m_pixelFormat) == 4);
    static_assert(std::is_same_v<decltype(CameraProbe::m_frameIndexQueue), QQueue<int>>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_writeIndex), qint32>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_isStreaming), bool>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_grabTimeout), qint32>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_frameBuffers), QList<unsigned char*>>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_bufferLocks), QList<QMutex*>>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_exposureReadBack), bool>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_auxParameter), qint32>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_gainReadBack), bool>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_frameReady), QWaitCondition>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_frameMutex), QMutex>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_fpsTimer), QTime>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_fpsFrameCount), qint32>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_frameRate), double>);
    static_assert(sizeof(CameraProbe::m_triggerMode) == 4);
    static_assert(std::is_same_v<decltype(CameraProbe::m_receivedFrameCount), qint32>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_streamCtrl), uvc_stream_ctrl_t*>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_cameraEnumLock), QMutex>);
    static_assert(
        std::is_same_v<decltype(CameraProbe::m_cameraNodeMap), QMap<QString, CameraNode*>>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_enumCount), qint32>);
    static_assert(std::is_same_v<decltype(CameraProbe::m_category), QLoggingCategory>);
    EXPECT_STREQ(CameraProbe::m_category.categoryName(), "ZRNCamera");
}

TEST_F(CameraObject, TellsNameAndType)
{
    EXPECT_EQ(camera.name(), "ZRNCamera");
    EXPECT_EQ(camera.types(), 1);
}

TEST_F(CameraObject, IsAQObjectAtItsOwnAddress)
{
    CZRNCamera* const object = &camera;
    EXPECT_EQ(static_cast<void*>(static_cast<QObject*>(object)), static_cast<void*>(object));
}

TEST_F(CameraObject, AnswersItsMetaCasts)
{
    CZRNCamera* const object = &camera;
    EXPECT_EQ(object->qt_metacast("CZRNCamera"), static_cast<void*>(object));
    EXPECT_EQ(object->qt_metacast("CameraInterface"),
              static_cast<void*>(static_cast<CameraSpace::CameraInterface*>(object)));
    EXPECT_NE(object->qt_metacast("CameraInterface"), static_cast<void*>(object));
    EXPECT_EQ(object->qt_metacast("QObject"), static_cast<void*>(static_cast<QObject*>(object)));
    for (const char* name : {"", "DeviceInterface", "CameraSpace::CameraInterface",
                             "BaseDeviceSpace::DeviceInterface", "IFactory"}) {
        EXPECT_EQ(object->qt_metacast(name), nullptr) << name;
    }
    EXPECT_EQ(object->qt_metacast(nullptr), nullptr);
}

TEST_F(CameraObject, DeclaresNothingToTheMetaObjectSystem)
{
    const QMetaObject* meta = camera.metaObject();
    EXPECT_STREQ(meta->className(), "CZRNCamera");
    EXPECT_EQ(meta->superClass(), &QObject::staticMetaObject);
    EXPECT_EQ(meta->methodCount(), QObject::staticMetaObject.methodCount());
    EXPECT_EQ(meta->propertyCount(), QObject::staticMetaObject.propertyCount());
    EXPECT_EQ(meta->enumeratorCount(), QObject::staticMetaObject.enumeratorCount());
}

TEST_F(CameraObject, AHostMayHoldItAsADeviceOnly)
{
    auto* object = new CZRNCamera;
    BaseDeviceSpace::DeviceInterface* device = object;
    EXPECT_EQ(dynamic_cast<CameraSpace::CameraInterface*>(device),
              static_cast<CameraSpace::CameraInterface*>(object));
    EXPECT_EQ(dynamic_cast<QObject*>(device), static_cast<QObject*>(object));
    EXPECT_EQ(device->name(), "ZRNCamera");
    EXPECT_EQ(device->types(), 1);
    delete object;
}

TEST_F(CameraObject, DestroyingItDisconnects)
{
    auto connected = std::make_unique<CameraProbe>();
    connect(*connected, 2, 8, 4);
    ASSERT_EQ(code(connected->startStream(0)), 0U);
    clearLogs();
    connected.reset();
    EXPECT_THAT(bus.callTexts(),
                ElementsAre("uvc_stop_streaming handle1", "uvc_close handle1",
                            "uvc_unref_device context2/device0", "uvc_exit context2"));
    ASSERT_NE(node("4711"), nullptr);
    EXPECT_FALSE(node("4711")->isOpen);
    EXPECT_EQ(node("4711")->handle, nullptr);
    EXPECT_THAT(log.lines(QtWarningMsg), IsEmpty());
}

TEST_F(CameraObject, DestroyingAnUnconnectedOneCallsNothing)
{
    {
        const CameraProbe fresh;
    }
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(CameraObject, DestroyingItNeitherBlocksOnNorWarnsOfALockedSlot)
{
    auto connected = std::make_unique<CameraProbe>();
    connect(*connected, 2, 8, 4);
    ASSERT_EQ(code(connected->startStream(0)), 0U);
    ASSERT_EQ(code(connected->disconnectDevice()), 0U);
    connected->m_bufferLocks[3]->lock();
    connected->m_bufferLocks[15]->lock();
    clearLogs();
    connected.reset();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(CameraObject, DestroyingItSkipsEmptySlots)
{
    auto connected = std::make_unique<CameraProbe>();
    connect(*connected, 2, 8, 4);
    ASSERT_EQ(code(connected->startStream(0)), 0U);
    ASSERT_EQ(code(connected->disconnectDevice()), 0U);
    delete[] connected->m_frameBuffers[2];
    connected->m_frameBuffers[2] = nullptr;
    delete connected->m_bufferLocks[4];
    connected->m_bufferLocks[4] = nullptr;
    connected.reset();
}

TEST_F(CameraObject, ControlsAndDisconnectingMayRace)
{
    connect(2, 8, 4);
    std::thread controls([this] {
        for (int i = 0; i < 200; ++i) {
            unsigned short gain = 0;
            const unsigned result = code(camera.getGain(gain, 0));
            EXPECT_THAT(result, testing::AnyOf(0U, 512U, 1041U));
        }
    });
    camera.disconnectDevice();
    controls.join();
}
