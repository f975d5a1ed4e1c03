#include "tools/cli/PortsCommand.h"

#include <QCoreApplication>
#include <QStringList>
#include <QTextStream>

#include <cstdio>

#include <unistd.h>

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments == QStringList(QStringLiteral("ports"))) {
        QTextStream out(stdout);
        return listPorts(out, isatty(STDOUT_FILENO) != 0);
    }
    QTextStream(stderr) << "usage: tavimora-cli ports\n";
    return 2;
}
