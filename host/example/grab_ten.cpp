// Opens a camera, sets its exposure, grabs ten frames and saves them as pictures.
#include "client/stream.h"

#include <fstream>
#include <iostream>

int main()
try {
    using namespace std::chrono_literals;
    const auto camera = zrn::Camera::open();
    camera->setExposure(2000us);
    zrn::Stream stream(camera);
    for (int i = 0; i < 10; ++i) {
        const auto frame = stream.next(5s);
        if (!frame) {
            throw std::runtime_error("the camera sends nothing");
        }
        for (const zrn::Image& image : frame->images()) {
            std::ofstream file("frame-" + std::to_string(i) + image.letter + ".pgm");
            file << "P5 " << frame->width << ' ' << frame->height << " 255\n";
            file.write(reinterpret_cast<const char*>(image.pixels().data()),
                       static_cast<std::streamsize>(image.pixels().size()));
        }
        std::cout << "number " << frame->step.number << ", missing " << frame->step.missing << '\n';
    }
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
