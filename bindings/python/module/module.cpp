#include "module.h"

PYBIND11_MODULE(_zrncamera, module)
{
    module.doc() = "The compiled half of zrncamera, which is the module to import.";
    zrnpy::addErrors(module);
    zrnpy::addBus(module);
    zrnpy::addFrames(module);
    zrnpy::addCameras(module);
    zrnpy::addStreams(module);
    zrnpy::addWatches(module);
    zrnpy::addRecordings(module);
}
