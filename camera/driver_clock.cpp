#include "driver_clock.h"

#include <QThread>

void sleepFor(std::chrono::milliseconds length)
{
    QThread::msleep(static_cast<unsigned long>(length.count()));
}

std::chrono::steady_clock::time_point steadyTime()
{
    return std::chrono::steady_clock::now();
}
