#include "made_up_frames.h"

#include <random>

zrn::Frame frameOf(std::uint32_t width, std::uint32_t height, std::vector<MadeUpImage> images)
{
    const auto memory = std::make_shared<const std::vector<MadeUpImage>>(std::move(images));
    zrn::Frame frame;
    frame.width = width;
    frame.height = height;
    frame.imageCount = memory->size();
    for (std::size_t i = 0; i < memory->size(); ++i) {
        frame.stored.at(i) = {memory->at(i).letter, memory->at(i).bytes};
    }
    frame.memory = memory;
    return frame;
}

zrn::Frame madeUpFrame(std::uint32_t number, std::uint32_t width, std::uint32_t height,
                       std::size_t images)
{
    std::mt19937 random(number);
    std::vector<MadeUpImage> noise;
    for (std::size_t i = 0; i < images; ++i) {
        std::vector<std::uint8_t> bytes(std::size_t{width} * height + zrn::Image::trailerBytes);
        for (std::uint8_t& byte : bytes) {
            byte = static_cast<std::uint8_t>(random());
        }
        noise.push_back({i == 0 ? 'A' : 'B', std::move(bytes)});
    }
    zrn::Frame frame = frameOf(width, height, std::move(noise));
    frame.step.number = number;
    frame.arrival =
        zrn::Frame().arrival + std::chrono::seconds(1) + std::chrono::milliseconds(number);
    return frame;
}
