#pragma once

#include "model/camera.h"
#include "model/gadget.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zrnsim
{

/// The cables between the cameras and the host: what a transport offers to tests and scripts.
/// Cameras are numbered from 0 in the order of the command line. Thread safety:
/// thread-safe.
class Bus
{
public:
    Bus() = default;
    virtual ~Bus() = default;
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    /// Pulls the cable. With `isAnnounced` false the host's hotplug machinery hears nothing of it.
    virtual void unplug(std::size_t index, bool isAnnounced) = 0;

    /// Plugs the camera in again, with another serial if one is given.
    virtual void plug(std::size_t index, std::optional<std::uint64_t> serial, bool isAnnounced) = 0;

    virtual bool isPlugged(std::size_t index) const = 0;

    /// Where the host finds the camera, in the transport's terms: "bus:address" where it assigns
    /// these, the socket's path for a virtual machine. Empty when the camera is unplugged.
    virtual std::string location(std::size_t index) const = 0;
};

using CameraList = std::vector<std::unique_ptr<Camera>>;
using GadgetList = std::vector<std::unique_ptr<Gadget>>;

} // namespace zrnsim
