#pragma once

#include <cstdio>

/// @return whether the stream leads to a terminal.
bool isTerminal(std::FILE* stream);

/// Lets the terminal behind standard error understand control sequences, where that has to be asked for.
/// @return whether it understands them
bool prepareTerminal();

struct TerminalSize {
    int columns = 80;
    int rows = 24;
};

/// @return the size of the terminal behind standard error; 80 columns and 24 rows when it does not tell.
TerminalSize terminalSize();
