#pragma once

#include "serial/PortSettings.h"
#include "support/FileDescriptor.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include <sys/types.h>

/// A terminal device held exclusively and used as a raw line for bytes. The destructor restores what was changed on it.
///
/// Failures come back as errno values, 0 being success.
class TerminalLine
{
public:
    TerminalLine();
    TerminalLine(const TerminalLine&) = delete;
    TerminalLine& operator=(const TerminalLine&) = delete;
    TerminalLine(TerminalLine&&) = delete;
    TerminalLine& operator=(TerminalLine&&) = delete;
    ~TerminalLine();

    /// Opens the device at `path`, claims it for this object alone, applies the settings and empties both queues. To
    /// be called once.
    /// @return ENOTTY when the device is no terminal, EBUSY when somebody else has claimed it, EINVAL when it does not
    ///         take the settings, or what the system says.
    int open(const std::string& path, const PortSettings& settings);

    /// Sets rate, character format and modem lines. Where the driver does not take a setting, those before stay in
    /// force and the result is EINVAL; a pseudo-terminal takes any.
    int apply(const PortSettings& settings);

    /// Drops what is queued in the directions asked for.
    int discard(bool input, bool output);

    /// Whether a character device is a pseudo-terminal, which has no line.
    static bool isPseudoTerminal(dev_t device);

    /// The non-blocking descriptor to read from and write to.
    int descriptor() const { return device.get(); }

    /// Received bytes in the queue of the kernel; nothing when the line has hung up.
    std::optional<std::size_t> receivedBytes() const;

    /// Bytes in the queue of the kernel that have not left yet, 0 where the driver cannot tell; nothing when the line
    /// has hung up.
    std::optional<std::size_t> unsentBytes() const;

    /// Time that `count` characters take on the line, start, parity and stop bits included.
    std::chrono::nanoseconds transmissionTime(std::size_t count) const;

    /// Number of whole characters that the line can carry within `time`.
    std::size_t capacity(std::chrono::nanoseconds time) const;

private:
    struct Original;

    int claim();
    int save();
    int setModemLines(bool dtr, bool rts);
    void askForLowLatency();
    void restore();

    FileDescriptor device;
    std::unique_ptr<Original> original;
    bool claimed = false;
    bool pseudo = false;
    double charactersPerSecond = 1;
};
