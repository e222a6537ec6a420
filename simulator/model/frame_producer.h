#pragma once

#include "model/frame.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

namespace zrnsim
{

/// The sensor's clock: a thread that renders frames at a rate or one by one.
///
/// `begin` is asked for each frame that is due and may decline; `deliver` gets the rendered frame;
/// `fail` hears of a frame whose picture did not fit into memory. All three are called on the
/// producer's thread, without its lock. The other functions are thread-safe and never wait for a
/// frame that is being rendered.
class FrameProducer
{
public:
    struct Hooks {
        /// Fills request, capture time and fault of the frame; false when no frame is to be taken.
        std::function<bool(Frame&, bool isEmitted)> begin;
        std::function<void(FramePtr)> deliver;
        std::function<void()> fail;
    };

    FrameProducer(RenderFrame render, Hooks hooks);
    ~FrameProducer();
    FrameProducer(const FrameProducer&) = delete;
    FrameProducer& operator=(const FrameProducer&) = delete;

    /// Frames every `period`; without one they come on emit() only. The first is rendered at once,
    /// and the clock starts when startClock() says that somebody takes it: what a host does before
    /// it can receive, and the first painting of a scene, cost no frame.
    void start(std::optional<Clock::duration> period);
    void startClock();
    void stop();

    /// Asks for one frame at once, in addition to the periodic ones.
    void emit();

private:
    void run();
    bool waitForFrame(std::unique_lock<std::mutex>& lock);
    bool produce(bool isEmitted);

    const RenderFrame m_render;
    const Hooks m_hooks;
    FramePool m_pool;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_quits = false;
    bool m_runs = false;
    unsigned m_emits = 0;
    std::optional<Clock::duration> m_period;
    bool m_isFirst = false;                 ///< the next periodic frame is the stream's first
    std::optional<Clock::time_point> m_due; ///< of the next frame; none before the clock starts

    std::thread m_thread; // the last member: the thread uses all others
};

} // namespace zrnsim
