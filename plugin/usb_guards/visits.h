#pragma once

namespace usbguards
{

/// A look of a guard at what it was called with. Others in the process that use the same libuvc
/// pass through the guards, too, and go on to libusb in a jump that leaves no trace of the guard on
/// the stack; before the library may be unmapped, those that are just looking must have gone.
class Visit
{
public:
    Visit();
    ~Visit();
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;

    /// Waits until nobody is in a guard any more who came from a linkage table that no longer
    /// refers to it. A thread that the system keeps from running meanwhile is waited for two
    /// seconds at most.
    static void waitForEnd();
};

} // namespace usbguards
