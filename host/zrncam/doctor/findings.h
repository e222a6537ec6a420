#pragma once

#include "client/bus.h"
#include "client/plugin_file.h"
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

/// Whether cameras are on the bus, and for each whether the user may open it, which kernel driver
/// and which program use it.
std::vector<Finding> judgeBus(const std::vector<zrn::BusCamera>& cameras);

/// Whether the transfers of all cameras together fit the memory limit of usbfs. Above it bulk
/// streams often get by with fewer transfers, so that for them it is a warning.
/// @param limitMiB value of the kernel's limit; 0 is no limit, nothing is not readable.
Finding judgeTransferMemory(const std::vector<zrn::BusCamera>& cameras,
                            std::optional<int> limitMiB);

/// How the driver stands against the faults of the USB libraries.
enum class Guards {
    InEffect,
    Missing,
    Unknown, ///< the driver was not asked, or does not tell
};

/// @param answer the driver's own words; empty when it was not asked.
Guards guardsFrom(const QString& answer);

/// Whether the driver guards against faults of the USB libraries in this process.
Finding judgeGuards(const QString& answer);

/// Whether the USB libraries have faults that a user of cameras meets.
std::vector<Finding> judgeLibraries(const LibraryVersions& versions, Guards guards);

/// Whether the plugin is there and made for this program.
Finding judgePlugin(const zrn::PluginInspection& inspection);

/// Whether the driver opened every camera that is on the bus, where it can only open all.
Finding judgeEnumeration(int opened, std::size_t onBus);

/// Whether the driver opened one camera that nobody else uses.
Finding judgeOpening(const zrn::BusCamera& camera, bool isOpened);
