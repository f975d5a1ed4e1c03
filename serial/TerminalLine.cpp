#include "serial/TerminalLine.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <utility>

// The kernel's own termios2, which takes any rate. It cannot be had together with <termios.h>.
#include <asm/termbits.h>
#include <fcntl.h>
#include <linux/serial.h>
#include <linux/tty_flags.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace
{

// Maximum deviation of the actual baud rate: 3 % of the roughly 5 % that both ends tolerate together.
constexpr double rateTolerance = 0.03;

constexpr int lowLatency = static_cast<int>(ASYNC_LOW_LATENCY);
constexpr tcflag_t formatBits = CSIZE | PARENB | PARODD | CMSPAR | CSTOPB;

template <typename... Argument>
int control(int descriptor, unsigned long request, Argument... argument)
{
    return ::ioctl(descriptor, request, argument...) < 0 ? errno : 0;
}

bool isPseudo(int descriptor)
{
    struct stat status = {};
    return ::fstat(descriptor, &status) == 0 && TerminalLine::isPseudoTerminal(status.st_rdev);
}

tcflag_t dataBitsFlag(std::uint8_t dataBits)
{
    constexpr std::array<tcflag_t, 4> flags{CS5, CS6, CS7, CS8};
    return flags.at(static_cast<std::size_t>(dataBits - 5));
}

tcflag_t parityFlags(PortParity parity, tcflag_t current)
{
    switch (parity) {
    case PortParity::None:
        return 0;
    case PortParity::Odd:
        return PARENB | PARODD;
    case PortParity::Even:
        return PARENB;
    case PortParity::Mark:
        return PARENB | CMSPAR | PARODD;
    case PortParity::Space:
        return PARENB | CMSPAR;
    }
    return current & (PARENB | PARODD | CMSPAR);
}

// CSTOPB means 1.5 stop bits with five data bits on common hardware and two with more. Two also serve a receiver that
// expects 1.5: it takes the rest for a pause.
tcflag_t stopBitsFlag(PortStopBits stopBits)
{
    return stopBits == PortStopBits::One ? 0 : CSTOPB;
}

// The raw mode of cfmakeraw(3), with breaks on the line ignored and without flow control.
void makeRaw(termios2& mode)
{
    mode.c_iflag = IGNBRK;
    mode.c_oflag = 0;
    mode.c_lflag = 0;
    mode.c_cflag |= CREAD | CLOCAL;
    mode.c_cflag &= ~CRTSCTS;
    // With VMIN 0 a silent line would read like one that has hung up.
    mode.c_cc[VMIN] = 1;
    mode.c_cc[VTIME] = 0;
}

void setFormat(termios2& mode, const PortSettings& settings)
{
    const auto current = mode.c_cflag;
    mode.c_cflag &= ~formatBits;
    mode.c_cflag |=
        dataBitsFlag(settings.dataBits) | parityFlags(settings.parity, current) | stopBitsFlag(settings.stopBits);
}

void setRate(termios2& mode, std::uint32_t baudRate)
{
    // With 0 in place of a constant the input rate is that of the output.
    constexpr tcflag_t bothRates = CBAUD | CBAUD << IBSHIFT;
    mode.c_cflag &= ~bothRates;
    mode.c_cflag |= BOTHER;
    mode.c_ispeed = baudRate;
    mode.c_ospeed = baudRate;
}

bool isRateTaken(std::uint32_t taken, std::uint32_t wanted)
{
    return std::abs(static_cast<double>(taken) - wanted) <= wanted * rateTolerance;
}

bool isTaken(const termios2& taken, const termios2& wanted)
{
    return (taken.c_cflag & formatBits) == (wanted.c_cflag & formatBits) &&
           isRateTaken(taken.c_ospeed, wanted.c_ospeed) && isRateTaken(taken.c_ispeed, wanted.c_ispeed);
}

int bitsPerCharacter(const PortSettings& settings)
{
    const int parityBits = settings.parity == PortParity::None ? 0 : 1;
    const int stopBits = settings.stopBits == PortStopBits::One ? 1 : 2;
    return 1 + settings.dataBits + parityBits + stopBits;
}

std::optional<std::size_t> queueLength(int descriptor, unsigned long request)
{
    int length = 0;
    if (const int error = control(descriptor, request, &length)) {
        // A driver that cannot tell is not a line that has hung up.
        return error == ENOTTY || error == EINVAL ? std::optional<std::size_t>(0) : std::nullopt;
    }
    return static_cast<std::size_t>(std::max(length, 0));
}

} // namespace

struct TerminalLine::Original {
    termios2 mode{};
    /// Nothing where the line has no modem lines.
    std::optional<int> modemLines;
    bool latencyLowered = false;
};

bool TerminalLine::isPseudoTerminal(dev_t device)
{
    // Linux, Documentation/admin-guide/devices.txt.
    constexpr unsigned firstMajor = 136;
    constexpr unsigned lastMajor = 143;
    return major(device) >= firstMajor && major(device) <= lastMajor;
}

TerminalLine::TerminalLine() = default;

TerminalLine::~TerminalLine()
{
    if (!claimed) {
        return;
    }
    restore();
    // The exclusive mode outlasts the closing while another program holds the terminal open, the lock while a forked
    // process holds the descriptor.
    control(device.get(), TIOCNXCL);
    ::flock(device.get(), LOCK_UN);
}

