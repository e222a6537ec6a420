#include "camera.h"

#include "bus.h"
#include "errors.h"
#include "log.h"
#include "module.h"
#include "waiting.h"

#include <functional>
#include <pybind11/stl.h>

namespace zrnpy
{

using Microseconds = std::chrono::microseconds;

std::shared_ptr<zrn::Camera> Camera::get() const
{
    std::shared_ptr<zrn::Camera> camera = m_camera.get();
    if (!camera) {
        throw zrn::Error(zrn::Error::Kind::NoCamera, "Closed", "the camera is closed",
                         "open it again");
    }
    return camera;
}

void Camera::close()
{
    std::shared_ptr<zrn::Camera> camera = m_camera.take();
    if (camera) {
        unlocked([&camera, this] {
            m_streamEnds->wait();
            camera.reset();
        });
    }
}

namespace
{

/// Runs an operation, which owns what it uses, so that Ctrl-C ends the wait for it. @throws Gone
/// when it failed, and the camera does not answer
template <typename Operation>
auto ask(const Camera& owner, Operation operation)
{
    return interruptible([camera = owner.get(), operation] {
        return orGone(*camera, [&] { return std::invoke(operation, *camera); });
    });
}

/// Says who holds the camera, if that is why it could not be opened. @throws zrn::Error
[[noreturn]] void refuseOpening(const zrn::Error& error, const zrn::Driver& driver,
                                const zrn::CameraChoice& choice)
{
    if (error.name() == "InUse" || error.name() == "NoneFree") {
        for (const zrn::BusCamera& camera : driver.bus().camerasAndHolders()) {
            const bool isMeant = (choice.serial.empty() || camera.serial.empty() ||
                                  choice.serial == camera.serial) &&
                                 (choice.port.empty() || choice.port == camera.port);
            if (isMeant && camera.use == zrn::Use::Held) {
                throw Busy(error, camera.holders);
            }
        }
    }
    throw error;
}

std::unique_ptr<Camera> open(const std::string& serial, const std::string& port, int index,
                             double patience, const std::string& plugin)
{
    claimDriver();
    const zrn::CameraChoice choice{zrn::serialFromUser(serial), port, index};
    const auto longest = std::chrono::milliseconds(static_cast<std::int64_t>(patience * 1000.0));
    takeDriversLines();
    const std::stop_source stop;
    auto camera = interruptible(
        [choice, longest, plugin, stop] {
            const std::shared_ptr<zrn::Driver> driver = zrn::Driver::load(plugin);
            try {
                return zrn::Camera::open(driver, choice, {longest, {}, stop.get_token()});
            } catch (const zrn::Error& error) {
                refuseOpening(error, *driver, choice);
            }
        },
        stop);
    useBus(camera->driver().bus());
    return std::make_unique<Camera>(std::move(camera));
}

template <typename Number>
zrn::Value numberFrom(const std::string& key, py::handle object)
{
    py::detail::make_caster<Number> caster;
    if (!caster.load(object, true)) {
        throw zrn::Error("setting " + key + " to " + py::cast<std::string>(py::str(object)),
                         ErrorCode::BadArgument);
    }
    return py::detail::cast_op<Number>(caster);
}

/// The value in the type that the driver wants.
zrn::Value valueFrom(const std::string& key, py::handle object)
{
    using enum zrn::PropertyType;
    const zrn::PropertyInfo* const info = zrn::findProperty(key);
    const bool isFlag = py::isinstance<py::bool_>(object);
    if (info == nullptr || info->type == Text || info->type == Record) {
        return py::cast<std::string>(py::str(object));
    }
    switch (info->type) {
    case Bool:
        return isFlag ? zrn::Value(object.cast<bool>()) : numberFrom<bool>(key, object);
    case Double:
        return numberFrom<double>(key, object);
    case UInt:
        return numberFrom<std::uint32_t>(key, object);
    default:
        return numberFrom<std::int32_t>(key, object);
    }
}

py::object toPython(const zrn::Value& value)
{
    if (const auto* record = std::get_if<std::vector<zrn::Field>>(&value)) {
        py::dict fields;
        for (const zrn::Field& field : *record) {
            fields[py::str(field.name)] = toPython(field.value);
        }
        return fields;
    }
    return std::visit(
        [](const auto& held) -> py::object {
            using Held = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, std::monostate> ||
                          std::is_same_v<Held, std::vector<zrn::Field>>) {
                return py::none();
            } else {
                return py::cast(held);
            }
        },
        value);
}

py::object property(const Camera& camera, const std::string& key)
{
    return toPython(ask(camera, [key](zrn::Camera& asked) { return asked.property(key); }));
}

void setProperty(const Camera& camera, const std::string& key, py::handle object)
{
    const zrn::Value value = valueFrom(key, object);
    ask(camera, [key, value](zrn::Camera& asked) { asked.setProperty(key, value); });
}

void setOrder(const Camera& camera, const std::string& order)
{
    if (order != "oldest" && order != "newest") {
        throw py::value_error("order is \"oldest\" or \"newest\"");
    }
    ask(camera, [order](zrn::Camera& asked) {
        asked.setOrder(order == "newest" ? zrn::FrameOrder::Newest : zrn::FrameOrder::Oldest);
    });
}

std::string orderOf(const Camera& camera)
{
    return ask(camera, &zrn::Camera::order) == zrn::FrameOrder::Newest ? "newest" : "oldest";
}

std::pair<std::int64_t, std::int64_t> exposureRange(const Camera& camera)
{
    const auto range = ask(camera, &zrn::Camera::exposureRange);
    return {range.minimum.count(), range.maximum.count()};
}

std::pair<std::uint32_t, std::uint32_t> gainRange(const Camera& camera)
{
    const auto range = ask(camera, &zrn::Camera::gainRange);
    return {range.minimum, range.maximum};
}

void addProperties(py::module_& module)
{
    using zrn::PropertyInfo;
    py::class_<PropertyInfo>(module, "PropertyInfo", "What is known about a property.")
        .def_readonly("key", &PropertyInfo::key, "Its name for the driver, as \"GBGain\".")
        .def_readonly("label", &PropertyInfo::label, "Its name for people.")
        .def_property_readonly(
            "type", [](const PropertyInfo& info) { return zrn::typeName(info.type); },
            "\"int\", \"unsigned\", \"bool\", \"double\", \"text\" or \"record\".")
        .def_readonly("writable", &PropertyInfo::writable, "Whether it can be set.")
        .def_property_readonly(
            "range",
            [](const PropertyInfo& info) {
                return info.minimum == info.maximum
                           ? std::nullopt
                           : std::optional(std::pair(info.minimum, info.maximum));
            },
            "Smallest and largest value, or None.")
        .def_readonly("unit", &PropertyInfo::unit, "Empty when it has none.")
        .def_readonly("tip", &PropertyInfo::tip, "What it is, in one sentence.")
        .def("__repr__", [](const PropertyInfo& info) {
            const std::string range = zrn::rangeText(info);
            return std::string("<PropertyInfo ") + info.key + ": " + info.tip +
                   (range.empty() ? "" : ", " + range) + ">";
        });
    py::list all;
    for (const PropertyInfo& info : zrn::Camera::properties()) {
        all.append(py::cast(info, py::return_value_policy::reference));
    }
    module.attr("properties") = all;
}

} // namespace

