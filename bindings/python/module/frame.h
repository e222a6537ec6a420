#pragma once

#include "client/frame.h"
#include "process.h"

namespace zrnpy
{

/// A frame with what Python sees of it.
class Frame
{
public:
    explicit Frame(zrn::Frame frame)
        : m_frame(std::make_shared<const zrn::Frame>(std::move(frame)))
    {
    }

    /// Its memory is there in a forked child as well; ending it is what a child must not do.
    [[nodiscard]] const zrn::Frame& get() const { return m_frame.look(); }

private:
    ProcessBound<const zrn::Frame> m_frame;
};

} // namespace zrnpy
