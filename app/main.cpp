#include "app/MainDialog.h"

#include <QApplication>

int main(int argc, char* argv[])
{
    QCoreApplication::setOrganizationName(QStringLiteral("Quorle"));
    QCoreApplication::setApplicationName(QStringLiteral("Tavimora"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TAVIMORA_VERSION));
    QGuiApplication::setDesktopFileName(QStringLiteral("com.quorle.tavimora"));

    QApplication application(argc, argv);
    MainDialog dialog;
    dialog.show();
    return QApplication::exec();
}
