#include "cli/Terminal.h"

#include <algorithm>

#ifdef Q_OS_WIN
#include <io.h>
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>
#endif

namespace
{

constexpr int usualColumns = 80;

} // namespace

bool isTerminal(std::FILE* stream)
{
#ifdef Q_OS_WIN
    return _isatty(_fileno(stream)) != 0;
#else
    return isatty(fileno(stream)) == 1;
#endif
}

int terminalColumns(std::FILE* stream)
{
#ifdef Q_OS_WIN
    CONSOLE_SCREEN_BUFFER_INFO screen = {};
    const auto console = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
    return GetConsoleScreenBufferInfo(console, &screen) ? screen.srWindow.Right - screen.srWindow.Left + 1
                                                        : usualColumns;
#else
    winsize size = {};
    return ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : usualColumns;
#endif
}

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

QString printable(QString text)
{
    std::replace_if(
        text.begin(), text.end(), [](QChar character) { return character.category() == QChar::Other_Control; }, u' ');
    return text;
}
