// The start of the program's window up to its first paint.

#include "app/MainDialog.h"
#include "bench/FirstPaint.h"

#include <QApplication>

int main(int argc, char* argv[])
{
    const QApplication application(argc, argv);
    MainDialog dialog;
    const FirstPaint firstPaint(dialog);
    dialog.show();
    return QApplication::exec();
}
