// The built plugin as a host sees it: its metadata, its symbols, its root object and its cameras.
// What it imports from libuvc is answered by the stand-in, which this program brings along.

#include "camera_interface.h"
#include "factory_interface.h"
#include "fake_uvc.h"

#include <QCborMap>
#include <QCborValue>
#include <QFile>
#include <QJsonObject>
#include <QLibrary>
#include <QMetaMethod>
#include <QPluginLoader>
#include <QPointer>
#include <QProcess>
#include <QThread>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <dlfcn.h>
#include <malloc.h>
#include <set>
#include <vector>

using BaseDeviceSpace::DeviceInterface;
using CameraSpace::CameraInterface;
using CameraSpace::ImageBlock;
using fakeuvc::Bus;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

const QString pluginPath = QStringLiteral(ZRN_PLUGIN_PATH);

// How Qt keeps the metadata: after a marker the format, Qt's version, and what the plugin requires
// of its host, which is nothing that not every processor of its kind has, and no debug build.
constexpr int markerSize = 12;
#if QT_VERSION_MAJOR < 6
const QByteArray metadataBegin("QTMETADATA !\0\5\17\0", markerSize + 4);
constexpr const char* metadataQuery = "qt_plugin_query_metadata";
#else
#ifdef Q_PROCESSOR_X86_64
constexpr char requirements = 1; // SSE2
#else
constexpr char requirements = 0;
#endif
const QByteArray metadataBegin =
    QByteArray("qt-project!\0\1\6", markerSize + 2) + char{QT_VERSION_MINOR} + requirements;
constexpr const char* metadataQuery = "qt_plugin_query_metadata_v2";
#endif

/// The block that Qt finds in the file, up to the end of its map.
QByteArray metadataOfTheFile()
{
    QFile file(pluginPath);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    EXPECT_EQ(bytes.count(metadataBegin), 1);
    const QByteArray fromMarker = bytes.mid(bytes.indexOf(metadataBegin), 4096);
    return fromMarker.left(fromMarker.indexOf('\xff') + 1);
}

/// What the loaded plugin answers, from the format on.
QByteArray answeredMetadata(QtPluginMetaDataFunction query, int size)
{
#if QT_VERSION_MAJOR < 6
    return {query() + markerSize, size};
#else
    const QPluginMetaData answer = query();
    EXPECT_GE(answer.size, static_cast<std::size_t>(size));
    return {static_cast<const char*>(answer.data), size};
#endif
}

/// What a class tells of itself beyond QObject or QThread, line by line.
QString textsOf(const QMetaObject* meta)
{
    QString texts;
    for (; meta != &QObject::staticMetaObject && meta != &QThread::staticMetaObject;
         meta = meta->superClass()) {
        texts += QStringLiteral("class %1\n").arg(QLatin1String(meta->className()));
        for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
            const QMetaMethod method = meta->method(i);
            texts +=
                QStringLiteral("  %1 %2 (%3) type %4 access %5 tag '%6'\n")
                    .arg(QLatin1String(method.typeName()), QLatin1String(method.methodSignature()),
                         QLatin1String(method.parameterNames().join(',')))
                    .arg(method.methodType())
                    .arg(method.access())
                    .arg(QLatin1String(method.tag()));
        }
        for (int i = meta->propertyOffset(); i < meta->propertyCount(); ++i) {
            texts += QStringLiteral("  property %1\n").arg(QLatin1String(meta->property(i).name()));
        }
        for (int i = meta->enumeratorOffset(); i < meta->enumeratorCount(); ++i) {
            texts += QStringLiteral("  enum %1\n").arg(QLatin1String(meta->enumerator(i).name()));
        }
        for (int i = meta->classInfoOffset(); i < meta->classInfoCount(); ++i) {
            texts += QStringLiteral("  info %1\n").arg(QLatin1String(meta->classInfo(i).name()));
        }
    }
    return texts;
}

