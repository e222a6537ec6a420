#include "client/findings.h"

#include "client/access_remedy.h"
#include "client/file_text.h"
#include "client/usb_transfers.h"

#include <algorithm>
#include <cmath>

namespace zrn
{
namespace
{

constexpr std::int64_t bytesPerMiB = 1 << 20;

std::string joined(const std::vector<std::string>& words, const char* separator)
{
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : separator) + word;
    }
    return text;
}

Finding judgeAccess(const BusCamera& camera)
{
    const char* const subject = "permission";
    if (!camera.nodeExists) {
        return {subject, Verdict::Problem,
                "the camera at " + camera.port + " has no device node " + camera.node(),
                missingNodeRemedy()};
    }
    if (!camera.accessible) {
        return {subject, Verdict::Problem,
                "this user may not open " + camera.node() + ", the camera at " + camera.port,
                accessRemedy(camera)};
    }
    return {subject, Verdict::Good, "this user may open " + camera.node(), {}};
}

std::string watchersRemedy(const BusCamera& camera)
{
    const std::string advice = "close programs that use the camera as a webcam";
    return camera.videoNodes.empty()
               ? advice
               : advice + " ('fuser -v " + joined(camera.videoNodes, " ") + "' lists them)";
}

Finding judgeKernelDrivers(const BusCamera& camera)
{
    const char* const subject = "kernel-driver";
    if (camera.kernelDrivers.empty()) {
        return {subject, Verdict::Good, "no kernel driver holds the camera at " + camera.port, {}};
    }
    return {subject, Verdict::Warning,
            "the kernel driver " + joined(camera.kernelDrivers, ", ") + " holds the camera at " +
                camera.port + "; it is detached while the camera is in use",
            watchersRemedy(camera)};
}

Finding judgeUse(const BusCamera& camera)
{
    const char* const subject = "use";
    if (!camera.isHeldElsewhere()) {
        return {subject, Verdict::Good, "no program holds the camera at " + camera.port, {}};
    }
    return {subject, Verdict::Warning,
            "the camera at " + camera.port + " is in use by " + camera.holderText(),
            "end that program to use this camera from another one"};
}

std::string textOf(const LibraryVersion& version)
{
    return std::to_string(version[0]) + '.' + std::to_string(version[1]) + '.' +
           std::to_string(version[2]);
}

/// Of a library with a fault that the driver guards against, or may.
Finding judgeGuarded(const std::string& library, const LibraryVersion& version, Guards guards)
{
    const std::string fault = library + ' ' + textOf(version) + " fails when cameras leave";
    return guards == Guards::InEffect
               ? Finding{library, Verdict::Good, fault + "; the driver guards against that", {}}
               : Finding{library,
                         Verdict::Unknown,
                         fault + ", where the driver does not guard against that",
                         {}};
}

Finding judgeLibusb(const LibraryVersion& version, Guards guards)
{
    const std::string library = "libusb";
    if (version == LibraryVersion{}) {
        return {library, Verdict::Unknown, "libusb cannot be loaded",
                "install the package libusb-1.0-0"};
    }
    if (version >= LibraryVersion{1, 0, 27}) {
        return {library, Verdict::Good, "libusb " + textOf(version), {}};
    }
    if (guards != Guards::Missing) {
        return judgeGuarded(library, version, guards);
    }
    return {library, Verdict::Warning,
            "libusb " + textOf(version) +
                " can abort the program when a camera is unplugged while it is open; 1.0.27 and "
                "later do not",
            "where cameras are unplugged while in use, install libusb 1.0.27 or later"};
}

Finding judgeLibuvc(const LibraryVersion& version, Guards guards)
{
    const std::string library = "libuvc";
    if (version == LibraryVersion{}) {
        return {library, Verdict::Unknown, "libuvc cannot be loaded, or hides its version",
                "install the package libuvc0"};
    }
    if (version > LibraryVersion{0, 0, 6}) {
        return {library, Verdict::Good, "libuvc " + textOf(version), {}};
    }
    if (guards != Guards::Missing) {
        Finding finding = judgeGuarded(library, version, guards);
        finding.message += "; frames of more than 16 MiB are refused";
        return finding;
    }
    return {library, Verdict::Warning,
            "libuvc " + textOf(version) +
                " can wait for ever when a stream stops after its camera was unplugged or the "
                "usbfs memory limit was met, and takes frames of up to 16 MiB only",
            "stop the stream before unplugging; keep the usbfs memory limit above what the "
            "transfers take"};
}

} // namespace

