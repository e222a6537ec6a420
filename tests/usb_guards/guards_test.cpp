// The guards as libuvc calls them.

#include "fake_usb.h"
#include "usb_guards/usb_guards.h"

#include <gtest/gtest.h>

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
        FakeUsb::instance() = {};
        delivered.clear();
        transfer.type = LIBUSB_TRANSFER_TYPE_BULK;
        transfer.callback = onTransfer;
        transfer.buffer = buffer;
        transfer.length = sizeof buffer;
    }
    ~UsbGuards() override
    {
        libusb_free_transfer(&transfer);
        libusb_close(handle);
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
        return libusb_control_transfer(handle, 0xa1, 0x81, 0x0400, 0x0200, data, 2, timeout);
    }

    FakeUsb& usb = FakeUsb::instance();
    int device = 0;
    libusb_device_handle* handle = reinterpret_cast<libusb_device_handle*>(&device);
    unsigned char buffer[16] = {};
    libusb_transfer transfer{};
};

TEST_F(UsbGuards, ATransferPassesThrough)
{
    EXPECT_EQ(libusb_submit_transfer(&transfer), LIBUSB_SUCCESS);
    complete(LIBUSB_TRANSFER_COMPLETED);
    EXPECT_EQ(libusb_submit_transfer(&transfer), LIBUSB_SUCCESS);
    EXPECT_EQ(libusb_cancel_transfer(&transfer), LIBUSB_SUCCESS);
    complete(LIBUSB_TRANSFER_CANCELLED);
    EXPECT_EQ(usb.calls, (Calls{"submit", "submit", "cancel"}));
    EXPECT_EQ(delivered, (std::vector{LIBUSB_TRANSFER_COMPLETED, LIBUSB_TRANSFER_CANCELLED}));
}

TEST_F(UsbGuards, AFirstSubmissionThatFailsIsJustRefused)
{
    usb.submitResult = LIBUSB_ERROR_NO_MEM;
    EXPECT_EQ(libusb_submit_transfer(&transfer), LIBUSB_ERROR_NO_MEM);
    EXPECT_TRUE(delivered.empty());
}

TEST_F(UsbGuards, AResubmissionThatFailsIsReported)
{
    libusb_submit_transfer(&transfer);
    usb.submitResult = LIBUSB_ERROR_NO_DEVICE;
    libusb_submit_transfer(&transfer);
    EXPECT_EQ(delivered, std::vector{LIBUSB_TRANSFER_NO_DEVICE});

    usb.submitResult = LIBUSB_ERROR_NO_MEM;
    libusb_submit_transfer(&transfer);
    EXPECT_EQ(delivered.back(), LIBUSB_TRANSFER_ERROR);
}

