#include "tools/devicesim/PseudoTerminal.h"

#include <array>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <termios.h>

namespace devicesim
{

namespace
{

/// From the close by a host to the clean-up, so that a host that opens the terminal again at once is left alone.
constexpr std::chrono::milliseconds tidyDelay{100};

bool makeRaw(int terminal)
{
    termios mode = {};
    if (::tcgetattr(terminal, &mode) != 0) {
        return false;
    }
    ::cfmakeraw(&mode);
    mode.c_cflag |= CLOCAL | CREAD;
    return ::tcsetattr(terminal, TCSANOW, &mode) == 0;
}

} // namespace

bool PseudoTerminal::open(std::string& error)
{
    int device = -1;
    int host = -1;
    std::array<char, 128> name = {};
    const bool opened = ::openpty(&device, &host, nullptr, nullptr, nullptr) == 0;
    deviceEnd = FileDescriptor(device);
    hostEnd = FileDescriptor(host);
    if (!opened || ::fcntl(device, F_SETFD, FD_CLOEXEC) != 0 || ::fcntl(device, F_SETFL, O_RDWR | O_NONBLOCK) != 0 ||
        ::ttyname_r(host, name.data(), name.size()) != 0) {
        error = "no pseudo-terminal: " + std::generic_category().message(errno);
        return false;
    }
    hostPath = name.data();
    // openpty(3) leaves the host's end open for the programs that this one starts.
    if (!openHostEnd() || !makeRaw(hostEnd.get())) {
        error = hostPath + ": " + std::generic_category().message(errno);
        return false;
    }
    closeEvents = FileDescriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    ::inotify_add_watch(closeEvents.get(), hostPath.c_str(), IN_CLOSE);
    return true;
}

void PseudoTerminal::close()
{
    hostEnd.reset();
    deviceEnd.reset();
}

std::size_t PseudoTerminal::read(std::span<std::uint8_t> buffer)
{
    const ssize_t count = ::read(deviceEnd.get(), buffer.data(), buffer.size());
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

std::size_t PseudoTerminal::write(std::span<const std::uint8_t> bytes)
{
    const ssize_t count = ::write(deviceEnd.get(), bytes.data(), bytes.size());
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

bool PseudoTerminal::hostInputWaits() const
{
    int waiting = 0;
    return ::ioctl(hostEnd.get(), FIONREAD, &waiting) == 0 && waiting > 0;
}

bool PseudoTerminal::tidy(TimePoint now)
{
    if (sawClose() && !tidyAt) {
        tidyAt = now + tidyDelay;
    }
    if (!tidyAt || now < *tidyAt) {
        return true;
    }
    tidyAt.reset();
    const bool kept = restoreIfDeserted();
    // That has closed the host's end too.
    sawClose();
    return kept;
}

bool PseudoTerminal::sawClose()
{
    bool closed = false;
    std::array<char, 4096> events = {};
    while (::read(closeEvents.get(), events.data(), events.size()) > 0) {
        closed = true;
    }
    return closed;
}

bool PseudoTerminal::restoreIfDeserted()
{
    int exclusive = 0;
    ::ioctl(hostEnd.get(), TIOCGEXCL, &exclusive);
    // Exclusive use outlasts the host that asked for it, and would shut out this program too.
    ::ioctl(hostEnd.get(), TIOCNXCL);
    // The device's end sees a hang-up while nobody has the host's end open.
    hostEnd.reset();
    pollfd source = {deviceEnd.get(), 0, 0};
    const bool deserted = ::poll(&source, 1, 0) > 0 && (source.revents & POLLHUP) != 0;
    if (!openHostEnd()) {
        return false;
    }
    if (deserted) {
        ::tcflush(hostEnd.get(), TCIFLUSH);
        return makeRaw(hostEnd.get());
    }
    if (exclusive != 0) {
        ::ioctl(hostEnd.get(), TIOCEXCL);
    }
    return true;
}

bool PseudoTerminal::openHostEnd()
{
    hostEnd = FileDescriptor(::open(hostPath.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    return hostEnd.isValid();
}

} // namespace devicesim
