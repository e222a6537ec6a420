#include "usb_handles.h"

namespace usbguards
{

UsbHandles& UsbHandles::instance()
{
    // Never destroyed: libuvc's threads may outlive the static objects of a process that exits.
    static auto* const handles = new UsbHandles;
    return *handles;
}

unsigned UsbHandles::patience(libusb_device_handle* handle)
{
    constexpr unsigned ordinaryMs = 2000;
    constexpr unsigned muteMs = 100;
    const std::lock_guard locker(m_mutex);
    const auto found = m_records.find(handle);
    return found != m_records.end() && found->second.isMute ? muteMs : ordinaryMs;
}

void UsbHandles::noteAnswer(libusb_device_handle* handle, bool isAnswered)
{
    const std::lock_guard locker(m_mutex);
    if (!isAnswered) {
        m_records[handle].isMute = true;
        return;
    }
    const auto found = m_records.find(handle);
    if (found != m_records.end()) {
        found->second.isMute = false;
    }
}

void UsbHandles::noteSpoilt(libusb_device_handle* handle)
{
    const std::lock_guard locker(m_mutex);
    m_records[handle].isSpoilt = true;
}

bool UsbHandles::isSpoilt(libusb_device_handle* handle)
{
    const std::lock_guard locker(m_mutex);
    const auto found = m_records.find(handle);
    return found != m_records.end() && found->second.isSpoilt;
}

void UsbHandles::forget(libusb_device_handle* handle)
{
    const std::lock_guard locker(m_mutex);
    const auto found = m_records.find(handle);
    // A spoilt handle is never closed, so its address stays taken.
    if (found != m_records.end() && !found->second.isSpoilt) {
        m_records.erase(found);
    }
}

} // namespace usbguards
