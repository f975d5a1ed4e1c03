#include "tools/devicesim/HostWatch.h"

#include <array>

#include <sys/inotify.h>

namespace devicesim
{

void HostWatch::start(const std::string& path)
{
    notifier = UniqueFd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (notifier.isValid() && ::inotify_add_watch(notifier.get(), path.c_str(), IN_CLOSE) < 0) {
        notifier.reset();
    }
}

bool HostWatch::sawClose()
{
    bool closed = false;
    // The kernel joins like events, so that their number tells nothing.
    std::array<char, 4096> events = {};
    while (notifier.isValid() && ::read(notifier.get(), events.data(), events.size()) > 0) {
        closed = true;
    }
    return closed;
}

} // namespace devicesim
