#include "guarded_module.h"

#include "abandonment.h"
#include "guard_status.h"

namespace
{

void open(uvc_context_t** context, uvc_device_handle_t** handle)
{
    uvc_init(context, nullptr);
    uvc_device_t** list = nullptr;
    uvc_get_device_list(*context, &list);
    uvc_open(nullptr, handle);
}

void close(uvc_context_t* context, uvc_device_handle_t* handle)
{
    uvc_close(handle);
    uvc_exit(context);
}

std::string status()
{
    return guardStatus().text;
}

} // namespace

extern "C" __attribute__((visibility("default")))
const GuardedModule guardedModule = {open, close, status, keepLibraryLoaded};
