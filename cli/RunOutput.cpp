#include "cli/RunOutput.h"

#include "burn/BurnProgressEvent.h"
#include "cli/Json.h"
#include "cli/ProgressBars.h"
#include "support/CommandLine.h"

#include <QElapsedTimer>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>

namespace
{

/// Names by which people tell the ports apart: the last part of the path where that is enough.
QStringList shortNames(const std::vector<PortChoice>& ports)
{
    QStringList names;
    for (const PortChoice& port : ports) {
        names << QFileInfo(port.given).fileName();
    }
    names.removeDuplicates();
    if (names.size() == static_cast<qsizetype>(ports.size()) && !names.contains(QString())) {
        return names;
    }
    names.clear();
    for (const PortChoice& port : ports) {
        names << port.given;
    }
    return names;
}

class TextOutput : public RunOutput
{
public:
    TextOutput(const QString& commandName, const std::vector<PortChoice>& ports)
        : command(commandName)
        , names(ports.size() > 1 ? shortNames(ports) : QStringList(QString()))
        , bars(names)
    {
    }

    void state(std::size_t run, const QString& name) override { bars.setLabel(run, name); }

    void progress(std::size_t run, const BurnProgressEvent& event) override
    {
        switch (event.kind) {
        case ProgressKind::Value:
            bars.setValue(run, event.value);
            break;
        case ProgressKind::Minimum:
            bars.setMinimum(run, event.value);
            break;
        case ProgressKind::Maximum:
            bars.setMaximum(run, event.value);
            break;
        case ProgressKind::Enabled:
            break;
        }
    }

    void log(std::size_t run, const QString& text) override
    {
        bars.clear();
        printLine(command, (prefix(run) + text).toLocal8Bit());
    }

    void error(std::size_t run, const QString& text) override { log(run, text); }

    void result(std::size_t run, const RunReport& report) override
    {
        bars.setLabel(run, {});
        bars.clear();
        if (report.end != RunEnd::Succeeded) {
            complain(command, prefix(run) + report.explanation);
        }
    }

private:
    QString prefix(std::size_t run) const
    {
        const QString& name = names[static_cast<qsizetype>(run)];
        return name.isEmpty() ? QString() : name + QStringLiteral(": ");
    }

    const QString command;
    const QStringList names;
    ProgressBars bars;
};

class JsonOutput : public RunOutput
{
public:
    JsonOutput(const QString& commandName, const std::vector<PortChoice>& ports)
        : command(commandName)
    {
        for (const PortChoice& port : ports) {
            runs.push_back({.port = port.name});
        }
    }

    void state(std::size_t run, const QString& name) override
    {
        runs[run].state = name;
        if (!name.isEmpty()) {
            print(run, QStringLiteral("state"), {{QStringLiteral("state"), name}});
        }
    }

    void progress(std::size_t run, const BurnProgressEvent& event) override
    {
        Run& of = runs[run];
        switch (event.kind) {
        case ProgressKind::Minimum:
            of.minimum = event.value;
            break;
        case ProgressKind::Maximum:
            of.maximum = event.value;
            break;
        case ProgressKind::Value:
            if (!of.state.isEmpty() && (!of.sinceProgress.isValid() || of.sinceProgress.hasExpired(leastIntervalMs))) {
                print(run, QStringLiteral("progress"),
                    {{QStringLiteral("state"), of.state}, {QStringLiteral("value"), event.value},
                        {QStringLiteral("minimum"), of.minimum}, {QStringLiteral("maximum"), of.maximum}});
                // Started behind the time that was printed, so that the times of two lines keep the interval.
                of.sinceProgress.start();
            }
            break;
        case ProgressKind::Enabled:
            break;
        }
    }

    void log(std::size_t run, const QString& text) override
    {
        print(run, QStringLiteral("log"), {{QStringLiteral("text"), text}});
    }

    void error(std::size_t run, const QString& text) override
    {
        print(run, QStringLiteral("error"), {{QStringLiteral("text"), text}});
    }

    void result(std::size_t run, const RunReport& report) override
    {
        print(run, QStringLiteral("result"), toJson(report));
        if (report.end != RunEnd::Succeeded) {
            complain(command, runs[run].port + QStringLiteral(": ") + report.explanation);
        }
    }

private:
    static constexpr int leastIntervalMs = 100;

    struct Run {
        QString port;
        QString state = {};
        int minimum = 0;
        int maximum = 1;
        QElapsedTimer sinceProgress = {};
    };

    void print(std::size_t run, const QString& event, QJsonObject fields) const
    {
        fields.insert(QStringLiteral("event"), event);
        fields.insert(QStringLiteral("port"), runs[run].port);
        fields.insert(QStringLiteral("time"), jsonTime(QDateTime::currentDateTimeUtc()));
        printLine(command, jsonLine(fields));
    }

    const QString command;
    std::vector<Run> runs;
};

} // namespace

std::unique_ptr<RunOutput> makeTextOutput(const QString& command, const std::vector<PortChoice>& ports)
{
    return std::make_unique<TextOutput>(command, ports);
}

std::unique_ptr<RunOutput> makeJsonOutput(const QString& command, const std::vector<PortChoice>& ports)
{
    return std::make_unique<JsonOutput>(command, ports);
}

void printLine(const QString& command, QByteArray line)
{
    static bool lost = false;
    line += '\n';
    std::fwrite(line.constData(), 1, static_cast<std::size_t>(line.size()), stdout);
    if (std::fflush(stdout) != 0 && errno != EPIPE && !lost) {
        lost = true;
        std::perror(qPrintable(command + QStringLiteral(": the log cannot be written")));
    }
}
