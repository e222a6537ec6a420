#include "atomic_field.h"
#include "frame_trailer.h"
#include "frame_unpacking.h"
#include "row_alignment.h"
#include "zrn_camera.h"

#include <QMutexLocker>
#include <QReadLocker>

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

using CameraSpace::ImageBlock;

namespace
{

// In frames of this sensor, image A may be no picture but a marker.
constexpr qint32 markingSensorType = 6;

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
    const QReadLocker grab(&m_grabLock);
    if (!shared(m_isStreaming).load()) {
        return ErrorCode::NotStreaming;
    }
    m_imageRoom.make(liveImages, frameGeometry().imageSize());

    FrameSlot slot;
    {
        QMutexLocker queue(&m_frameMutex);
        if (m_frameIndexQueue.isEmpty() && shared(m_isStreaming).load()) {
            m_frameReady.wait(&m_frameMutex, grabTimeout());
        }
        if (m_frameIndexQueue.isEmpty()) {
            queue.unlock();
            qCCritical(m_category) << "try lock grab event failed";
            return ErrorCode::GrabTimeout;
        }
        int index = m_frameIndexQueue.dequeue();
        if (shared(m_triggerMode).load() == CameraSpace::TriggerMode::Newest) {
            while (!m_frameIndexQueue.isEmpty()) {
                index = m_frameIndexQueue.dequeue();
            }
        }
        slot = frameSlot(index);
    }
    if (!slot.lock) {
        return ErrorCode::SplitFailed;
    }

    const QMutexLocker slotLocker(slot.lock);
    try {
        const FrameGeometry geometry = frameGeometry();
        const qint32 sensorType = shared(m_sensorType).load();
        const std::size_t read =
            std::max(geometry.frameSize() + frameTrailerSize,
                     packedSize(layoutOf(sensorType), geometry.width, geometry.height));
        if (read > slot.size || !splitFrame(images, slot.buffer, geometry, sensorType)) {
            return ErrorCode::SplitFailed;
        }
        return ErrorCode::Success;
    } catch (...) {
        return ErrorCode::SplitException;
    }
}

bool CZRNCamera::spliteImage(QList<ImageBlock*>& images, const unsigned char* frame)
{
    return splitFrame(images, frame, frameGeometry(), shared(m_sensorType).load());
}

bool CZRNCamera::splitFrame(QList<ImageBlock*>& images, const unsigned char* frame,
                            const FrameGeometry& geometry, qint32 sensorType)
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

    const FrameLayout layout = layoutOf(sensorType);
    unsigned char* imageA = pixelsOf(*blockA);
    unsigned char* imageB = pixelsOf(*blockB);
    unpackFrame(layout, frame, geometry.width, geometry.height, imageA, imageB);

    images.reserve(images.size() + 2);
    if (sensorType != markingSensorType || !isMarker(imageA)) {
        images.append(blockA.release());
    }
    if (layout != FrameLayout::Single) {
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
