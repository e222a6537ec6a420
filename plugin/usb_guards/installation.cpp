#include "installation.h"

#include "owned_objects.h"
#include "usb_guards.h"
#include "visits.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <dlfcn.h>
#include <new>
#include <unistd.h>

namespace usbguards
{
namespace
{

constexpr auto usbPrefix = "libusb_";

/// Where this library's own calls of a libuvc function arrive. Not the function's address as the
/// language has it: in a program that was linked at a fixed address, that may be a place in the
/// program.
void* ownLink(const char* function)
{
    static const char here = 0;
    for (const LoadedLibrary::Link& link : LoadedLibrary::around(&here).links(function)) {
        if (std::strcmp(link.function, function) == 0) {
            return LoadedLibrary::read(link.slot);
        }
    }
    return nullptr;
}

const UsbFunction* findFunction(const char* name)
{
    const auto functions = usbFunctions();
    const auto found = std::ranges::find_if(functions, [name](const UsbFunction& function) {
        return std::strcmp(function.name, name) == 0;
    });
    return found == functions.end() ? nullptr : &*found;
}

/// Restores what has been changed before the library is unmapped. Made when the library is loaded,
/// so that it ends after the objects that close the cameras.
struct AtUnloading {
    AtUnloading() = default;
    AtUnloading(const AtUnloading&) = delete;
    AtUnloading& operator=(const AtUnloading&) = delete;
    ~AtUnloading() { Installation::instance().remove(); }
};
const AtUnloading atUnloading;

} // namespace

Installation& Installation::instance()
{
    alignas(Installation) static std::byte storage[sizeof(Installation)];
    static auto* const installation = new (storage) Installation;
    return *installation;
}

void Installation::ensure()
{
    const std::lock_guard locker(m_mutex);
    if (m_state == State::Unused) {
        install();
    } else if (m_state == State::InEffect) {
        repair();
    }
}

void Installation::install()
{
    m_process = getpid();
    m_state = State::Missing;
    const void* const uvcOpen = ownLink("uvc_open");
    m_libuvc = LoadedLibrary::around(uvcOpen);
    m_libuvcReference = libraryAround(uvcOpen);
    if (m_libuvc.isEmpty() || !m_libuvcReference) {
        m_fault = "the driver's libuvc is not among the loaded libraries";
        return;
    }
    m_usbHandleGetter = reinterpret_cast<decltype(m_usbHandleGetter)>(
        dlsym(m_libuvcReference.get(), "uvc_get_libusb_handle"));
    m_endsFullFrames = dlsym(m_libuvcReference.get(), "uvc_wrap") != nullptr;

    if (m_libuvc.links(usbPrefix).empty()) {
        const bool hasItsOwn = m_libuvc.contains(dlsym(m_libuvcReference.get(), "libusb_init"));
        m_state = hasItsOwn ? State::Missing : State::Needless;
        m_fault = hasItsOwn ? std::string("libusb is a part of ") + libraryName(uvcOpen) : "";
        return;
    }
    OriginalUsb functions{};
    if (!collect(functions)) {
        m_entries.clear();
        return;
    }
    setOriginalUsb(functions);

    std::vector<LoadedLibrary::Change> changes;
    for (const Entry& entry : m_entries) {
        changes.push_back({entry.slot, entry.before, entry.now});
    }
    if (const int error = m_libuvc.change(changes); error != 0) {
        m_fault = std::string("the linkage table of ") + libraryName(uvcOpen) +
                  " cannot be written: " + std::strerror(error);
        m_entries.clear();
        return;
    }
    m_state = State::InEffect;
}

bool Installation::collect(OriginalUsb& functions)
{
    for (const LoadedLibrary::Link& link : m_libuvc.links(usbPrefix)) {
        void* const held = LoadedLibrary::read(link.slot);
        // An entry that was never used refers to a place in libuvc that looks the function up and
        // overwrites the entry.
        const bool isBound = held && !m_libuvc.contains(held);
        void* const original = isBound ? held : resolve(link.function);
        if (!original) {
            m_fault = std::string(link.function) + " is not to be found";
            return false;
        }
        const UsbFunction* const known = findFunction(link.function);
        if (known) {
            known->keep(functions, original);
        }
        // The others are bound as well, so that all come from one libusb.
        const bool isGuard = known && known->guard;
        void* const now = isGuard ? known->guard : original;
        if (now != held) {
            m_entries.push_back({link.slot, held, original, now, isGuard});
        }
        if (LibraryReference library = libraryAround(original)) {
            const bool isHeld = std::ranges::any_of(
                m_originals, [&](const auto& other) { return other.get() == library.get(); });
            if (!isHeld) {
                m_originals.push_back(std::move(library));
            }
        }
    }
    // What libuvc does not call comes from where that comes from which no guard stands in front of.
    const LibraryReference libusb =
        libraryAround(reinterpret_cast<void*>(functions.freeConfigDescriptor));
    for (const UsbFunction& function : usbFunctions()) {
        if (!function.guard && libusb &&
            std::strcmp(function.name, "libusb_free_config_descriptor") != 0) {
            function.keep(functions, dlsym(libusb.get(), function.name));
        }
    }
    return true;
}

/// Finds a function where libuvc would: among what is there for all, then in what it brought along.
void* Installation::resolve(const char* function) const
{
    const LibraryReference program(dlopen(nullptr, RTLD_LAZY | RTLD_NOLOAD));
    void* const forAll = program ? dlsym(program.get(), function) : nullptr;
    return forAll ? forAll : dlsym(m_libuvcReference.get(), function);
}

/// While the entries were changed, the dynamic linker may have been looking up one of the functions
/// for another thread, and have entered it afterwards.
void Installation::repair()
{
    std::vector<LoadedLibrary::Change> changes;
    for (const Entry& entry : m_entries) {
        if (entry.isGuard && LoadedLibrary::read(entry.slot) == entry.original) {
            changes.push_back({entry.slot, entry.original, entry.now});
        }
    }
    if (!changes.empty()) {
        static_cast<void>(m_libuvc.change(changes));
    }
}

decltype(&uvc_get_libusb_handle) Installation::usbHandleGetter()
{
    const std::lock_guard locker(m_mutex);
    return m_usbHandleGetter;
}

bool Installation::libuvcEndsFullFrames()
{
    const std::lock_guard locker(m_mutex);
    return m_endsFullFrames;
}

Installation::Status Installation::status()
{
    const std::lock_guard locker(m_mutex);
    if (m_state == State::InEffect && !isInEffect()) {
        return {State::Missing, "another library has changed the linkage table of libuvc"};
    }
    return {m_state, m_fault};
}

bool Installation::isInEffect() const
{
    const auto isOther = [](const Entry& entry) {
        return entry.isGuard && LoadedLibrary::read(entry.slot) != entry.now;
    };
    if (std::ranges::none_of(m_entries, isOther)) {
        return true;
    }
    // Another library's guards may have come in front of these. They are taken to belong together:
    // one of their functions can be asked.
    const auto freeTransfer = std::ranges::find_if(m_entries, [](const Entry& entry) {
        return entry.now == reinterpret_cast<void*>(guardFreeTransfer);
    });
    if (freeTransfer == m_entries.end()) {
        return false;
    }
    void* const front = LoadedLibrary::read(freeTransfer->slot);
    const LoadedLibrary library = LoadedLibrary::around(front);
    const bool isOneLibrary = std::ranges::all_of(m_entries, [&](const Entry& entry) {
        return !isOther(entry) || library.contains(LoadedLibrary::read(entry.slot));
    });
    return isOneLibrary && !m_libuvc.contains(front) &&
           leadsToGuard(reinterpret_cast<decltype(&libusb_free_transfer)>(front));
}

void Installation::remove()
{
    // Threads that held a lock or were in a guard when a child was forked go on in its parent
    // alone.
    if (m_isKept || m_process != getpid()) {
        return;
    }
    const std::lock_guard locker(m_mutex);
    if (m_state == State::Unused || !OwnedObjects::instance().isEmpty()) {
        return;
    }
    std::vector<LoadedLibrary::Change> changes;
    for (const Entry& entry : m_entries) {
        changes.push_back({entry.slot, entry.now, entry.before});
    }
    if (!changes.empty()) {
        static_cast<void>(m_libuvc.change(changes));
        Visit::waitForEnd();
    }
    m_entries = std::vector<Entry>(); // unlike {}, gives the memory back
    m_fault = std::string();
    m_originals.clear();
    m_originals.shrink_to_fit();
    m_libuvcReference.reset();
    m_libuvc = {};
    m_state = State::Unused;
}

} // namespace usbguards
