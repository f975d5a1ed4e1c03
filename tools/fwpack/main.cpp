#include "tools/fwpack/Fwpack.h"

#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    QTextStream out(stdout);
    QTextStream err(stderr);
    return fwpack::run(QCoreApplication::arguments(), out, err);
}
