#include "cli/DeviceRun.h"

#include "bootloader/BootTables.h"
#include "burn/BurnMessageEvent.h"
#include "burn/BurnProgressEvent.h"
#include "cli/RunOutput.h"
#include "support/Printable.h"

#include <QCoreApplication>

#include <utility>

namespace
{

/// A line of the log without the worker's markup.
QString plainText(QString text)
{
    // Windows ends its error texts with a line end.
    return printable(text.remove(QStringLiteral("<b>")).remove(QStringLiteral("</b>")).trimmed());
}

QString reasonWord(RunEnd end, BurnResult::Reason reason)
{
    switch (end) {
    case RunEnd::Succeeded:
        return {};
    case RunEnd::NoDevice:
        return QStringLiteral("no-device");
    case RunEnd::GaveUp:
        return QStringLiteral("gave-up");
    case RunEnd::Stopped:
        return QStringLiteral("stopped");
    case RunEnd::Failed:
        break;
    }
    switch (reason) {
    case BurnResult::Reason::File:
        return QStringLiteral("file");
    case BurnResult::Reason::Port:
        return QStringLiteral("port");
    case BurnResult::Reason::OtherDevice:
        return QStringLiteral("wrong-device");
    case BurnResult::Reason::Verification:
        return QStringLiteral("verify");
    case BurnResult::Reason::NotBlank:
        return QStringLiteral("gave-up");
    case BurnResult::Reason::None:
    case BurnResult::Reason::Stopped:
        break;
    }
    return QStringLiteral("stopped");
}

/// @return what can be said of the memory of a device whose erase has begun.
QString contentText(const BurnResult& result)
{
    using enum BurnResult::Content;
    switch (result.reason == BurnResult::Reason::Verification ? Erased : result.content) {
    case Before:
        return QStringLiteral("may have been erased");
    case Erased:
        return QStringLiteral("has no valid firmware");
    case Written:
        return QStringLiteral("holds firmware that was not verified");
    case Verified:
        return QStringLiteral("holds the firmware, verified");
    }
    return {};
}

} // namespace

DeviceRun::DeviceRun(std::size_t number, const PortChoice& choice, const RunLimits& runLimits, RunOutput& runOutput)
    : index(number)
    , port(choice)
    , limits(runLimits)
    , output(runOutput)
    , burnThread(this)
{
    deviceTimer.setSingleShot(true);
    stallTimer.setSingleShot(true);
    connect(&deviceTimer, &QTimer::timeout, this, &DeviceRun::onDeviceTimeout);
    connect(&stallTimer, &QTimer::timeout, this, &DeviceRun::onStall);
    connect(&burnThread, &QThread::finished, this, &DeviceRun::onFinished);
}

DeviceRun::~DeviceRun()
{
    if (burnThread.isRunning()) {
        burnThread.stopBurn();
    }
}

void DeviceRun::start(BurnJob newJob, std::function<void(const RunReport&)> whenOver)
{
    job = std::move(newJob);
    over = std::move(whenOver);
    running = true;
    startTime = QDateTime::currentDateTimeUtc();
    clock.start();
    job.portName = port.name;
    job.maxErases = limits.maxErases;
    burnThread.startJob(job);
}

void DeviceRun::stop()
{
    if (running && !stopEnd) {
        giveUp(RunEnd::Stopped, QStringLiteral("Stopped by a signal"));
    }
}

void DeviceRun::customEvent(QEvent* event)
{
    if (event->type() == BurnMessageEvent::eventType) {
        const auto* message = static_cast<BurnMessageEvent*>(event);
        switch (message->kind) {
        case MessageKind::Log:
            // After a limit was reached only the line comes that says who has cancelled the burn: the user did not.
            if (!stopEnd || stopEnd == RunEnd::Stopped) {
                output.log(index, plainText(message->text));
            }
            break;
        case MessageKind::Error:
            lastError = plainText(message->text);
            output.error(index, lastError);
            break;
        case MessageKind::Status:
            enterState(message->text);
            break;
        }
    } else if (event->type() == BurnProgressEvent::eventType) {
        const auto* progress = static_cast<BurnProgressEvent*>(event);
        if (progress->kind == ProgressKind::Value && progress->value != lastValue) {
            lastValue = progress->value;
            noteStep();
        }
        output.progress(index, *progress);
    }
    afterEvent();
}

