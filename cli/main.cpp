#include "cli/Commands.h"

#include <QCoreApplication>

#include <array>

#ifdef Q_OS_WIN
#include <windows.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

namespace
{

/// Puts the null device in the place of each standard stream that the caller of this program has closed. Otherwise the
/// next thing to be opened, the serial port too, would get its number and all that is printed there. To be called
/// before anything is opened.
void openStandardStreams()
{
#ifndef Q_OS_WIN
    // The lowest free descriptor is the one that an open gets (POSIX.1-2017, 2.14).
    while (true) {
        const int descriptor = open("/dev/null", O_RDWR);
        if (descriptor > STDERR_FILENO) {
            close(descriptor);
        }
        if (descriptor < 0 || descriptor > STDERR_FILENO) {
            return;
        }
    }
#endif
}

#ifdef Q_OS_WIN
/// Lets the console read what this program prints in the local 8-bit encoding of Qt, which is that of the active code
/// page and not that of the console. In the end the console gets its own back.
class ConsoleEncoding
{
public:
    ConsoleEncoding() { SetConsoleOutputCP(GetACP()); }
    ConsoleEncoding(const ConsoleEncoding&) = delete;
    ConsoleEncoding& operator=(const ConsoleEncoding&) = delete;
    ~ConsoleEncoding() { SetConsoleOutputCP(earlier); }

private:
    const UINT earlier = GetConsoleOutputCP();
};
#endif

} // namespace

int main(int argc, char** argv)
{
    openStandardStreams();
#ifdef Q_OS_WIN
    const ConsoleEncoding encoding;
#endif
    QCoreApplication::setApplicationName(QStringLiteral("tavimora-cli"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TAVIMORA_VERSION));
    const QCoreApplication application(argc, argv);
    const std::array commands = {portsCommand, showCommand, infoCommand, verifyCommand, burnCommand, stationCommand};
    return static_cast<int>(runCommand(commands, QCoreApplication::arguments().mid(1)));
}
