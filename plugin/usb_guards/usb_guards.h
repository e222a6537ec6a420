#pragma once

/// Definitions of some libusb functions that libuvc finds before libusb's own, and that keep the
/// process alive where stock versions of the two libraries fail. docs/reliability.md tells which
/// fault each answers.
///
/// They take effect because the dynamic linker searches a plugin before the libraries that it
/// brought in. Where the host itself has brought in libusb, they do not.
namespace usbguards
{

/// Whether libuvc's calls pass through the guards. Known once a device has been enumerated.
/// Thread-safe.
bool inEffect();

} // namespace usbguards
