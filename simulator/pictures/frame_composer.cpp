#include "pictures/frame_composer.h"

#include "pictures/frame_header.h"
#include "pictures/frame_layout.h"
#include "pictures/picture_source.h"
#include "pictures/row_alignment.h"
#include "pictures/sensor_types.h"

#include <algorithm>

namespace zrnsim
{

namespace
{

bool hasPixels(const FrameRequest& request)
{
    return request.width > 0 && request.height > 0 && request.bytesPerPosition > 0;
}

ImageSize sizeOf(const FrameRequest& request)
{
    return {static_cast<std::size_t>(request.width), static_cast<std::size_t>(request.height)};
}

/// The layout of a frame; one byte for each position leaves room for image A alone.
FrameLayout sentLayout(const FrameRequest& request)
{
    return request.bytesPerPosition == 1 ? FrameLayout::Single
                                         : sensorTypeOf(request.sensorType).layout;
}

/// True when a host finds in the frame all that the sensor type makes it look for.
bool carriesImages(const FrameRequest& request)
{
    const ImageSize size = sizeOf(request);
    return packedSize(sensorTypeOf(request.sensorType).layout, size) <=
           size.pixels() * static_cast<std::size_t>(request.bytesPerPosition);
}

/// The header on the images themselves, for layouts that bring every byte of it to a pixel.
void overlayHeader(const FrameRequest& request, SentImages& images)
{
    const ImageSize size = sizeOf(request);
    const FrameLayout layout = sensorTypeOf(request.sensorType).layout;
    for (const HeaderByte& byte : headerOf(request)) {
        if (byte.offset >= packedSize(layout, size)) {
            continue;
        }
        const PixelPlace place = pixelOf(layout, size, byte.offset);
        (place.image == 0 ? images.a : images.b)[place.index] = byte.value;
    }
}

} // namespace

class FrameComposer::Pictures : public PictureSource
{
};

FrameComposer::FrameComposer()
    : m_pictures(std::make_unique<Pictures>())
{
}

FrameComposer::~FrameComposer() = default;
FrameComposer::FrameComposer(FrameComposer&&) noexcept = default;
FrameComposer& FrameComposer::operator=(FrameComposer&&) noexcept = default;

void FrameComposer::compose(const FrameRequest& request, std::vector<std::uint8_t>& frame)
{
    if (!hasPixels(request)) {
        frame.clear();
        return;
    }
    const ImageSize size = sizeOf(request);
    const FrameLayout layout = sentLayout(request);
    frame.resize(size.pixels() * static_cast<std::size_t>(request.bytesPerPosition));
    m_pictures->render(request);
    shiftRows(m_pictures->a.data(), size.width, size.height, rowShiftOf(request, 0));
    shiftRows(m_pictures->b.data(), size.width, size.height, rowShiftOf(request, 1));
    packFrame(layout, size, m_pictures->a.data(), m_pictures->b.data(), frame.data());
    std::fill(frame.data() + packedSize(layout, size), frame.data() + frame.size(),
              std::uint8_t{0});
    for (const HeaderByte& byte : headerOf(request)) {
        if (byte.offset < frame.size()) {
            frame[byte.offset] = byte.value;
        }
    }
}

SentImages expectedImages(const FrameRequest& request)
{
    SentImages images;
    if (!hasPixels(request)) {
        return images;
    }
    images.trailer = trailerOf(request);
    if (!carriesImages(request)) {
        return images;
    }
    const ImageSize size = sizeOf(request);
    const FrameLayout layout = sensorTypeOf(request.sensorType).layout;
    images.hasA = !isMarkerFrame(request);
    images.hasB = layout != FrameLayout::Single;
    if (isLossless(layout, size)) {
        PictureSource pictures;
        pictures.render(request);
        images.a = std::move(pictures.a);
        images.b = std::move(pictures.b);
        repeatUncoveredEdges(images.a.data(), size.width, size.height, rowShiftOf(request, 0));
        repeatUncoveredEdges(images.b.data(), size.width, size.height, rowShiftOf(request, 1));
        overlayHeader(request, images);
    } else {
        std::vector<std::uint8_t> frame;
        FrameComposer().compose(request, frame);
        images.a.resize(size.pixels());
        images.b.resize(size.pixels());
        scatterFrame(layout, size, frame.data(), images.a.data(), images.b.data());
    }
    if (!images.hasA) {
        images.a.clear();
    }
    return images;
}

} // namespace zrnsim
