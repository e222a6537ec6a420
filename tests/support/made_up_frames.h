#pragma once

#include "client/frame.h"

#include <cstdint>
#include <initializer_list>
#include <vector>

/// An image for a frame: its letter, and its bytes with the trailer.
struct MadeUpImage {
    char letter = 'A';
    std::vector<std::uint8_t> bytes;
};

/// A frame that owns these images.
zrn::Frame frameOf(std::uint32_t width, std::uint32_t height, std::vector<MadeUpImage> images);

/// A frame of noise, which its number gives, a millisecond after that of the number before.
zrn::Frame madeUpFrame(std::uint32_t number, std::uint32_t width = 37, std::uint32_t height = 11,
                       std::size_t images = 2);
