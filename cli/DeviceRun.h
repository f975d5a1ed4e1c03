#pragma once

#include "burn/BurnThread.h"
#include "cli/PortChoice.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>

class RunOutput;

/// When a run is given up without anybody asking for it. Nothing: never.
struct RunLimits {
    /// Wait for the first answer of a device.
    std::optional<std::chrono::seconds> device;
    /// Time without a confirmed step, once a device has answered: a new state, or a new block in it.
    std::optional<std::chrono::seconds> stall;
    /// Erases of the device.
    std::optional<int> maxErases;
};

/// How a run ended, as the shell is told.
enum class RunEnd { Succeeded, Failed, NoDevice, GaveUp, Stopped };

/// What is known of a run when it is over.
struct RunReport {
    PortChoice port;
    RunEnd end = RunEnd::Failed;
    /// One word for programs: file, port, no-device, wrong-device, verify, gave-up or stopped; empty after a success.
    QString reason;
    /// The same for people, with the condition of the device; empty after a success.
    QString explanation;
    BurnResult result;
    QDateTime started;
    QDateTime finished;
    double seconds = 0;
};

/// One run at one port: owns its `BurnThread`, receives its events, hands them on to an output, and stops it at the
/// limits.
class DeviceRun : public QObject
{
    Q_OBJECT

public:
    /// @param number of the run for the output
    DeviceRun(std::size_t number, const PortChoice& choice, const RunLimits& runLimits, RunOutput& runOutput);
    DeviceRun(const DeviceRun&) = delete;
    DeviceRun& operator=(const DeviceRun&) = delete;

    /// Stops a run that is not over and waits for its end.
    ~DeviceRun() override;

    /// Starts `newJob` at the port of this run.
    /// @param whenOver is called when the run is over and reported to the output.
    void start(BurnJob newJob, std::function<void(const RunReport&)> whenOver);

    /// Lets the run end soon, as stopped. Does not wait for it.
    void stop();

    bool isRunning() const { return running; }

    /// Called behind each event. A burn that goes wrong without end may post them faster than they can be shown.
    std::function<void()> afterEvent = [] {};

protected:
    void customEvent(QEvent* event) override;

private:
    void enterState(const QString& name);
    void noteStep();
    void onDeviceTimeout();
    void onStall();
    void giveUp(RunEnd end, const QString& why);
    void onFinished();
    void logCondition();
    RunReport makeReport() const;

    const std::size_t index;
    const PortChoice port;
    const RunLimits limits;
    RunOutput& output;
    std::function<void(const RunReport&)> over;
    bool running = false;
    BurnJob job;

    QDateTime startTime;
    QElapsedTimer clock;
    QTimer deviceTimer;
    QTimer stallTimer;
    QString state;
    int statesEntered = 0;
    bool eraseBegun = false;
    int lastValue = 0;
    QString lastError;
    /// Set when this side has stopped the run: why, in the two forms of the report.
    std::optional<RunEnd> stopEnd;
    QString stopText;
    BurnThread burnThread;
};
