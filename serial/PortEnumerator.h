#pragma once

#include "serial/PortInfo.h"

#include <vector>

/// The serial ports of this machine, asked of the system anew at every call, no two with the same `portName`. First
/// come the ports with a device behind them, then those that only have a name. Opens no port and changes nothing on a
/// line. Whatever fails makes the list shorter or a field empty.
std::vector<PortInfo> availablePorts();
