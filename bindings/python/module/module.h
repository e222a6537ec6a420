#pragma once

#include <pybind11/pybind11.h>

namespace zrnpy
{

namespace py = pybind11;

/// Forbids Python to make objects of a class by itself, which would be empty.
inline void forbidEmpty(py::handle type)
{
    reinterpret_cast<PyTypeObject*>(type.ptr())->tp_new = nullptr;
}

void addErrors(py::module_& module);
void addBus(py::module_& module);
void addFrames(py::module_& module);
void addCameras(py::module_& module);
void addStreams(py::module_& module);
void addWatches(py::module_& module);
void addRecordings(py::module_& module);
void addWaiting(py::module_& module);
void addLog(py::module_& module);

} // namespace zrnpy
