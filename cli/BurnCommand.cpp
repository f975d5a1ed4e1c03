#include "cli/BurnRecord.h"
#include "cli/Commands.h"
#include "cli/RunGroup.h"
#include "cli/RunOptions.h"

#include <memory>

namespace
{

ExitStatus burn(CommandLine& line, const QStringList& arguments)
{
    options::addPort(line, true);
    options::addLimits(line);
    line.addFlag("if-needed", "Compare first, and burn only a device that differs from FILE.");
    line.addOption("record", "FILE", "Append a record of each burn to FILE, as a line of JSON.");
    line.addOption("label", "TEXT", "What the record names the device, for instance its serial number.");
    options::addJson(line);
    line.setEpilogue("\nExit status: 0 burned and verified, 1 the burn failed, 2 wrong usage, 3 no device "
                     "within the time-out, 4 given up at a limit, 130 stopped by a signal; with several "
                     "devices that of the worst in the order 130, 1, 4, 3.\n");
    line.parse(arguments);

    RunPlan plan;
    plan.command = "tavimora-cli burn";
    plan.limits = options::limits(line);
    plan.json = options::json(line);
    const QString recordPath = line.text("record").value_or(QString());
    const QString label = line.text("label").value_or(QString());
    plan.job.task = line.isSet("if-needed") ? BurnTask::BurnIfNeeded : BurnTask::Burn;
    plan.job.fileName = line.operands(1, "one firmware file").constFirst();
    plan.ports = options::ports(line, true);
    if (!label.isEmpty() && recordPath.isEmpty()) {
        line.refuse("--label is for --record, which is missing");
    }
    if (const QString problem = labelProblem(label); !problem.isEmpty()) {
        line.refuse(problem);
    }
    if (const std::optional<ExitStatus> status = line.verdict()) {
        return *status;
    }

    std::unique_ptr<BurnRecord> record;
    if (!recordPath.isEmpty()) {
        record = std::make_unique<BurnRecord>(recordPath, plan.job.fileName);
        for (const QString& problem : {record->open(), record->prepare(plan.ports.size())}) {
            if (!problem.isEmpty()) {
                complain(plan.command, problem);
                return ExitStatus::Failure;
            }
        }
        plan.onReport = [&](const RunReport& report) { record->add(plan.command, label, report); };
    }
    const ExitStatus status = runUntilSignal(plan);
    const bool recordLost = record && !record->isComplete();
    return recordLost && status != ExitStatus::Stopped ? ExitStatus::Failure : status;
}

} // namespace

const Command burnCommand = {"burn", "--port NAME [--port NAME]... [OPTION]... FILE",
    "Waits for the bootloader of the device at a serial port, burns FILE, reads it "
    "back and compares it. The log goes to standard output, the reason of a failure "
    "to standard error. Several devices are burned side by side.",
    burn};
