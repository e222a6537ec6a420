// What the guards do about calls on the driver's behalf.

#include "fake_usb.h"
#include "usb_guards/owned_objects.h"
#include "usb_guards/usb_guards.h"
#include "watched_thread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

using namespace usbguards;

namespace
{

using Calls = std::vector<std::string>;

/// The statuses with which a transfer's callback ran.
std::vector<libusb_transfer_status> delivered;

void onTransfer(libusb_transfer* transfer)
{
    delivered.push_back(transfer->status);
}

class UsbGuards : public testing::Test
{
protected:
    UsbGuards()
    {
        usb = {};
        usb.handle = handle;
        {
            const OwnedObjects::DriverCall call;
            libusb_device_handle* opened = nullptr;
            guardOpen(nullptr, &opened);
        }
        usb.calls.clear();
        delivered.clear();
        transfer.dev_handle = handle;
        transfer.type = LIBUSB_TRANSFER_TYPE_BULK;
        transfer.callback = onTransfer;
        transfer.buffer = buffer;
        transfer.length = sizeof buffer;
    }
    ~UsbGuards() override
    {
        guardFreeTransfer(&transfer);
        guardClose(handle);
    }

    /// What libusb does when a submitted transfer ends.
    void complete(libusb_transfer_status status)
    {
        transfer.status = status;
        transfer.callback(&transfer);
    }
    int control(unsigned timeout = 0)
    {
        unsigned char data[2] = {};
        return guardControlTransfer(handle, 0xa1, 0x81, 0x0400, 0x0200, data, 2, timeout);
    }

    FakeUsb& usb = FakeUsb::instance();
    int device = 0;
    libusb_device_handle* handle = reinterpret_cast<libusb_device_handle*>(&device);
    unsigned char buffer[16] = {};
    std::unique_ptr<libusb_transfer> memory = std::make_unique<libusb_transfer>();
    libusb_transfer& transfer = *memory;
};

/// Has the frames noted of the stream that starts next on the handle.
std::shared_ptr<StreamTimes> watch(libusb_device_handle* handle)
{
    auto times = std::make_shared<StreamTimes>(3);
    OwnedObjects::instance().find(handle)->watch.times = times;
    return times;
}

TEST_F(UsbGuards, TheFramesOfAWatchedStreamAreNotedBeforeLibuvcKnowsOfThem)
{
    const std::shared_ptr<StreamTimes> times = watch(handle);
    static std::optional<StreamTimes::Found> found;
    static StreamTimes* noted;
    noted = times.get();
    transfer.callback = [](libusb_transfer*) { found = noted->find(1); };
    const std::vector<unsigned char> sent = {2, 0x03, 1, 2, 3};
    std::copy(sent.begin(), sent.end(), buffer);
    transfer.actual_length = static_cast<int>(sent.size());
    guardSubmitTransfer(&transfer);
    const auto before = std::chrono::steady_clock::now().time_since_epoch();
    complete(LIBUSB_TRANSFER_COMPLETED);
    const auto after = std::chrono::steady_clock::now().time_since_epoch();

    ASSERT_TRUE(found);
    EXPECT_EQ(found->times.bytes, 3U);
    EXPECT_EQ(found->wholeFrames, 1U);
    EXPECT_LE(std::chrono::nanoseconds(before).count(), found->times.first);
    EXPECT_GE(std::chrono::nanoseconds(after).count(), found->times.last);
}

TEST_F(UsbGuards, WhatIsNoPayloadIsNotNoted)
{
    const std::shared_ptr<StreamTimes> times = watch(handle);
    buffer[0] = 2;
    buffer[1] = 0x03;
    transfer.actual_length = 5;
    guardSubmitTransfer(&transfer);
    for (const libusb_transfer_status status :
         {LIBUSB_TRANSFER_ERROR, LIBUSB_TRANSFER_TIMED_OUT, LIBUSB_TRANSFER_OVERFLOW}) {
        complete(status);
    }
    EXPECT_FALSE(times->isUsed());
}

TEST_F(UsbGuards, AWatchIsForOneStream)
{
    const std::shared_ptr<StreamTimes> times = watch(handle);
    guardSubmitTransfer(&transfer);
    guardFreeTransfer(&transfer);
    EXPECT_EQ(times.use_count(), 1) << "the stream is over";
    transfer.callback = onTransfer; // a transfer of the next stream, at the same address
    buffer[0] = 2;
    buffer[1] = 0x03;
    transfer.actual_length = 5;
    guardSubmitTransfer(&transfer);
    complete(LIBUSB_TRANSFER_COMPLETED);
    EXPECT_FALSE(times->isUsed());
}

TEST_F(UsbGuards, AWatchedStreamIsAnotherThanTheOneBeforeIt)
{
    watch(handle);
    guardSubmitTransfer(&transfer); // its last report is under way still
    const std::shared_ptr<StreamTimes> times = watch(handle);
    const auto next = std::make_unique<libusb_transfer>(transfer);
    next->callback = onTransfer;
    buffer[0] = 2;
    buffer[1] = 0x03;
    next->actual_length = 5;
    guardSubmitTransfer(next.get());
    next->status = LIBUSB_TRANSFER_COMPLETED;
    next->callback(next.get());
    EXPECT_TRUE(times->find(1));
    guardFreeTransfer(next.get());
}

TEST_F(UsbGuards, AFrameOfTheAnnouncedSizeIsFullWhereLibuvcSaysSo)
{
    const std::shared_ptr<StreamTimes> times = watch(handle);
    OwnedObjects::instance().find(handle)->watch.frameLimit = 3;
    const std::vector<unsigned char> sent = {2, 0x01, 1, 2, 3, 4};
    std::copy(sent.begin(), sent.end(), buffer);
    transfer.actual_length = static_cast<int>(sent.size());
    guardSubmitTransfer(&transfer);
    complete(LIBUSB_TRANSFER_COMPLETED);
    const auto found = times->find(1);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->times.bytes, 3U);
}

