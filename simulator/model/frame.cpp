#include "model/frame.h"

namespace zrnsim
{

std::shared_ptr<Frame> FramePool::take()
{
    constexpr std::size_t kept = 4;
    std::unique_ptr<Frame> frame;
    {
        const std::lock_guard lock(m_shelf->mutex);
        if (!m_shelf->frames.empty()) {
            frame = std::move(m_shelf->frames.back());
            m_shelf->frames.pop_back();
        }
    }
    if (!frame) {
        frame = std::make_unique<Frame>();
    }
    return {frame.release(), [shelf = m_shelf](Frame* returned) {
                std::unique_ptr<Frame> owner(returned);
                const std::lock_guard lock(shelf->mutex);
                if (shelf->frames.size() < kept) {
                    shelf->frames.push_back(std::move(owner));
                }
            }};
}

} // namespace zrnsim
