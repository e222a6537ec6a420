#pragma once

#include "camera_ids.h"
#include "client/serial_cache.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace zrn
{

/// A process that uses a camera.
struct Holder {
    int pid = 0;
    std::string program; ///< its name as the kernel keeps it, at most 15 bytes; may be empty

    bool operator==(const Holder&) const = default;
};

/// Whether a camera is in use.
enum class Use {
    Free, ///< by nobody, as far as this user can see
    Open, ///< processes have its node open but have not claimed it, so that others can open it
    Held, ///< claimed: nobody else can open it
};

/// "free", "open", "held".
const char* nameOf(Use use);

/// A camera as the kernel sees it.
struct BusCamera {
    std::string port; ///< place of its socket, as "1-2.3": bus, then the ports of hubs up to it
    unsigned bus = 0;
    unsigned address = 0;          ///< on the bus; another one after each plugging in
    double megabits = 0;           ///< speed of its connection, in Mbit/s; 0 is unknown
    bool nodeExists = false;       ///< its device node
    bool accessible = false;       ///< this user may read and write the node
    std::optional<unsigned> group; ///< whose members may, where this user may not
    bool isForSeat = false;        ///< likewise: whoever is logged in at the machine itself may
    Use use = Use::Free;
    std::vector<Holder> holders;            ///< who uses it; empty where this user may not see them
    std::vector<std::string> kernelDrivers; ///< other than usbfs, of its interfaces
    std::vector<std::string> videoNodes;    ///< that such a driver offers, as "/dev/video0"
    std::string serial;                     ///< with its prefix, as seen before; empty if not
    std::string descriptors; ///< device and configuration descriptors as the device sent them
    std::optional<std::int64_t> payloadBytes; ///< of its bulk transfers, where the camera was asked

    /// "001/002", as folders and files under /dev/bus/usb are named.
    [[nodiscard]] std::string place() const;
    /// "/dev/bus/usb/001/002".
    [[nodiscard]] std::string node() const;
    /// "480 Mbit/s", "5 Gbit/s", or empty.
    [[nodiscard]] std::string speed() const;
    /// Whether it can be opened.
    [[nodiscard]] bool isFree() const { return accessible && use != Use::Held; }
    /// Whether a program other than this one holds it.
    [[nodiscard]] bool isHeldElsewhere() const;
    /// "zrnview (pid 4711)", several with commas between; who else it may be where nobody is seen.
    /// Empty for a camera that nobody uses.
    [[nodiscard]] std::string holderText() const;

    bool operator==(const BusCamera&) const = default;
};

/// The cameras on the USB buses of this machine. Looking opens none of them and sends nothing.
///
/// Thread safety: thread-safe.
class Bus
{
public:
    /// @param root put before /sys, /dev, /proc and /run; empty for the running system
    /// @param cache where serials are remembered
    explicit Bus(std::string root = {}, SerialCache cache = SerialCache(SerialCache::folder()));

    /// The cameras, in the order of their ports, without their holders: quick enough to be asked
    /// several times a second. One counts as free that cannot be told to be claimed, or that a
    /// program uses through a video node; whoever wants to open a camera asks for the holders, too.
    [[nodiscard]] std::vector<BusCamera> cameras() const;

    /// The same with their holders, for which the open files of all processes are looked at.
    [[nodiscard]] std::vector<BusCamera> camerasAndHolders() const;

    /// Remembers what a camera's serial is, for as long as it stays plugged in.
    void remember(const BusCamera& camera, const std::string& serial);

private:
    [[nodiscard]] bool isClaimed(const BusCamera& camera) const;

    const std::string m_root;
    SerialCache m_cache;
};

/// Reads which cameras are on the bus.
using BusReader = std::function<std::vector<BusCamera>()>;

/// What a host reads of a bus, from any thread.
struct BusReaders {
    BusReader cameras;           ///< quickly
    BusReader camerasAndHolders; ///< and who uses them, which takes longer
    /// Notes the serial of a camera, which the readers then know.
    std::function<void(const BusCamera&, const std::string&)> remember;
    bool isAnnounced = false; ///< udev tells when something happens on it
};

/// The readers of this machine's bus. @param root as Bus takes it
BusReaders busReaders(const std::string& root = {});

} // namespace zrn
