#include "abandonment.h"

namespace
{

Abandonment current;

} // namespace

void setAbandonment(const Abandonment& abandonment)
{
    current = abandonment;
}

bool mustAbandon(uvc_device_handle_t* handle)
{
    return current.test && current.test(handle);
}

void keepLibraryLoaded()
{
    if (current.keepLibraryLoaded) {
        current.keepLibraryLoaded();
    }
}