TEST_F(UsbGuards, IsochronousPacketsAreNotedOneByOne)
{
    const std::shared_ptr<StreamTimes> times = watch(handle);
    constexpr int packets = 3;
    struct FreeMemory {
        void operator()(void* memory) const { std::free(memory); }
    };
    const std::unique_ptr<libusb_transfer, FreeMemory> owner(static_cast<libusb_transfer*>(
        std::calloc(1, sizeof(libusb_transfer) + packets * sizeof(libusb_iso_packet_descriptor))));
    libusb_transfer& stream = *owner;
    std::vector<unsigned char> data = {2, 0x03, 1, 0, 2, 0x02, 9, 0, 2, 0x03, 1, 1};
    stream.dev_handle = handle;
    stream.type = LIBUSB_TRANSFER_TYPE_ISOCHRONOUS;
    stream.callback = onTransfer;
    stream.buffer = data.data();
    stream.length = static_cast<int>(data.size());
    stream.num_iso_packets = packets;
    for (int i = 0; i < packets; ++i) {
        stream.iso_packet_desc[i].length = 4;
        stream.iso_packet_desc[i].actual_length = i == 2 ? 4 : 3;
    }
    stream.iso_packet_desc[1].status = LIBUSB_TRANSFER_ERROR;
    guardSubmitTransfer(&stream);
    stream.status = LIBUSB_TRANSFER_COMPLETED;
    stream.callback(&stream);
    ASSERT_TRUE(times->find(1));
    EXPECT_EQ(times->find(1)->times.bytes, 1U);
    ASSERT_TRUE(times->find(2)) << "the failed packet is no payload to libuvc";
    EXPECT_EQ(times->find(2)->times.bytes, 2U);
    EXPECT_FALSE(times->find(3));
    guardFreeTransfer(&stream);
}

