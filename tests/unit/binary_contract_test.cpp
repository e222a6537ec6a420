// What a host that was built apart relies on: slots of the virtual tables, types, sizes and
// numbers.

#include "camera_interface.h"
#include "factory_interface.h"
#include "frame_times_interface.h"
#include "timed_camera.h"
#include "zrn_camera.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

using CameraSpace::ImageBlock;
using CameraSpace::PixelFormatType;
using CameraSpace::TriggerMode;

namespace
{

/// The place of a virtual function in its class's table. A pointer to a virtual member function
/// holds the offset of its entry, and a mark: in the Itanium C++ ABI one is added to the offset, on
/// ARM, where the lowest bit of a code address has a meaning, to the doubled adjustment that
/// follows.
template <typename Function>
std::ptrdiff_t slotOf(Function function)
{
    struct {
        std::ptrdiff_t offset;
        std::ptrdiff_t adjustment;
    } words;
    static_assert(sizeof(function) == sizeof(words));
    std::memcpy(&words, &function, sizeof(words));
#if defined(__arm__) || defined(__aarch64__)
    EXPECT_EQ(words.adjustment % 2, 1) << "not virtual";
#else
    EXPECT_EQ(words.offset % 2, 1) << "not virtual";
    --words.offset;
#endif
    return words.offset / static_cast<std::ptrdiff_t>(sizeof(void*));
}

/// Checks that the slots follow one another.
void expectConsecutive(const std::vector<std::ptrdiff_t>& slots, std::ptrdiff_t first)
{
    for (std::size_t i = 0; i < slots.size(); ++i) {
        EXPECT_EQ(slots[i], first + static_cast<std::ptrdiff_t>(i)) << "operation " << i + 1;
    }
}

template <typename From, typename To>
constexpr bool canStaticCast = requires(From* from)
{
    static_cast<To*>(from);
};

using Values = QMap<QString, QVariant>;

} // namespace

TEST(BinaryContract, SlotsOfTheDeviceInterface)
{
    using Interface = BaseDeviceSpace::DeviceInterface;
    expectConsecutive({slotOf(&Interface::name), slotOf(&Interface::types),
                       slotOf(&Interface::connectDeviceBySerial),
                       slotOf(&Interface::connectDeviceByIndex),
                       slotOf(&Interface::reconnectDevice), slotOf(&Interface::disconnectDevice),
                       slotOf(&Interface::getProperty), slotOf(&Interface::setProperty),
                       slotOf(&Interface::executeCommand)},
                      0);
    static_assert(std::is_same_v<decltype(&Interface::name), QString (Interface::*)()>);
    static_assert(std::is_same_v<decltype(&Interface::types), int (Interface::*)()>);
    static_assert(std::is_same_v<decltype(&Interface::connectDeviceBySerial),
                                 ErrorCode (Interface::*)(const QString&)>);
    static_assert(
        std::is_same_v<decltype(&Interface::connectDeviceByIndex), ErrorCode (Interface::*)(int)>);
    static_assert(
        std::is_same_v<decltype(&Interface::reconnectDevice), ErrorCode (Interface::*)()>);
    static_assert(
        std::is_same_v<decltype(&Interface::disconnectDevice), ErrorCode (Interface::*)()>);
    static_assert(std::is_same_v<decltype(&Interface::getProperty),
                                 ErrorCode (Interface::*)(const QString&, Values&)>);
    static_assert(std::is_same_v<decltype(&Interface::setProperty),
                                 ErrorCode (Interface::*)(const QString&, const Values&)>);
    static_assert(std::is_same_v<decltype(&Interface::executeCommand),
                                 ErrorCode (Interface::*)(const QString&, Values&)>);
}

