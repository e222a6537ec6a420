#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <random>
#include <span>
#include <vector>

struct libusb_config_descriptor;

namespace fuzz
{

class DescriptorTree;

/// A libusb with one device on the bus, which reports any configuration, answers every control
/// request with noise, and takes no stream transfer.
class OneDeviceBus
{
public:
    static OneDeviceBus& instance();

    /// Plugs in a device. @param seed of the noise
    void plug(std::span<const std::uint8_t> configuration, std::uint32_t seed);

    libusb_config_descriptor* getConfiguration();
    int controlTransfer(std::uint8_t requestType, std::span<std::uint8_t> data);
    /// Waits until a handle is closed, for a moment at most.
    void waitForClose();
    void noteClose();

private:
    OneDeviceBus();
    ~OneDeviceBus();

    std::vector<std::uint8_t> m_configuration;
    std::vector<std::unique_ptr<DescriptorTree>> m_trees; ///< handed out since the plugging in
    std::minstd_rand m_noise;
    std::mutex m_mutex;
    std::condition_variable m_closed;
};

} // namespace fuzz
