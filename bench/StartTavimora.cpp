// The window of the program as its main function makes it, for bench/compare-start to measure.
// Usage: StartTavimora NANOSECONDS

#include "app/MainDialog.h"
#include "bench/FirstPaint.h"

int main(int argc, char* argv[])
{
    const QApplication application(argc, argv);
    MainDialog dialog;
    const FirstPaint probe(dialog, QApplication::arguments().value(1).toLongLong());
    dialog.show();
    return QApplication::exec();
}
