#include "configuration_repair.h"

#include "descriptor_repair.h"

#include <algorithm>
#include <vector>

namespace usbguards
{
namespace
{

/// libusb hands out a configuration as constant, but makes it afresh for each caller.
DescriptorBlocks blocksOf(const libusb_interface_descriptor& setting)
{
    const int size = std::max(setting.extra_length, 0);
    return {const_cast<unsigned char*>(setting.extra), setting.extra ? std::size_t(size) : 0};
}

bool isVideoInterface(const libusb_interface_descriptor& setting, int subclass)
{
    constexpr int videoClass = 14;
    return setting.bInterfaceClass == videoClass && setting.bInterfaceSubClass == subclass;
}

} // namespace

bool repairConfiguration(libusb_config_descriptor& configuration)
{
    constexpr int controlSubclass = 1;
    constexpr int streamingSubclass = 2;

    // libuvc takes the numbers in the control header for positions, and the streaming interface's
    // own number as well.
    std::vector<std::uint8_t> streamingInterfaces;
    for (std::uint8_t i = 0; i < configuration.bNumInterfaces; ++i) {
        const libusb_interface& interface = configuration.interface[i];
        if (interface.num_altsetting > 0 &&
            isVideoInterface(interface.altsetting[0], streamingSubclass) &&
            interface.altsetting[0].bInterfaceNumber < configuration.bNumInterfaces) {
            streamingInterfaces.push_back(i);
        }
    }
    bool isVideo = false;
    bool isComplete = false;
    for (std::uint8_t i = 0; i < configuration.bNumInterfaces; ++i) {
        const libusb_interface& interface = configuration.interface[i];
        for (int j = 0; j < interface.num_altsetting; ++j) {
            auto& setting = const_cast<libusb_interface_descriptor&>(interface.altsetting[j]);
            const DescriptorBlocks blocks = blocksOf(setting);
            if (isVideoInterface(setting, controlSubclass)) {
                const std::size_t sound = repairControlBlocks(blocks, streamingInterfaces);
                setting.extra_length = static_cast<int>(sound);
                // libuvc reads the first setting of the first control interface.
                if (!isVideo) {
                    isComplete = areComplete(blocks.first(sound));
                }
                isVideo = true;
            } else if (isVideoInterface(setting, streamingSubclass)) {
                setting.extra_length = static_cast<int>(repairStreamingBlocks(blocks));
            }
        }
    }
    return !isVideo || isComplete;
}

} // namespace usbguards
