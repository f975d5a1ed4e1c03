#pragma once

#include "support/FileDescriptor.h"

#include <chrono>

/// Waits for a line, for a cancel and for a point in time at once, without using the processor.
///
/// One thread waits; `cancel` may come from any thread at any time between construction and destruction.
class LineWaiter
{
public:
    using Clock = std::chrono::steady_clock;

    /// What ended a wait. Of several that hold at once the first counts.
    enum class Wake { Line, Cancel, Deadline };

    LineWaiter();

    /// errno of a construction that failed, which leaves the waiter unusable; otherwise 0.
    int error() const { return constructionError; }

    /// Ends the wait under way and every later one, until `liftCancel`. Takes no lock.
    void cancel();

    void liftCancel();
    bool isCancelled() const;

    /// @param events what `poll` is to look for on the descriptor `line`; a hang-up of the line counts as well.
    Wake wait(int line, short events, Clock::time_point deadline);

    /// Waits for a cancel or the deadline alone.
    Wake sleep(Clock::time_point deadline);

private:
    void armTimer(Clock::time_point deadline);

    // Set once by the constructor and only read ever after, which is what makes `cancel` safe.
    FileDescriptor cancelEvent;
    FileDescriptor timer;
    int constructionError = 0;
};
