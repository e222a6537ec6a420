#include "client/bus.h"

#include "client/file_text.h"
#include "client/holders.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace zrn
{
namespace
{

namespace fs = std::filesystem;

constexpr const char* devicesFolder = "/sys/bus/usb/devices";

/// Of a camera's interfaces, what their entries in sysfs tell.
struct Interfaces {
    bool areListed = false; ///< there are entries, so that a claim would show in them
    bool isClaimed = false; ///< through usbfs
    std::vector<std::string> kernelDrivers;
    std::vector<std::string> videoNodes;
};

/// A camera with what is needed to find out who uses it.
struct SeenCamera {
    BusCamera camera;
    bool showsClaims = false; ///< its interfaces are listed
};

std::vector<std::string> namesIn(const std::string& folder)
{
    std::vector<std::string> names;
    std::error_code error;
    for (auto entry = fs::directory_iterator(folder, error);
         !error && entry != fs::directory_iterator(); entry.increment(error)) {
        names.push_back(entry->path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

void appendOnce(std::vector<std::string>& list, const std::string& text)
{
    if (std::find(list.begin(), list.end(), text) == list.end()) {
        list.push_back(text);
    }
}

/// @param names of all entries in the folder
Interfaces interfacesOf(const std::string& folder, const std::vector<std::string>& names,
                        const std::string& device)
{
    Interfaces interfaces;
    for (const std::string& name : names) {
        if (!name.starts_with(device + ":")) {
            continue;
        }
        interfaces.areListed = true;
        const std::string entry = folder + "/" + name;
        std::error_code error;
        const std::string driver = fs::read_symlink(entry + "/driver", error).filename().string();
        if (driver == "usbfs") {
            interfaces.isClaimed = true;
        } else if (!driver.empty()) {
            appendOnce(interfaces.kernelDrivers, driver);
            for (const std::string& video : namesIn(entry + "/video4linux")) {
                appendOnce(interfaces.videoNodes, "/dev/" + video);
            }
        }
    }
    return interfaces;
}

/// Differs for every plugging in: the camera's number, and that of its entry in sysfs, which the
/// kernel gives to no other entry.
std::string stayOf(const std::string& root, const BusCamera& camera)
{
    struct stat status {
    };
    const std::string entry = root + devicesFolder + "/" + camera.port + "/devnum";
    if (::stat(entry.c_str(), &status) != 0) {
        return {};
    }
    return std::to_string(camera.address) + "-" + std::to_string(status.st_ino);
}

/// "1-2.10" comes after "1-2.9".
std::vector<unsigned long> portNumbers(const std::string& port)
{
    std::vector<unsigned long> numbers;
    const char* text = port.c_str();
    while (*text != '\0') {
        char* end = nullptr;
        numbers.push_back(std::strtoul(text, &end, 10));
        text = *end == '\0' ? end : end + 1;
    }
    return numbers;
}

/// The group whose members may use a node, if it is not root's.
std::optional<unsigned> groupOf(const std::string& node)
{
    constexpr mode_t readAndWrite = S_IRGRP | S_IWGRP;
    struct stat status {
    };
    if (::stat(node.c_str(), &status) != 0 || status.st_gid == 0 ||
        (status.st_mode & readAndWrite) != readAndWrite) {
        return std::nullopt;
    }
    return status.st_gid;
}

/// @param number of the device: "189:2"
bool hasSeatTag(const std::string& root, const std::string& number)
{
    return readText(root + "/run/udev/data/c" + number).find("G:uaccess\n") != std::string::npos;
}

std::vector<SeenCamera> look(const std::string& root, const SerialCache& cache)
{
    std::vector<SeenCamera> seen;
    const std::string folder = root + devicesFolder;
    const std::vector<std::string> names = namesIn(folder);
    for (const std::string& name : names) {
        const std::string device = folder + "/" + name;
        if (readNumber(device + "/idVendor", 16) != cameraVendorId ||
            readNumber(device + "/idProduct", 16) != cameraProductId) {
            continue;
        }
        const int bus = readNumber(device + "/busnum", 10);
        const int address = readNumber(device + "/devnum", 10);
        if (bus < 0 || address < 0) {
            continue; // it is leaving
        }
        BusCamera camera;
        camera.port = name;
        camera.bus = static_cast<unsigned>(bus);
        camera.address = static_cast<unsigned>(address);
        camera.megabits = std::strtod(readWord(device + "/speed").c_str(), nullptr);
        camera.descriptors = readText(device + "/descriptors");
        const std::string node = root + camera.node();
        camera.nodeExists = ::access(node.c_str(), F_OK) == 0;
        camera.accessible = ::access(node.c_str(), R_OK | W_OK) == 0;
        if (camera.nodeExists && !camera.accessible) {
            camera.group = groupOf(node);
            camera.isForSeat = hasSeatTag(root, readWord(device + "/dev"));
        }
        const Interfaces interfaces = interfacesOf(folder, names, name);
        camera.kernelDrivers = interfaces.kernelDrivers;
        camera.videoNodes = interfaces.videoNodes;
        camera.use = interfaces.isClaimed ? Use::Held : Use::Free;
        camera.serial = cache.find(name, stayOf(root, camera));
        seen.push_back({std::move(camera), interfaces.areListed});
    }
    std::sort(seen.begin(), seen.end(), [](const SeenCamera& a, const SeenCamera& b) {
        return portNumbers(a.camera.port) < portNumbers(b.camera.port);
    });
    return seen;
}

} // namespace

std::string BusCamera::place() const
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%03u/%03u", bus, address);
    return text.data();
}

std::string BusCamera::node() const
{
    return "/dev/bus/usb/" + place();
}

std::string BusCamera::speed() const
{
    constexpr double megabitsPerGigabit = 1000;
    if (megabits <= 0) {
        return {};
    }
    std::array<char, 32> text{};
    if (megabits < megabitsPerGigabit) {
        std::snprintf(text.data(), text.size(), "%g Mbit/s", megabits);
    } else {
        std::snprintf(text.data(), text.size(), "%g Gbit/s", megabits / megabitsPerGigabit);
    }
    return text.data();
}

const char* nameOf(Use use)
{
    switch (use) {
    case Use::Free:
        return "free";
    case Use::Open:
        return "open";
    case Use::Held:
        break;
    }
    return "held";
}

bool BusCamera::isHeldElsewhere() const
{
    const int self = ::getpid();
    return use == Use::Held &&
           std::none_of(holders.begin(), holders.end(),
                        [self](const Holder& holder) { return holder.pid == self; });
}

std::string BusCamera::holderText() const
{
    std::string text;
    for (const Holder& holder : holders) {
        text += text.empty() ? "" : ", ";
        text += holder.program.empty() ? "a program" : holder.program;
        text += " (pid " + std::to_string(holder.pid) + ")";
    }
    if (text.empty() && use == Use::Held) {
        return "a program that this user may not see";
    }
    return text;
}

Bus::Bus(std::string root, SerialCache cache)
    : m_root(std::move(root))
    , m_cache(std::move(cache))
{
}

std::vector<BusCamera> Bus::cameras() const
{
    std::vector<BusCamera> cameras;
    for (SeenCamera& seen : look(m_root, m_cache)) {
        cameras.push_back(std::move(seen.camera));
    }
    return cameras;
}

std::vector<BusCamera> Bus::camerasAndHolders() const
{
    std::vector<SeenCamera> seen = look(m_root, m_cache);
    std::vector<std::string> nodes;
    for (const SeenCamera& each : seen) {
        nodes.push_back(each.camera.node());
        nodes.insert(nodes.end(), each.camera.videoNodes.begin(), each.camera.videoNodes.end());
    }
    const std::vector<std::vector<Holder>> holders =
        nodes.empty() ? std::vector<std::vector<Holder>>() : findHolders(m_root, nodes);

    std::vector<BusCamera> cameras;
    std::size_t next = 0;
    for (SeenCamera& each : seen) {
        BusCamera& camera = each.camera;
        camera.holders = holders[next++];
        if (!camera.holders.empty() && camera.use == Use::Free) {
            // Looking at a device opens its node as well; only where no claim would show has an
            // open node to do for one.
            camera.use = each.showsClaims ? Use::Open : Use::Held;
        }
        if (camera.use == Use::Held && camera.holders.empty() && !isClaimed(camera)) {
            camera.use = Use::Free; // its holder has left since the first look
        }
        for (std::size_t i = 0; i < camera.videoNodes.size(); ++i) {
            const std::vector<Holder>& viewers = holders[next++];
            if (!viewers.empty()) {
                camera.use = Use::Held; // it would lose its camera to whoever opens that
                camera.holders.insert(camera.holders.end(), viewers.begin(), viewers.end());
            }
        }
        cameras.push_back(std::move(camera));
    }
    return cameras;
}

bool Bus::isClaimed(const BusCamera& camera) const
{
    const std::string folder = m_root + devicesFolder;
    return interfacesOf(folder, namesIn(folder), camera.port).isClaimed;
}

void Bus::remember(const BusCamera& camera, const std::string& serial)
{
    m_cache.store(camera.port, stayOf(m_root, camera), serial);
}

BusReaders busReaders(const std::string& root)
{
    // One for the process: what one part of it learns of a camera, the others know. Not beyond a
    // fork, which may have found its lock taken.
    static const pid_t process = ::getpid();
    // Never destroyed: threads may outlive main.
    static const auto& machine = *new std::shared_ptr<Bus>(std::make_shared<Bus>());
    const auto bus = root.empty() && process == ::getpid() ? machine : std::make_shared<Bus>(root);
    return {[bus] { return bus->cameras(); }, [bus] { return bus->camerasAndHolders(); },
            [bus](const BusCamera& camera, const std::string& serial) {
                bus->remember(camera, serial);
            },
            root.empty() && ::access("/run/udev/control", F_OK) == 0};
}

} // namespace zrn