void addCameras(py::module_& module)
{
    addProperties(module);
    py::class_<Camera>(module, "Camera", "A connected camera.")
        .def("close", &Camera::close)
        .def_property_readonly("serial",
                               [](const Camera& camera) { return camera.get()->facts().serial; })
        .def_property_readonly("port", [](const Camera& camera) { return camera.get()->port(); })
        .def_property_readonly("width",
                               [](const Camera& camera) { return camera.get()->facts().width; })
        .def_property_readonly("height",
                               [](const Camera& camera) { return camera.get()->facts().height; })
        .def_property(
            "exposure",
            [](const Camera& camera) { return ask(camera, &zrn::Camera::exposure).count(); },
            [](const Camera& camera, std::int64_t exposure) {
                ask(camera,
                    [exposure](zrn::Camera& asked) { asked.setExposure(Microseconds(exposure)); });
            })
        .def_property_readonly("exposure_range", exposureRange)
        .def_property(
            "gain", [](const Camera& camera) { return ask(camera, &zrn::Camera::gain); },
            [](const Camera& camera, std::uint32_t gain) {
                ask(camera, [gain](zrn::Camera& asked) { asked.setGain(gain); });
            })
        .def_property_readonly("gain_range", gainRange)
        .def_property("order", orderOf, setOrder)
        .def("property", property, py::arg("key"))
        .def("set_property", setProperty, py::arg("key"), py::arg("value"))
        .def(
            "run",
            [](const Camera& camera, const std::string& command) {
                ask(camera, [command](zrn::Camera& asked) { asked.run(command); });
            },
            py::arg("command"))
        .def("online", [](const Camera& camera) {
            return ask(camera, [](zrn::Camera& asked) { return asked.status().isOnline; });
        });
    module.def("open", open, py::arg("serial"), py::arg("port"), py::arg("index"),
               py::arg("patience"), py::arg("plugin"));
}

} // namespace zrnpy