TEST(BinaryContract, SlotsOfTheCameraInterface)
{
    using Interface = CameraSpace::CameraInterface;
    // An interface without data shares the table of its virtual base, whose nine operations come
    // first.
    expectConsecutive({slotOf(&Interface::getExposureTimeRange),
                       slotOf(&Interface::setExposureTime), slotOf(&Interface::getExposureTime),
                       slotOf(&Interface::getGainRange), slotOf(&Interface::setGain),
                       slotOf(&Interface::getGain), slotOf(&Interface::getMaxImageSize),
                       slotOf(&Interface::setInterestSize), slotOf(&Interface::getInterestSize),
                       slotOf(&Interface::setAOIOffset), slotOf(&Interface::getAOIOffset),
                       slotOf(&Interface::getPixelFormat), slotOf(&Interface::setTriggerMode),
                       slotOf(&Interface::getTriggerMode), slotOf(&Interface::discardFrames),
                       slotOf(&Interface::startStream), slotOf(&Interface::stopStream),
                       slotOf(&Interface::grabImage)},
                      9);
    using Unsigned = unsigned int;
    using Short = unsigned short;
    using Selector = signed char;
    static_assert(std::is_same_v<decltype(&Interface::getExposureTimeRange),
                                 ErrorCode (Interface::*)(Unsigned&, Unsigned&, Selector)>);
    static_assert(std::is_same_v<decltype(&Interface::setExposureTime),
                                 ErrorCode (Interface::*)(Unsigned, Selector)>);
    static_assert(std::is_same_v<decltype(&Interface::getExposureTime),
                                 ErrorCode (Interface::*)(Unsigned&, Selector)>);
    static_assert(std::is_same_v<decltype(&Interface::getGainRange),
                                 ErrorCode (Interface::*)(Short&, Short&, Selector)>);
    static_assert(
        std::is_same_v<decltype(&Interface::setGain), ErrorCode (Interface::*)(Short, Selector)>);
    static_assert(
        std::is_same_v<decltype(&Interface::getGain), ErrorCode (Interface::*)(Short&, Selector)>);
    static_assert(std::is_same_v<decltype(&Interface::getMaxImageSize),
                                 ErrorCode (Interface::*)(Unsigned&, Unsigned&, Selector)>);
    static_assert(std::is_same_v<decltype(&Interface::setInterestSize),
                                 ErrorCode (Interface::*)(Unsigned, Unsigned, Selector)>);
    static_assert(std::is_same_v<decltype(&Interface::getInterestSize),
                                 ErrorCode (Interface::*)(Unsigned&, Unsigned&, Selector)>);
    static_assert(std::is_same_v<decltype(&Interface::setAOIOffset),
                                 ErrorCode (Interface::*)(Unsigned, Unsigned, Selector)>);
    static_assert(std::is_same_v<decltype(&Interface::getAOIOffset),
                                 ErrorCode (Interface::*)(Unsigned&, Unsigned&, Selector)>);
    static_assert(std::is_same_v<decltype(&Interface::getPixelFormat),
                                 ErrorCode (Interface::*)(PixelFormatType&, Selector)>);
    static_assert(std::is_same_v<decltype(&Interface::setTriggerMode),
                                 ErrorCode (Interface::*)(TriggerMode, Selector)>);
    static_assert(std::is_same_v<decltype(&Interface::getTriggerMode),
                                 ErrorCode (Interface::*)(TriggerMode&, Selector)>);
    static_assert(
        std::is_same_v<decltype(&Interface::discardFrames), ErrorCode (Interface::*)(Selector)>);
    static_assert(
        std::is_same_v<decltype(&Interface::startStream), ErrorCode (Interface::*)(Selector)>);
    static_assert(
        std::is_same_v<decltype(&Interface::stopStream), ErrorCode (Interface::*)(Selector)>);
    static_assert(std::is_same_v<decltype(&Interface::grabImage),
                                 ErrorCode (Interface::*)(QList<ImageBlock*>&)>);
}

