#include "cli/BurnConsole.h"

#include "burn/BurnMessageEvent.h"
#include "burn/BurnProgressEvent.h"
#include "support/Printable.h"

#include <QCoreApplication>
#include <QEventLoop>

#include <cerrno>
#include <cstdio>
#include <utility>

namespace
{

constexpr QLatin1String commandName("tavimora-cli burn");

/// A line of the log without the worker's markup.
QString plainText(QString text)
{
    return printable(text.remove(QStringLiteral("<b>")).remove(QStringLiteral("</b>")).trimmed());
}

} // namespace

BurnConsole::BurnConsole(std::optional<std::chrono::seconds> deviceTimeout, QObject* parent)
    : QObject(parent)
    , deviceLimit(deviceTimeout)
    , burnThread(this)
{
    deviceTimer.setSingleShot(true);
    connect(&deviceTimer, &QTimer::timeout, this, &BurnConsole::onDeviceTimeout);
}

BurnConsole::~BurnConsole()
{
    if (burnThread.isRunning()) {
        burnThread.stopBurn();
    }
}

ExitStatus BurnConsole::run(const QString& portName, const QString& fileName)
{
    stopSignal.emplace([this] { stop(); });
    QEventLoop loop;
    connect(&burnThread, &QThread::finished, &loop, &QEventLoop::quit);
    statesEntered = 0;
    burnThread.startBurn(portName, fileName);
    loop.exec();
    burnThread.wait();
    stopSignal.reset();
    bar.clear();

    switch (burnThread.outcome()) {
    case BurnThread::Outcome::Succeeded:
        return ExitStatus::Success;
    case BurnThread::Outcome::Failed:
        complain(commandName, lastError);
        return ExitStatus::Failure;
    case BurnThread::Outcome::Cancelled:
        break;
    }
    complain(commandName, timedOut ? QStringLiteral("No device has answered within %1 s").arg(deviceLimit->count())
                                   : QStringLiteral("Stopped by a signal"));
    return timedOut ? ExitStatus::NoDevice : ExitStatus::Stopped;
}

void BurnConsole::customEvent(QEvent* event)
{
    if (event->type() == BurnMessageEvent::eventType) {
        const auto* message = static_cast<BurnMessageEvent*>(event);
        switch (message->kind) {
        case MessageKind::Log:
            // After the time-out only the line comes that says who has cancelled the burn, and the user did not.
            if (!timedOut) {
                printLine(plainText(message->text));
            }
            break;
        case MessageKind::Error:
            lastError = plainText(message->text);
            printLine(lastError);
            break;
        case MessageKind::Status:
            enterState(message->text);
            break;
        }
    } else if (event->type() == BurnProgressEvent::eventType) {
        const auto* progress = static_cast<BurnProgressEvent*>(event);
        switch (progress->kind) {
        case ProgressKind::Value:
            bar.setValue(progress->value);
            break;
        case ProgressKind::Minimum:
            bar.setMinimum(progress->value);
            break;
        case ProgressKind::Maximum:
            bar.setMaximum(progress->value);
            break;
        case ProgressKind::Enabled:
            break;
        }
    }
    // A burn that goes wrong without end may post events faster than they can be printed.
    if (stopSignal) {
        stopSignal->check();
    }
}

void BurnConsole::printLine(const QString& text)
{
    bar.clear();
    const QByteArray line = text.toLocal8Bit() + '\n';
    std::fwrite(line.constData(), 1, static_cast<std::size_t>(line.size()), stdout);
    // A reader that has gone away has seen what it wanted to see.
    if (std::fflush(stdout) != 0 && errno != EPIPE && !std::exchange(logLost, true)) {
        std::perror("tavimora-cli burn: the log cannot be written");
    }
}

void BurnConsole::enterState(const QString& name)
{
    bar.setLabel(name);
    // The first state of a burn is the wait for the device; whatever follows is reached only with one.
    ++statesEntered;
    if (statesEntered == 1 && deviceLimit) {
        deviceTimer.start(*deviceLimit);
    } else {
        deviceTimer.stop();
    }
}

void BurnConsole::onDeviceTimeout()
{
    // The device's answer may have come in time and still be on its way to this thread.
    QCoreApplication::sendPostedEvents(this);
    if (statesEntered == 1 && burnThread.isRunning()) {
        timedOut = true;
        stop();
    }
}

void BurnConsole::stop()
{
    deviceTimer.stop();
    if (burnThread.isRunning()) {
        burnThread.stopBurn();
    }
}
