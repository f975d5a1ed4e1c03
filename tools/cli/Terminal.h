#pragma once

#include <QString>

#include <cstdio>

/// @return whether somebody sees at once what is written to the stream.
bool isTerminal(std::FILE* stream);

/// The text on one line, without anything that a terminal or a reader of columns would take for a command: what devices
/// and files say of themselves is theirs to choose.
QString printable(QString text);
