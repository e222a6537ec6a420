#include "atomic_field.h"
#include "frame_clock.h"
#include "frame_trailer.h"
#include "zrn_camera.h"

#include <QMutexLocker>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <new>
#include <optional>
#include <utility>

namespace
{

constexpr int loggedFrames = 16;
constexpr int rateIntervalMs = 1001;

/// Milliseconds since a time of the frame clock, at most a day ago.
int elapsedSince(const QTime& start)
{
    const int elapsed = start.msecsTo(frameClock());
    return elapsed < 0 ? elapsed + millisecondsPerDay : elapsed;
}

qint64 nanoseconds(std::chrono::steady_clock::time_point time)
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}

bool isOfSize(const uvc_frame& frame, int width, int height)
{
    return frame.width == static_cast<quint32>(width) &&
           frame.height == static_cast<quint32>(height);
}

bool isWhole(const uvc_frame& frame, quint32 size)
{
    return frame.data_bytes == size && (frame.data || size == 0);
}

} // namespace

/// The cameras that exist. A stream that libuvc is not asked to stop may still deliver a frame, to
/// a camera that has been deleted meanwhile.
struct CZRNCamera::LivingCameras {
    std::mutex mutex;
    std::condition_variable callbackEnded;
    std::vector<CZRNCamera*> cameras;

    /// Never destroyed, because such a stream may outlive every static object.
    static LivingCameras& instance()
    {
        alignas(LivingCameras) static std::byte storage[sizeof(LivingCameras)];
        static auto* const living = new (storage) LivingCameras;
        return *living;
    }
};

/// Keeps a camera from being deleted for the length of a callback; holds none of its locks.
class CZRNCamera::CallbackScope
{
public:
    explicit CallbackScope(CZRNCamera* camera)
    {
        LivingCameras& living = LivingCameras::instance();
        const std::lock_guard lock(living.mutex);
        if (std::ranges::find(living.cameras, camera) != living.cameras.end()) {
            m_camera = camera;
            ++m_camera->m_runningCallbacks;
        }
    }
    ~CallbackScope()
    {
        if (m_camera) {
            LivingCameras& living = LivingCameras::instance();
            const std::lock_guard lock(living.mutex);
            if (--m_camera->m_runningCallbacks == 0) {
                living.callbackEnded.notify_all();
            }
        }
    }
    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;

    explicit operator bool() const { return m_camera != nullptr; }
    CZRNCamera* operator->() const { return m_camera; }

private:
    CZRNCamera* m_camera = nullptr;
};

void CZRNCamera::admitCallbacks()
{
    LivingCameras& living = LivingCameras::instance();
    const std::lock_guard lock(living.mutex);
    living.cameras.push_back(this);
}

void CZRNCamera::refuseCallbacks()
{
    LivingCameras& living = LivingCameras::instance();
    std::unique_lock lock(living.mutex);
    std::erase(living.cameras, this);
    if (living.cameras.empty()) {
        living.cameras = std::vector<CZRNCamera*>(); // unlike {}, gives the memory back
    }
    living.callbackEnded.wait(lock, [this] { return m_runningCallbacks == 0; });
}

void CZRNCamera::wakeAll()
{
    LivingCameras& living = LivingCameras::instance();
    const std::lock_guard lock(living.mutex);
    for (CZRNCamera* camera : living.cameras) {
        const QMutexLocker queue(&camera->m_frameMutex);
        ++camera->m_interruptions;
        camera->m_frameReady.wakeAll();
    }
}

void CZRNCamera::frameTriggered(uvc_frame* frame, void* ptr)
{
    const Operation operation(Operation::Origin::Stream);
    if (!operation) {
        return;
    }
    if (!frame || !ptr) {
        logCritical() << " frame or ptr is null";
        return;
    }
    if (const CallbackScope camera(static_cast<CZRNCamera*>(ptr)); camera) {
        camera->cacheFrame(*frame);
    }
}

void CZRNCamera::cacheFrame(const uvc_frame& frame)
{
    if (!shared(m_isStreaming).load()) {
        return;
    }
    const qint64 now = nanoseconds(steadyTime());
    FrameTicket ticket;
    CameraSpace::FrameTimes times;
    quint64 overtaken = 0;
    const qint32 index = shared(m_writeIndex).load();
    quint64 epoch = 0;
    {
        const QMutexLocker queue(&m_frameMutex);
        times = noteHandOver(frame, now);
        overtaken = m_overtakenFrames;
        epoch = m_geometryEpoch;
        ticket.geometry = lockedGeometry();
        if (isOfSize(frame, ticket.geometry.width, ticket.geometry.height)) {
            ticket.slot = frameSlot(index);
            if (!ticket.slot.buffer) {
                return;
            }
            const auto expectedSize = static_cast<quint32>(ticket.geometry.frameSize());
            const bool fits = isWhole(frame, expectedSize) &&
                              expectedSize + frameTrailerSize <= ticket.slot.record->size;
            if (fits) {
                ticket.frame = ++m_lastFrame;
                // The slot is about to be overwritten, so its old frame is withdrawn.
                withdraw(index);
            } else if (!m_frameIndexQueue.isEmpty() && m_frameIndexQueue.head() == index) {
                // It was the refused frame's turn all the same.
                m_frameIndexQueue.removeFirst();
            }
        }
    }
    if (ticket.frame == 0) {
        logRefusal(frame, ticket);
        return;
    }

    {
        SlotRecord& record = *ticket.slot.record;
        const std::size_t size = ticket.geometry.frameSize();
        const QMutexLocker slotLocker(ticket.slot.lock);
        const auto* data = static_cast<const unsigned char*>(frame.data);
        if (size > 0) {
            std::memcpy(ticket.slot.buffer, data, size);
        }
        const std::uint64_t trailer = frameTrailer({data, size});
        std::memcpy(ticket.slot.buffer + size, &trailer, sizeof(trailer));
        record.heldFrame = ticket.frame;
        record.geometry = ticket.geometry;
        record.times = times;
        record.unwritten.reduceTo(record.size - size - frameTrailerSize);
        shared(m_writeIndex).store((index + 1) % shared(m_cacheFrameCount).load());
    }
    const qint32 received = shared(m_receivedFrameCount).load();
    if (received < loggedFrames) {
        logDebug() << "frameTriggered receive img to " << index << "(" << received << ")";
        shared(m_receivedFrameCount).store(received + 1);
    }
    {
        const QMutexLocker queue(&m_frameMutex);
        // Otherwise the frame is no longer one of the camera that the host takes it for.
        if (m_geometryEpoch == epoch) {
            withdraw(index);
            ticket.slot.record->queuedFrame = ticket.frame;
            ticket.slot.record->queuedOvertaken = overtaken;
            m_frameIndexQueue.enqueue(index);
            ++m_arrivedFrameCount;
            m_frameReady.wakeOne();
        }
    }
    measureFrameRate();
}

