#include "cli/ProgressBars.h"

#include "cli/Terminal.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>

namespace
{

constexpr qsizetype widestBar = 40;
constexpr std::chrono::milliseconds drawInterval{50};

void writeNow(const QString& text)
{
    const QByteArray bytes = text.toLocal8Bit();
    std::fwrite(bytes.constData(), 1, static_cast<std::size_t>(bytes.size()), stderr);
    std::fflush(stderr);
}

// Control sequences of ECMA-48.
constexpr QLatin1String eraseToEnd("\x1b[J");

QString cursorUp(qsizetype lines)
{
    return lines > 0 ? QStringLiteral("\x1b[%1A").arg(lines) : QString();
}

} // namespace

ProgressBars::ProgressBars(const QStringList& barNames)
    : terminal(isTerminal(stderr) && prepareTerminal())
{
    for (const QString& name : barNames) {
        bars.push_back({.name = name});
        nameWidth = std::max(nameWidth, name.size());
    }
    drawTimer.setSingleShot(true);
    drawTimer.callOnTimeout([this] { draw(); });
}

ProgressBars::~ProgressBars()
{
    clear();
}

void ProgressBars::setLabel(std::size_t bar, const QString& text)
{
    bars[bar].label = text;
    drawSoon();
}

void ProgressBars::setMinimum(std::size_t bar, int bound)
{
    bars[bar].minimum = bound;
}

void ProgressBars::setMaximum(std::size_t bar, int bound)
{
    bars[bar].maximum = bound;
}

void ProgressBars::setValue(std::size_t bar, int position)
{
    bars[bar].value = position;
    drawSoon();
}

void ProgressBars::clear()
{
    if (!shown.isEmpty()) {
        writeNow(u'\r' + cursorUp(shown.size() - 1) + eraseToEnd);
        shown.clear();
        drawSoon();
    }
}

void ProgressBars::drawSoon()
{
    if (terminal && !drawTimer.isActive()) {
        drawTimer.start(drawInterval);
    }
}

void ProgressBars::draw()
{
    const TerminalSize size = terminalSize();
    QStringList lines;
    qsizetype hidden = 0;
    for (const Bar& bar : bars) {
        if (bar.label.isEmpty()) {
            continue;
        }
        if (lines.size() + 2 < size.rows) {
            // A line that fills the last column may wrap, and could not be taken off the screen again.
            lines << lineOf(bar, nameWidth, std::max(size.columns - 1, 0));
        } else {
            ++hidden;
        }
    }
    if (hidden > 0) {
        lines << QStringLiteral("... and %1 more").arg(hidden).left(std::max(size.columns - 1, 0));
    }
    if (lines != shown) {
        writeNow((shown.isEmpty() ? QString() : u'\r' + cursorUp(shown.size() - 1)) + eraseToEnd + lines.join(u'\n'));
        shown = lines;
    }
}

QString ProgressBars::lineOf(const Bar& bar, qsizetype nameWidth, qsizetype room)
{
    const std::int64_t range = std::max<std::int64_t>(std::int64_t{bar.maximum} - bar.minimum, 1);
    const std::int64_t done = std::clamp<std::int64_t>(std::int64_t{bar.value} - bar.minimum, 0, range);
    const QString front =
        nameWidth > 0 ? bar.name.leftJustified(nameWidth) + QStringLiteral(" [") : QStringLiteral("[");
    const QString back = QStringLiteral("] %1 % %2").arg(done * 100 / range, 3).arg(bar.label);
    const qsizetype width = std::clamp<qsizetype>(room - front.size() - back.size(), 0, widestBar);
    const auto filled = static_cast<qsizetype>(done * width / range);
    return (front + QString(filled, u'#') + QString(width - filled, u'.') + back).left(room);
}