TEST(BinaryContract, SlotsOfTheFactory)
{
    using Device = BaseDeviceSpace::DeviceInterface;
    // QObject's table and the destructors come first.
    const std::ptrdiff_t first = slotOf(&IFactory::name);
    EXPECT_GT(first, 0);
    expectConsecutive({slotOf(&IFactory::name), slotOf(&IFactory::version),
                       slotOf(&IFactory::enumDevice), slotOf(&IFactory::createDevice),
                       slotOf(&IFactory::deleteDevice)},
                      first);
    static_assert(std::is_base_of_v<QObject, IFactory>);
    static_assert(std::has_virtual_destructor_v<IFactory>);
    static_assert(std::is_same_v<decltype(&IFactory::name), QString (IFactory::*)()>);
    static_assert(std::is_same_v<decltype(&IFactory::version), QVersionNumber (IFactory::*)()>);
    static_assert(std::is_same_v<decltype(&IFactory::enumDevice), int (IFactory::*)()>);
    static_assert(std::is_same_v<decltype(&IFactory::createDevice), Device* (IFactory::*)()>);
    static_assert(
        std::is_same_v<decltype(&IFactory::deleteDevice), ErrorCode (IFactory::*)(Device*&)>);
}

TEST(BinaryContract, InterfacesAreWithoutDataAndDestructors)
{
    using BaseDeviceSpace::DeviceInterface;
    using CameraSpace::CameraInterface;
    static_assert(std::is_abstract_v<DeviceInterface> && std::is_abstract_v<CameraInterface>);
    static_assert(!std::has_virtual_destructor_v<DeviceInterface>);
    static_assert(!std::has_virtual_destructor_v<CameraInterface>);
    static_assert(sizeof(DeviceInterface) == sizeof(void*));
    static_assert(sizeof(CameraInterface) == sizeof(void*));
    // A virtual base can be left only by dynamic_cast.
    static_assert(std::is_base_of_v<DeviceInterface, CameraInterface>);
    static_assert(!canStaticCast<DeviceInterface, CameraInterface>);
    static_assert(canStaticCast<CameraInterface, CZRNCamera>);
}

TEST(BinaryContract, TypesHaveTheirSizes)
{
    static_assert(sizeof(ErrorCode) == 4 &&
                  std::is_same_v<std::underlying_type_t<ErrorCode>, quint32>);
    static_assert(sizeof(PixelFormatType) == 4);
    static_assert(sizeof(TriggerMode) == 4);
    static_assert(static_cast<unsigned>(PixelFormatType::Mono8) == 264);
    static_assert(static_cast<unsigned>(PixelFormatType::Packed16) == 272);
    static_assert(static_cast<unsigned>(PixelFormatType::Double8) == 520);
    static_assert(static_cast<unsigned>(TriggerMode::Newest) == 0);
    static_assert(static_cast<unsigned>(TriggerMode::Oldest) == 2);

    ImageBlock block;
    const auto offset = [&block](const void* field) {
        return reinterpret_cast<std::uintptr_t>(field) - reinterpret_cast<std::uintptr_t>(&block);
    };
    EXPECT_EQ(offset(&block.type), 0U);
    EXPECT_EQ(offset(&block.width), 4U);
    EXPECT_EQ(offset(&block.height), 8U);
    EXPECT_EQ(offset(&block.bitsPerPixel), 12U);
    EXPECT_EQ(offset(&block.data), 16U);
    EXPECT_EQ(sizeof(block), 16 + sizeof(QByteArray));
    EXPECT_EQ(block.type, 0);
    EXPECT_EQ(block.width, 0);
    EXPECT_EQ(block.height, 0);
    EXPECT_EQ(block.bitsPerPixel, 0);
}

TEST(BinaryContract, RecordOfTheFrameTimes)
{
    using CameraSpace::FrameTimes;
    using Interface = CameraSpace::FrameTimesInterface;
    EXPECT_STREQ(qobject_interface_iid<Interface*>(), "zrncamera.FrameTimesInterface/1");
    expectConsecutive({slotOf(&Interface::grabTimedImage)}, 0);
    static_assert(std::is_same_v<decltype(&Interface::grabTimedImage),
                                 ErrorCode (Interface::*)(QList<ImageBlock*>&, FrameTimes&)>);
    static_assert(!std::has_virtual_destructor_v<Interface>);
    static_assert(std::is_standard_layout_v<FrameTimes> &&
                  std::is_trivially_copyable_v<FrameTimes>);
    static_assert(offsetof(FrameTimes, firstPayload) == 0);
    static_assert(offsetof(FrameTimes, lastPayload) == 8);
    static_assert(offsetof(FrameTimes, handOver) == 16);
    static_assert(offsetof(FrameTimes, payloadSource) == 24);
    static_assert(offsetof(FrameTimes, sequence) == 28);
    static_assert(offsetof(FrameTimes, hasPresentationTime) == 32);
    static_assert(offsetof(FrameTimes, presentationTime) == 36);
    static_assert(offsetof(FrameTimes, hasSourceClock) == 40);
    static_assert(offsetof(FrameTimes, sourceClock) == 44);
    static_assert(offsetof(FrameTimes, busFrame) == 48);
    static_assert(offsetof(FrameTimes, clockFrequency) == 52);
    static_assert(offsetof(FrameTimes, ringLosses) == 56);
    static_assert(offsetof(FrameTimes, libraryLosses) == 64);
    static_assert(sizeof(FrameTimes) == 72);
}

