// The start of a bare dialog with a text field and a button, for comparison with StartTavimora.

#include "bench/FirstPaint.h"

#include <QApplication>
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
    const FirstPaint firstPaint(dialog);
    dialog.show();
    return QApplication::exec();
}
