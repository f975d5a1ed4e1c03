// A bare dialog with a text field and a button, for bench/compare-start to measure. Usage: StartBare NANOSECONDS

#include "bench/FirstPaint.h"

#include <QDialog>
#include <QPushButton>
#include <QTextEdit>
#include <QVBoxLayout>

int main(int argc, char* argv[])
{
    const QApplication application(argc, argv);
    QDialog dialog;
    dialog.resize(539, 389);
    auto* layout = new QVBoxLayout(&dialog);
    layout->addWidget(new QTextEdit);
    layout->addWidget(new QPushButton(QStringLiteral("Button")));
    const FirstPaint probe(dialog, QApplication::arguments().value(1).toLongLong());
    dialog.show();
    return QApplication::exec();
}
