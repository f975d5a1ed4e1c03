#pragma once

#include "cli/DeviceRun.h"

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <memory>
#include <vector>

class BurnProgressEvent;

/// Shows what happens in one run or several, told apart by their numbers from 0 on.
class RunOutput
{
public:
    RunOutput() = default;
    RunOutput(const RunOutput&) = delete;
    RunOutput& operator=(const RunOutput&) = delete;
    virtual ~RunOutput() = default;

    /// A state was entered; an empty name after the last one.
    virtual void state(std::size_t run, const QString& name) = 0;
    virtual void progress(std::size_t run, const BurnProgressEvent& event) = 0;
    /// A line of the log in plain text.
    virtual void log(std::size_t run, const QString& text) = 0;
    virtual void error(std::size_t run, const QString& text) = 0;
    /// The run is over.
    virtual void result(std::size_t run, const RunReport& report) = 0;
};

/// For people: the log on standard output, one line each, with the name of the port in front if there are several; the
/// reason of a failure on standard error, and there a progress bar for each run when that is a terminal.
/// @param command stands in front of what goes to standard error
std::unique_ptr<RunOutput> makeTextOutput(const QString& command, const std::vector<PortChoice>& ports);

/// For programs: JSON Lines on standard output, one object for each state, progress, line of the log, error and result.
/// Progress comes at most ten times a second from each run.
std::unique_ptr<RunOutput> makeJsonOutput(const QString& command, const std::vector<PortChoice>& ports);

/// Writes a line to standard output at once. The first time that fails, standard error says so; a reader that has gone
/// away has seen what it wanted to see.
void printLine(const QString& command, QByteArray line);
