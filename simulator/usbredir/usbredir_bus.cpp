#include "usbredir/usbredir_bus.h"

namespace zrnsim
{

UsbRedirBus::UsbRedirBus(CameraList& cameras, const std::filesystem::path& folder)
    : m_cameras(cameras)
{
    for (std::size_t i = 0; i < m_cameras.size(); ++i) {
        m_ports.push_back(
            std::make_unique<UsbRedirPort>(*m_cameras[i], folder / ("camera" + std::to_string(i))));
    }
}

UsbRedirBus::~UsbRedirBus()
{
    for (const auto& camera : m_cameras) {
        camera->detach();
    }
}

void UsbRedirBus::unplug(std::size_t index, bool)
{
    m_ports.at(index)->unplug();
}

void UsbRedirBus::plug(std::size_t index, std::optional<std::uint64_t> serial, bool)
{
    m_ports.at(index)->plug(serial);
}

bool UsbRedirBus::isPlugged(std::size_t index) const
{
    return m_ports.at(index)->isPlugged();
}

std::string UsbRedirBus::location(std::size_t index) const
{
    const UsbRedirPort& port = *m_ports.at(index);
    return port.isPlugged() ? port.path().string() : "";
}

} // namespace zrnsim