const char* verdictName(Verdict verdict)
{
    switch (verdict) {
    case Verdict::Good:
        return "ok";
    case Verdict::Warning:
        return "warning";
    case Verdict::Problem:
        return "problem";
    case Verdict::Unknown:
        break;
    }
    return "unknown";
}

std::vector<Finding> judgeBus(const std::vector<BusCamera>& cameras)
{
    if (cameras.empty()) {
        std::string message = "no device ";
        message += cameraIds;
        message += " is on the bus";
        return {{"bus", Verdict::Problem, message,
                 "check cable, supply and hub; 'lsusb' lists what is on the bus"}};
    }
    std::vector<Finding> findings{
        {"bus", Verdict::Good, "cameras on the bus: " + std::to_string(cameras.size()), {}}};
    for (const BusCamera& camera : cameras) {
        findings.push_back(judgeAccess(camera));
        findings.push_back(judgeKernelDrivers(camera));
        findings.push_back(judgeUse(camera));
    }
    return findings;
}

std::optional<int> transferMemoryLimit(const std::string& root)
{
    const int limit = readNumber(root + "/sys/module/usbcore/parameters/usbfs_memory_mb", 10);
    return limit < 0 ? std::nullopt : std::optional(limit);
}

Finding judgeSpeed(const BusCamera& camera)
{
    const char* const subject = "usb-speed";
    if (camera.speed().empty()) {
        return {subject,
                Verdict::Unknown,
                "the speed of the camera's connection at " + camera.port + " cannot be read",
                {}};
    }
    const std::string connection =
        "the camera at " + camera.port + " is connected at " + camera.speed();
    const std::optional<LinkRate> rate = linkRate(camera.descriptors, camera.megabits);
    if (!rate || rate->carried >= rate->offered) {
        return {subject, Verdict::Good, connection, {}};
    }
    const auto whole = [](double number) { return std::to_string(std::lround(number)); };
    return {subject, Verdict::Warning,
            connection + ", which carries about " + whole(std::floor(rate->carried)) +
                " frames/s of " + std::to_string(rate->width) + " x " +
                std::to_string(rate->height) + "; it offers " + whole(rate->offered),
            "plug it into a USB 3 port, with a cable for USB 3"};
}

std::optional<Finding> judgeAutosuspend(const BusCamera& camera, const std::string& root)
{
    const char* const subject = "autosuspend";
    const std::string file = "/sys/bus/usb/devices/" + camera.port + "/power/control";
    const std::string control = readWord(root + file);
    if (control.empty()) {
        return std::nullopt;
    }
    if (control != "auto") {
        return Finding{
            subject, Verdict::Good, "the kernel does not suspend the camera at " + camera.port, {}};
    }
    return Finding{subject, Verdict::Warning,
                   "the kernel suspends the camera at " + camera.port +
                       " while no program uses it; one that does not wake up is lost until it is "
                       "replugged",
                   "echo on | sudo tee " + file +
                       "\nfor good: leave the camera out in the settings of the program that saves "
                       "power"};
}

Finding judgeTransferMemory(const std::vector<BusCamera>& cameras, std::optional<int> limitMiB)
{
    const char* const subject = "usbfs-memory";
    std::int64_t needed = 0;
    auto basis = SizeBasis::Descriptors;
    for (const BusCamera& camera : cameras) {
        const TransferMemory memory = transferMemory(camera.descriptors, camera.payloadBytes);
        needed += memory.bytes;
        basis = std::max(basis, memory.basis);
    }
    if (needed == 0) {
        return {
            subject, Verdict::Unknown, "no camera shows how much memory its transfers take", {}};
    }
    const std::int64_t neededMiB = (needed + bytesPerMiB - 1) / bytesPerMiB;
    const std::string need =
        (basis == SizeBasis::FrameSize ? "payloads of whole frames take " : "the transfers take ") +
        std::to_string(neededMiB) + " MiB";
    if (!limitMiB) {
        return {subject, Verdict::Unknown, need + "; the limit of usbfs cannot be read", {}};
    }
    const std::string allowed = "; usbfs allows " + std::to_string(*limitMiB) + " MiB";
    if (*limitMiB == 0) {
        return {subject, Verdict::Good, need + "; usbfs has no limit", {}};
    }
    if (neededMiB <= *limitMiB) {
        return {subject, Verdict::Good, need + allowed, {}};
    }
    const std::string wanted = std::to_string(neededMiB);
    if (basis == SizeBasis::FrameSize) {
        return {subject, Verdict::Unknown,
                "not every camera could be asked how large its payloads are: usbfs allows " +
                    std::to_string(*limitMiB) + " MiB, which most keep within; " + need,
                "to know it, end the programs that use cameras, and run this again"};
    }
    return {subject, basis == SizeBasis::Descriptors ? Verdict::Problem : Verdict::Warning,
            need + allowed + "; above it a stream can fail to start, or hang when it is stopped",
            "echo " + wanted +
                " | sudo tee /sys/module/usbcore/parameters/usbfs_memory_mb\n"
                "for good: usbcore.usbfs_memory_mb=" +
                wanted + " on the kernel's command line"};
}

