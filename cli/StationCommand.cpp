#include "cli/BurnRecord.h"
#include "cli/Commands.h"
#include "cli/Json.h"
#include "cli/LineInput.h"
#include "cli/RunGroup.h"
#include "cli/RunOptions.h"
#include "cli/StopSignal.h"
#include "cli/Terminal.h"
#include "support/Printable.h"

#include <QEventLoop>
#include <QSet>
#include <QTimer>

#include <deque>

namespace
{

/// One place where a device after the other is burned: a line on standard input, as a bar-code scanner types it, starts
/// a burn and is its label.
class Station
{
public:
    Station(RunPlan runPlan, BurnRecord& burnRecord)
        : plan(std::move(runPlan))
        , record(burnRecord)
        , signal([this] { stop(); })
        , input([this](const QString& line) { take(line); }, [this] { endInput(); })
    {
        nextTimer.setSingleShot(true);
        nextTimer.callOnTimeout([this] { burnNext(); });
        plan.onReport = [this](const RunReport& report) { conclude(report); };
    }

    ExitStatus run()
    {
        ask();
        loop.exec();
        if (stopped) {
            return ExitStatus::Stopped;
        }
        return failed == 0 && record.isComplete() ? ExitStatus::Success : ExitStatus::Failure;
    }

private:
    void take(const QString& line)
    {
        waiting.push_back(line.trimmed());
        goOnSoon();
    }

    /// Not at once, since a burn runs an event loop of its own, in which the next lines come.
    void goOnSoon() { nextTimer.start(0); }

    /// Burns what waits, one after the other. Lines that come meanwhile wait too.
    void burnNext()
    {
        while (group == nullptr && !stopped && !waiting.empty()) {
            label = waiting.front();
            waiting.pop_front();
            QString problem = validateLabel();
            if (problem.isEmpty()) {
                problem = record.prepare(1);
            }
            if (problem.isEmpty()) {
                burn();
            } else {
                say(problem);
            }
        }
        if (group == nullptr && (ended || stopped)) {
            loop.quit();
        }
    }

    QString validateLabel() const
    {
        if (label.isEmpty()) {
            return QStringLiteral("The line is empty");
        }
        if (passedLabels.contains(label)) {
            return QStringLiteral("%1 has already passed").arg(quoted(label));
        }
        return labelProblem(label);
    }

    void burn()
    {
        RunGroup burning(plan);
        burning.afterEvent = [this] { signal.check(); };
        group = &burning;
        burning.run();
        group = nullptr;
        ask();
    }

    void conclude(const RunReport& report)
    {
        record.add(plan.command, label, report);
        if (report.end == RunEnd::Stopped) {
            return; // which says nothing about the device
        }
        const bool pass = report.end == RunEnd::Succeeded;
        if (pass) {
            ++passed;
            passedLabels.insert(label);
        } else {
            ++failed;
        }
        const double yield = 100.0 * passed / (passed + failed);
        if (plan.json) {
            printLine(plan.command, jsonLine({{"event", "verdict"}, {"label", label}, {"pass", pass},
                                        {"passed", passed}, {"failed", failed}, {"yield", yield}}));
            return;
        }
        const QString verdict = pass ? QStringLiteral("  PASS  ") : QStringLiteral("  FAIL  ");
        // White on green and white on red (ECMA-48, select graphic rendition).
        const QString colour = pass ? QStringLiteral("\x1b[1;97;42m") : QStringLiteral("\x1b[1;97;41m");
        const QString marked = isTerminal(stdout) && prepareTerminal()
                                   ? colour + verdict + QStringLiteral("\x1b[0m")
                                   : QStringLiteral("====") + verdict + QStringLiteral("====");
        printLine(plan.command, QStringLiteral("%1  %2   %3 passed, %4 failed, yield %5 %")
                                    .arg(marked, label)
                                    .arg(passed)
                                    .arg(failed)
                                    .arg(yield, 0, 'f', 1)
                                    .toLocal8Bit());
    }

    void ask() const
    {
        if (!plan.json && !ended && !stopped) {
            printLine(plan.command, QStringLiteral("Scan the label of the next device").toLocal8Bit());
        }
    }

    void say(const QString& problem) const
    {
        complain(plan.command, problem + QStringLiteral(". Nothing was burned, scan the label again"));
    }

    void endInput()
    {
        ended = true;
        goOnSoon();
    }

    void stop()
    {
        stopped = true;
        if (group != nullptr) {
            group->stop();
        } else {
            loop.quit();
        }
    }

    RunPlan plan;
    BurnRecord& record;
    QEventLoop loop;
    QTimer nextTimer;
    std::deque<QString> waiting;
    QSet<QString> passedLabels;
    QString label;
    RunGroup* group = nullptr;
    int passed = 0;
    int failed = 0;
    bool ended = false;
    bool stopped = false;
    StopSignal signal;
    LineInput input;
};

ExitStatus station(CommandLine& line, const QStringList& arguments)
{
    options::addPort(line, false);
    line.addOption("record", "FILE", "Append a record of each burn to FILE, as a line of JSON.");
    options::addLimits(line);
    options::addJson(line);
    line.setEpilogue("\nExit status: 0 every burn passed, 1 one failed, 2 wrong usage, 130 stopped by a "
                     "signal.\n");
    line.parse(arguments);

    RunPlan plan;
    plan.command = "tavimora-cli station";
    plan.limits = options::limits(line);
    plan.json = options::json(line);
    const QString recordPath = line.requiredText("record");
    plan.job.fileName = line.operands(1, "one firmware file").constFirst();
    plan.ports = options::ports(line, false);
    if (const std::optional<ExitStatus> status = line.verdict()) {
        return *status;
    }
    BurnRecord record(recordPath, plan.job.fileName);
    if (const QString problem = record.open(); !problem.isEmpty()) {
        complain(plan.command, problem);
        return ExitStatus::Failure;
    }
    return Station(plan, record).run();
}

} // namespace

const Command stationCommand = {"station", "--port NAME --record FILE [OPTION]... FILE",
    "Burns one device after the other at a serial port. Each line on standard input, as "
    "a bar-code scanner types it, starts a burn and is the label of its record; the end "
    "of the input ends the program. A label that is empty or has already passed is asked "
    "back.",
    station};