void DeviceRun::enterState(const QString& name)
{
    state = name;
    output.state(index, name);
    // The first state of a run is the wait for the device; every other is reached only with one.
    ++statesEntered;
    if (statesEntered == 1 && limits.device) {
        deviceTimer.start(*limits.device);
    } else {
        deviceTimer.stop();
    }
    noteStep();
    eraseBegun = eraseBegun || name == BurnThread::erasingStatus();
}

/// Starts the time limit of a step anew.
void DeviceRun::noteStep()
{
    if (statesEntered > 1 && limits.stall && !stopEnd) {
        stallTimer.start(*limits.stall);
    }
}

void DeviceRun::onDeviceTimeout()
{
    // The answer of the device may have come in time and still be on its way to this thread.
    QCoreApplication::sendPostedEvents(this);
    if (statesEntered == 1) {
        giveUp(RunEnd::NoDevice, QStringLiteral("No device has answered within %1 s").arg(limits.device->count()));
    }
}

void DeviceRun::onStall()
{
    QCoreApplication::sendPostedEvents(this);
    if (!stallTimer.isActive()) {
        giveUp(RunEnd::GaveUp,
            QStringLiteral("Gave up in %1: no step was confirmed within %2 s").arg(state).arg(limits.stall->count()));
    }
}

void DeviceRun::giveUp(RunEnd end, const QString& why)
{
    if (stopEnd || !running) {
        return;
    }
    stopEnd = end;
    stopText = why;
    deviceTimer.stop();
    stallTimer.stop();
    burnThread.requestStop();
}

void DeviceRun::onFinished()
{
    deviceTimer.stop();
    stallTimer.stop();
    burnThread.wait();
    running = false;
    logCondition();
    const RunReport report = makeReport();
    output.result(index, report);
    over(report);
}

/// Says what a run that changes nothing has found, and in which condition it leaves the device.
void DeviceRun::logCondition()
{
    const std::optional<BurnResult::Identity>& identity = burnThread.result().identity;
    if (!identity) {
        return;
    }
    if (job.task == BurnTask::Identify) {
        output.log(index, QStringLiteral("Device id: %1, family %2")
                              .arg(hexNumber(identity->deviceId), QString::number(familyOf(identity->deviceId))));
    }
    if ((job.task == BurnTask::Identify || job.task == BurnTask::Verify) && !job.resetAtEnd) {
        output.log(index, QStringLiteral("The bootloader of the device is in charge"));
    }
}

RunReport DeviceRun::makeReport() const
{
    RunReport report;
    report.port = port;
    report.result = burnThread.result();
    report.started = startTime;
    report.finished = QDateTime::currentDateTimeUtc();
    report.seconds = static_cast<double>(clock.elapsed()) / 1000;
    switch (burnThread.outcome()) {
    case BurnThread::Outcome::Succeeded:
        report.end = RunEnd::Succeeded;
        return report;
    case BurnThread::Outcome::Failed:
        report.end = RunEnd::Failed;
        report.explanation = lastError;
        if (report.result.reason == BurnResult::Reason::NotBlank) {
            report.end = RunEnd::GaveUp;
            report.explanation = QStringLiteral("Gave up in Blank Checking: the memory is not blank after %1")
                                     .arg(counted(report.result.erases, QStringLiteral("erase")));
        }
        break;
    case BurnThread::Outcome::Cancelled:
        report.end = stopEnd.value_or(RunEnd::Stopped);
        report.explanation = stopText;
        break;
    }
    report.reason = reasonWord(report.end, report.result.reason);
    if (eraseBegun) {
        const bool exchanged = report.result.reason == BurnResult::Reason::OtherDevice;
        report.explanation +=
            QStringLiteral(". %1 %2, its bootloader is in charge")
                .arg(exchanged ? QStringLiteral("The device that was being burned") : QStringLiteral("The device"),
                    contentText(report.result));
        if (exchanged) {
            report.explanation +=
                QStringLiteral("; if the two were exchanged within two seconds, it may be the other one");
        }
    }
    return report;
}
