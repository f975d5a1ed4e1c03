#pragma once

#include "support/CommandLine.h"

#include <QTextStream>

/// Prints the serial ports of this machine, one a line: name, description, manufacturer, serial number, and the vendor
/// and product ids in hexadecimal. A field without a value is empty.
/// @param toTerminal columns below a header for a person to read; otherwise tabs between the fields, and no header
/// @return `Failure` when the list could not be written
ExitStatus listPorts(QTextStream& out, bool toTerminal);
