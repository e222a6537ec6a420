#pragma once

#include <libusb-1.0/libusb.h>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace fuzz
{

/// Bytes that end where memory ends: reading beyond them is fatal, also in a library that carries
/// no instrumentation.
class CliffBytes
{
public:
    explicit CliffBytes(std::span<const std::uint8_t> bytes);
    ~CliffBytes();
    CliffBytes(const CliffBytes&) = delete;
    CliffBytes& operator=(const CliffBytes&) = delete;

    [[nodiscard]] const std::uint8_t* data() const { return m_data; }
    [[nodiscard]] int size() const { return m_size; }

private:
    void* m_pages;
    std::size_t m_length;
    std::uint8_t* m_data;
    int m_size;
};

/// What libusb makes of a configuration descriptor: interfaces with their settings, the endpoints
/// of these, and in between the descriptors that it does not know.
class DescriptorTree
{
public:
    explicit DescriptorTree(std::span<const std::uint8_t> raw);

    [[nodiscard]] libusb_config_descriptor* configuration() { return &m_configuration; }

private:
    struct Setting {
        libusb_interface_descriptor descriptor{};
        std::vector<std::uint8_t> extra;
        std::vector<libusb_endpoint_descriptor> endpoints;
    };
    struct Interface {
        std::uint8_t number;
        std::vector<Setting> settings;
        std::vector<libusb_interface_descriptor> descriptors;
    };

    void read(std::span<const std::uint8_t> raw);
    void link();

    std::vector<Interface> m_interfaces;
    std::vector<libusb_interface> m_links;
    std::vector<std::unique_ptr<CliffBytes>> m_extras;
    libusb_config_descriptor m_configuration{};
};

} // namespace fuzz
