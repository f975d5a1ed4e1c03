#include "cli/Terminal.h"

#include <algorithm>
#include <cstdint>

#ifdef Q_OS_WIN
#include <io.h>
#include <windows.h>
#else
#include <sys/ioctl.h>
#include <unistd.h>
#endif

namespace
{

constexpr int defaultColumns = 80;
constexpr qsizetype widestBar = 40;

/// @return the columns of the terminal behind standard error; 80 when it does not tell.
int terminalColumns()
{
#ifdef Q_OS_WIN
    CONSOLE_SCREEN_BUFFER_INFO screen = {};
    return GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &screen)
               ? screen.srWindow.Right - screen.srWindow.Left + 1
               : defaultColumns;
#else
    winsize size = {};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : defaultColumns;
#endif
}

void writeNow(const QByteArray& bytes)
{
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stderr);
    std::fflush(stderr);
}

} // namespace

bool isTerminal(std::FILE* stream)
{
#ifdef Q_OS_WIN
    return _isatty(_fileno(stream)) != 0;
#else
    return isatty(fileno(stream)) == 1;
#endif
}

ProgressBar::ProgressBar()
    : terminal(isTerminal(stderr))
{
}

ProgressBar::~ProgressBar()
{
    clear();
}

void ProgressBar::setLabel(const QString& text)
{
    label = text;
    draw();
}

void ProgressBar::setMinimum(int bound)
{
    minimum = bound;
}

void ProgressBar::setMaximum(int bound)
{
    maximum = bound;
}

void ProgressBar::setValue(int position)
{
    value = position;
    draw();
}

void ProgressBar::clear()
{
    if (shown.isEmpty()) {
        return;
    }
    writeNow("\r" + QByteArray(shown.size(), ' ') + "\r");
    shown.clear();
}

void ProgressBar::draw()
{
    if (!terminal) {
        return;
    }
    if (label.isEmpty()) {
        clear();
        return;
    }
    const std::int64_t range = std::max<std::int64_t>(std::int64_t{maximum} - minimum, 1);
    const std::int64_t done = std::clamp<std::int64_t>(std::int64_t{value} - minimum, 0, range);
    // A line that fills the last column may wrap, and what has wrapped cannot be taken off the screen again.
    const qsizetype room = std::max(terminalColumns() - 1, 0);
    const QString text = QStringLiteral("] %1 % %2").arg(done * 100 / range, 3).arg(label);
    const qsizetype width = std::clamp<qsizetype>(room - 1 - text.size(), 0, widestBar);
    const auto filled = static_cast<qsizetype>(done * width / range);
    const QString line = ('[' + QString(filled, u'#') + QString(width - filled, u'.') + text).left(room);
    if (line == shown) {
        return;
    }
    const qsizetype leftOver = std::max<qsizetype>(shown.size() - line.size(), 0);
    writeNow("\r" + line.toLocal8Bit() + QByteArray(leftOver, ' '));
    shown = line;
}
