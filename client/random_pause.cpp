#include "client/random_pause.h"

#include <chrono>
#include <random>
#include <thread>

void zrn::pauseAtRandom()
{
    constexpr int shortest = 20;
    constexpr int longest = 150;
    thread_local std::minstd_rand random{std::random_device{}()};
    std::this_thread::sleep_for(
        std::chrono::milliseconds(std::uniform_int_distribution<int>(shortest, longest)(random)));
}
