#include "cli/Commands.h"

#include <QCoreApplication>

#include <array>

#ifndef Q_OS_WIN
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

} // namespace

int main(int argc, char** argv)
{
    openStandardStreams();
    QCoreApplication::setApplicationName(QStringLiteral("tavimora-cli"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TAVIMORA_VERSION));
    const QCoreApplication application(argc, argv);
    const std::array commands = {portsCommand, showCommand, infoCommand, verifyCommand, burnCommand, stationCommand};
    return static_cast<int>(runCommand(commands, QCoreApplication::arguments().mid(1)));
}
