// What the camera class asks about the libuvc that it is linked with, answered for the stand-in.

#include "abandonment.h"
#include "fake_uvc.h"
#include "guard_status.h"
#include "payload_watch.h"

#include <utility>

using fakeuvc::Bus;

GuardStatus guardStatus()
{
    const std::string fault = Bus::instance().guardFault();
    return {fault.empty(), fault.empty() ? "not needed" : fault};
}

bool mustAbandon(uvc_device_handle_t*)
{
    return false;
}

void keepGuards() {}

void keepLibraryLoaded()
{
    Bus::instance().noteKeptLibrary();
}

void watchPayloads(uvc_device_handle_t*, const uvc_stream_ctrl_t&,
                   std::shared_ptr<StreamTimes> times)
{
    Bus::instance().setWatch(std::move(times));
}
