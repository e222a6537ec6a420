#include "atomic_field.h"
#include "frame_clock.h"
#include "frame_trailer.h"
#include "zrn_camera.h"

#include <QMutexLocker>

#include <cstring>

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

} // namespace

void CZRNCamera::frameTriggered(uvc_frame* frame, void* ptr)
{
    if (!frame || !ptr) {
        qCCritical(m_category) << " frame or ptr is null";
        return;
    }
    static_cast<CZRNCamera*>(ptr)->cacheFrame(*frame);
}

void CZRNCamera::cacheFrame(const uvc_frame& frame)
{
    if (!shared(m_isStreaming).load()) {
        return;
    }
    const FrameGeometry geometry = frameGeometry();
    if (frame.width != static_cast<quint32>(geometry.width) ||
        frame.height != static_cast<quint32>(geometry.height)) {
        qCCritical(m_category) << " the resolution is error,current frame w:" << frame.width
                               << " h:" << frame.height << " preset  frame w:" << geometry.width
                               << " h:" << geometry.height;
        return;
    }

    const qint32 index = shared(m_writeIndex).load();
    FrameSlot slot;
    {
        const QMutexLocker queue(&m_frameMutex);
        slot = frameSlot(index);
        if (!slot.buffer) {
            return;
        }
        // The slot is about to be overwritten, so its old frame is withdrawn.
        if (!m_frameIndexQueue.isEmpty() && m_frameIndexQueue.head() == index) {
            m_frameIndexQueue.removeFirst();
        }
    }

    const quint32 expectedSize = static_cast<quint32>(geometry.width) *
                                 static_cast<quint32>(geometry.height) *
                                 static_cast<quint32>(geometry.bytesPerPosition);
    if (frame.data_bytes != expectedSize) {
        qCCritical(m_category) << " frame size is error " << expectedSize
                               << ", size:" << frame.data_bytes;
        return;
    }
    if (expectedSize + frameTrailerSize > slot.size) {
        reportSmallSlot(expectedSize, slot.size);
        return;
    }

    {
        const QMutexLocker slotLocker(slot.lock);
        const auto* data = static_cast<const unsigned char*>(frame.data);
        if (expectedSize > 0) {
            std::memcpy(slot.buffer, data, expectedSize);
        }
        const std::uint64_t trailer = frameTrailer({data, expectedSize});
        std::memcpy(slot.buffer + expectedSize, &trailer, sizeof(trailer));

        shared(m_writeIndex).store((index + 1) % shared(m_cacheFrameCount).load());
        const qint32 received = shared(m_receivedFrameCount).load();
        if (received < loggedFrames) {
            qCDebug(m_category) << "frameTriggered receive img to " << index << "(" << received
                                << ")";
            shared(m_receivedFrameCount).store(received + 1);
        }
    }
    {
        const QMutexLocker queue(&m_frameMutex);
        m_frameIndexQueue.enqueue(index);
        ++m_arrivedFrameCount;
        m_frameReady.wakeOne();
    }
    measureFrameRate();
}

CZRNCamera::FrameSlot CZRNCamera::frameSlot(int index) const
{
    if (index < 0 || index >= m_frameBuffers.size() || index >= m_bufferLocks.size()) {
        return {};
    }
    const auto position = static_cast<std::size_t>(index);
    return {m_frameBuffers.at(index), m_bufferLocks.at(index),
            position < m_slotSizes.size() ? m_slotSizes[position] : 0};
}

void CZRNCamera::reportSmallSlot(std::size_t frameSize, std::size_t slotSize)
{
    if (shared(m_smallSlotReported).exchange(true)) {
        return;
    }
    qCCritical(m_category) << " frame does not fit the cache, frame size:" << frameSize
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
