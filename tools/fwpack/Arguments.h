#pragma once

#include "tools/fwpack/Package.h"

#include <QStringList>

#include <variant>

namespace fwpack
{

struct PackRequest {
    PackageHeader header;
    QString input;
    QString output;
};

struct ShowRequest {
    QString file;
};

struct HelpRequest {
};

struct UsageError {
    /// One line, fit for a terminal.
    QString reason;
};

using Request = std::variant<PackRequest, ShowRequest, HelpRequest, UsageError>;

/// What the command line asks for. `arguments` begins with the name of the program.
Request parseArguments(const QStringList& arguments);

/// How the program is called, with a line feed at the end.
QString usageText();

} // namespace fwpack
