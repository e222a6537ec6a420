#include "errors.h"

#include "module.h"

namespace zrnpy
{
namespace
{

/// Raises one of the classes of `_errors.py`.
template <typename... Arguments>
void raise(const char* name, const Arguments&... arguments)
{
    const py::object type = py::module_::import("zrncamera._errors").attr(name);
    const py::object value = type(arguments...);
    PyErr_SetObject(type.ptr(), value.ptr());
}

} // namespace

bool isGone(const zrn::Error& error, zrn::Camera& camera)
{
    return error.code() != ErrorCode::BadArgument && error.code() != ErrorCode::NotSupported &&
           error.code() != ErrorCode::Success && !camera.status().isOnline;
}

void addErrors(py::module_& /*module*/)
{
    py::register_exception_translator([](std::exception_ptr thrown) {
        try {
            std::rethrow_exception(std::move(thrown));
        } catch (const Gone& error) {
            const std::string tried = error.tried().empty() ? "" : error.tried() + ": ";
            raise("CameraGone", tried + "the camera does not answer any more",
                  static_cast<std::uint32_t>(error.code()));
        } catch (const Busy& error) {
            py::list holders;
            for (const zrn::Holder& holder : error.holders()) {
                holders.append(py::make_tuple(holder.pid, holder.program));
            }
            raise("CameraBusy", error.what(), static_cast<std::uint32_t>(error.code()),
                  error.name(), error.remedy(), holders);
        } catch (const zrn::Error& error) {
            raise("ZrnError", error.what(), static_cast<std::uint32_t>(error.code()), error.name(),
                  error.remedy());
        }
    });
}

} // namespace zrnpy
