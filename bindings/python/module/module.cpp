#include "module.h"

#include <QThread>

PYBIND11_MODULE(_zrncamera, module)
{
    module.doc() = "The compiled half of zrncamera, which is the module to import.";
    module.attr("__version__") = ZRN_VERSION;
    // Qt takes the first thread that it meets for the one of the user's interface. That is not one
    // on which a camera is opened.
    QThread::currentThread();
    zrnpy::addErrors(module);
    zrnpy::addBus(module);
    zrnpy::addFrames(module);
    zrnpy::addCameras(module);
    zrnpy::addStreams(module);
    zrnpy::addWatches(module);
    zrnpy::addRecordings(module);
    zrnpy::addWaiting(module);
    zrnpy::addLog(module);
    for (const auto& [name, thing] : module.attr("__dict__").cast<zrnpy::py::dict>()) {
        if (zrnpy::py::isinstance<zrnpy::py::type>(thing)) {
            zrnpy::forbidEmpty(thing);
        }
    }
}
