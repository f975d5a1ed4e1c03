#include "serial/LineWaiter.h"

#include <array>
#include <cerrno>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

LineWaiter::LineWaiter()
    : cancelEvent(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    // A timer descriptor instead of the time-out of poll(), which the kernel extends by its timer slack: 50
    // microseconds and more, or five characters at 921600 baud.
    , timer(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK))
{
    if (!cancelEvent.isValid() || !timer.isValid()) {
        constructionError = errno;
    }
}

void LineWaiter::cancel()
{
    // Fails only on a counter that is full, and then the event is set anyway.
    static_cast<void>(::eventfd_write(cancelEvent.get(), 1));
}

void LineWaiter::liftCancel()
{
    eventfd_t count = 0;
    static_cast<void>(::eventfd_read(cancelEvent.get(), &count));
}

bool LineWaiter::isCancelled() const
{
    pollfd entry{cancelEvent.get(), POLLIN, 0};
    return ::poll(&entry, 1, 0) > 0;
}

LineWaiter::Wake LineWaiter::wait(int line, short events, Clock::time_point deadline)
{
    armTimer(deadline);
    // poll() ignores negative descriptors.
    std::array<pollfd, 3> entries{{{line, events, 0}, {cancelEvent.get(), POLLIN, 0}, {timer.get(), POLLIN, 0}}};
    while (::poll(entries.data(), entries.size(), -1) < 0) {
        if (errno != EINTR && errno != EAGAIN) {
            return Wake::Deadline;
        }
    }
    if (entries[0].revents != 0) {
        return Wake::Line;
    }
    return entries[1].revents != 0 ? Wake::Cancel : Wake::Deadline;
}

LineWaiter::Wake LineWaiter::sleep(Clock::time_point deadline)
{
    return wait(-1, 0, deadline);
}

void LineWaiter::armTimer(Clock::time_point deadline)
{
    // The steady clock is CLOCK_MONOTONIC on Linux.
    const auto sinceBoot = deadline.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceBoot);
    itimerspec expiry{};
    expiry.it_value.tv_sec = seconds.count();
    expiry.it_value.tv_nsec = std::chrono::nanoseconds(sinceBoot - seconds).count();
    ::timerfd_settime(timer.get(), TFD_TIMER_ABSTIME, &expiry, nullptr);
}