TEST_F(UsbGuards, ATransferPassesThrough)
{
    EXPECT_EQ(guardSubmitTransfer(&transfer), LIBUSB_SUCCESS);
    complete(LIBUSB_TRANSFER_COMPLETED);
    EXPECT_EQ(guardSubmitTransfer(&transfer), LIBUSB_SUCCESS);
    EXPECT_EQ(guardCancelTransfer(&transfer), LIBUSB_SUCCESS);
    complete(LIBUSB_TRANSFER_CANCELLED);
    EXPECT_EQ(usb.calls, (Calls{"submit", "submit", "cancel"}));
    EXPECT_EQ(delivered, (std::vector{LIBUSB_TRANSFER_COMPLETED, LIBUSB_TRANSFER_CANCELLED}));
}

TEST_F(UsbGuards, AFirstSubmissionThatFailsIsJustRefused)
{
    usb.submitResult = LIBUSB_ERROR_NO_MEM;
    EXPECT_EQ(guardSubmitTransfer(&transfer), LIBUSB_ERROR_NO_MEM);
    EXPECT_TRUE(delivered.empty());
}

TEST_F(UsbGuards, AResubmissionThatFailsIsReported)
{
    guardSubmitTransfer(&transfer);
    usb.submitResult = LIBUSB_ERROR_NO_DEVICE;
    guardSubmitTransfer(&transfer);
    EXPECT_EQ(delivered, std::vector{LIBUSB_TRANSFER_NO_DEVICE});

    usb.submitResult = LIBUSB_ERROR_NO_MEM;
    guardSubmitTransfer(&transfer);
    EXPECT_EQ(delivered.back(), LIBUSB_TRANSFER_ERROR);
}

TEST_F(UsbGuards, AStalledTransferIsNotSubmittedAgain)
{
    guardSubmitTransfer(&transfer);
    complete(LIBUSB_TRANSFER_STALL);
    EXPECT_EQ(guardSubmitTransfer(&transfer), LIBUSB_SUCCESS);
    EXPECT_EQ(usb.calls, Calls{"submit"});
    EXPECT_EQ(delivered, (std::vector{LIBUSB_TRANSFER_STALL, LIBUSB_TRANSFER_ERROR}));
}