TEST(BinaryContract, FrameTimesAreReachedByTheirNameAlone)
{
    TimedCamera camera;
    using Interface = CameraSpace::FrameTimesInterface;
    EXPECT_EQ(qobject_cast<Interface*>(static_cast<QObject*>(&camera)),
              static_cast<Interface*>(&camera));
    EXPECT_EQ(camera.qt_metacast("CZRNCamera"), static_cast<CZRNCamera*>(&camera));
    EXPECT_EQ(camera.qt_metacast("CameraInterface"),
              static_cast<CameraSpace::CameraInterface*>(&camera));
    EXPECT_EQ(camera.qt_metacast("FrameTimesInterface"), nullptr);
    EXPECT_EQ(camera.qt_metacast(nullptr), nullptr);
    EXPECT_STREQ(camera.metaObject()->className(), "CZRNCamera");
    static_assert(!std::is_base_of_v<Interface, CZRNCamera>, "its tables and record stay");
}

TEST(BinaryContract, ResultsHaveTheirNumbers)
{
    static_assert(static_cast<quint32>(ErrorCode::Success) == 0);
    static_assert(static_cast<quint32>(ErrorCode::NoCamera) == 0x200);
    static_assert(static_cast<quint32>(ErrorCode::SplitException) == 0x201);
    static_assert(static_cast<quint32>(ErrorCode::SerialNotFound) == 0x301);
    static_assert(static_cast<quint32>(ErrorCode::IndexNotFound) == 0x302);
    static_assert(static_cast<quint32>(ErrorCode::NodeNotOpen) == 0x303);
    static_assert(static_cast<quint32>(ErrorCode::AlreadyConnected) == 0x304);
    static_assert(static_cast<quint32>(ErrorCode::NotSupported) == 0x307);
    static_assert(static_cast<quint32>(ErrorCode::NothingEnumerated) == 0x308);
    static_assert(static_cast<quint32>(ErrorCode::NotConnected) == 0x309);
    static_assert(static_cast<quint32>(ErrorCode::PropertyFailed) == 0x30B);
    static_assert(static_cast<quint32>(ErrorCode::BadArgument) == 0x30C);
    static_assert(static_cast<quint32>(ErrorCode::CommandFailed) == 0x30D);
    static_assert(static_cast<quint32>(ErrorCode::NotStreaming) == 0x409);
    static_assert(static_cast<quint32>(ErrorCode::GrabTimeout) == 0x40A);
    static_assert(static_cast<quint32>(ErrorCode::SplitFailed) == 0x40B);
    static_assert(static_cast<quint32>(ErrorCode::ExposureWriteFailed) == 0x40D);
    static_assert(static_cast<quint32>(ErrorCode::ExposureReadFailed) == 0x40E);
    static_assert(static_cast<quint32>(ErrorCode::ExposureRangeFailed) == 0x40F);
    static_assert(static_cast<quint32>(ErrorCode::GainWriteFailed) == 0x410);
    static_assert(static_cast<quint32>(ErrorCode::GainReadFailed) == 0x411);
    static_assert(static_cast<quint32>(ErrorCode::NoFrameDescriptor) == 0x417);
    static_assert(static_cast<quint32>(ErrorCode::StreamStartFailed) == 0x41C);
}
