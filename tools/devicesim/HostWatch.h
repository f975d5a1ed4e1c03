#pragma once

#include "tools/devicesim/UniqueFd.h"

#include <string>

namespace devicesim
{

/// Watches who opens and closes a terminal, by inotify(7). Where that is not to be had, it sees nobody.
class HostWatch
{
public:
    /// Watches `path` from now on; opens before are not counted.
    void start(const std::string& path);

    enum class News { None, Present, Gone };

    /// Takes what happened since the call before, without blocking.
    /// @return `None` if nothing happened, else whether any host is left now.
    News news();

    /// Becomes readable when there is news; -1 without inotify.
    int descriptor() const { return notifier.get(); }

private:
    UniqueFd notifier;
    int hosts = 0;
};

} // namespace devicesim
