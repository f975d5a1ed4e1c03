#pragma once

#include <QDeadlineTimer>

#include <functional>

/// Returns the current time; replaced in tests.
using Clock = std::function<QDeadlineTimer()>;

/// The clock of the system, at the coarse resolution that serial exchanges need.
inline QDeadlineTimer systemClock()
{
    return QDeadlineTimer::current(Qt::CoarseTimer);
}
