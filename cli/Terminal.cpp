#include "cli/Terminal.h"

#ifdef _WIN32
#include <io.h>
#include <windows.h>
#else
#include <sys/ioctl.h>
#include <unistd.h>
#endif

bool isTerminal(std::FILE* stream)
{
#ifdef _WIN32
    // _isatty takes the null device for a terminal.
    DWORD mode = 0;
    return GetConsoleMode(reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream))), &mode) != FALSE;
#else
    return isatty(fileno(stream)) == 1;
#endif
}

bool prepareTerminal()
{
#ifdef _WIN32
    const HANDLE console = GetStdHandle(STD_ERROR_HANDLE);
    DWORD mode = 0;
    return GetConsoleMode(console, &mode) && SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
#else
    return true;
#endif
}

TerminalSize terminalSize()
{
    TerminalSize result;
#ifdef _WIN32
    CONSOLE_SCREEN_BUFFER_INFO screen = {};
    if (GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &screen)) {
        result = {screen.srWindow.Right - screen.srWindow.Left + 1, screen.srWindow.Bottom - screen.srWindow.Top + 1};
    }
#else
    winsize size = {};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0) {
        result = {size.ws_col, size.ws_row};
    }
#endif
    return result;
}
