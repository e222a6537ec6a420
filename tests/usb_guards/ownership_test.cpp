// The same calls for the driver and for somebody else: the one is guarded, the other goes through
// as it came.

#include "fake_usb.h"
#include "usb_guards/owned_objects.h"
#include "usb_guards/usb_guards.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace usbguards;

namespace
{

using Calls = std::vector<std::string>;

template <typename Object>
Object* at(char& place)
{
    return reinterpret_cast<Object*>(&place);
}

class Ownership : public testing::Test
{
protected:
    Ownership()
    {
        usb = {};
        usb.handle = at<libusb_device_handle>(places[0]);
        usb.context = at<libusb_context>(places[1]);
        const OwnedObjects::DriverCall call;
        guardInit(&own.context);
        guardOpen(nullptr, &own.handle);
        usb.handle = at<libusb_device_handle>(places[2]);
        usb.context = at<libusb_context>(places[3]);
        std::thread([this] {
            guardInit(&foreign.context);
            guardOpen(nullptr, &foreign.handle);
        }).join();
        usb.calls.clear();
    }
    ~Ownership() override
    {
        for (const Objects& objects : {own, foreign}) {
            guardClose(objects.handle);
            guardExit(objects.context);
        }
        EXPECT_TRUE(OwnedObjects::instance().isEmpty());
    }

    struct Objects {
        libusb_context* context = nullptr;
        libusb_device_handle* handle = nullptr;
    };

    unsigned control(libusb_device_handle* handle, unsigned timeout)
    {
        unsigned char data[2] = {};
        guardControlTransfer(handle, 0xa1, 0x81, 0x0400, 0x0200, data, 2, timeout);
        return usb.controlTimeout;
    }

