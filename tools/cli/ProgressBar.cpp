#include "tools/cli/ProgressBar.h"

#include "tools/cli/Terminal.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace
{

constexpr int barWidth = 40;

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
    if (shown.isEmpty())
        return;
    writeNow("\r" + QByteArray(shown.size(), ' ') + "\r");
    shown.clear();
}

void ProgressBar::draw()
{
    if (!terminal)
        return;
    if (label.isEmpty()) {
        clear();
        return;
    }
    const std::int64_t range = std::max<std::int64_t>(std::int64_t{maximum} - minimum, 1);
    const std::int64_t done = std::clamp<std::int64_t>(std::int64_t{value} - minimum, 0, range);
    const auto filled = static_cast<qsizetype>(done * barWidth / range);
    const QString line = QStringLiteral("[%1%2] %3 % %4")
                             .arg(QString(filled, u'#'), QString(barWidth - filled, u'.'))
                             .arg(done * 100 / range, 3)
                             .arg(label);
    if (line == shown)
        return;
    const auto leftOver = static_cast<qsizetype>(std::max<qsizetype>(shown.size() - line.size(), 0));
    writeNow("\r" + line.toLocal8Bit() + QByteArray(leftOver, ' '));
    shown = line;
}
