#pragma once

#include <pybind11/pybind11.h>

namespace zrnpy
{

namespace py = pybind11;

void addErrors(py::module_& module);
void addBus(py::module_& module);
void addFrames(py::module_& module);
void addCameras(py::module_& module);
void addStreams(py::module_& module);
void addWatches(py::module_& module);
void addRecordings(py::module_& module);

} // namespace zrnpy
