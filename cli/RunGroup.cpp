#include "cli/RunGroup.h"

#include "cli/StopSignal.h"

#include <QEventLoop>

#include <algorithm>
#include <array>

namespace
{

ExitStatus statusOf(RunEnd end)
{
    switch (end) {
    case RunEnd::Succeeded:
        return ExitStatus::Success;
    case RunEnd::Failed:
        return ExitStatus::Failure;
    case RunEnd::NoDevice:
        return ExitStatus::NoDevice;
    case RunEnd::GaveUp:
        return ExitStatus::GaveUp;
    case RunEnd::Stopped:
        return ExitStatus::Stopped;
    }
    return ExitStatus::Failure;
}

ExitStatus worse(ExitStatus one, ExitStatus other)
{
    constexpr std::array worstFirst = {
        ExitStatus::Stopped, ExitStatus::Failure, ExitStatus::GaveUp, ExitStatus::NoDevice, ExitStatus::Success};
    return std::ranges::find(worstFirst, one) < std::ranges::find(worstFirst, other) ? one : other;
}

} // namespace

RunGroup::RunGroup(const RunPlan& runPlan)
    : plan(runPlan)
    , output(plan.json ? makeJsonOutput(plan.command, plan.ports) : makeTextOutput(plan.command, plan.ports))
{
    for (std::size_t i = 0; i < plan.ports.size(); ++i) {
        runs.push_back(std::make_unique<DeviceRun>(i, plan.ports[i], plan.limits, *output));
        runs.back()->afterEvent = [this] { afterEvent(); };
    }
}

ExitStatus RunGroup::run()
{
    QEventLoop loop;
    ExitStatus status = ExitStatus::Success;
    std::size_t left = runs.size();
    for (const auto& device : runs) {
        device->start(plan.job, [&](const RunReport& report) {
            plan.onReport(report);
            status = worse(status, statusOf(report.end));
            if (--left == 0) {
                loop.quit();
            }
        });
    }
    loop.exec();
    return status;
}

void RunGroup::stop()
{
    for (const auto& device : runs) {
        device->stop();
    }
}

ExitStatus runUntilSignal(const RunPlan& plan)
{
    RunGroup group(plan);
    StopSignal signal([&group] { group.stop(); });
    group.afterEvent = [&signal] { signal.check(); };
    return group.run();
}
