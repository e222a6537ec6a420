#pragma once

#include "libusb_types.h"

#include <mutex>
#include <unordered_map>

namespace usbguards
{

/// What the guards remember of open device handles. Thread-safe.
class UsbHandles
{
public:
    static UsbHandles& instance();

    /// How long a control request may take, in milliseconds: long for a device that has answered
    /// its last request, short for one that has not, so that a row of requests to a mute device
    /// ends soon.
    unsigned patience(libusb_device_handle* handle);
    void noteAnswer(libusb_device_handle* handle, bool isAnswered);

    /// Closing the handle would abort the process.
    void noteSpoilt(libusb_device_handle* handle);
    bool isSpoilt(libusb_device_handle* handle);

    /// The handle is about to be closed. One that is spoilt stays on record.
    void forget(libusb_device_handle* handle);

private:
    struct Record {
        bool isMute = false;
        bool isSpoilt = false;
    };

    std::mutex m_mutex;
    std::unordered_map<libusb_device_handle*, Record> m_records; ///< of unusual handles only
};

} // namespace usbguards
