#include "cli/Commands.h"
#include "cli/RunGroup.h"
#include "cli/RunOptions.h"

namespace
{

ExitStatus verify(CommandLine& line, const QStringList& arguments)
{
    options::addPort(line, false);
    options::addTimeLimits(line);
    line.addFlag("reset", "Reset the device at the end, which starts its firmware.");
    options::addJson(line);
    line.setEpilogue(
        "\nExit status: 0 the device holds what FILE says, 1 it differs or cannot be read, "
        "2 wrong usage, 3 no device within the time-out, 4 given up at a limit, 130 stopped by a signal.\n");
    line.parse(arguments);

    RunPlan plan;
    plan.command = "tavimora-cli verify";
    plan.limits = options::timeLimits(line);
    plan.json = options::json(line);
    plan.job.task = BurnTask::Verify;
    plan.job.resetAtEnd = line.isSet("reset");
    plan.job.fileName = line.operands(1, "one firmware file").constFirst();
    plan.ports = options::ports(line, false);
    if (const std::optional<ExitStatus> status = line.verdict()) {
        return *status;
    }
    return runUntilSignal(plan);
}

} // namespace

const Command verifyCommand = {"verify", "--port NAME [OPTION]... FILE",
    "Reads the memory of the device at a serial port and compares it with FILE. "
    "Nothing is erased or written. Without --reset the bootloader of the device stays "
    "in charge.",
    verify};