    FakeUsb& usb = FakeUsb::instance();
    char places[4] = {};
    Objects own;
    Objects foreign;
};

TEST_F(Ownership, ForeignRequestsKeepTheirTime)
{
    EXPECT_EQ(control(own.handle, 0), 2000U);
    EXPECT_EQ(control(foreign.handle, 0), 0U);
    EXPECT_EQ(control(foreign.handle, 60'000), 60'000U);
    usb.controlResult = LIBUSB_ERROR_TIMEOUT;
    EXPECT_EQ(control(foreign.handle, 0), 0U);
    EXPECT_EQ(control(foreign.handle, 0), 0U);
}

TEST_F(Ownership, ForeignRequestsMayLookLikeACommit)
{
    unsigned char block[26] = {};
    const auto commit = [&](libusb_device_handle* handle) {
        return guardControlTransfer(handle, 0x21, 0x01, 0x0200, 1, block, sizeof block, 0);
    };
    EXPECT_EQ(commit(own.handle), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(commit(foreign.handle), 0);
}

TEST_F(Ownership, ForeignTransfersAreNotTouched)
{
    static const auto onTransfer = [](libusb_transfer*) { FAIL() << "reported"; };
    unsigned char buffer[8] = {8, 0x0c};
    libusb_transfer transfer{};
    transfer.dev_handle = foreign.handle;
    transfer.type = LIBUSB_TRANSFER_TYPE_BULK;
    transfer.callback = onTransfer;
    transfer.buffer = buffer;
    const auto unchanged = [&] { return transfer.callback == libusb_transfer_cb_fn(onTransfer); };

    usb.cancelResult = LIBUSB_ERROR_NOT_FOUND;
    EXPECT_EQ(guardCancelTransfer(&transfer), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(guardSubmitTransfer(&transfer), LIBUSB_SUCCESS);
    EXPECT_TRUE(unchanged());
    usb.cancelResult = LIBUSB_ERROR_NO_DEVICE;
    EXPECT_EQ(guardCancelTransfer(&transfer), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(guardSubmitTransfer(&transfer), LIBUSB_SUCCESS) << "again after cancelling it";
    transfer.status = LIBUSB_TRANSFER_STALL;
    EXPECT_EQ(guardSubmitTransfer(&transfer), LIBUSB_SUCCESS) << "again after a stall";
    transfer.type = LIBUSB_TRANSFER_TYPE_INTERRUPT;
    EXPECT_EQ(guardSubmitTransfer(&transfer), LIBUSB_SUCCESS);
    usb.submitResult = LIBUSB_ERROR_NO_DEVICE;
    EXPECT_EQ(guardSubmitTransfer(&transfer), LIBUSB_ERROR_NO_DEVICE);
    guardFreeTransfer(&transfer);
    EXPECT_TRUE(unchanged());
    EXPECT_EQ(usb.calls, (Calls{"cancel", "submit", "cancel", "submit", "submit", "submit",
                                "submit", "free"}));
}

TEST_F(Ownership, AForeignEventThreadWaitsAsItWants)
{
    guardHandleEventsCompleted(foreign.context, nullptr);
    guardHandleEventsCompleted(own.context, nullptr);
    EXPECT_EQ(usb.calls, (Calls{"events", "events for 1 s"}));
}

TEST_F(Ownership, DescriptorsAreRepairedForTheDriverAlone)
{
    // A video device without anything that libuvc takes for granted.
    libusb_interface_descriptor setting{};
    setting.bInterfaceClass = LIBUSB_CLASS_VIDEO;
    setting.bInterfaceSubClass = 1;
    const libusb_interface interface = {&setting, 1};
    usb.configuration.bNumInterfaces = 1;
    usb.configuration.interface = &interface;

    libusb_config_descriptor* configuration = nullptr;
    EXPECT_EQ(guardGetConfigDescriptor(nullptr, 0, &configuration), LIBUSB_SUCCESS);
    EXPECT_EQ(configuration, &usb.configuration);
    const OwnedObjects::DriverCall call;
    EXPECT_EQ(guardGetConfigDescriptor(nullptr, 0, &configuration), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(configuration, nullptr);
}

TEST_F(Ownership, ForeignHandlesGoThroughTheFaultyFunctionAndAreClosed)
{
    usb.kernelDriverResult = LIBUSB_ERROR_NO_DEVICE;
    EXPECT_EQ(guardSetInterfaceAltSetting(own.handle, 1, 0), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_TRUE(usb.calls.empty());
    usb.setInterfaceResult = LIBUSB_ERROR_NO_DEVICE;
    EXPECT_EQ(guardSetInterfaceAltSetting(foreign.handle, 1, 0), LIBUSB_ERROR_NO_DEVICE);
    guardClose(foreign.handle);
    EXPECT_EQ(usb.calls, (Calls{"set interface", "close"}));
}

TEST_F(Ownership, EndsWithTheCloseAndTheExit)
{
    guardClose(own.handle);
    guardExit(own.context);
    EXPECT_TRUE(OwnedObjects::instance().isEmpty());
    EXPECT_EQ(control(own.handle, 0), 0U) << "somebody else's by now";
    guardHandleEventsCompleted(own.context, nullptr);
    EXPECT_EQ(usb.calls.back(), "events");
}

TEST_F(Ownership, AHandleAtTheAddressOfAnotherStartsAfresh)
{
    usb.controlResult = LIBUSB_ERROR_TIMEOUT;
    control(own.handle, 0);
    EXPECT_EQ(control(own.handle, 0), 100U);
    usb.setInterfaceResult = LIBUSB_ERROR_NO_DEVICE;
    usb.claimResultAfterSetting = LIBUSB_ERROR_NO_DEVICE;
    guardSetInterfaceAltSetting(own.handle, 1, 0); // spoils it

    usb.handle = own.handle;
    {
        const OwnedObjects::DriverCall call;
        guardOpen(nullptr, &own.handle);
    }
    EXPECT_EQ(control(own.handle, 0), 2000U);
    guardClose(own.handle);
    EXPECT_EQ(usb.calls.back(), "close");
}

TEST_F(Ownership, ATransferWhoseHandleWasClosedIsKnownByItself)
{
    unsigned char buffer[8] = {};
    libusb_transfer transfer{};
    transfer.dev_handle = own.handle;
    transfer.type = LIBUSB_TRANSFER_TYPE_BULK;
    transfer.buffer = buffer;
    transfer.callback = [](libusb_transfer*) {};
    guardSubmitTransfer(&transfer);
    guardClose(own.handle);
    transfer.dev_handle = nullptr; // by libusb
    usb.cancelResult = LIBUSB_ERROR_NO_DEVICE;
    EXPECT_EQ(guardCancelTransfer(&transfer), LIBUSB_ERROR_NOT_FOUND);
    guardFreeTransfer(&transfer);
}

} // namespace
