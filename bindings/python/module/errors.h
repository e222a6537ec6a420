#pragma once

#include "client/bus.h"
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
