#include "original_usb.h"

namespace usbguards
{
namespace
{

OriginalUsb current;

} // namespace

const OriginalUsb& originalUsb()
{
    return current;
}

void setOriginalUsb(const OriginalUsb& functions)
{
    current = functions;
}

} // namespace usbguards
