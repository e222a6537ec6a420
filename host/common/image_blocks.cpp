#include "common/image_blocks.h"

#include <cstring>

namespace zrnhost
{

ErrorCode grab(CameraSpace::CameraInterface& camera, ImageBlocks& images)
{
    images.clear();
    QList<CameraSpace::ImageBlock*> grabbed;
    const ErrorCode result = camera.grabImage(grabbed);
    for (CameraSpace::ImageBlock* block : qAsConst(grabbed)) {
        images.emplace_back(block);
    }
    if (result != ErrorCode::Success) {
        images.clear();
    }
    return result;
}

bool isWellFormed(const CameraSpace::ImageBlock& block)
{
    return block.width > 0 && block.height > 0 && block.bitsPerPixel == 8 &&
           qint64{block.width} * block.height + trailerBytes == block.data.size();
}

quint64 trailerOf(const CameraSpace::ImageBlock& block)
{
    quint64 trailer = 0;
    std::memcpy(&trailer, block.data.constData() + block.data.size() - trailerBytes, trailerBytes);
    return trailer;
}

char imageLetter(int position, int count, int sensorCount)
{
    if (count == 1) {
        return sensorCount == 1 ? 'B' : 'A';
    }
    return position == 0 ? 'A' : 'B';
}

} // namespace zrnhost
