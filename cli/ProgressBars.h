#pragma once

#include <QString>
#include <QStringList>
#include <QTimer>

#include <cstddef>
#include <vector>

/// Progress bars in the last lines of a terminal, one a line, written to standard error. Silent unless that is a
/// terminal. Only bars with a label are shown, and as many of them as the terminal has room for.
class ProgressBars
{
public:
    /// A bar for each name, which stands in front of it; empty for none.
    explicit ProgressBars(const QStringList& barNames);
    ProgressBars(const ProgressBars&) = delete;
    ProgressBars& operator=(const ProgressBars&) = delete;

    /// Takes the bars off the screen.
    ~ProgressBars();

    /// What the bar stands for; an empty text takes it off the screen.
    void setLabel(std::size_t bar, const QString& text);
    void setMinimum(std::size_t bar, int bound);
    void setMaximum(std::size_t bar, int bound);
    void setValue(std::size_t bar, int position);

    /// Frees the lines, so that other text can be written there; the bars come back below it.
    void clear();

private:
    struct Bar {
        QString name = {};
        QString label = {};
        int minimum = 0;
        int maximum = 1;
        int value = 0;
    };

    void drawSoon();
    void draw();
    static QString lineOf(const Bar& bar, qsizetype nameWidth, qsizetype room);

    const bool terminal;
    std::vector<Bar> bars;
    qsizetype nameWidth = 0;
    /// Lines of bars on the screen, above that of the cursor.
    QStringList shown;
    QTimer drawTimer;
};
