#pragma once

#include "support/CommandLine.h"

/// Burns one firmware file on the device at one port.
extern const Command burnCommand;

/// Lists the serial ports of this machine.
extern const Command portsCommand;
