#pragma once

#include "client/bus.h"
#include "client/plugin_file.h"
#include "client/wall_clock.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace zrn
{

/// How one examined thing stands.
enum class Verdict {
    Good,
    Warning, ///< works, but may fail under circumstances that the message names
    Problem, ///< a camera cannot be used until it is put right
    Unknown, ///< could not be examined
};

/// One thing that the doctor looked at.
struct Finding {
    std::string subject; ///< one word, stable, for scripts
    Verdict verdict = Verdict::Unknown;
    std::string message; ///< what was found, in plain words
    std::string remedy;  ///< what to do, down to the line to type; empty when nothing is to be done
};

/// "ok", "warning", "problem", "unknown".
const char* verdictName(Verdict verdict);

/// Whether cameras are on the bus, and for each whether the user may open it, which kernel driver
/// and which program use it.
std::vector<Finding> judgeBus(const std::vector<BusCamera>& cameras);

/// The kernel's limit of the memory for USB transfers, in MiB: 0 is no limit, nothing not readable.
/// @param root put before /sys; empty for the running system
std::optional<int> transferMemoryLimit(const std::string& root = {});

/// Whether a camera's connection is fast enough for the frames that it offers.
Finding judgeSpeed(const BusCamera& camera);

/// Whether the kernel may suspend a camera that nobody uses; nothing where that cannot be read.
/// @param root put before /sys; empty for the running system
std::optional<Finding> judgeAutosuspend(const BusCamera& camera, const std::string& root = {});

/// Whether the transfers of all cameras together fit the memory limit of usbfs. Above it bulk
/// streams often get by with fewer transfers, so that for them it is a warning; nothing is claimed
/// of cameras that could not be asked.
/// @param limitMiB as transferMemoryLimit() gives it
Finding judgeTransferMemory(const std::vector<BusCamera>& cameras, std::optional<int> limitMiB);

/// How the driver stands against the faults of the USB libraries.
enum class Guards {
    InEffect,
    Missing,
    Unknown, ///< the driver was not asked, or does not tell
};

/// @param answer the driver's own words; empty when it was not asked.
Guards guardsFrom(const std::string& answer);

/// Whether the driver guards against faults of the USB libraries in this process.
Finding judgeGuards(const std::string& answer);

/// Whether frames can be told the time of day. @param clock nothing where it cannot be asked
Finding judgeClock(const std::optional<SystemClock>& clock);

using LibraryVersion = std::array<int, 3>; ///< all 0 where it cannot be found

/// Versions of the USB libraries that this process gets.
struct LibraryVersions {
    LibraryVersion libusb{};
    LibraryVersion libuvc{};
};

/// Whether the USB libraries have faults that a user of cameras meets.
std::vector<Finding> judgeLibraries(const LibraryVersions& versions, Guards guards);

/// Whether the plugin is there and made for this program.
Finding judgePlugin(const PluginInspection& inspection);

/// Whether the driver opened every camera that is on the bus, where it can only open all.
Finding judgeEnumeration(int opened, std::size_t onBus);

/// Whether the driver opened one camera that nobody else uses.
Finding judgeOpening(const BusCamera& camera, bool isOpened);

} // namespace zrn
