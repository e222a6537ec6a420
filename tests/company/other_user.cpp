#include "other_user.h"

#include <dlfcn.h>
#include <stdexcept>

// There where the program itself is the other user, with a libusb inside.
extern "C" void useUsb(const char*, unsigned, TellStep, void*) __attribute__((weak));

namespace company
{
namespace
{

constexpr unsigned ordinal = 2; // the first devices are for the process without the driver

void* otherUser()
{
    static void* const library = dlopen(ZRN_USB_USER, RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        throw std::runtime_error(dlerror());
    }
    return library;
}

template <typename Function>
Function* find(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(otherUser(), name));
}

} // namespace

void loadOtherUser()
{
    otherUser();
}

Transcript runHere(const std::string& name)
{
    const auto uvc = find<decltype(useUvc)>("useUvc");
    const auto usb = &useUsb ? &useUsb : find<decltype(useUsb)>("useUsb");
    return collect([&](TellStep tell, void* context) {
        if (!uvc(name.c_str(), ordinal, tell, context)) {
            usb(name.c_str(), ordinal, tell, context);
        }
    });
}

} // namespace company
