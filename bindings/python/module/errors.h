#pragma once

#include "client/bus.h"
#include "client/camera.h"
#include "client/error.h"

#include <vector>

namespace zrnpy
{

/// The camera does not answer any more.
class Gone : public zrn::Error
{
public:
    using zrn::Error::Error;
    explicit Gone(const zrn::Error& cause)
        : zrn::Error(cause)
    {
    }
};

/// Whether an operation failed because the camera does not answer any more.
bool isGone(const zrn::Error& error, zrn::Camera& camera);

/// Runs an operation. @throws Gone when it failed, and the camera does not answer
template <typename Operation>
auto orGone(zrn::Camera& camera, const Operation& operation)
{
    try {
        return operation();
    } catch (const zrn::Error& error) {
        if (isGone(error, camera)) {
            throw Gone(error);
        }
        throw;
    }
}

/// Another program has the camera.
class Busy : public zrn::Error
{
public:
    Busy(const zrn::Error& cause, std::vector<zrn::Holder> holders)
        : zrn::Error(cause)
        , m_holders(std::move(holders))
    {
    }

    [[nodiscard]] const std::vector<zrn::Holder>& holders() const { return m_holders; }

private:
    std::vector<zrn::Holder> m_holders;
};

} // namespace zrnpy
