#include "client/payload_probe.h"

#include "client/usb_transfers.h"

#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace zrn
{
namespace
{

// A request of the class to an interface, device to host, as UVC 1.x numbers it.
constexpr std::uint8_t readFromInterface = 0xa1;
constexpr std::uint8_t getMaximum = 0x83;
constexpr std::uint16_t probeControl = 0x0100;
constexpr std::uint32_t timeoutMilliseconds = 500;

std::string readProbeMaximum(int node, std::uint8_t interface)
{
    std::string block(probeBlockBytes, '\0');
    usbdevfs_ctrltransfer request{readFromInterface,
                                  getMaximum,
                                  probeControl,
                                  interface,
                                  static_cast<std::uint16_t>(block.size()),
                                  timeoutMilliseconds,
                                  block.data()};
    const int length = ::ioctl(node, USBDEVFS_CONTROL, &request);
    block.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    return block;
}

std::optional<std::int64_t> askPayloadBytes(int node, std::uint8_t interface)
{
    // The kernel refuses the claim while anybody else holds the interface.
    unsigned claimed = interface;
    if (::ioctl(node, USBDEVFS_CLAIMINTERFACE, &claimed) != 0) {
        return std::nullopt;
    }
    const std::string block = readProbeMaximum(node, interface);
    ::ioctl(node, USBDEVFS_RELEASEINTERFACE, &claimed);
    return payloadBytesOf(block);
}

} // namespace

std::optional<std::int64_t> askPayloadBytes(const BusCamera& camera)
{
    if (camera.use == Use::Held ||
        transferMemory(camera.descriptors, std::nullopt).basis != SizeBasis::FrameSize) {
        return std::nullopt;
    }
    const std::optional<std::uint8_t> interface = videoStreamInterface(camera.descriptors);
    const int node = interface ? ::open(camera.node().c_str(), O_RDWR | O_CLOEXEC) : -1;
    if (node < 0) {
        return std::nullopt;
    }
    const std::optional<std::int64_t> bytes = askPayloadBytes(node, *interface);
    ::close(node);
    return bytes;
}

} // namespace zrn
