#include "model/frame_producer.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>

namespace zrnsim
{

namespace
{

/// A frame of another size than it should have: cut, or with a pattern behind its end.
void resizeFrame(Frame& frame)
{
    const auto size = static_cast<std::int64_t>(frame.bytes.size());
    const auto changed =
        static_cast<std::size_t>(std::max<std::int64_t>(0, size + frame.fault.sizeDelta));
    frame.bytes.resize(frame.fault.bytes.value_or(changed), 0xee);
}

} // namespace

FrameProducer::FrameProducer(RenderFrame render, Hooks hooks)
    : m_render(std::move(render))
    , m_hooks(std::move(hooks))
    , m_thread([this] { run(); })
{
}

FrameProducer::~FrameProducer()
{
    {
        const std::lock_guard lock(m_mutex);
        m_quits = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void FrameProducer::start(std::optional<Clock::duration> period)
{
    {
        const std::lock_guard lock(m_mutex);
        m_runs = true;
        m_emits = 0;
        m_period = period;
        m_isFirst = period.has_value();
        m_due.reset();
    }
    m_changed.notify_all();
}

void FrameProducer::startClock()
{
    {
        const std::lock_guard lock(m_mutex);
        if (!m_period || m_isFirst || m_due) {
            return;
        }
        m_due = Clock::now() + *m_period;
    }
    m_changed.notify_all();
}

void FrameProducer::stop()
{
    const std::lock_guard lock(m_mutex);
    m_runs = false;
    m_emits = 0;
}

void FrameProducer::emit()
{
    {
        const std::lock_guard lock(m_mutex);
        ++m_emits;
    }
    m_changed.notify_all();
}

void FrameProducer::run()
{
    std::unique_lock lock(m_mutex);
    while (!m_quits) {
        if (!waitForFrame(lock)) {
            continue;
        }
        const bool isEmitted = m_emits > 0;
        if (isEmitted) {
            --m_emits;
        } else if (m_isFirst) {
            m_isFirst = false;
        } else {
            // A sensor that fell behind by more than a frame does not catch up.
            m_due = std::max(*m_due + *m_period, Clock::now() - *m_period);
        }
        lock.unlock();
        const bool isTaken = produce(isEmitted);
        if (!isTaken) {
            startClock(); // there is no frame whose fetching would
        }
        lock.lock();
    }
}

/// True when a frame is due; false after a wait that something else ended.
bool FrameProducer::waitForFrame(std::unique_lock<std::mutex>& lock)
{
    if (m_runs && m_emits > 0) {
        return true;
    }
    if (m_runs && m_isFirst) {
        return true;
    }
    if (!m_runs || !m_due) {
        m_changed.wait(lock);
        return false;
    }
    const Clock::time_point due = *m_due;
    if (Clock::now() >= due) {
        return true;
    }
    m_changed.wait_until(lock, due);
    return false;
}

/// Whether there was a frame to deliver.
bool FrameProducer::produce(bool isEmitted)
{
    const std::shared_ptr<Frame> frame = m_pool.take();
    if (!m_hooks.begin(*frame, isEmitted)) {
        return false;
    }
    try {
        m_render(frame->request, frame->bytes);
        resizeFrame(*frame);
    } catch (const std::bad_alloc&) {
        m_hooks.fail();
        return false;
    } catch (const std::length_error&) {
        m_hooks.fail();
        return false;
    }
    m_hooks.deliver(frame);
    return true;
}

} // namespace zrnsim
