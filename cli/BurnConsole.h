#pragma once

#include "burn/BurnThread.h"
#include "cli/StopSignal.h"
#include "cli/Terminal.h"
#include "support/CommandLine.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <optional>

/// Shows one burn on the console: the lines of its log as plain text on standard output, the reason of a failure on
/// standard error, and a progress bar there when that is a terminal. Receives the events of the `BurnThread` that it
/// owns.
class BurnConsole : public QObject
{
    Q_OBJECT

public:
    /// `deviceTimeout` limits the wait for the device and nothing else; without it the wait has no end.
    explicit BurnConsole(std::optional<std::chrono::seconds> deviceTimeout, QObject* parent = nullptr);
    BurnConsole(const BurnConsole&) = delete;
    BurnConsole& operator=(const BurnConsole&) = delete;

    /// Stops a burn that is under way and waits for its end.
    ~BurnConsole() override;

    /// Runs the burn and an event loop until it has ended. SIGINT, SIGTERM and SIGHUP stop it. The result tells how the
    /// burn ended, whether or not its log could be written.
    ExitStatus run(const QString& portName, const QString& fileName);

protected:
    void customEvent(QEvent* event) override;

private:
    void printLine(const QString& text);
    void enterState(const QString& name);
    void onDeviceTimeout();
    void stop();

    ProgressBar bar;
    QTimer deviceTimer;
    std::optional<std::chrono::seconds> deviceLimit;
    int statesEntered = 0;
    /// The burn was stopped because no device had answered within the limit.
    bool timedOut = false;
    QString lastError;
    /// The log could not be written, and that was said.
    bool logLost = false;
    /// Watches while a burn runs.
    std::optional<StopSignal> stopSignal;
    BurnThread burnThread;
};
