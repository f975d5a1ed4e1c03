#include "cli/ProgressBar.h"

#include "cli/Terminal.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace
{

constexpr qsizetype widestBar = 40;

void writeNow(const QByteArray& bytes)
{
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stderr);
    std::fflush(stderr);
}

} // namespace

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
    const qsizetype room = std::max(terminalColumns(stderr) - 1, 0);
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
