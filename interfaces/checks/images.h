#pragma once

#include "../camera_interface.h"
#include "../frame_times_interface.h"

#include <cstring>
#include <memory>
#include <utility>
#include <vector>

namespace ContractSpace
{

/// Images of one grab, owned.
using Images = std::vector<std::unique_ptr<CameraSpace::ImageBlock>>;

/// Number of bytes behind the pixels of a block.
inline constexpr int trailerBytes = 8;

/// Runs a grab and takes ownership of its images. @p images is empty unless the result is success.
template <typename Grab>
ErrorCode grabWith(Images& images, const Grab& grab)
{
    images.clear();
    QList<CameraSpace::ImageBlock*> grabbed;
    const ErrorCode result = grab(grabbed);
    for (CameraSpace::ImageBlock* block : std::as_const(grabbed)) {
        images.emplace_back(block);
    }
    if (result != ErrorCode::Success) {
        images.clear();
    }
    return result;
}

/// Grabs one frame and takes ownership of its images. @p images is empty unless the result is
/// success.
inline ErrorCode grab(CameraSpace::CameraInterface& camera, Images& images)
{
    return grabWith(images, [&](QList<CameraSpace::ImageBlock*>& grabbed) {
        return camera.grabImage(grabbed);
    });
}

/// The same with the times of the frame.
inline ErrorCode grab(CameraSpace::FrameTimesInterface& camera, Images& images,
                      CameraSpace::FrameTimes& times)
{
    return grabWith(images, [&](QList<CameraSpace::ImageBlock*>& grabbed) {
        return camera.grabTimedImage(grabbed, times);
    });
}

/// Whether size and data of @p block agree, so that pixels and trailer can be read.
inline bool isWellFormed(const CameraSpace::ImageBlock& block)
{
    return block.width > 0 && block.height > 0 && block.bitsPerPixel == 8 &&
           qint64{block.width} * block.height + trailerBytes == block.data.size();
}

/// The 8-byte trailer of a well-formed block.
inline quint64 trailerOf(const CameraSpace::ImageBlock& block)
{
    quint64 trailer = 0;
    std::memcpy(&trailer, block.data.constData() + block.data.size() - trailerBytes, trailerBytes);
    return trailer;
}

} // namespace ContractSpace
