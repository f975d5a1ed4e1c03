#pragma once

#include <functional>
#include <memory>

/// Reports termination requests: SIGINT, SIGTERM, and SIGHUP unless it was ignored at start; on Windows the console's
/// control events. One object at a time.
class StopSignal
{
public:
    /// `onStop` runs on the event loop of the thread that made this object, once for each signal.
    explicit StopSignal(std::function<void()> onStop);
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    /// Restores the handlers that were there before.
    ~StopSignal();

    /// Runs `onStop` now if a signal has come. To be called by handlers of events that may come in endless number: the
    /// event loop delivers those before it looks for signals.
    void check();

private:
    struct Watch;
    std::unique_ptr<Watch> watch;
};
