#pragma once

#include <QString>

#include <cstdint>
#include <optional>

/// Where a device is on the USB: its bus, and its address there, which a new plugging in changes.
struct BusPlace {
    std::uint8_t bus = 0;
    std::uint8_t address = 0;

    bool operator==(const BusPlace&) const = default;
};

/// Reads a place as folders and files under /dev/bus/usb are named: "001/002". Nothing for any
/// other text. Thread safety: reentrant.
std::optional<BusPlace> busPlaceOf(const QString& text);

/// The name that busPlaceOf() reads.
QString nameOf(const BusPlace& place);
