#pragma once

#include <QString>

#include <cstdint>

namespace fwpack
{

/// The text with everything that a terminal could take for a command, or that would not be seen, written as \u{NNNN}:
/// control and format characters, line separators, lone surrogates.
QString escaped(const QString& text);

/// The same in double quotes, with the quotes and backslashes of the text marked by a backslash.
QString quoted(const QString& text);

/// An address or an identification: 0x and upper-case digits, four of them or more.
QString hexNumber(std::uint32_t number);

/// "1 block", "2 blocks".
QString counted(qsizetype number, const QString& noun);

} // namespace fwpack
