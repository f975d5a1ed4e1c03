#pragma once

#include <functional>
#include <memory>

/// Watches for the wish of the user or the system that the program ends: SIGINT, SIGTERM and, unless the program was
/// started with it ignored, SIGHUP on POSIX, the console's control events on Windows. One object at a time.
class StopSignal
{
public:
    /// `onStop` runs on the event loop of the thread that made this object, once for each signal.
    explicit StopSignal(std::function<void()> onStop);
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    /// Gives the signals back to who had them before.
    ~StopSignal();

    /// Runs `onStop` now if a signal has come. For whoever is handed events without end, behind which the event loop
    /// does not come round to the signal.
    void check();

private:
    struct Watch;
    std::unique_ptr<Watch> watch;
};
