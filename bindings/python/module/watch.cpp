#include "bus.h"
#include "client/bus_watch.h"
#include "module.h"
#include "process.h"
#include "waiting.h"

namespace zrnpy
{
namespace
{

using zrn::BusEvent;
using zrn::BusWatch;
using Clock = std::chrono::steady_clock;

const char* nameOf(BusEvent::Kind kind)
{
    switch (kind) {
    case BusEvent::Kind::Left:
        return "left";
    case BusEvent::Kind::Arrived:
        return "arrived";
    case BusEvent::Kind::Changed:
        break;
    }
    return "changed";
}

/// A watch, whose locks a forked child may have found held.
class Watch
{
public:
    [[nodiscard]] py::object next(double seconds) const
    {
        const std::shared_ptr<BusWatch> watch = m_watch.get();
        const auto end = Clock::now() + std::chrono::duration<double>(seconds);
        for (;;) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
            const auto slice = std::clamp(left, std::chrono::milliseconds(0), waitSlice);
            if (auto event = unlocked([&] { return watch->next(slice); })) {
                return py::cast(std::move(*event));
            }
            handleSignals();
            if (left <= waitSlice) {
                return py::none();
            }
        }
    }
    [[nodiscard]] int file() const { return m_watch.get()->descriptor(); }

private:
    ProcessBound<BusWatch> m_watch{std::make_shared<BusWatch>(currentBus())};
};

} // namespace

void addWatches(py::module_& module)
{
    py::class_<BusEvent>(module, "Change", "A camera that came, went, or changed.")
        .def_property_readonly(
            "kind", [](const BusEvent& event) { return nameOf(event.kind); },
            "\"arrived\": was plugged in, or was there when the watch began; \"left\"; "
            "\"changed\": in its access, use or serial.")
        .def_readonly("camera", &BusEvent::camera,
                      "As it is, without its holders; as it was last, if it has left.")
        .def("__repr__", [](const BusEvent& event) {
            return std::string("<Change: ") + nameOf(event.kind) + " " + event.camera.serial +
                   " at port " + event.camera.port + ">";
        });
    py::class_<Watch>(module, "Watch", "A watch on the bus.")
        .def("next", &Watch::next, py::arg("seconds"))
        .def("fileno", &Watch::file);
    module.def("watch_bus", [] { return std::make_unique<Watch>(); });
}

} // namespace zrnpy
