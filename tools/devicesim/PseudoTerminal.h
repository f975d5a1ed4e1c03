#pragma once

#include "tools/devicesim/UniqueFd.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace devicesim
{

/// A pseudo-terminal in raw mode, seen from the device: its own end, and the end that hosts open by `path`.
///
/// The host's end is kept open here too, so that the device sees no error while no host has it open.
class PseudoTerminal
{
public:
    /// @return false on failure, with the reason in `error`.
    bool open(std::string& error);

    /// Hangs up: hosts that have the line open get errors and end of file, and `path` is gone.
    void close();

    bool isOpen() const { return deviceEnd.isValid(); }

    /// What a host opens, for example "/dev/pts/3"; stays as it was after `close`.
    const std::string& path() const { return hostPath; }

    /// Becomes readable when bytes from a host wait; -1 when closed.
    int descriptor() const { return deviceEnd.get(); }

    /// Takes what waits, without blocking. @return the number of bytes placed in `buffer`.
    std::size_t read(std::span<std::uint8_t> buffer);

    /// Gives bytes to the host's input queue, without blocking. What finds no room is lost, as on a line whose host
    /// does not read. @return the number of bytes that found room.
    std::size_t write(std::span<const std::uint8_t> bytes);

    /// @return whether bytes wait in the input queue of the host's end.
    bool hostInputWaits() const;

    /// Asks the system whether a host has its end open, which takes a moment without holding it here. If none has,
    /// makes it what it was at first: raw, open to everybody, its input queue empty. A host that was killed leaves it
    /// otherwise.
    /// @return false if the host's end is lost.
    bool tidyHostEnd();

private:
    bool openHostEnd();

    UniqueFd deviceEnd;
    UniqueFd hostEnd;
    std::string hostPath;
};

} // namespace devicesim
