#pragma once

#include <QString>

#include <cstdio>

/// @return whether the stream leads to a terminal.
bool isTerminal(std::FILE* stream);

/// A progress bar in the last line of a terminal, written to standard error. Silent unless that is a terminal.
class ProgressBar
{
public:
    ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    /// Takes the bar off the screen.
    ~ProgressBar();

    /// What the bar stands for; an empty text takes it off the screen.
    void setLabel(const QString& text);
    void setMinimum(int bound);
    void setMaximum(int bound);
    void setValue(int position);

    /// Frees the line, so that other text can be written there; the next change draws the bar again below it.
    void clear();

private:
    void draw();

    const bool terminal;
    QString label;
    int minimum = 0;
    int maximum = 1;
    int value = 0;
    QString shown;
};
