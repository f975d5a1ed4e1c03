#pragma once

#include <QString>

#include <cstdint>

/// The text with everything that a terminal could take for a command, or that would not be seen, written as \u{NNNN}:
/// control and format characters, line separators, lone surrogates. For what devices and files say of themselves.
QString printable(const QString& text);

/// The same in double quotes, with a backslash in front of the quotes and backslashes of the text.
QString quoted(const QString& text);

/// An address or an identification: 0x and upper-case digits, at least four of them.
QString hexNumber(std::uint32_t number);

/// "1 block", "2 blocks".
QString counted(qsizetype number, const QString& noun);
