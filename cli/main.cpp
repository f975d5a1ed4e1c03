#include "cli/BurnCommand.h"
#include "cli/PortsCommand.h"
#include "cli/Terminal.h"

#include <QCoreApplication>
#include <QStringList>
#include <QTextStream>

#include <cstdio>

namespace
{

constexpr const char* usage = "usage: tavimora-cli ports\n"
                              "       tavimora-cli burn --port NAME [--timeout SECONDS] FILE\n"
                              "       tavimora-cli --help | --version\n";

ExitStatus runCommand(const QStringList& arguments)
{
    const QString command = arguments.value(0);
    if (command == u"burn") {
        return burnCommand(arguments.mid(1));
    }
    if (command == u"ports" && arguments.size() == 1) {
        QTextStream out(stdout);
        return listPorts(out, isTerminal(stdout));
    }
    if (command == u"--help" || command == u"-h") {
        std::fputs(usage, stdout);
        return ExitStatus::Success;
    }
    if (command == u"--version") {
        std::printf("tavimora-cli %s\n", qPrintable(QCoreApplication::applicationVersion()));
        return ExitStatus::Success;
    }
    std::fputs(usage, stderr);
    return ExitStatus::Usage;
}

} // namespace

int main(int argc, char** argv)
{
    openStandardStreams();
    QCoreApplication::setApplicationName(QStringLiteral("tavimora-cli"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TAVIMORA_VERSION));
    const QCoreApplication application(argc, argv);
    return static_cast<int>(runCommand(QCoreApplication::arguments().mid(1)));
}