int TerminalLine::open(const std::string& path, const PortSettings& settings)
{
    // Non-blocking, so that the opening does not wait for a carrier.
    device = FileDescriptor(::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!device.isValid()) {
        return errno;
    }
    pseudo = isPseudo(device.get());
    if (const int error = claim()) {
        return error;
    }
    if (const int error = save()) {
        return error;
    }
    if (const int error = apply(settings)) {
        return error;
    }
    askForLowLatency();
    return discard(true, true);
}

int TerminalLine::claim()
{
    termios2 mode{};
    if (const int error = control(device.get(), TCGETS2, &mode)) {
        return error;
    }
    // Both ways, since few programs look at both, and the exclusive mode does not stop root.
    if (::flock(device.get(), LOCK_EX | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK ? EBUSY : errno;
    }
    int exclusive = 0;
    if (control(device.get(), TIOCGEXCL, &exclusive) == 0 && exclusive != 0) {
        return EBUSY;
    }
    if (const int error = control(device.get(), TIOCEXCL)) {
        return error;
    }
    claimed = true;
    return 0;
}

int TerminalLine::save()
{
    auto current = std::make_unique<Original>();
    if (const int error = control(device.get(), TCGETS2, &current->mode)) {
        return error;
    }
    int lines = 0;
    if (control(device.get(), TIOCMGET, &lines) == 0) {
        current->modemLines = lines;
    }
    original = std::move(current);
    return 0;
}

int TerminalLine::apply(const PortSettings& settings)
{
    if (settings.baudRate == 0 || settings.dataBits < 5 || settings.dataBits > 8) {
        return EINVAL;
    }
    termios2 before{};
    if (const int error = control(device.get(), TCGETS2, &before)) {
        return error;
    }
    termios2 wanted = before;
    makeRaw(wanted);
    setFormat(wanted, settings);
    setRate(wanted, settings.baudRate);
    if (const int error = control(device.get(), TCSETS2, &wanted)) {
        return error;
    }

    // TCSETS2 succeeds when the driver has taken any part of the settings.
    termios2 taken{};
    if (const int error = control(device.get(), TCGETS2, &taken)) {
        return error;
    }
    if (!pseudo && !isTaken(taken, wanted)) {
        control(device.get(), TCSETS2, &before);
        return EINVAL;
    }
    charactersPerSecond = static_cast<double>(settings.baudRate) / bitsPerCharacter(settings);
    // After the rate, since leaving rate 0 raises both lines.
    return setModemLines(settings.dtrEnabled, settings.rtsEnabled);
}

int TerminalLine::setModemLines(bool dtr, bool rts)
{
    const int raised = (dtr ? TIOCM_DTR : 0) | (rts ? TIOCM_RTS : 0);
    const int lowered = (TIOCM_DTR | TIOCM_RTS) & ~raised;
    for (const auto& [request, lines] : {std::pair(TIOCMBIC, lowered), std::pair(TIOCMBIS, raised)}) {
        const int error = lines == 0 ? 0 : control(device.get(), static_cast<unsigned long>(request), &lines);
        // These two mean that there are no modem lines.
        if (error != 0 && error != ENOTTY && error != EINVAL) {
            return error;
        }
    }
    return 0;
}

void TerminalLine::askForLowLatency()
{
    serial_struct driver{};
    if (control(device.get(), TIOCGSERIAL, &driver) != 0 || (driver.flags & lowLatency) != 0) {
        return;
    }
    driver.flags |= lowLatency;
    original->latencyLowered = control(device.get(), TIOCSSERIAL, &driver) == 0;
}

void TerminalLine::restore()
{
    // First, since unsent bytes would go out at the old rate, or delay the closing.
    discard(false, true);
    if (original == nullptr) {
        return;
    }
    serial_struct driver{};
    if (original->latencyLowered && control(device.get(), TIOCGSERIAL, &driver) == 0) {
        driver.flags &= ~lowLatency;
        control(device.get(), TIOCSSERIAL, &driver);
    }
    control(device.get(), TCSETS2, &original->mode);
    // With HUPCL the kernel lowers both lines at the last close. Raising them until then would be a pulse, and such a
    // pulse resets some devices.
    if (original->modemLines && (original->mode.c_cflag & HUPCL) == 0) {
        setModemLines((*original->modemLines & TIOCM_DTR) != 0, (*original->modemLines & TIOCM_RTS) != 0);
    }
}

int TerminalLine::discard(bool input, bool output)
{
    if (!input && !output) {
        return 0;
    }
    const int queues = input && output ? TCIOFLUSH : input ? TCIFLUSH : TCOFLUSH;
    return control(device.get(), TCFLSH, queues);
}

std::optional<std::size_t> TerminalLine::receivedBytes() const
{
    return queueLength(device.get(), TIOCINQ);
}

std::optional<std::size_t> TerminalLine::unsentBytes() const
{
    return queueLength(device.get(), TIOCOUTQ);
}

std::chrono::nanoseconds TerminalLine::transmissionTime(std::size_t count) const
{
    // Seconds; longer than any wait, and small enough for the conversion.
    constexpr double longest = 1e9;
    const std::chrono::duration<double> time(std::min(static_cast<double>(count) / charactersPerSecond, longest));
    return std::chrono::ceil<std::chrono::nanoseconds>(time);
}

std::size_t TerminalLine::capacity(std::chrono::nanoseconds time) const
{
    return static_cast<std::size_t>(std::chrono::duration<double>(time).count() * charactersPerSecond);
}