TEST_F(UsbGuards, AStalledTransferIsNotSubmittedAgain)
{
    libusb_submit_transfer(&transfer);
    complete(LIBUSB_TRANSFER_STALL);
    EXPECT_EQ(libusb_submit_transfer(&transfer), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(usb.calls, Calls{"submit"});
    EXPECT_EQ(delivered, (std::vector{LIBUSB_TRANSFER_STALL, LIBUSB_TRANSFER_ERROR}));
}

TEST_F(UsbGuards, AStalledInterruptTransferIsNotSubmittedAgain)
{
    transfer.type = LIBUSB_TRANSFER_TYPE_INTERRUPT;
    EXPECT_EQ(libusb_submit_transfer(&transfer), LIBUSB_SUCCESS);
    transfer.status = LIBUSB_TRANSFER_STALL;
    EXPECT_EQ(libusb_submit_transfer(&transfer), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(usb.calls, Calls{"submit"});
}

TEST_F(UsbGuards, ACancelledTransferIsNotSubmittedAgain)
{
    libusb_submit_transfer(&transfer);
    usb.cancelResult = LIBUSB_ERROR_NOT_FOUND; // it has just completed
    EXPECT_EQ(libusb_cancel_transfer(&transfer), LIBUSB_ERROR_NOT_FOUND);
    libusb_submit_transfer(&transfer);
    EXPECT_EQ(usb.calls, (Calls{"submit", "cancel"}));
    EXPECT_EQ(delivered, std::vector{LIBUSB_TRANSFER_CANCELLED});
}

TEST_F(UsbGuards, ATransferThatTimedOutIsSubmittedAgain)
{
    libusb_submit_transfer(&transfer);
    usb.event = [this] { libusb_cancel_transfer(&transfer); }; // libusb's own way to end it
    libusb_handle_events_completed(nullptr, nullptr);
    complete(LIBUSB_TRANSFER_TIMED_OUT);
    EXPECT_EQ(libusb_submit_transfer(&transfer), LIBUSB_SUCCESS);
    EXPECT_EQ(usb.calls, (Calls{"submit", "cancel", "submit"}));
}

TEST_F(UsbGuards, ATransferThatTimedOutDuringAStopEnds)
{
    libusb_submit_transfer(&transfer);
    usb.event = [this] { libusb_cancel_transfer(&transfer); };
    libusb_handle_events_completed(nullptr, nullptr);
    libusb_cancel_transfer(&transfer);
    complete(LIBUSB_TRANSFER_TIMED_OUT);
    EXPECT_EQ(libusb_submit_transfer(&transfer), LIBUSB_ERROR_INTERRUPTED);
    EXPECT_EQ(usb.calls, (Calls{"submit", "cancel", "cancel"}));
    EXPECT_EQ(delivered, (std::vector{LIBUSB_TRANSFER_TIMED_OUT, LIBUSB_TRANSFER_CANCELLED}));
}

TEST_F(UsbGuards, CancellingWhatIsInFlightAlwaysPromisesItsEnd)
{
    libusb_submit_transfer(&transfer);
    usb.cancelResult = LIBUSB_ERROR_NO_DEVICE;
    EXPECT_EQ(libusb_cancel_transfer(&transfer), LIBUSB_ERROR_NOT_FOUND);
}

TEST_F(UsbGuards, CancellingWhatNeverFlewPromisesNothing)
{
    EXPECT_EQ(libusb_cancel_transfer(&transfer), LIBUSB_ERROR_OTHER);
    usb.submitResult = LIBUSB_ERROR_NO_MEM;
    libusb_submit_transfer(&transfer);
    EXPECT_EQ(libusb_cancel_transfer(&transfer), LIBUSB_ERROR_OTHER);
    EXPECT_EQ(usb.calls, Calls{"submit"});
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

TEST_F(UsbGuards, CommitsToUnusablePayloadsAreRefused)
{
    const auto commit = [this](std::uint8_t lowByte, std::uint8_t highByte) {
        unsigned char block[26] = {};
        block[22] = lowByte;
        block[25] = highByte;
        return libusb_control_transfer(handle, 0x21, 0x01, 0x0200, 1, block, sizeof block, 0);
    };
    EXPECT_EQ(commit(0, 0), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(commit(0, 0x80), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_TRUE(usb.calls.empty());
    EXPECT_EQ(commit(1, 0), 0);
}

TEST_F(UsbGuards, TheFaultyFunctionNeverSeesADepartedDevice)
{
    usb.kernelDriverResult = LIBUSB_ERROR_NO_DEVICE;
    EXPECT_EQ(libusb_set_interface_alt_setting(handle, 1, 0), LIBUSB_ERROR_NO_DEVICE);
    libusb_close(handle);
    EXPECT_EQ(usb.calls, Calls{"close"});
}

TEST_F(UsbGuards, AHandleSpoiltInTheLastMomentIsNotClosed)
{
    static int lostDevice = 0; // its handle stays, so no other one gets its address
    auto* const lost = reinterpret_cast<libusb_device_handle*>(&lostDevice);
    usb.setInterfaceResult = LIBUSB_ERROR_NO_DEVICE;
    EXPECT_EQ(libusb_set_interface_alt_setting(lost, 1, 0), LIBUSB_ERROR_NO_DEVICE);
    libusb_close(lost);
    EXPECT_EQ(usb.calls, Calls{"set interface"});
    libusb_close(handle);
    EXPECT_EQ(usb.calls.back(), "close");
}

} // namespace
