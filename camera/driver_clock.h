#pragma once

#include <chrono>

// The driver's time. Whoever links the camera class brings the two functions, so that the class can
// be run by a clock that does not make anybody wait.

/// Lets the calling thread sleep.
void sleepFor(std::chrono::milliseconds length);

/// A time that never goes back.
std::chrono::steady_clock::time_point steadyTime();
