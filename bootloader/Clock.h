#pragma once

#include <QDeadlineTimer>

#include <chrono>
#include <functional>

#ifdef Q_OS_LINUX
#include <ctime>
#endif

/// Returns the current time; replaced in tests.
using Clock = std::function<QDeadlineTimer()>;

/// The clock of the system, at the coarse resolution that serial exchanges need. It goes on while the machine sleeps: a
/// device may be exchanged in that time.
inline QDeadlineTimer systemClock()
{
#ifdef Q_OS_LINUX
    timespec sinceBoot{};
    ::clock_gettime(CLOCK_BOOTTIME, &sinceBoot); // CLOCK_MONOTONIC stands still then
    const std::chrono::nanoseconds time =
        std::chrono::seconds(sinceBoot.tv_sec) + std::chrono::nanoseconds(sinceBoot.tv_nsec);
    return QDeadlineTimer::addNSecs({}, time.count());
#else
    return QDeadlineTimer::current(Qt::CoarseTimer);
#endif
}
