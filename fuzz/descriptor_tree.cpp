#include "descriptor_tree.h"

#include <algorithm>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

namespace fuzz
{

CliffBytes::CliffBytes(std::span<const std::uint8_t> bytes)
    : m_size(static_cast<int>(bytes.size()))
{
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t usable = (bytes.size() + page - 1) / page * page;
    m_length = usable + page;
    m_pages = mmap(nullptr, m_length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    auto* const begin = static_cast<std::uint8_t*>(m_pages);
    mprotect(begin + usable, page, PROT_NONE);
    m_data = begin + usable - bytes.size();
    std::ranges::copy(bytes, m_data);
}

CliffBytes::~CliffBytes()
{
    munmap(m_pages, m_length);
}

DescriptorTree::DescriptorTree(std::span<const std::uint8_t> raw)
{
    read(raw);
    link();
}

void DescriptorTree::read(std::span<const std::uint8_t> raw)
{
    constexpr std::size_t configurationSize = 9;
    constexpr std::size_t interfaceSize = 9;
    constexpr std::size_t endpointSize = 7;
    constexpr std::size_t mostInterfaces = 32; // as libusb
    raw = raw.subspan(std::min(raw.size(), configurationSize));

    Setting* setting = nullptr;
    while (raw.size() >= 2 && raw[0] >= 2 && raw[0] <= raw.size()) {
        const auto descriptor = raw.first(raw[0]);
        raw = raw.subspan(descriptor.size());
        if (descriptor[1] == LIBUSB_DT_INTERFACE && descriptor.size() >= interfaceSize) {
            const std::uint8_t number = descriptor[2];
            auto interface = std::ranges::find(m_interfaces, number, &Interface::number);
            if (interface == m_interfaces.end()) {
                if (m_interfaces.size() == mostInterfaces) {
                    return;
                }
                m_interfaces.push_back({number, {}, {}});
                interface = std::prev(m_interfaces.end());
            }
            setting = &interface->settings.emplace_back();
            std::memcpy(&setting->descriptor, descriptor.data(), interfaceSize);
        } else if (setting && descriptor[1] == LIBUSB_DT_ENDPOINT &&
                   descriptor.size() >= endpointSize) {
            libusb_endpoint_descriptor endpoint{};
            std::memcpy(&endpoint, descriptor.data(), endpointSize);
            setting->endpoints.push_back(endpoint);
        } else if (setting && setting->endpoints.empty()) {
            setting->extra.insert(setting->extra.end(), descriptor.begin(), descriptor.end());
        }
    }
    // A last descriptor that is longer than what is left of it.
    if (setting && setting->endpoints.empty()) {
        setting->extra.insert(setting->extra.end(), raw.begin(), raw.end());
    }
}

void DescriptorTree::link()
{
    for (Interface& interface : m_interfaces) {
        for (Setting& setting : interface.settings) {
            libusb_interface_descriptor& descriptor = setting.descriptor;
            descriptor.bNumEndpoints = static_cast<std::uint8_t>(setting.endpoints.size());
            descriptor.endpoint = setting.endpoints.empty() ? nullptr : setting.endpoints.data();
            if (!setting.extra.empty()) {
                const auto& extra =
                    m_extras.emplace_back(std::make_unique<CliffBytes>(setting.extra));
                descriptor.extra = extra->data();
                descriptor.extra_length = extra->size();
            }
            interface.descriptors.push_back(descriptor);
        }
        m_links.push_back(
            {interface.descriptors.data(), static_cast<int>(interface.descriptors.size())});
    }
    m_configuration.bLength = LIBUSB_DT_CONFIG_SIZE;
    m_configuration.bDescriptorType = LIBUSB_DT_CONFIG;
    m_configuration.bNumInterfaces = static_cast<std::uint8_t>(m_links.size());
    m_configuration.interface = m_links.data();
}

} // namespace fuzz