/// The symbols that nm lists, without addresses.
std::set<QString> symbols(const QString& which)
{
    QProcess nm;
    nm.start("nm", {"-D", "--format=posix", which, pluginPath});
    EXPECT_TRUE(nm.waitForFinished());
    EXPECT_EQ(nm.exitCode(), 0);
    std::set<QString> names;
    for (const QByteArray& line : nm.readAllStandardOutput().split('\n')) {
        if (!line.isEmpty()) {
            names.insert(QString::fromLatin1(line.split(' ').front()).section('@', 0, 0));
        }
    }
    return names;
}

class PluginLibrary : public testing::Test
{
protected:
    PluginLibrary() { bus.reset(); }

    IFactory* factory() { return qobject_cast<IFactory*>(loader.instance()); }

    Bus& bus = Bus::instance();
    QPluginLoader loader{pluginPath};
};

class ExitingHost : public testing::TestWithParam<const char*>
{
};

} // namespace

TEST_F(PluginLibrary, DescribesItself)
{
    const QJsonObject metadata = loader.metaData();
    EXPECT_EQ(metadata["IID"].toString(), "Quorvane.Hardware.ZRNCameraFactory.v2.0");
    EXPECT_EQ(metadata["className"].toString(), "CZRNCameraFactory");
    EXPECT_EQ(metadata["MetaData"].toObject(), (QJsonObject{{"key", "zrncamera"}}));
    EXPECT_FALSE(metadata["debug"].toBool());
    EXPECT_FALSE(loader.isLoaded());
}

TEST_F(PluginLibrary, CarriesItsMetadataInQtsForm)
{
    const QByteArray block = metadataOfTheFile();
    ASSERT_GT(block.size(), 16);
    // A CBOR map of indefinite length with three entries.
    EXPECT_EQ(block.at(16), '\xbf');
    EXPECT_EQ(block.back(), '\xff');
    const QCborMap map = QCborValue::fromCbor(block.mid(16)).toMap();
    EXPECT_EQ(map.size(), 3);
    EXPECT_EQ(map[2].toString(), "Quorvane.Hardware.ZRNCameraFactory.v2.0");
    EXPECT_EQ(map[3].toString(), "CZRNCameraFactory");
    EXPECT_EQ(map[4].toMap(), (QCborMap{{"key", "zrncamera"}}));
}

TEST_F(PluginLibrary, AnswersTheMetadataQuery)
{
    QLibrary library(pluginPath);
    const auto query = reinterpret_cast<QtPluginMetaDataFunction>(library.resolve(metadataQuery));
    ASSERT_NE(query, nullptr);
    const QByteArray block = metadataOfTheFile().mid(markerSize);
    ASSERT_FALSE(block.isEmpty());
    EXPECT_EQ(answeredMetadata(query, static_cast<int>(block.size())), block);
    EXPECT_TRUE(library.unload());
}

TEST_F(PluginLibrary, ExportsQtsEntryPointsAndTheTickThreadOnly)
{
    for (const QString& name : symbols("--defined-only")) {
        const bool known = name == "qt_plugin_instance" || name == metadataQuery ||
                           name.contains("13CustomThreads13TickTokThread") ||
                           name.contains("CustomThreads::TickTokThread");
        EXPECT_TRUE(known) << name.toStdString();
    }
    EXPECT_EQ(symbols("--defined-only").count("qt_plugin_instance"), 1U);
    EXPECT_EQ(symbols("--defined-only").count(metadataQuery), 1U);
}

TEST_F(PluginLibrary, ImportsFromLibuvcOnlyWhatTheStandInDefines)
{
    std::set<QString> imported;
    for (const QString& name : symbols("--undefined-only")) {
        EXPECT_FALSE(name.startsWith("libusb_")) << name.toStdString();
        if (name.startsWith("uvc_")) {
            imported.insert(name);
        }
    }
    EXPECT_GT(imported.size(), 20U);
    for (const QString& name : imported) {
        EXPECT_NE(QLibrary::resolve(ZRN_FAKE_UVC_PATH, name.toLatin1()), nullptr)
            << name.toStdString();
    }
}

TEST_F(PluginLibrary, HasOneRootObject)
{
    QObject* root = loader.instance();
    ASSERT_NE(root, nullptr) << loader.errorString().toStdString();
    EXPECT_EQ(loader.instance(), root);
    EXPECT_EQ(root->parent(), nullptr);
    EXPECT_STREQ(root->metaObject()->className(), "CZRNCameraFactory");
    ASSERT_NE(factory(), nullptr);
    EXPECT_EQ(factory()->name(), "ZRNCamera");
    EXPECT_EQ(factory()->version(), QVersionNumber(2, 2, 1));
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    EXPECT_TRUE(loader.unload());
}

