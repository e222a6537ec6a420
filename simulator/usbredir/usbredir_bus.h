#pragma once

#include "model/bus.h"
#include "usbredir/usbredir_port.h"

#include <filesystem>
#include <memory>
#include <vector>

namespace zrnsim
{

/// A bus for virtual machines: one UNIX socket for each camera, "camera0", "camera1", ... in a
/// folder, on each of which a hypervisor's usbredir device finds the camera as if on a cable.
///
/// A real bus announces each change to the host, so that `isAnnounced` makes no difference here.
class UsbRedirBus final : public Bus
{
public:
    /// Plugs all cameras in. The cameras outlive the bus.
    /// @param folder must exist, its path short enough for UNIX sockets
    /// @throws std::system_error
    UsbRedirBus(CameraList& cameras, const std::filesystem::path& folder);
    ~UsbRedirBus() override;

    void unplug(std::size_t index, bool isAnnounced) override;
    void plug(std::size_t index, std::optional<std::uint64_t> serial, bool isAnnounced) override;
    bool isPlugged(std::size_t index) const override;

    /// Only the guest knows which bus and address it gave to the camera: its socket's path.
    std::string location(std::size_t index) const override;

private:
    CameraList& m_cameras;
    std::vector<std::unique_ptr<UsbRedirPort>> m_ports;
};

} // namespace zrnsim
