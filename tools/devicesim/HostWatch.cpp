#include "tools/devicesim/HostWatch.h"

#include <algorithm>
#include <array>
#include <cstring>

#include <sys/inotify.h>

namespace devicesim
{

void HostWatch::start(const std::string& path)
{
    hosts = 0;
    notifier = UniqueFd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (notifier.isValid() && ::inotify_add_watch(notifier.get(), path.c_str(), IN_OPEN | IN_CLOSE) < 0) {
        notifier.reset();
    }
}

HostWatch::News HostWatch::news()
{
    if (!notifier.isValid()) {
        return News::None;
    }
    bool happened = false;
    std::array<char, 4096> buffer = {};
    for (;;) {
        const ssize_t size = ::read(notifier.get(), buffer.data(), buffer.size());
        if (size <= 0) {
            break;
        }
        for (std::size_t offset = 0; offset < static_cast<std::size_t>(size);) {
            inotify_event event = {};
            std::memcpy(&event, buffer.data() + offset, sizeof event);
            offset += sizeof event + event.len;
            if ((event.mask & IN_OPEN) != 0) {
                ++hosts;
                happened = true;
            } else if ((event.mask & IN_CLOSE) != 0) {
                hosts = std::max(hosts - 1, 0);
                happened = true;
            }
        }
    }
    if (!happened) {
        return News::None;
    }
    return hosts > 0 ? News::Present : News::Gone;
}

} // namespace devicesim
