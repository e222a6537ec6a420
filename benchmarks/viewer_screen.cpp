// What the viewer's window costs while it shows a stream: frames of two images are handed to a
// panel as a camera's thread does, without a camera and without a screen.
//
//     viewer_screen [SECONDS [RATE [PANEL_WIDTH PANEL_HEIGHT]]]

#include "zrnview/device/frame_station.h"
#include "zrnview/widgets/frame_panel.h"

#include <QApplication>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace
{

constexpr std::uint32_t width = 1280;
constexpr std::uint32_t height = 1024;
constexpr std::size_t imageBytes = std::size_t{width} * height + zrn::Image::trailerBytes;
constexpr int preparedFrames = 24; ///< together larger than caches

using Bytes = std::vector<std::uint8_t>;

double processorSeconds()
{
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

std::vector<zrn::Frame> makeFrames()
{
    std::vector<zrn::Frame> frames;
    std::uint32_t noise = 1;
    for (int i = 0; i < preparedFrames; ++i) {
        auto memory = std::make_shared<Bytes>(2 * imageBytes);
        for (std::uint32_t at = 0; at < memory->size(); ++at) {
            noise = noise * 1664525 + 1013904223;
            (*memory)[at] = static_cast<std::uint8_t>(
                (at / 8 + static_cast<std::uint32_t>(i)) % 192 + (noise >> 27));
        }
        zrn::Frame frame;
        frame.width = width;
        frame.height = height;
        frame.imageCount = 2;
        for (std::size_t image = 0; image < frame.imageCount; ++image) {
            frame.stored.at(image) = {static_cast<char>('A' + image),
                                      {memory->data() + image * imageBytes, imageBytes}};
        }
        frame.memory = memory;
        frames.push_back(frame);
    }
    return frames;
}

/// Seconds that memcpy takes for the pixels of one frame after the other.
double copyingSeconds(const std::vector<zrn::Frame>& frames)
{
    constexpr int rounds = 20;
    Bytes target(2 * imageBytes);
    const double before = processorSeconds();
    for (int round = 0; round < rounds; ++round) {
        for (const zrn::Frame& frame : frames) {
            std::memcpy(target.data(), frame.images()[0].bytes.data(), target.size());
            asm volatile("" : : "r"(target.data()) : "memory");
        }
    }
    return (processorSeconds() - before) / rounds / preparedFrames;
}

int argumentOr(int argc, char** argv, int index, int otherwise)
{
    return argc > index ? std::atoi(argv[index]) : otherwise;
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    const QApplication application(argc, argv);
    const std::chrono::seconds duration(argumentOr(argc, argv, 1, 10));
    const int rate = argumentOr(argc, argv, 2, 60);
    const QSize size(argumentOr(argc, argv, 3, 1300), argumentOr(argc, argv, 4, 850));
    const std::vector<zrn::Frame> frames = makeFrames();
    const double copying = copyingSeconds(frames);

    zrnview::FrameStation station;
    zrnview::FramePanel panel(station);
    panel.resize(size);
    int shown = 0;
    QObject::connect(&panel, &zrnview::FramePanel::shown, [&shown] { ++shown; });
    panel.show();

    int sent = 0;
    const zrnview::Clock::time_point start = zrnview::Clock::now();
    std::thread source([&] {
        for (zrnview::Clock::time_point due = start; due < start + duration; ++sent) {
            std::this_thread::sleep_until(due);
            zrnview::LiveFrame live;
            live.frame = frames[static_cast<std::size_t>(sent) % frames.size()];
            live.frame.step.number = static_cast<std::uint32_t>(sent);
            live.handedOver = zrnview::Clock::now();
            live.seconds = std::chrono::duration<double>(live.handedOver - start).count();
            live.waitMilliseconds = 1;
            station.deliver(std::move(live));
            due += std::chrono::nanoseconds(std::chrono::seconds(1)) / rate;
        }
        QMetaObject::invokeMethod(qApp, &QCoreApplication::quit);
    });
    const double before = processorSeconds();
    QApplication::exec();
    const double used = processorSeconds() - before;
    source.join();
    const double wall = std::chrono::duration<double>(zrnview::Clock::now() - start).count();
    std::printf("%.1f frames/s sent, %.1f shown, %.0f %% of a core; "
                "%.2f ms a frame shown, %.1f times memcpy of its bytes (%.2f ms)\n",
                sent / wall, shown / wall, used / wall * 100, used / shown * 1000,
                used / shown / copying, copying * 1000);
    return EXIT_SUCCESS;
}
