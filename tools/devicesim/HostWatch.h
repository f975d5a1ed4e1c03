#pragma once

#include "tools/devicesim/UniqueFd.h"

#include <string>

namespace devicesim
{

/// Tells when a terminal has been closed by somebody, by inotify(7). Where that is not to be had, it tells nothing.
class HostWatch
{
public:
    void start(const std::string& path);

    /// @return whether somebody has closed the terminal since the call before.
    bool sawClose();

    /// Becomes readable when there is news; -1 without inotify.
    int descriptor() const { return notifier.get(); }

private:
    UniqueFd notifier;
};

} // namespace devicesim