Guards guardsFrom(const std::string& answer)
{
    if (answer.empty()) {
        return Guards::Unknown;
    }
    return answer == "in effect" || answer == "not needed" ? Guards::InEffect : Guards::Missing;
}

Finding judgeClock(const std::optional<SystemClock>& clock)
{
    const char* const subject = "clock";
    if (!clock) {
        return {subject,
                Verdict::Unknown,
                "the system does not let this program ask whether its clock is synchronised",
                {}};
    }
    const std::string tai =
        clock->taiOffset.count() == 0
            ? "; the offset of TAI is not known"
            : "; TAI is " + std::to_string(clock->taiOffset.count()) + " s ahead of UTC";
    if (!clock->isSynchronised) {
        return {subject, Verdict::Warning,
                "the system clock is not synchronised: times of day of frames may be wrong, their "
                "intervals are right" +
                    tai,
                "run a time service, such as chrony or systemd-timesyncd"};
    }
    constexpr std::chrono::milliseconds muchForFrames(100);
    const bool isFarOff = clock->largestError > muchForFrames;
    return {
        subject, isFarOff ? Verdict::Warning : Verdict::Good,
        "the system clock is synchronised, by its own estimate within " +
            std::to_string(clock->largestError.count() / 1000) + " ms" + tai,
        isFarOff
            ? "where times of day of frames are to be closer, ask a nearer time server, or wait "
              "until the time service has settled"
            : ""};
}

Finding judgeGuards(const std::string& answer)
{
    const char* const subject = "guards";
    switch (guardsFrom(answer)) {
    case Guards::InEffect:
        return {subject,
                Verdict::Good,
                "the driver guards this process against faults of libusb and libuvc",
                {}};
    case Guards::Missing:
        return {subject, Verdict::Warning,
                "the driver cannot guard this process against faults of libusb and libuvc: " +
                    answer,
                "where cameras are unplugged while in use, install libusb 1.0.27 and libuvc 0.0.7 "
                "or later"};
    case Guards::Unknown:
        break;
    }
    return {subject,
            Verdict::Unknown,
            "the driver was not asked whether it guards against faults of libusb and libuvc",
            {}};
}

std::vector<Finding> judgeLibraries(const LibraryVersions& versions, Guards guards)
{
    return {judgeLibusb(versions.libusb, guards), judgeLibuvc(versions.libuvc, guards)};
}

Finding judgePlugin(const PluginInspection& inspection)
{
    const char* const subject = "plugin";
    if (inspection.fault != PluginFault::None) {
        return {subject, Verdict::Problem, inspection.message, inspection.remedy()};
    }
    return {subject,
            Verdict::Good,
            inspection.path + ", built for Qt " + inspection.qtVersion +
                "; this program runs with Qt " + runningQtVersion(),
            {}};
}

Finding judgeEnumeration(int opened, std::size_t onBus)
{
    const char* const subject = "enumeration";
    const std::string message =
        "the driver opened " + std::to_string(opened) + " of " + std::to_string(onBus) + " cameras";
    if (opened >= 0 && static_cast<std::size_t>(opened) >= onBus) {
        return {subject, Verdict::Good, message, {}};
    }
    return {subject, Verdict::Problem, message,
            "close other programs that use a camera, then replug it; two cameras with one serial "
            "count once"};
}

Finding judgeOpening(const BusCamera& camera, bool isOpened)
{
    const char* const subject = "enumeration";
    const std::string name =
        camera.serial.empty() ? camera.port : camera.port + " (" + camera.serial + ')';
    if (isOpened) {
        return {subject, Verdict::Good, "the driver opened the camera at " + name, {}};
    }
    return {subject, Verdict::Problem,
            "the driver could not open the camera at " + name + ", " + camera.node(),
            "replug this camera; try another cable or port if that does not help"};
}

} // namespace zrn
