// What the camera class asks of the library that it is a part of.

#include "abandonment.h"
#include "driver_calls.h"
#include "guard_status.h"
#include "installation.h"
#include "owned_objects.h"
#include "payload_watch.h"

#include <utility>

using usbguards::Installation;

GuardStatus guardStatus()
{
    const Installation::Status status = Installation::instance().status();
    switch (status.state) {
    case Installation::State::Unused:
        return {true, "not needed yet"};
    case Installation::State::Needless:
        return {true, "not needed"};
    case Installation::State::InEffect:
        return {true, "in effect"};
    case Installation::State::Missing:
        break;
    }
    return {false, status.fault};
}

/// Without the guards, libuvc can neither stop nor close a camera that has left the bus.
bool mustAbandon(uvc_device_handle_t* handle)
{
    const auto usbHandleOf = Installation::instance().usbHandleGetter();
    if (guardStatus().areSafe || !usbHandleOf) {
        return false;
    }
    auto* const usbHandle = usbHandleOf(handle);
    if (!usbHandle || !usbguards::forDriver::hasDeparted(usbHandle, 0)) {
        return false;
    }
    keepLibraryLoaded();
    return true;
}

void keepGuards()
{
    Installation::instance().keep();
}

void keepLibraryLoaded()
{
    usbguards::stayLoaded();
}

void watchPayloads(uvc_device_handle_t* handle, const uvc_stream_ctrl_t& control,
                   std::shared_ptr<StreamTimes> times)
{
    Installation& installation = Installation::instance();
    const auto usbHandleOf = installation.usbHandleGetter();
    if (!usbHandleOf) {
        return;
    }
    usbguards::StreamWatch watch{std::move(times)};
    if (installation.libuvcEndsFullFrames()) {
        watch.frameLimit = control.dwMaxVideoFrameSize;
    }
    if (const auto record = usbguards::OwnedObjects::instance().find(usbHandleOf(handle))) {
        const std::lock_guard locker(record->mutex);
        record->watch = std::move(watch);
    }
}
