#include "abandonment.h"

namespace
{

AbandonmentTest abandonmentTest = nullptr;

} // namespace

void setAbandonmentTest(AbandonmentTest test)
{
    abandonmentTest = test;
}

bool mustAbandon(uvc_device_handle_t* handle)
{
    return abandonmentTest && abandonmentTest(handle);
}
