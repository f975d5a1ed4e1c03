#include "bootloader/BootTables.h"
#include "cli/Commands.h"
#include "cli/RunGroup.h"
#include "cli/RunOptions.h"
#include "support/Printable.h"

namespace
{

constexpr int defaultBaudRate = 57600;

ExitStatus info(CommandLine& line, const QStringList& arguments)
{
    options::addPort(line, false);
    line.addOption("baudrate", "N", "Speed of the line in bits per second (default 57600).");
    options::addDeviceTimeout(line);
    line.addFlag("reset", "Reset the device at the end, which starts its firmware.");
    options::addJson(line);
    line.setEpilogue("\nExit status: 0 the device has answered, 1 the port cannot be opened, 2 wrong usage, "
                     "3 no device within the time-out, 130 stopped by a signal.\n");
    line.parse(arguments);

    RunPlan plan;
    plan.command = "tavimora-cli info";
    plan.limits = options::deviceTimeout(line);
    plan.json = options::json(line);
    plan.job.task = BurnTask::Identify;
    plan.job.resetAtEnd = line.isSet("reset");
    plan.job.baudrate =
        line.number<int>("baudrate", 1, std::numeric_limits<std::int32_t>::max()).value_or(defaultBaudRate);
    plan.ports = options::ports(line, false);
    line.operands(0, "no arguments");
    if (const std::optional<ExitStatus> status = line.verdict()) {
        return *status;
    }
    return runUntilSignal(plan);
}

} // namespace

const Command infoCommand = {"info", "--port NAME [OPTION]...",
    "Asks the bootloader of the device at a serial port for its version, that of the "
    "firmware, and the id and family of the device. Without --reset the bootloader "
    "stays in charge.",
    info};
