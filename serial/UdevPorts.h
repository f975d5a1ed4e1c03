#pragma once

#include "serial/PortInfo.h"

#include <vector>

/// The terminals of this machine with hardware behind them: USB, ACM, PCI, platform UARTs and Bluetooth. Sorted by
/// name, numbers by their value. Reads the database of udev and sysfs and opens no port.
std::vector<PortInfo> udevPorts();
