#include "cli/Commands.h"
#include "cli/Terminal.h"

#include <QCoreApplication>

#include <array>

int main(int argc, char** argv)
{
    openStandardStreams();
    QCoreApplication::setApplicationName(QStringLiteral("tavimora-cli"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TAVIMORA_VERSION));
    const QCoreApplication application(argc, argv);
    const std::array commands = {portsCommand, burnCommand};
    return static_cast<int>(runCommand(commands, QCoreApplication::arguments().mid(1)));
}
