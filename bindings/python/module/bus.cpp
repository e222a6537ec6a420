#include "bus.h"

#include "module.h"
#include "waiting.h"

#include <pybind11/stl.h>
#include <unistd.h>

namespace zrnpy
{
namespace
{

std::string describeCamera(const zrn::BusCamera& camera)
{
    std::string text = "<CameraInfo " + (camera.serial.empty() ? "?" : camera.serial) +
                       " at port " + camera.port + ", " + zrn::nameOf(camera.use);
    const std::string holder = camera.holderText();
    return text + (holder.empty() ? "" : " by " + holder) + ">";
}

/// Readers with the process that they belong to: a forked child could find their locks held.
struct OwnBus {
    pid_t process = 0;
    zrn::BusReaders readers;
};
OwnBus ownBus;

} // namespace

void useBus(const zrn::BusReaders& readers)
{
    ownBus = {::getpid(), readers};
}

zrn::BusReaders currentBus()
{
    return ownBus.process == ::getpid() ? ownBus.readers : zrn::busReaders();
}

void addBus(py::module_& module)
{
    using zrn::BusCamera;
    py::class_<BusCamera>(module, "CameraInfo", "A camera on the bus, as list() found it.")
        .def_readonly("port", &BusCamera::port, "Place of its socket, as \"1-2.3\".")
        .def_readonly("serial", &BusCamera::serial,
                      "As \"ZR4711\"; empty until the camera was opened once since it was plugged "
                      "in.")
        .def_property_readonly("node", &BusCamera::node, "As \"/dev/bus/usb/001/002\".")
        .def_property_readonly("speed", &BusCamera::speed, "As \"5 Gbit/s\"; empty if unknown.")
        .def_readonly("accessible", &BusCamera::accessible, "Whether this user may open it.")
        .def_property_readonly(
            "use", [](const BusCamera& camera) { return zrn::nameOf(camera.use); },
            "\"free\"; \"open\", which others can still open; or \"held\".")
        .def_property_readonly(
            "holders",
            [](const BusCamera& camera) {
                std::vector<std::pair<int, std::string>> holders;
                for (const zrn::Holder& holder : camera.holders) {
                    holders.emplace_back(holder.pid, holder.program);
                }
                return holders;
            },
            "Who uses it: pairs of process id and program, as far as this user may see.")
        .def_property_readonly("holder", &BusCamera::holderText,
                               "The same as text: \"zrnview (pid 4711)\".")
        .def("__repr__", describeCamera);
    module.def(
        "cameras", [] { return unlocked(currentBus().camerasAndHolders); },
        "The cameras on the bus.");
}

} // namespace zrnpy
