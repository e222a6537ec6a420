#include "client/frame.h"

#include <cstring>

namespace zrn
{

std::uint64_t Image::trailer() const
{
    std::uint64_t trailer = 0;
    std::memcpy(&trailer, bytes.data() + bytes.size() - trailerBytes, trailerBytes);
    return trailer;
}

const char* nameOf(FrameTimes::Source source)
{
    switch (source) {
    case FrameTimes::Source::Grab:
        return "grab";
    case FrameTimes::Source::HandOver:
        return "hand-over";
    case FrameTimes::Source::Payload:
        return "payload";
    }
    return "";
}

std::uint64_t Frame::bytes() const
{
    std::uint64_t bytes = 0;
    for (const Image& image : images()) {
        bytes += image.bytes.size();
    }
    return bytes;
}

const Image* Frame::image(char letter) const
{
    for (const Image& candidate : images()) {
        if (candidate.letter == letter) {
            return &candidate;
        }
    }
    return nullptr;
}

char imageLetter(int position, int count, int sensorCount)
{
    if (count == 1) {
        return sensorCount == 1 ? 'B' : 'A';
    }
    return position == 0 ? 'A' : 'B';
}

} // namespace zrn
