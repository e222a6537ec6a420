#pragma once

#include "library_reference.h"
#include "loaded_library.h"
#include "original_usb.h"

#include <libuvc/libuvc.h>

#include <atomic>
#include <mutex>
#include <string>
#include <sys/types.h>
#include <vector>

namespace usbguards
{

/// The guards' addresses in the linkage table of the one libuvc that the driver's own calls arrive
/// at.
///
/// Each call of libuvc to libusb goes through an entry of that table. The entries are changed at
/// the driver's first call and restored before this library is unloaded. Another copy of this
/// library in the process does the same; the later one's guards call the earlier one's, and keep it
/// loaded.
///
/// Thread-safe.
class Installation
{
public:
    /// Never destroyed: threads of the host may go on while the process exits.
    static Installation& instance();

    /// Puts the guards in place, unless they are. To be called before each use of libuvc that
    /// creates a context.
    void ensure();

    /// Takes the guards out, where no other library has put anything in front of them. Does nothing
    /// while the driver has anything open, nor in a forked child.
    void remove();

    /// Has remove() do nothing any more, for a process that exits with threads in libuvc or that
    /// was forked. Takes no lock.
    void keep() { m_isKept = true; }

    enum class State {
        Unused,   ///< the driver has not used libuvc yet
        Needless, ///< libuvc calls no libusb
        InEffect,
        Missing,
    };
    struct Status {
        State state;
        std::string fault; ///< why guards are missing, in plain words
    };
    /// Looks at the table anew.
    Status status();

    /// libuvc's function that gives libusb's handle of a camera, which nothing else in the driver
    /// needs; null if there is none.
    decltype(&uvc_get_libusb_handle) usbHandleGetter();

    /// Whether libuvc also ends a frame when its buffer is full, and clips what is too long, as
    /// from 0.0.7 on; that version brought uvc_wrap().
    bool libuvcEndsFullFrames();

private:
    struct Entry {
        void** slot;
        void* before;   ///< what the entry held
        void* original; ///< the function behind it
        void* now;      ///< what it was changed to
        bool isGuard;
    };

    Installation() = default;
    ~Installation() = default;

    void install();
    void repair();
    bool collect(OriginalUsb& functions);
    void* resolve(const char* function) const;
    bool isInEffect() const;

    std::atomic<bool> m_isKept = false;
    std::atomic<pid_t> m_process = 0; ///< that has put the guards in place
    std::mutex m_mutex;               ///< guards what follows
    State m_state = State::Unused;
    std::string m_fault;
    LoadedLibrary m_libuvc;
    LibraryReference m_libuvcReference;
    std::vector<Entry> m_entries;
    std::vector<LibraryReference> m_originals; ///< the libraries of the original functions
    decltype(&uvc_get_libusb_handle) m_usbHandleGetter = nullptr;
    bool m_endsFullFrames = false;
};

} // namespace usbguards