TEST_F(PluginLibrary, MakesANewRootObjectWhereTheOldOneIsGone)
{
    QLibrary library(pluginPath);
    using Instance = QObject* (*)();
    const auto instance = reinterpret_cast<Instance>(library.resolve("qt_plugin_instance"));
    ASSERT_NE(instance, nullptr);
    QPointer<QObject> first = instance();
    ASSERT_TRUE(first);
    EXPECT_EQ(instance(), first);
    delete first.data();
    QObject* second = instance();
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(instance(), second);
    delete second;
    EXPECT_TRUE(library.unload());
}

TEST_F(PluginLibrary, ItsCamerasCastAcrossTheLibrarysBorder)
{
    DeviceInterface* device = factory()->createDevice();
    ASSERT_NE(device, nullptr);
    auto* camera = dynamic_cast<CameraInterface*>(device);
    auto* object = dynamic_cast<QObject*>(device);
    ASSERT_NE(camera, nullptr);
    ASSERT_NE(object, nullptr);
    EXPECT_STREQ(object->metaObject()->className(), "CZRNCamera");
    EXPECT_EQ(object->qt_metacast("CameraInterface"), static_cast<void*>(camera));
    EXPECT_EQ(static_cast<DeviceInterface*>(camera), device);
    EXPECT_EQ(factory()->deleteDevice(device), ErrorCode::Success);
    EXPECT_EQ(device, nullptr);
    EXPECT_TRUE(loader.unload());
}

// Hosts of every Qt find the same: builds for each are held against these lines.
TEST_F(PluginLibrary, TellsTheSameTextsToEveryQt)
{
    const auto* root = factory();
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(textsOf(root->metaObject()).toStdString(),
              "class CZRNCameraFactory\n"
              "  QString name() () type 0 access 2 tag ''\n"
              "  QVersionNumber version() () type 0 access 2 tag ''\n"
              "  int enumDevice() () type 0 access 2 tag ''\n"
              "  DeviceInterface* createDevice() () type 0 access 2 tag ''\n"
              "  ErrorCode deleteDevice(DeviceInterface*&) (device) type 0 access 2 tag ''\n"
              "class IFactory\n");
    DeviceInterface* device = factory()->createDevice();
    auto* camera = dynamic_cast<QObject*>(device);
    ASSERT_NE(camera, nullptr);
    EXPECT_EQ(textsOf(camera->metaObject()).toStdString(), "class CZRNCamera\n");
    EXPECT_NE(camera->qt_metacast("CZRNCamera"), nullptr);
    EXPECT_NE(camera->qt_metacast("CameraInterface"), nullptr);
    EXPECT_NE(camera->qt_metacast("zrncamera.FrameTimesInterface/1"), nullptr);
    EXPECT_NE(factory()->qt_metacast("Quorvane.Device.IFactory.2.0.200324"), nullptr);
    EXPECT_EQ(factory()->deleteDevice(device), ErrorCode::Success);

    const auto* ticks = reinterpret_cast<const QMetaObject*>(
        QLibrary::resolve(pluginPath, "_ZN13CustomThreads13TickTokThread16staticMetaObjectE"));
    ASSERT_NE(ticks, nullptr);
    EXPECT_EQ(textsOf(ticks).toStdString(), "class CustomThreads::TickTokThread\n"
                                            "  void tickTokTimeOut() () type 1 access 2 tag ''\n");
    EXPECT_TRUE(loader.unload());
}

