#pragma once

#include "common/driver_plugin.h"
#include "common/usb_bus.h"
#include "doctor/libraries.h"

#include <QString>

#include <optional>
#include <vector>

/// How one examined thing stands.
enum class Verdict {
    Good,
    Warning, ///< works, but may fail under circumstances that the message names
    Problem, ///< a camera cannot be used until it is put right
    Unknown, ///< could not be examined
};

/// One thing that the doctor looked at.
struct Finding {
    QString subject; ///< one word, stable, for scripts
    Verdict verdict;
    QString message; ///< what was found, in plain words
    QString remedy;  ///< what to do, down to the line to type; empty when nothing is to be done
};

/// "ok", "warning", "problem", "unknown".
const char* verdictName(Verdict verdict);

/// Whether cameras are on the bus, and for each whether the user may open it and who else holds it.
std::vector<Finding> judgeBus(const std::vector<zrnhost::UsbCamera>& cameras);

/// Whether the transfers of all cameras together fit the memory limit of usbfs. Above it bulk
/// streams often get by with fewer transfers, so that for them it is a warning.
/// @param limitMiB value of the kernel's limit; 0 is no limit, nothing is not readable.
Finding judgeTransferMemory(const std::vector<zrnhost::UsbCamera>& cameras,
                            std::optional<int> limitMiB);

/// Whether the USB libraries have faults that a user of cameras meets.
std::vector<Finding> judgeLibraries(const LibraryVersions& versions);

/// Whether the plugin is there and made for this program.
Finding judgePlugin(const zrnhost::PluginInspection& inspection);

/// Whether the driver opened every camera that is on the bus.
Finding judgeEnumeration(int opened, std::size_t onBus);
