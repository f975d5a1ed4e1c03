#pragma once

#include "support/ExitStatus.h"

#include <QTextStream>

/// Prints the serial ports of this machine, one a line: name, description, manufacturer, serial number, and the vendor
/// and product numbers in hexadecimal, with tabs between them. A field without a value is empty.
/// @param toTerminal somebody reads along, so a header line comes first
/// @return `Failure` when the list could not be written
ExitStatus listPorts(QTextStream& out, bool toTerminal);
