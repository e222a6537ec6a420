// Waiting would be all that a fuzzer does.

#include "driver_clock.h"

#include <QDeadlineTimer>
#include <QWaitCondition>

#include <chrono>

void sleepFor(std::chrono::milliseconds /*length*/) {}

std::chrono::steady_clock::time_point steadyTime()
{
    return std::chrono::steady_clock::now();
}

/// Takes the place of QtCore's.
bool QWaitCondition::wait(QMutex* mutex, unsigned long /*milliseconds*/)
{
    return wait(mutex, QDeadlineTimer(0));
}
