#include "usbredir/redirected_endpoints.h"

#include <algorithm>
#include <iterator>

namespace zrnsim
{

namespace
{

constexpr std::size_t endpointTypeOffset = 3;

/// Calls `visit` with each descriptor of a configuration.
template <typename Visit>
void forEachDescriptor(ByteView configuration, Visit visit)
{
    while (configuration.size() >= 2) {
        const std::size_t length = configuration[0];
        if (length < 2 || length > configuration.size()) {
            return;
        }
        visit(configuration.first(length));
        configuration = configuration.subspan(length);
    }
}

} // namespace

usb_redir_interface_info_header interfaceInfo(ByteView configuration)
{
    usb_redir_interface_info_header info{};
    forEachDescriptor(configuration, [&info](ByteView descriptor) {
        const bool isFirstSetting = descriptor[1] == usb::descriptorInterface && descriptor[3] == 0;
        if (!isFirstSetting || info.interface_count == std::size(info.interface)) {
            return;
        }
        const std::uint32_t slot = info.interface_count++;
        info.interface[slot] = descriptor[2];
        info.interface_class[slot] = descriptor[5];
        info.interface_subclass[slot] = descriptor[6];
        info.interface_protocol[slot] = descriptor[7];
    });
    return info;
}

usb_redir_ep_info_header endpointInfo(ByteView configuration, std::uint8_t streamingAlternate)
{
    usb_redir_ep_info_header info{};
    std::fill(std::begin(info.type), std::end(info.type), usb_redir_type_invalid);
    info.type[endpointSlot(0x00)] = usb_redir_type_control;
    info.type[endpointSlot(0x80)] = usb_redir_type_control;

    std::uint8_t interface = 0;
    bool isActive = false;
    forEachDescriptor(configuration, [&](ByteView descriptor) {
        if (descriptor[1] == usb::descriptorInterface) {
            interface = descriptor[2];
            isActive = descriptor[3] ==
                       (interface == topology::streamingInterface ? streamingAlternate : 0);
        } else if (descriptor[1] == usb::descriptorEndpoint && isActive) {
            const std::size_t slot = endpointSlot(descriptor[2]);
            info.type[slot] = descriptor[endpointTypeOffset] & 0x03U;
            info.interval[slot] = descriptor[6];
            info.interface[slot] = interface;
            info.max_packet_size[slot] =
                static_cast<std::uint16_t>(readLittleEndian(descriptor, 4, 2));
        }
    });
    return info;
}

} // namespace zrnsim