TEST_F(UsbGuards, AStalledInterruptTransferIsNotSubmittedAgain)
{
    transfer.type = LIBUSB_TRANSFER_TYPE_INTERRUPT;
    EXPECT_EQ(guardSubmitTransfer(&transfer), LIBUSB_SUCCESS);
    transfer.status = LIBUSB_TRANSFER_STALL;
    EXPECT_EQ(guardSubmitTransfer(&transfer), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(usb.calls, Calls{"submit"});
}

TEST_F(UsbGuards, ACancelledTransferIsNotSubmittedAgain)
{
    guardSubmitTransfer(&transfer);
    usb.cancelResult = LIBUSB_ERROR_NOT_FOUND; // it has just completed
    EXPECT_EQ(guardCancelTransfer(&transfer), LIBUSB_ERROR_NOT_FOUND);
    guardSubmitTransfer(&transfer);
    EXPECT_EQ(usb.calls, (Calls{"submit", "cancel"}));
    EXPECT_EQ(delivered, std::vector{LIBUSB_TRANSFER_CANCELLED});
}

TEST_F(UsbGuards, ATransferThatTimedOutIsSubmittedAgain)
{
    guardSubmitTransfer(&transfer);
    complete(LIBUSB_TRANSFER_TIMED_OUT);
    EXPECT_EQ(guardSubmitTransfer(&transfer), LIBUSB_SUCCESS);
    EXPECT_EQ(usb.calls, (Calls{"submit", "submit"}));
}

TEST_F(UsbGuards, ATransferThatTimedOutDuringAStopEnds)
{
    guardSubmitTransfer(&transfer);
    guardCancelTransfer(&transfer);
    complete(LIBUSB_TRANSFER_TIMED_OUT);
    EXPECT_EQ(guardSubmitTransfer(&transfer), LIBUSB_SUCCESS);
    EXPECT_EQ(usb.calls, (Calls{"submit", "cancel"}));
    EXPECT_EQ(delivered, (std::vector{LIBUSB_TRANSFER_TIMED_OUT, LIBUSB_TRANSFER_CANCELLED}));
}

// Or else libuvc would take a transfer for ended that is about to fly.
TEST_F(UsbGuards, ACancellationWaitsForASubmission)
{
    std::optional<WatchedThread> canceller;
    usb.onSubmit = [&] {
        canceller.emplace([this] { EXPECT_EQ(guardCancelTransfer(&transfer), LIBUSB_SUCCESS); });
        EXPECT_TRUE(canceller->waitsForOthers());
    };
    EXPECT_EQ(guardSubmitTransfer(&transfer), LIBUSB_SUCCESS);
    canceller->join();
    EXPECT_EQ(usb.calls, (Calls{"submit", "cancel"}));
}

TEST_F(UsbGuards, CancellingWhatIsInFlightAlwaysPromisesItsEnd)
{
    guardSubmitTransfer(&transfer);
    usb.cancelResult = LIBUSB_ERROR_NO_DEVICE;
    EXPECT_EQ(guardCancelTransfer(&transfer), LIBUSB_ERROR_NOT_FOUND);
}

TEST_F(UsbGuards, CancellingWhatNeverFlewPromisesNothing)
{
    EXPECT_EQ(guardCancelTransfer(&transfer), LIBUSB_ERROR_OTHER);
    usb.submitResult = LIBUSB_ERROR_NO_MEM;
    guardSubmitTransfer(&transfer);
    EXPECT_EQ(guardCancelTransfer(&transfer), LIBUSB_ERROR_OTHER);
    EXPECT_EQ(usb.calls, Calls{"submit"});
}

TEST_F(UsbGuards, TransfersOfOneStreamFillOneFrame)
{
    // More than half of what libuvc has room for.
    std::vector<unsigned char> payload(std::size_t{9} * 1024 * 1024);
    payload[0] = 2;
    const auto memoryOfOther = std::make_unique<libusb_transfer>();
    libusb_transfer& other = *memoryOfOther;
    other.dev_handle = handle;
    other.type = LIBUSB_TRANSFER_TYPE_BULK;
    other.callback = onTransfer;
    for (libusb_transfer* const part : {&transfer, &other}) {
        part->buffer = payload.data();
        part->length = part->actual_length = static_cast<int>(payload.size());
        guardSubmitTransfer(part);
        part->callback(part);
    }
    EXPECT_EQ(transfer.actual_length, transfer.length);
    EXPECT_EQ(other.actual_length, 0);
    guardFreeTransfer(&other);
}

TEST_F(UsbGuards, ControlTransfersEnd)
{
    control();
    EXPECT_EQ(usb.controlTimeout, 2000U);
    control(500);
    EXPECT_EQ(usb.controlTimeout, 500U);
    control(60'000);
    EXPECT_EQ(usb.controlTimeout, 2000U);
}

TEST_F(UsbGuards, AMuteDeviceIsAskedBrieflyUntilItAnswers)
{
    usb.controlResult = LIBUSB_ERROR_TIMEOUT;
    EXPECT_EQ(control(), LIBUSB_ERROR_TIMEOUT);
    usb.controlResult = LIBUSB_ERROR_PIPE;
    control();
    EXPECT_EQ(usb.controlTimeout, 100U);
    control();
    EXPECT_EQ(usb.controlTimeout, 2000U);
}

TEST_F(UsbGuards, AResetMayTakeLongAndOthersMayNot)
{
    unsigned char data[2] = {};
    const auto write = [&](std::uint16_t value, std::uint16_t index) {
        guardControlTransfer(handle, 0x21, 0x01, value, index, data, 2, 0);
        return usb.controlTimeout;
    };
    EXPECT_EQ(write(0x0300, 0x0200), 5000U);
    EXPECT_EQ(write(0x0300, 0x0001), 2000U) << "addressed to an interface";
    EXPECT_EQ(write(0x0400, 0x0200), 2000U) << "another control";
    guardControlTransfer(handle, 0xa1, 0x81, 0x0300, 0x0200, data, 2, 0);
    EXPECT_EQ(usb.controlTimeout, 2000U) << "reading it";

    usb.controlResult = LIBUSB_ERROR_TIMEOUT;
    control();
    EXPECT_EQ(write(0x0300, 0x0200), 5000U) << "after a lapse as well";
}

TEST_F(UsbGuards, AMuteDeviceIsAskedForOneString)
{
    usb.controlResult = LIBUSB_ERROR_TIMEOUT;
    unsigned char text[8];
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(guardGetStringDescriptor(handle, 1, text, sizeof text), LIBUSB_ERROR_TIMEOUT);
    }
    EXPECT_EQ(usb.calls, Calls{"get string"});
}

TEST_F(UsbGuards, CommitsToUnusablePayloadsAreRefused)
{
    const auto commit = [this](std::uint8_t lowByte, std::uint8_t highByte) {
        unsigned char block[26] = {};
        block[22] = lowByte;
        block[25] = highByte;
        return guardControlTransfer(handle, 0x21, 0x01, 0x0200, 1, block, sizeof block, 0);
    };
    EXPECT_EQ(commit(0, 0), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(commit(0, 0x80), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(commit(1, 2), LIBUSB_ERROR_INVALID_PARAM) << "a byte more than 32 MiB";
    EXPECT_TRUE(usb.calls.empty());
    EXPECT_EQ(commit(0, 2), 0);
    EXPECT_EQ(commit(1, 0), 0);
}

TEST_F(UsbGuards, TheFaultyFunctionNeverSeesADepartedDevice)
{
    usb.kernelDriverResult = LIBUSB_ERROR_NO_DEVICE;
    EXPECT_EQ(guardSetInterfaceAltSetting(handle, 1, 0), LIBUSB_ERROR_NO_DEVICE);
    guardClose(handle);
    EXPECT_EQ(usb.calls, Calls{"close"});
}

/// libusb hears of the departure while the kernel is asked.
TEST_F(UsbGuards, TheFaultyFunctionNeverSeesADeviceThatLibusbKnowsToHaveLeft)
{
    usb.claimResult = LIBUSB_ERROR_NO_DEVICE;
    EXPECT_EQ(guardSetInterfaceAltSetting(handle, 1, 0), LIBUSB_ERROR_NO_DEVICE);
    guardClose(handle);
    EXPECT_EQ(usb.calls, Calls{"close"});
}

/// A host with a libusb inside may show those functions alone that libuvc calls.
TEST_F(UsbGuards, DepartureIsAskedForByARequestWhereLibusbShowsLittle)
{
    usb.showsAll = false;
    usb.controlResult = LIBUSB_ERROR_NO_DEVICE;
    EXPECT_EQ(guardSetInterfaceAltSetting(handle, 1, 0), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(usb.calls, Calls{"control"});
    EXPECT_EQ(usb.controlTimeout, 100U);
    usb.controlResult = 2;
    EXPECT_EQ(guardSetInterfaceAltSetting(handle, 1, 0), LIBUSB_SUCCESS);
    EXPECT_EQ(usb.calls.back(), "set interface");
}

TEST_F(UsbGuards, AHandleSpoiltInTheLastMomentIsNotClosed)
{
    usb.setInterfaceResult = LIBUSB_ERROR_NO_DEVICE;
    usb.claimResultAfterSetting = LIBUSB_ERROR_NO_DEVICE;
    EXPECT_EQ(guardSetInterfaceAltSetting(handle, 1, 0), LIBUSB_ERROR_NO_DEVICE);
    guardClose(handle);
    EXPECT_EQ(usb.calls, Calls{"set interface"});
}

/// The kernel says that the device has gone before libusb has heard of it.
TEST_F(UsbGuards, AHandleOfWhichLibusbThinksWellIsClosed)
{
    usb.setInterfaceResult = LIBUSB_ERROR_NO_DEVICE;
    EXPECT_EQ(guardSetInterfaceAltSetting(handle, 1, 0), LIBUSB_ERROR_NO_DEVICE);
    guardClose(handle);
    EXPECT_EQ(usb.calls, (Calls{"set interface", "close"}));
}

} // namespace
