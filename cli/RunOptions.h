#pragma once

#include "cli/DeviceRun.h"
#include "support/CommandLine.h"

#include <vector>

/// Options that several commands have.
namespace options
{

void addPort(CommandLine& line, bool several);
/// @return the ports that --port names, at least one; noted in `line` when there is something wrong with them.
std::vector<PortChoice> ports(CommandLine& line, bool several);

void addJson(CommandLine& line);
bool json(const CommandLine& line);

/// --timeout, --stall and --max-erases.
void addLimits(CommandLine& line);
RunLimits limits(CommandLine& line);

/// --timeout and --stall.
void addTimeLimits(CommandLine& line);
RunLimits timeLimits(CommandLine& line);

/// --timeout alone.
void addDeviceTimeout(CommandLine& line);
RunLimits deviceTimeout(CommandLine& line);

} // namespace options