TEST_F(PluginLibrary, SlotsAreCalledByTheirNumber)
{
    // As a host would that knows nothing but the order of the operations.
    DeviceInterface* device = factory()->createDevice();
    const auto slot = [](void* object, std::size_t number) {
        return (*static_cast<void***>(object))[number];
    };
    void* const object = device;
    using Types = int (*)(void*);
    using Result = ErrorCode (*)(void*);
    using ByIndex = ErrorCode (*)(void*, int);
    EXPECT_EQ(reinterpret_cast<Types>(slot(object, 1))(object), 1);
    EXPECT_EQ(reinterpret_cast<ByIndex>(slot(object, 3))(object, 0), ErrorCode::NothingEnumerated);
    EXPECT_EQ(reinterpret_cast<Result>(slot(object, 4))(object), ErrorCode::BadArgument);
    EXPECT_EQ(reinterpret_cast<Result>(slot(object, 5))(object), ErrorCode::NotConnected);

    void* const camera = dynamic_cast<CameraInterface*>(device);
    using Offset = ErrorCode (*)(void*, unsigned int, unsigned int, signed char);
    using Selector = ErrorCode (*)(void*, signed char);
    EXPECT_EQ(reinterpret_cast<Offset>(slot(camera, 9 + 9))(camera, 1, 2, 0),
              ErrorCode::NotSupported);
    EXPECT_EQ(reinterpret_cast<Selector>(slot(camera, 9 + 15))(camera, 0), ErrorCode::NoCamera);
    EXPECT_EQ(reinterpret_cast<Selector>(slot(camera, 9 + 16))(camera, 0), ErrorCode::NotStreaming);
    EXPECT_EQ(factory()->deleteDevice(device), ErrorCode::Success);
    EXPECT_TRUE(loader.unload());
}

TEST_F(PluginLibrary, GrabsThroughTheInterfacesAlone)
{
    constexpr int width = 8;
    constexpr int height = 4;
    fakeuvc::Camera& onTheBus = bus.addCamera(4711, 2, width, height);
    ASSERT_EQ(factory()->enumDevice(), 1);
    DeviceInterface* device = factory()->createDevice();
    auto* camera = dynamic_cast<CameraInterface*>(device);
    ASSERT_NE(camera, nullptr);
    ASSERT_EQ(device->connectDeviceBySerial("ZR4711"), ErrorCode::Success);
    QMap<QString, QVariant> values;
    EXPECT_EQ(device->getProperty("Serial", values), ErrorCode::Success);
    EXPECT_EQ(values["value"], QVariant("ZR4711"));
    ASSERT_EQ(camera->startStream(0), ErrorCode::Success);
    std::vector<unsigned char> data(2 * width * height, 7);
    ASSERT_TRUE(bus.deliver(onTheBus, width, height, data));
    QList<ImageBlock*> images;
    EXPECT_EQ(camera->grabImage(images), ErrorCode::Success);
    ASSERT_EQ(images.size(), 2);
    EXPECT_EQ(images[0]->data.left(width * height), QByteArray(width * height, 7));
    qDeleteAll(images);

    // The host forgets its camera; unloading takes care.
    EXPECT_TRUE(loader.unload());
    EXPECT_EQ(bus.outstanding(), fakeuvc::Outstanding{.descriptors = 1});
    EXPECT_THAT(bus.misuses(), IsEmpty());
}

// The clock that users have: the other tests of the driver's pauses bring one of their own.
TEST_F(PluginLibrary, PausesForAsLongAsACameraNeeds)
{
    using Clock = std::chrono::steady_clock;
    bus.addCamera(4711);
    ASSERT_EQ(factory()->enumDevice(), 1);
    DeviceInterface* device = factory()->createDevice();
    auto* camera = dynamic_cast<CameraInterface*>(device);
    ASSERT_NE(camera, nullptr);
    ASSERT_EQ(device->connectDeviceBySerial("ZR4711"), ErrorCode::Success);
    std::vector<Clock::time_point> moments = {Clock::now()};
    bus.setHook([&moments](const fakeuvc::Call& /*call*/) { moments.push_back(Clock::now()); });
    EXPECT_EQ(camera->setExposureTime(100, 0), ErrorCode::Success);
    bus.setHook({});
    ASSERT_EQ(moments.size(), 3U);
    EXPECT_GE(moments[1] - moments[0], std::chrono::milliseconds(32));
    EXPECT_GE(moments[2] - moments[1], std::chrono::milliseconds(32));
    EXPECT_EQ(factory()->deleteDevice(device), ErrorCode::Success);
    EXPECT_TRUE(loader.unload());
}

