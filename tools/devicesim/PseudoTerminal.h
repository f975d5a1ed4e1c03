#pragma once

#include "support/FileDescriptor.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace devicesim
{

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

/// A pseudo-terminal in raw mode, seen from the device: its own end, and the end that hosts open by `path`.
///
/// The host's end is kept open here too, so that the device sees no error while no host has it open.
class PseudoTerminal
{
public:
    /// Called once.
    /// @return false on failure, with the reason in `error`.
    bool open(std::string& error);

    /// Hangs up: hosts that have the line open get errors and end of file, and `path` is gone.
    void close();

    /// What a host opens, for example "/dev/pts/3"; stays as it was after `close`.
    const std::string& path() const { return hostPath; }

    /// Becomes readable when bytes from a host wait; -1 when closed.
    int descriptor() const { return deviceEnd.get(); }

    /// Takes what waits, without blocking.
    /// @return the number of bytes placed in `buffer`.
    std::size_t read(std::span<std::uint8_t> buffer);

    /// Gives bytes to the host's input queue, without blocking. What finds no room is lost, as on a line whose host
    /// does not read.
    /// @return the number of bytes that found room.
    std::size_t write(std::span<const std::uint8_t> bytes);

    /// @return whether bytes wait in the input queue of the host's end.
    bool hostInputWaits() const;

    /// Becomes readable when `tidy` is to be called; -1 without inotify(7).
    int closeNotifier() const { return closeEvents.get(); }

    /// When `tidy` is to be called next; nothing while no host has left.
    std::optional<TimePoint> nextTidy() const { return tidyAt; }

    /// Makes the host's end what it was at first a moment after the last host has closed it: raw, open to everybody,
    /// its input queue empty. A host that was killed leaves it otherwise, and would keep the next one out.
    /// @return false if the host's end is lost.
    bool tidy(TimePoint now);

private:
    bool openHostEnd();
    bool sawClose();
    bool restoreIfDeserted();

    FileDescriptor deviceEnd;
    FileDescriptor hostEnd;
    /// Detects via inotify(7) that a host closed the terminal.
    FileDescriptor closeEvents;
    std::string hostPath;
    std::optional<TimePoint> tidyAt;
};

} // namespace devicesim
