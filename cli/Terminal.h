#pragma once

#include <QString>

#include <cstdio>

/// @return whether somebody sees at once what is written to the stream.
bool isTerminal(std::FILE* stream);

/// @return the columns of the terminal that the stream leads to; 80 when it does not tell.
int terminalColumns(std::FILE* stream);

/// Puts the null device in the place of each standard stream that the caller of this program has closed. Otherwise the
/// next thing to be opened, the serial port too, would get its number and all that is printed there. To be called
/// before anything is opened.
void openStandardStreams();

/// The text on one line, without anything that a terminal or a reader of columns would take for a command: what devices
/// and files say of themselves is theirs to choose.
QString printable(QString text);
