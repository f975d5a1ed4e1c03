#include "tools/devicesim/PseudoTerminal.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>

namespace devicesim
{

namespace
{

std::string lastError(const char* what)
{
    return std::string(what) + ": " + std::generic_category().message(errno);
}

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
    close();
    deviceEnd = UniqueFd(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    std::array<char, 128> name = {};
    if (!deviceEnd.isValid() || ::grantpt(deviceEnd.get()) != 0 || ::unlockpt(deviceEnd.get()) != 0 ||
        ::ptsname_r(deviceEnd.get(), name.data(), name.size()) != 0) {
        error = lastError("no pseudo-terminal");
        close();
        return false;
    }
    hostPath = name.data();
    if (!openHostEnd() || !makeRaw(hostEnd.get())) {
        error = lastError(name.data());
        close();
        return false;
    }
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

bool PseudoTerminal::tidyHostEnd()
{
    int exclusive = 0;
    ::ioctl(hostEnd.get(), TIOCGEXCL, &exclusive);
    // Exclusive use outlasts the host that asked for it, and would shut out this one too.
    ::ioctl(hostEnd.get(), TIOCNXCL);
    hostEnd.reset();
    pollfd ownEnd = {deviceEnd.get(), 0, 0};
    const bool deserted = ::poll(&ownEnd, 1, 0) > 0 && (ownEnd.revents & POLLHUP) != 0;
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
    hostEnd = UniqueFd(::open(hostPath.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    return hostEnd.isValid();
}

} // namespace devicesim
