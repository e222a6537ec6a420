#include "errors.h"

#include "module.h"

namespace zrnpy
{
namespace
{

/// Raises one of the classes of `_errors.py`.
template <typename... More>
void raise(const char* name, const zrn::Error& error, const More&... more)
{
    const py::object type = py::module_::import("zrncamera._errors").attr(name);
    const py::object value = type(error.what(), static_cast<std::uint32_t>(error.code()),
                                  error.name(), error.remedy(), more...);
    PyErr_SetObject(type.ptr(), value.ptr());
}

} // namespace

void addErrors(py::module_& /*module*/)
{
    py::register_exception_translator([](std::exception_ptr thrown) {
        try {
            std::rethrow_exception(std::move(thrown));
        } catch (const Gone& error) {
            raise("CameraGone", error);
        } catch (const Busy& error) {
            py::list holders;
            for (const zrn::Holder& holder : error.holders()) {
                holders.append(py::make_tuple(holder.pid, holder.program));
            }
            raise("CameraBusy", error, holders);
        } catch (const zrn::Error& error) {
            raise("ZrnError", error);
        }
    });
}

} // namespace zrnpy
