#include "serial/SerialPortLinux.h"

#include "support/FileDescriptor.h"
#include "tests/support/PtyLine.h"

#include <QtTest>

#include <cstdarg>
#include <ctime>

#include <asm/termbits.h>
#include <linux/serial.h>
#include <linux/tty_flags.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>

namespace
{

// What a pseudo-terminal lacks: modem lines, raised by the opening as on a real port, and a driver with a latency.
int modemLines = 0;
serial_struct driver{};
// Makes every write end at once without a byte taken, as a driver may whose adapter is gone.
bool takesNothing = false;
// Gives each terminal the number of a real port, whose settings are checked.
bool looksReal = false;

} // namespace

// These replace those of the C library in this executable.
extern "C" int fstat(int descriptor, struct stat* status) noexcept
{
    const auto result = static_cast<int>(::syscall(SYS_fstat, descriptor, status));
    status->st_rdev = looksReal ? makedev(4, 64) : status->st_rdev;
    return result;
}

extern "C" ssize_t write(int descriptor, const void* data, std::size_t size)
{
    return takesNothing ? 0 : ::syscall(SYS_write, descriptor, data, size);
}

extern "C" int ioctl(int descriptor, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    if (request == TIOCMGET) {
        *static_cast<int*>(argument) = modemLines;
    } else if (request == TIOCMBIS) {
        modemLines |= *static_cast<int*>(argument);
    } else if (request == TIOCMBIC) {
        modemLines &= ~*static_cast<int*>(argument);
    } else if (request == TIOCGSERIAL) {
        *static_cast<serial_struct*>(argument) = driver;
    } else if (request == TIOCSSERIAL) {
        driver = *static_cast<serial_struct*>(argument);
    } else {
        return static_cast<int>(::syscall(SYS_ioctl, descriptor, request, argument));
    }
    return 0;
}

class SerialPortLinuxTest : public QObject
{
    Q_OBJECT

    PtyLine line;
    FileDescriptor terminal{::open(line.portName().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)};

private Q_SLOTS:
    void settingsComeAndGo()
    {
        const auto name = line.portName();
        // The settings, what a pseudo-terminal keeps of their format, and the format before.
        const std::tuple<PortSettings, unsigned, unsigned> cases[] = {
            {{name, 57600}, BOTHER, B9600 | HUPCL}, {{name, 12345, 8, PortParity::Mark, PortStopBits::Two, true},
                                                        BOTHER | PARODD | CMSPAR | CSTOPB, B300 | CRTSCTS}};
        for (const auto& [settings, format, original] : cases) {
            termios2 before{}, during{}, after{};
            before.c_cflag = original | CS8 | CREAD;
            before.c_lflag = ICANON | ECHO;
            QCOMPARE(ioctl(terminal.get(), TCSETS2, &before) | ioctl(terminal.get(), TCGETS2, &before), 0);
            modemLines = TIOCM_DTR | TIOCM_RTS | TIOCM_CTS;
            driver.flags = 1 << ASYNCB_SPD_HI;

            SerialPortLinux port(settings);
            QVERIFY(port.open());
            QCOMPARE(ioctl(terminal.get(), TCGETS2, &during), 0);
            QCOMPARE(during.c_cflag & ~(CS8 | CREAD | CLOCAL | HUPCL), format);
            QCOMPARE(during.c_ospeed, settings.baudRate);
            QCOMPARE(during.c_iflag | during.c_oflag | during.c_lflag, unsigned(IGNBRK));
            QCOMPARE(modemLines, TIOCM_CTS | (settings.dtrEnabled ? TIOCM_DTR : 0));
            QCOMPARE(driver.flags, 1 << ASYNCB_SPD_HI | 1 << ASYNCB_LOW_LATENCY);
            QVERIFY(::flock(terminal.get(), LOCK_EX | LOCK_NB) != 0);
            port.close();
            QCOMPARE(ioctl(terminal.get(), TCGETS2, &after), 0);
            QCOMPARE(std::memcmp(&after, &before, sizeof after), 0);
            QCOMPARE(driver.flags, 1 << ASYNCB_SPD_HI);
            // With HUPCL the kernel lowers the lines, and they must not be raised before that.
            QCOMPARE(modemLines & TIOCM_RTS, (original & HUPCL) != 0 ? 0 : TIOCM_RTS);
            // Others may hold it in either way.
            QVERIFY(::flock(terminal.get(), LOCK_EX | LOCK_NB) == 0 && !port.open() &&
                    ::flock(terminal.get(), LOCK_UN) == 0);
            QVERIFY(port.open());
            port.close();
            QVERIFY(ioctl(terminal.get(), TIOCEXCL) == 0 && !port.open() && ioctl(terminal.get(), TIOCNXCL) == 0);
        }
    }

    void refusals()
    {
        SerialPortLinux plain({line.portName(), 57600}), odd({line.portName(), 57600, 8, PortParity::Odd});
        looksReal = true;
        // No pseudo-terminal takes a parity.
        QVERIFY(!odd.open() && plain.open());
        looksReal = false;
        plain.close();
        QCOMPARE(odd.errorString(), L"The port does not support these line settings: 57600 baud, 8 data bits.");
        // Its owner alone is kept out, and root would not be.
        QCOMPARE(::fchmod(terminal.get(), 0060), 0);
        if (::getuid() == 0) {
            QCOMPARE(::fchown(terminal.get(), 65534, -1) | ::seteuid(65534), 0);
        }
        const bool opened = plain.open();
        QCOMPARE(::seteuid(::getuid()) | ::fchmod(terminal.get(), 0600), 0);
        QVERIFY(!opened &&
                plain.errorString().starts_with(L"You have no permission to use this port. It is open to the group "));
    }

    void waitingIsFree()
    {
        SerialPortLinux port({line.portName()});
        port.setTimeouts(400, 400);
        QVERIFY(port.open());
        std::uint8_t byte = 0;
        const auto start = std::clock();
        QCOMPARE(port.read(&byte, 1), 0U);
        takesNothing = true;
        const std::size_t taken = port.write(&byte, 1);
        takesNothing = false;
        line.hangUp();
        QCOMPARE(taken + port.read(&byte, 1) + port.write(&byte, 1), 0U);
        QVERIFY(std::clock() - start < CLOCKS_PER_SEC / 10);
    }
};

QTEST_GUILESS_MAIN(SerialPortLinuxTest)
#include "SerialPortLinuxTest.moc"