TEST_F(PluginLibrary, CanBeLoadedAgainAfterItWasUnloaded)
{
    for (int i = 0; i < 5; ++i) {
        QPluginLoader again(pluginPath);
        auto* root = qobject_cast<IFactory*>(again.instance());
        ASSERT_NE(root, nullptr);
        EXPECT_EQ(root->enumDevice(), 0);
        EXPECT_TRUE(again.unload());
    }
    EXPECT_EQ(bus.outstanding(), fakeuvc::Outstanding{});
}

TEST_F(PluginLibrary, LeavesNoMoreAllocatedWithEachReload)
{
    constexpr int reloads = 50;
    constexpr std::size_t tolerance = 64; // bytes for each, for Qt
    const auto reload = [] {
        QPluginLoader again(pluginPath);
        again.setLoadHints({});
        auto* root = qobject_cast<IFactory*>(again.instance());
        ASSERT_NE(root, nullptr);
        DeviceInterface* camera = root->createDevice();
        root->deleteDevice(camera);
        EXPECT_TRUE(again.unload());
    };
    for (int i = 0; i < reloads; ++i) {
        reload();
    }
    const std::size_t before = mallinfo2().uordblks;
    for (int i = 0; i < reloads; ++i) {
        reload();
    }
    EXPECT_LT(mallinfo2().uordblks, before + reloads * tolerance);
}

// libuvc and libusb work on for a context that is never released.
TEST_F(PluginLibrary, StaysLoadedWithAContextThatIsLeftBehind)
{
    bus.fail({"uvc_get_device_list", UVC_ERROR_NO_MEM});
    loader.setLoadHints({}); // or else Qt keeps it
    ASSERT_NE(factory(), nullptr);
    EXPECT_EQ(factory()->enumDevice(), 0);
    loader.unload();
    EXPECT_EQ(bus.outstanding(), fakeuvc::Outstanding{.contexts = 1});
    void* const left = dlopen(ZRN_PLUGIN_PATH, RTLD_LAZY | RTLD_NOLOAD);
    EXPECT_NE(left, nullptr);
    if (left) {
        dlclose(left);
    }
}

TEST_P(ExitingHost, ExitsCleanly)
{
    QProcess host;
    host.start(ZRN_EXITING_HOST_PATH, {pluginPath, GetParam()});
    ASSERT_TRUE(host.waitForFinished(20000)) << "the process does not end";
    const QByteArray printed = host.readAllStandardError();
    SCOPED_TRACE(printed.toStdString());
    EXPECT_EQ(host.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(host.exitCode(), 0);

    std::vector<std::string> calls;
    int stops = 0;
    for (const QByteArray& line : printed.split('\n')) {
        // Only the calls of libuvc are of interest, but no warning may be among the lines.
        EXPECT_FALSE(line.contains("QMutex") || line.contains("QThread")) << line.toStdString();
        if (line.startsWith("uvc_")) {
            calls.push_back(line.toStdString());
        }
        // Log lines are whole as long as a camera streams.
        if (line == "pattern: start CZRNCamera::stopStream function") {
            ++stops;
        }
    }
    const std::string state = GetParam();
    std::vector<std::string> expected;
    if (state == "streaming" || state == "exit") {
        expected.emplace_back("uvc_stop_streaming handle1");
    }
    for (const int number : {1, 2}) {
        const std::string context = "context" + std::to_string(number + 1);
        expected.push_back("uvc_close handle" + std::to_string(number));
        expected.push_back("uvc_unref_device " + context + "/device" + std::to_string(number - 1));
        expected.push_back("uvc_exit " + context);
    }
    EXPECT_EQ(calls, expected);
    // Nothing is logged after the driver's own end.
    EXPECT_THAT(printed.split('\n').mid(printed.split('\n').indexOf("late")),
                ElementsAre("late", ""));
    // The root object goes after the plugin's logging category: its cameras are stopped before.
    EXPECT_EQ(stops, state == "enumerated" ? 0 : 1);
}

INSTANTIATE_TEST_SUITE_P(EveryState, ExitingHost,
                         testing::Values("enumerated", "connected", "streaming", "exit",
                                         "disconnecting"),
                         [](const auto& test) { return std::string(test.param); });
