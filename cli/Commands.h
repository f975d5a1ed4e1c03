#pragma once

#include "support/CommandLine.h"

/// Burns one firmware file on the device at one port.
extern const Command burnCommand;

/// Prints what a firmware file holds, or what is wrong with it.
extern const Command showCommand;

/// Lists the serial ports of this machine.
extern const Command portsCommand;

/// Asks a device for its versions and identity.
extern const Command infoCommand;

/// Compares a device with a firmware file.
extern const Command verifyCommand;

/// Burns a device after the other as their labels are scanned.
extern const Command stationCommand;
