#pragma once

#include "cli/DeviceRun.h"
#include "cli/RunOutput.h"
#include "support/CommandLine.h"

#include <functional>
#include <memory>
#include <vector>

/// What a command does, and at which ports.
struct RunPlan {
    /// The command as it is typed; stands in front of what goes to standard error.
    QString command;
    /// Without a port.
    BurnJob job;
    std::vector<PortChoice> ports;
    RunLimits limits;
    /// Output for programs.
    bool json = false;
    /// Called when a run is over.
    std::function<void(const RunReport&)> onReport = [](const RunReport&) {};
};

/// Runs of the same kind, side by side in one event loop.
class RunGroup
{
public:
    explicit RunGroup(const RunPlan& runPlan);
    RunGroup(const RunGroup&) = delete;
    RunGroup& operator=(const RunGroup&) = delete;
    ~RunGroup() = default;

    /// Starts all runs and returns when all of them are over.
    /// @return `Success` when all succeeded, otherwise the worst in the order `Stopped`, `Failure`, `GaveUp`,
    /// `NoDevice`.
    ExitStatus run();

    /// Lets all runs end soon, as stopped. To be called in the event loop of `run`.
    void stop();

    /// Called behind each event of a run.
    std::function<void()> afterEvent = [] {};

private:
    const RunPlan& plan;
    std::unique_ptr<RunOutput> output;
    std::vector<std::unique_ptr<DeviceRun>> runs;
};

/// Runs a plan until all its runs are over, or until a signal stops them.
ExitStatus runUntilSignal(const RunPlan& plan);
