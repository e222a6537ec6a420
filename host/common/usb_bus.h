#pragma once

#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace zrnhost
{

/// USB ids of the cameras that the driver serves.
inline constexpr quint16 cameraVendorId = 0x0483;
inline constexpr quint16 cameraProductId = 0x5750;

/// udev rule that lets the user at the machine open a camera, and the file that it belongs in. The
/// number in the name is below 73, where udev hands out access.
inline constexpr const char* udevRule =
    R"(SUBSYSTEM=="usb", ATTR{idVendor}=="0483", ATTR{idProduct}=="5750", TAG+="uaccess")";
inline constexpr const char* udevRulePath = "/etc/udev/rules.d/70-zrncamera.rules";

/// A served camera as the kernel sees it.
struct UsbCamera {
    QString name;     ///< bus position in sysfs, as "1-2.3"
    QString nodePath; ///< device node under /dev/bus/usb
    bool nodeExists = false;
    bool accessible = false;   ///< this user may read and write the node
    QStringList kernelDrivers; ///< drivers other than usbfs that hold one of its interfaces
    QByteArray descriptors;    ///< device and configuration descriptors as the device sent them
    std::optional<qint64> payloadBytes; ///< of its bulk transfers, where the camera was asked
};

/// The served cameras on the bus, by position. None of them is opened or asked. @param root put
/// before /sys and /dev, empty for the running system.
std::vector<UsbCamera> camerasOnBus(const QString& root);

} // namespace zrnhost
