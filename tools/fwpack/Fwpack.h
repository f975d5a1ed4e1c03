#pragma once

#include <QStringList>

class QTextStream;

/// Makes firmware files out of Intel HEX, and tells what is in them.
namespace fwpack
{

/// Exit statuses of the program.
enum ExitStatus : int {
    Success = 0,
    Failure = 1,
    WrongUsage = 2,
};

/// Does what `arguments` (the name of the program first) ask for. Results go to `out`, complaints to `err`.
/// @return the exit status; `Success` only if the results could be written.
int run(const QStringList& arguments, QTextStream& out, QTextStream& err);

} // namespace fwpack
