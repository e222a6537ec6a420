#include "atomic_field.h"
#include "frame_trailer.h"
#include "frame_unpacking.h"
#include "row_alignment.h"
#include "sensor_types.h"
#include "zrn_camera.h"

#include <QMutexLocker>

#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <shared_mutex>
#include <utility>

using CameraSpace::ImageBlock;

namespace
{

unsigned char* pixelsOf(ImageBlock& block)
{
    return reinterpret_cast<unsigned char*>(block.data.data());
}

/// Whether an image starts with a marker: 0x55 and then 0xAA, or 0x33 and then 0xCC, each in one of
/// two places.
bool isMarker(const unsigned char* image)
{
    const auto has = [image](std::size_t first, unsigned char value) {
        return image[first] == value || image[first + 1] == value;
    };
    return (has(0, 0x55) && has(2, 0xAA)) || (has(0, 0x33) && has(2, 0xCC));
}

/// A block for one image, its pixels not written yet, or null when there is no memory for them.
std::unique_ptr<ImageBlock> makeBlock(int width, int height, const unsigned char* trailer)
{
    constexpr int bitsPerPixel = 8;
    const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    if (pixels > std::numeric_limits<int>::max() - frameTrailerSize) {
        return nullptr;
    }

    auto block = std::make_unique<ImageBlock>();
    block->width = width;
    block->height = height;
    block->bitsPerPixel = bitsPerPixel;
    try {
        block->data = QByteArray(static_cast<int>(pixels + frameTrailerSize), Qt::Uninitialized);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    std::memcpy(pixelsOf(*block) + pixels, trailer, frameTrailerSize);
    return block;
}

} // namespace

unsigned long CZRNCamera::grabTimeout()
{
    return static_cast<quint32>(shared(m_grabTimeout).load());
}

ErrorCode CZRNCamera::grabImage(QList<ImageBlock*>& images)
{
    return grabFrame(images, nullptr);
}

ErrorCode CZRNCamera::grabTimed(QList<ImageBlock*>& images, CameraSpace::FrameTimes& times)
{
    return grabFrame(images, &times);
}

ErrorCode CZRNCamera::grabFrame(QList<ImageBlock*>& images, CameraSpace::FrameTimes* times)
{
    const Operation operation;
    if (!operation) {
        return ErrorCode::NotStreaming;
    }
    const std::shared_lock grab(m_grabLock);
    if (!shared(m_isStreaming).load()) {
        return ErrorCode::NotStreaming;
    }

    const QDeadlineTimer deadline(static_cast<qint64>(grabTimeout()));
    FrameTicket ticket;
    while (takeFrame(ticket, deadline)) {
        const FrameSlot& slot = ticket.slot;
        const FrameGeometry& geometry = ticket.geometry;
        if (!slot.buffer) {
            return ErrorCode::SplitFailed;
        }
        const QMutexLocker slotLocker(slot.lock);
        if (slot.record->heldFrame != ticket.frame || ticket.frame == 0) {
            ticket.losses.ring += ticket.frame == 0 ? 0U : 1U;
            continue; // overwritten since it was taken, or never filled
        }
        if (times) {
            *times = slot.record->times;
            times->ringLosses = ticket.losses.ring;
            times->libraryLosses = ticket.losses.library;
        }
        if (!slot.record->geometry.hasSizeOf(geometry)) {
            return ErrorCode::SplitFailed;
        }
        try {
            const std::size_t read = packedSize(sensorTypeOf(geometry.sensorType).layout,
                                                geometry.width, geometry.height);
            return read <= geometry.frameSize() && splitFrame(images, slot.buffer, geometry)
                       ? ErrorCode::Success
                       : ErrorCode::SplitFailed;
        } catch (...) {
            return ErrorCode::SplitException;
        }
    }
    logCritical() << "try lock grab event failed";
    return ErrorCode::GrabTimeout;
}

bool CZRNCamera::takeFrame(FrameTicket& ticket, const QDeadlineTimer& deadline)
{
    const QMutexLocker queue(&m_frameMutex);
    if (m_frameIndexQueue.isEmpty() && shared(m_isStreaming).load() && Operation::isAdmitted()) {
        m_frameReady.wait(&m_frameMutex, static_cast<unsigned long>(deadline.remainingTime()));
    }
    if (m_frameIndexQueue.isEmpty()) {
        m_untoldLosses.ring += ticket.losses.ring;
        m_untoldLosses.library += ticket.losses.library;
        return false;
    }
    int index = m_frameIndexQueue.dequeue();
    if (shared(m_triggerMode).load() == CameraSpace::TriggerMode::Newest) {
        index = m_frameIndexQueue.isEmpty() ? index : m_frameIndexQueue.last();
        clearQueue();
    }
    ticket.slot = frameSlot(index);
    ticket.frame = ticket.slot.record ? ticket.slot.record->queuedFrame : 0;
    ticket.geometry = lockedGeometry();

    const auto [ringLosses, libraryLosses] = std::exchange(m_untoldLosses, {});
    ticket.losses.ring += ringLosses;
    ticket.losses.library += libraryLosses;
    if (ticket.frame > m_lastGrabbed) {
        ticket.losses.ring += ticket.frame - m_lastGrabbed - 1;
        m_lastGrabbed = ticket.frame;
        const quint64 overtaken = ticket.slot.record->queuedOvertaken;
        ticket.losses.library += overtaken - std::exchange(m_lastOvertaken, overtaken);
    }
    return true;
}

bool CZRNCamera::spliteImage(QList<ImageBlock*>& images, const unsigned char* frame)
{
    const Operation operation;
    return splitFrame(images, frame, frameGeometry());
}

bool CZRNCamera::splitFrame(QList<ImageBlock*>& images, const unsigned char* frame,
                            const FrameGeometry& geometry)
{
    if (!frame || !isConnected()) {
        return false;
    }

    const unsigned char* trailer = frame + geometry.frameSize();
    std::unique_ptr<ImageBlock> blockA = makeBlock(geometry.width, geometry.height, trailer);
    std::unique_ptr<ImageBlock> blockB = makeBlock(geometry.width, geometry.height, trailer);
    if (!blockA || !blockB) {
        return false;
    }

    const SensorType& sensor = sensorTypeOf(geometry.sensorType);
    unsigned char* imageA = pixelsOf(*blockA);
    unsigned char* imageB = pixelsOf(*blockB);
    if (sensor.layout == FrameLayout::InterleavedShifted &&
        geometry.pixels() < alignmentHeaderEnd) {
        // The header of so small an image goes on in its trailer.
        unpackFrame(FrameLayout::Interleaved, frame, geometry.width, geometry.height, imageA,
                    imageB);
        for (unsigned char* image : {imageA, imageB}) {
            realignRows({image, geometry.imageSize()}, geometry.width, geometry.height);
        }
    } else {
        unpackFrame(sensor.layout, frame, geometry.width, geometry.height, imageA, imageB);
    }

    images.reserve(images.size() + 2);
    if (!sensor.marksImageA || !isMarker(imageA)) {
        images.append(blockA.release());
    }
    if (sensor.layout != FrameLayout::Single) {
        images.append(blockB.release());
    }
    return true;
}

int CZRNCamera::formatImage(unsigned char*& data, int width, int height, int /*unused*/)
{
    const std::size_t size =
        width > 0 && height > 0 ? static_cast<std::size_t>(width) * static_cast<std::size_t>(height)
                                : 0;
    return static_cast<int>(realignRows({data, size}, width, height));
}

int CZRNCamera::ChannelFromImgFormat(CameraSpace::PixelFormatType format)
{
    constexpr quint32 bitsMask = 0xFF;
    return static_cast<int>(((static_cast<quint32>(format) & bitsMask) + 7) >> 3);
}
