#pragma once

#include "frame_boundaries.h"
#include "patience.h"
#include "stream_times.h"

#include <libusb.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <set>
#include <vector>

namespace usbguards
{

/// Where the frames of a stream are to be noted.
struct StreamWatch {
    std::shared_ptr<StreamTimes> times; ///< null: nowhere
    /// Bytes with which libuvc takes a frame to be full.
    std::uint64_t frameLimit = FrameBoundaries::unlimited;
};

/// What the guards remember of a device handle of the driver.
struct OwnedHandle {
    std::mutex mutex; ///< guards what follows
    Patience patience;
    bool isSpoilt = false; ///< closing it would abort the process
    StreamWatch watch;     ///< for the stream that starts next
};

/// Tells the driver's use of libusb from that of others in the process: the contexts and device
/// handles that libuvc made while the driver called it. Whatever is not on record is not touched.
///
/// Thread-safe.
class OwnedObjects
{
public:
    /// Never destroyed: libuvc's threads may outlive the static objects of a process that exits.
    static OwnedObjects& instance();

    /// While one lives, the driver is calling libuvc on this thread. A list of threads, because
    /// GCC 12's LeakSanitizer crashes on a thread_local variable of a library that is loaded at run
    /// time, and a process has few keys for data of threads.
    class DriverCall
    {
    public:
        DriverCall();
        ~DriverCall();
        DriverCall(const DriverCall&) = delete;
        DriverCall& operator=(const DriverCall&) = delete;
    };
    bool isDriverCalling();

    void add(libusb_context* context);
    bool owns(libusb_context* context);
    void forget(libusb_context* context);

    /// A handle that was just opened. What was known of an earlier one at its address is forgotten.
    void add(libusb_device_handle* handle);
    /// @return null for a handle that is not the driver's.
    std::shared_ptr<OwnedHandle> find(libusb_device_handle* handle);
    void forget(libusb_device_handle* handle);

    /// Whether the driver has nothing open.
    bool isEmpty();

private:
    OwnedObjects() = default;
    ~OwnedObjects() = default;

    std::mutex m_mutex; ///< guards what follows
    std::vector<pthread_t> m_callingThreads;
    // These hold no memory while they are empty.
    std::set<libusb_context*> m_contexts;
    std::map<libusb_device_handle*, std::shared_ptr<OwnedHandle>> m_handles;
};

} // namespace usbguards
