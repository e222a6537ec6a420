#include "frame.h"

#include "module.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

namespace zrnpy
{
namespace
{

using Array = py::array_t<std::uint8_t>;

const zrn::Image& imageOf(const Frame& frame, char letter)
{
    const zrn::Image* const image = frame.get().image(letter);
    if (image == nullptr) {
        throw py::attribute_error(std::string("this frame has no image ") + letter +
                                  "; `images` has those that it has");
    }
    return *image;
}

/// A view of the driver's block, which keeps the frame, and so the block.
Array viewOf(const py::object& self, const zrn::Image& image)
{
    const zrn::Frame& frame = self.cast<const Frame&>().get();
    Array view({static_cast<py::ssize_t>(frame.height), static_cast<py::ssize_t>(frame.width)},
               image.pixels().data(), self);
    py::detail::array_proxy(view.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
    return view;
}

template <char letter>
Array imageOfSelf(const py::object& self)
{
    return viewOf(self, imageOf(self.cast<const Frame&>(), letter));
}

/// When it began to arrive, or, where the driver does not tell, when it had.
std::chrono::nanoseconds timeOf(const zrn::Frame& frame)
{
    const bool isTold = frame.times.source != zrn::FrameTimes::Source::Grab;
    return (isTold ? frame.times.firstPayload : frame.arrival).time_since_epoch();
}

const std::uint8_t* memoryOf(const Frame& frame)
{
    return frame.get().stored.front().bytes.data();
}

std::string describeFrame(const Frame& frame)
{
    const zrn::Frame& held = frame.get();
    std::string text = "<Frame " + std::to_string(held.step.number) + ", ";
    for (const zrn::Image& image : held.images()) {
        text += image.letter;
    }
    text += " of " + std::to_string(held.width) + "x" + std::to_string(held.height);
    const std::uint32_t missing = held.step.missing + held.dropped;
    return text + (missing > 0 ? ", " + std::to_string(missing) + " missing before it>" : ">");
}

} // namespace

void addFrames(py::module_& module)
{
    py::class_<Frame>(module, "Frame", R"(One frame of a camera: one or two images, taken at once.

The images are arrays of uint8 with the shape (height, width), views of the memory that the
driver unpacked them to: nothing is copied. They cannot be written, and are valid as long as
they live, also when stream and camera are closed; as many may be kept as memory holds.
OpenCV's drawing functions write to them all the same: copy first.)")
        .def_property_readonly("a", imageOfSelf<'A'>,
                               "Image A, uint8 of shape (height, width). AttributeError where the "
                               "frame has none, as one of a sensor of type 6 whose image A is a "
                               "marker and not a picture.")
        .def_property_readonly("b", imageOfSelf<'B'>,
                               "Image B, uint8 of shape (height, width). AttributeError where the "
                               "frame has none, as those of sensors of type 5.")
        .def_property_readonly(
            "images",
            [](const py::object& self) {
                py::dict images;
                for (const zrn::Image& image : self.cast<const Frame&>().get().images()) {
                    images[py::str(std::string(1, image.letter))] = viewOf(self, image);
                }
                return images;
            },
            "All images by letter, \"A\" before \"B\".")
        .def(
            "address",
            [](const Frame& frame, char letter) {
                return reinterpret_cast<std::uintptr_t>(imageOf(frame, letter).bytes.data());
            },
            py::arg("letter"), "Address of an image's memory, for libraries that take pointers.")
        .def_property_readonly(
            "width", [](const Frame& frame) { return frame.get().width; }, "Pixels in a row.")
        .def_property_readonly(
            "height", [](const Frame& frame) { return frame.get().height; }, "Rows.")
        .def_property_readonly(
            "number", [](const Frame& frame) { return frame.get().step.number; },
            "Frame number that the camera gave it. A frame shows its bytes up to and with the "
            "first one above 127: the upper ones may be wrong from the start of a stream until the "
            "first frame that shows them all, where the number jumps and `missing` is 0.")
        .def_property_readonly(
            "missing",
            [](const Frame& frame) { return frame.get().step.missing + frame.get().dropped; },
            "Frame numbers that were skipped since the frame before that the stream gave.")
        .def_property_readonly(
            "dropped", [](const Frame& frame) { return frame.get().dropped; },
            "Of these, frames that were not taken in time, and made room for others in the "
            "stream's queue.")
        .def_property_readonly(
            "time",
            [](const Frame& frame) {
                return std::chrono::duration<double>(timeOf(frame.get())).count();
            },
            "When it began to arrive, in seconds on the clock of time.monotonic(); in a recording "
            "of version 1, when it had arrived, since the first frame.")
        .def_property_readonly(
            "time_ns", [](const Frame& frame) { return timeOf(frame.get()).count(); },
            "The same in whole nanoseconds.")
        .def_property_readonly(
            "time_source", [](const Frame& frame) { return zrn::nameOf(frame.get().times.source); },
            "What `time` was taken at: \"payload\", the frame's first bytes; \"hand-over\", the "
            "whole frame; \"grab\", its arrival in this process.")
        .def_property_readonly(
            "exposure_us", [](const Frame& frame) { return frame.get().exposure.count(); },
            "Exposure in microseconds that was set when it was grabbed, which need not be what it "
            "was exposed with when that has just been changed; 0 in a recording of version 1.")
        .def_property_readonly(
            "gain", [](const Frame& frame) { return frame.get().gain; },
            "Gain that was set when it was grabbed, likewise; 0 in a recording of version 1.")
        .def(
            "__eq__",
            [](const Frame& frame, const py::object& other) {
                return py::isinstance<Frame>(other) &&
                       memoryOf(frame) == memoryOf(other.cast<const Frame&>());
            },
            py::arg("other"), "Whether both are views of the same memory.")
        .def("__hash__",
             [](const Frame& frame) { return reinterpret_cast<std::intptr_t>(memoryOf(frame)); })
        .def("__copy__", [](const py::object& self) { return self; })
        .def(
            "__deepcopy__", [](const py::object& self, const py::object&) { return self; },
            py::arg("memo"))
        .def("__repr__", describeFrame);
}

} // namespace zrnpy