CameraSpace::FrameTimes CZRNCamera::noteHandOver(const uvc_frame& frame, qint64 now)
{
    using Source = CameraSpace::FrameTimeSource;
    CameraSpace::FrameTimes times;
    times.sequence = frame.sequence;
    times.handOver = now;
    times.clockFrequency = m_clockFrequency;
    const quint32 lastSequence = std::exchange(m_lastSequence, frame.sequence);
    const auto found = m_streamTimes ? m_streamTimes->find(frame.sequence) : std::nullopt;
    if (!found || found->times.bytes != frame.data_bytes) {
        times.firstPayload = now;
        times.lastPayload = now;
        times.payloadSource = Source::Callback;
        if (m_streamTimes && m_streamTimes->isUsed()) {
            // The next frame that is found tells what was lost up to then.
            if (m_wholeFrames && m_streamTimes->isWhole(frame.data_bytes)) {
                ++*m_wholeFrames;
            }
        } else if (lastSequence != 0 && frame.sequence > lastSequence) {
            m_overtakenFrames += frame.sequence - lastSequence - 1;
        }
        return times;
    }
    const PayloadTimes& payloads = found->times;
    times.firstPayload = payloads.first;
    times.lastPayload = payloads.last;
    times.payloadSource = Source::Payload;
    if (payloads.presentationTime) {
        times.hasPresentationTime = 1;
        times.presentationTime = *payloads.presentationTime;
    }
    if (payloads.sourceClock) {
        times.hasSourceClock = 1;
        times.sourceClock = payloads.sourceClock->time;
        times.busFrame = payloads.sourceClock->busFrame;
    }
    // Nobody waits for what arrived before the first frame that is accepted.
    const quint64 own = m_streamTimes->isWhole(frame.data_bytes) ? 1 : 0;
    const quint64 expected = m_wholeFrames.value_or(found->wholeFrames) + own;
    if (found->wholeFrames > expected) {
        m_overtakenFrames += found->wholeFrames - expected;
    }
    m_wholeFrames = found->wholeFrames;
    return times;
}

void CZRNCamera::logRefusal(const uvc_frame& frame, const FrameTicket& ticket)
{
    const FrameGeometry& geometry = ticket.geometry;
    if (!isOfSize(frame, geometry.width, geometry.height)) {
        logCritical() << " the resolution is error,current frame w:" << frame.width
                      << " h:" << frame.height << " preset  frame w:" << geometry.width
                      << " h:" << geometry.height;
        return;
    }
    const auto expectedSize = static_cast<quint32>(geometry.frameSize());
    if (!isWhole(frame, expectedSize)) {
        logCritical() << " frame size is error " << expectedSize << ", size:" << frame.data_bytes;
        return;
    }
    reportSmallSlot(expectedSize, ticket.slot.record->size);
}

CZRNCamera::FrameSlot CZRNCamera::frameSlot(int index) const
{
    const auto position = static_cast<std::size_t>(index);
    if (index < 0 || index >= m_frameBuffers.size() || index >= m_bufferLocks.size() ||
        position >= m_slotRecords.size()) {
        return {};
    }
    return {m_frameBuffers.at(index), m_bufferLocks.at(index), m_slotRecords[position].get()};
}

void CZRNCamera::reportSmallSlot(std::size_t frameSize, std::size_t slotSize)
{
    if (shared(m_smallSlotReported).exchange(true)) {
        return;
    }
    logCritical() << " frame does not fit the cache, frame size:" << frameSize
                  << ", cache size:" << slotSize - frameTrailerSize;
}

void CZRNCamera::measureFrameRate()
{
    const int elapsed = elapsedSince(shared(m_fpsTimer).load());
    const qint32 count = shared(m_fpsFrameCount).load() + 1;
    if (elapsed < rateIntervalMs) {
        shared(m_fpsFrameCount).store(count);
        return;
    }
    shared(m_frameRate).store(count * 1000.0 / elapsed);
    shared(m_fpsFrameCount).store(0);
    shared(m_fpsTimer).store(frameClock());
}
