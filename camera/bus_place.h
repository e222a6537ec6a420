#pragma once

#include <QList>
#include <QString>

#include <cstdint>
#include <optional>

/// Where a device is on the USB: its bus, and its address there, which a new plugging in changes.
struct BusPlace {
    std::uint8_t bus = 0;
    std::uint8_t address = 0;

    bool operator==(const BusPlace&) const = default;
};

/// What a host wants of the devices that it names.
struct DeviceChoice {
    QList<BusPlace> opened; ///< closed first where they are open
    QList<BusPlace> closed;
};

/// Reads a place as folders and files under /dev/bus/usb are named: "001/002". Nothing for any
/// other text. Thread safety: reentrant.
std::optional<BusPlace> busPlaceOf(const QString& text);

/// The name that busPlaceOf() reads.
QString nameOf(const BusPlace& place);
