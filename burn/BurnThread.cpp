#include "burn/BurnThread.h"

#include "bootloader/BootloaderClient.h"
#include "burn/BurnMessageEvent.h"
#include "burn/BurnProgressEvent.h"
#include "firmware/BurnLimits.h"
#include "firmware/FirmwareFile.h"

#include <QCoreApplication>

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace
{

constexpr int defaultDeadlineMs = 1000;
constexpr int powerupDelayMs = 3000;
constexpr int noDeadline = -1;

/// What the progress bar spans in a state.
enum class Span { Unchanged, Delay, Image };

} // namespace

/// What entering a state shows, in this order, and what one pass in it does.
struct BurnThread::StateRow {
    State state;
    bool stoppable;
    const char* status;
    int deadlineMs;
    Span span;
    std::array<const char*, 2> log;
    void (BurnThread::*step)();
};

const BurnThread::StateRow& BurnThread::rowOf(State wanted)
{
    using T = BurnThread;
    using enum State;
    // clang-format off
    static constexpr std::array<StateRow, 8> rows = {{
        {Finished, true, nullptr, defaultDeadlineMs, Span::Unchanged,
            {QT_TR_NOOP("<b>Complete</b>")}, &T::finishedStep},
        {WaitDevice, true, QT_TR_NOOP("Waiting for device"), noDeadline, Span::Unchanged,
            {QT_TR_NOOP("Waiting for device on '%1'...")}, &T::waitDeviceStep},
        {PowerupDelay, true, QT_TR_NOOP("Delay"), powerupDelayMs, Span::Delay,
            {QT_TR_NOOP("Powerup delay...")}, &T::powerupDelayStep},
        {Erase, false, QT_TR_NOOP("Erasing"), defaultDeadlineMs, Span::Unchanged,
            {QT_TR_NOOP("<b>DO NOT TURN OFF</b> device during programming"), QT_TR_NOOP("Erasing...")}, &T::eraseStep},
        {BlankCheck, false, QT_TR_NOOP("Blank Checking"), defaultDeadlineMs, Span::Image,
            {QT_TR_NOOP("Blank Checking...")}, &T::blankCheckStep},
        {Program, false, QT_TR_NOOP("Programming"), defaultDeadlineMs, Span::Image,
            {QT_TR_NOOP("Programming...")}, &T::programStep},
        {Verify, true, QT_TR_NOOP("Verifying"), defaultDeadlineMs, Span::Image,
            {QT_TR_NOOP("Verifying...")}, &T::verifyStep},
        {Reset, true, QT_TR_NOOP("Reset"), defaultDeadlineMs, Span::Unchanged,
            {QT_TR_NOOP("Reset device")}, &T::resetStep},
    }};
    // clang-format on
    return *std::find_if(rows.begin(), rows.end(), [=](const StateRow& row) { return row.state == wanted; });
}

BurnThread::BurnThread(QObject* parent, ClientFactory clientFactory, Clock clock)
    : QThread(parent)
    , makeClient(std::move(clientFactory))
    , now(std::move(clock))
{
    if (!makeClient) {
        makeClient = [] { return std::make_shared<BootloaderClient>(); };
    }
}

BurnThread::~BurnThread() = default;

QString BurnThread::erasingStatus()
{
    return tr(rowOf(State::Erase).status);
}

void BurnThread::startBurn(const QString& port, const QString& file)
{
    startJob({.portName = port, .fileName = file});
}

void BurnThread::startJob(const BurnJob& newJob)
{
    lastOutcome.exchange(Outcome::Failed);
    lastResult = {};
    job = newJob;
    start(QThread::InheritPriority);
}

void BurnThread::requestStop()
{
    if (const auto running = cancelHandle.take()) {
        running->cancel();
    }
    requestInterruption();
}

void BurnThread::stopBurn()
{
    // The reference to the client is gone before the wait, so that the port is closed in any case when the wait ends.
    requestStop();
    wait(QDeadlineTimer(QDeadlineTimer::Forever));
}

const BurnResult& BurnThread::result() const
{
    static_cast<void>(lastOutcome.load()); // written last, see there
    return lastResult;
}

void BurnThread::run()
{
    firmware = std::make_unique<FirmwareFile>();
    client = makeClient();
    cancelHandle.publish(client);
    const Outcome ended = loadFirmware() && openPort() ? walkStates() : Outcome::Failed;
    firmware.reset();
    cancelHandle.take();
    client.reset();
    lastOutcome = ended;
}

bool BurnThread::loadFirmware()
{
    if (job.task == BurnTask::Identify) {
        firmware->baudrate = job.baudrate;
        return true;
    }
    const bool loaded = firmware->load(job.fileName);
    lastResult.target = firmware->target;
    lastResult.version = firmware->version;
    const QString problem = loaded ? validateFirmware() : firmware->errorText;
    return problem.isEmpty() || fail(BurnResult::Reason::File, tr("Can't open input file. %1").arg(problem));
}

/// Ends the run with an error.
/// @return false
bool BurnThread::fail(BurnResult::Reason reason, const QString& text)
{
    lastResult.reason = reason;
    postError(text);
    return false;
}

/// @return why a firmware file that was read well must not be burned; empty when it may.
QString BurnThread::validateFirmware() const
{
    if (const auto address = firstAddressOutOfReach(firmware->image)) {
        return tr("Data at address 0x%1 is out of reach of the bootloader").arg(*address, 0, 16);
    }
    if (firmware->baudrate <= 0) {
        return tr("A baud rate of %1 is not possible").arg(firmware->baudrate);
    }
    return {};
}

bool BurnThread::openPort()
{
    if (job.task != BurnTask::Identify) {
        const QString text =
            job.task == BurnTask::Verify ? tr("Comparing with firmware: '%1' %2") : tr("Uploading firmware: '%1' %2");
        postLog(text.arg(firmware->target, firmware->version));
        client->echoOn = firmware->link == FirmwareFile::echoLink;
        client->expectedDevice = firmware->device;
    }
    if (client->open(job.portName.toStdString(), static_cast<std::uint32_t>(firmware->baudrate))) {
        return true;
    }
    return fail(BurnResult::Reason::Port,
        tr("Can't open serial port '%1'. %2").arg(job.portName, QString::fromStdWString(client->errorString())));
}

BurnThread::Outcome BurnThread::walkStates()
{
    accomplished = false;
    setState(State::WaitDevice);
    while (!isInterruptionRequested()) {
        (this->*rowOf(state).step)();
        if (client->metOtherDevice() && state != State::Finished) {
            refuseDevice();
        }
    }
    if (state != State::Finished) {
        lastResult.reason = BurnResult::Reason::Stopped;
        postLog(tr("Operation cancelled by user"));
        return Outcome::Cancelled;
    }
    return accomplished ? Outcome::Succeeded : Outcome::Failed;
}

void BurnThread::setState(State newState)
{
    state = newState;
    advance = true;
    secondLook = false;
    firmware->scanner.reset(0);
    postValue(0);

    const StateRow& row = rowOf(newState);
    postEnabled(row.stoppable);
    postStatus(tr(row.status));
    deadline = row.deadlineMs == noDeadline ? QDeadlineTimer(QDeadlineTimer::Forever) : now() + row.deadlineMs;
    if (row.span == Span::Delay) {
        postRange(0, powerupDelayMs);
    } else if (row.span == Span::Image) {
        const auto [first, last] = firmware->image.addressRange();
        postRange(static_cast<std::int32_t>(first), static_cast<std::int32_t>(last));
    }
    for (const char* line : row.log) {
        if (line != nullptr) {
            postLog(tr(line).replace(QStringLiteral("%1"), job.portName));
        }
    }
}

void BurnThread::finishedStep()
{
    requestInterruption();
}

void BurnThread::waitDeviceStep()
{
    if (!client->readVersion()) {
        return;
    }
    const BurnResult::Identity identity = {client->bootloaderVersion, client->firmwareVersion, client->deviceId};
    // A reply too short to hold its fields, such as the echo of the request, leaves them empty. No firmware is for that
    // device, but it is none to tell of either.
    if (job.task == BurnTask::Identify && identity == BurnResult::Identity()) {
        return;
    }
    const auto versionLine = [](const QString& text, const BootVersion& version) {
        return text.arg(version.major).arg(version.minor).arg(version.patch);
    };
    postLog(versionLine(tr("Found device bootloader: v%1.%2.%3"), client->bootloaderVersion));
    postLog(versionLine(tr("Existing firmware: v%1.%2.%3"), client->firmwareVersion));
    lastResult.identity = identity;
    if (job.task == BurnTask::Identify) {
        accomplished = true;
        endWithoutBurn();
    } else if (client->deviceId != firmware->device) {
        refuseDevice();
    } else {
        setState(job.task == BurnTask::Burn ? State::PowerupDelay : State::Verify);
    }
}

void BurnThread::endWithoutBurn()
{
    setState(job.resetAtEnd ? State::Reset : State::Finished);
}

void BurnThread::refuseDevice()
{
    fail(BurnResult::Reason::OtherDevice, tr("Device is not support"));
    setState(State::Finished);
}

void BurnThread::powerupDelayStep()
{
    if (now() >= deadline) {
        setState(State::Erase);
    }
    const std::int64_t remainingMs = std::max<std::int64_t>(deadline - now(), 0);
    postValue(static_cast<std::int32_t>(powerupDelayMs - remainingMs));
    client->ping();
}

void BurnThread::eraseStep()
{
    if (!client->eraseMemory()) {
        return;
    }
    ++lastResult.erases;
    lastResult.content = BurnResult::Content::Erased;
    postLog(tr("Erase successful"));
    setState(State::BlankCheck);
}

void BurnThread::blankCheckStep()
{
    if (!takeBlock()) {
        postLog(tr("Blank check complete, device is blank"));
        setState(State::Program);
        return;
    }
    const BlockScanner& block = firmware->scanner;
    postValue(static_cast<std::int32_t>(block.address));
    const BootAnswer answer = client->blankCheck(block.address, static_cast<std::uint64_t>(block.data.size()));
    advance = answer.answered;
    if (answer.answered && !answer.blank) {
        postError(withBlock(tr("Found bad memory block %1:%2")));
        if (job.maxErases && lastResult.erases >= *job.maxErases) {
            lastResult.reason = BurnResult::Reason::NotBlank;
            setState(State::Finished);
        } else {
            setState(State::Erase);
        }
    }
}

void BurnThread::programStep()
{
    if (!takeBlock()) {
        postLog(tr("Programming complete"));
        lastResult.blocks = lastResult.badBlocks = 0;
        lastResult.content = BurnResult::Content::Written;
        setState(State::Verify);
        return;
    }
    const BlockScanner& block = firmware->scanner;
    postValue(static_cast<std::int32_t>(block.address));
    advance = client->writeBlock(block.address, {block.data.begin(), block.data.end()});
    if (!advance) {
        postError(withBlock(tr("Error while writing memory block %1:%2")));
    }
}

void BurnThread::verifyStep()
{
    const BlockScanner& block = firmware->scanner;
    const QByteArray dataBefore = block.data;
    if (!takeBlock()) {
        closeVerification();
        return;
    }
    postValue(static_cast<std::int32_t>(block.address));
    if (advance && block.data == dataBefore) {
        client->expectEqualReply();
    }
    const auto readBack = client->readBlock(block.address, static_cast<std::uint64_t>(block.data.size()));
    advance = !readBack.empty();
    if (!advance) {
        postError(withBlock(tr("Error while verifying %1:%2")));
    } else {
        recordVerifyResult(std::equal(readBack.begin(), readBack.end(), block.data.begin(), block.data.end(),
            [](std::uint8_t read, char written) { return read == static_cast<std::uint8_t>(written); }));
    }
}

/// Records the result of comparing the current block. A block that differs is read a second time on a silent line,
/// since what was compared may have been a late reply to an earlier request.
void BurnThread::recordVerifyResult(bool matches)
{
    const bool lookAgain = !matches && !secondLook;
    if (lookAgain) {
        postError(withBlock(tr("Data no match %1:%2")));
        client->rejectReply();
    }
    secondLook = lookAgain;
    advance = !lookAgain;
    if (lookAgain) {
        return;
    }
    ++lastResult.blocks;
    lastResult.badBlocks += matches ? 0 : 1;
    if (!matches && job.task == BurnTask::BurnIfNeeded && lastResult.erases == 0) {
        postLog(tr("The device differs from the firmware file and will be burned"));
        setState(State::PowerupDelay);
    }
}

/// Ends the verification. The device is asked once more who it is: no other one that came in the place of the right one
/// while the blocks were read can then pass for it, or have it called bad.
void BurnThread::closeVerification()
{
    if (!client->confirmIdentity()) {
        postError(tr("Error while verifying the device id"));
        return;
    }
    accomplished = lastResult.badBlocks == 0;
    if (accomplished) {
        lastResult.content = BurnResult::Content::Verified;
        postLog(tr("Verification successful"));
    } else {
        fail(BurnResult::Reason::Verification,
            tr("Verification failed: %1 of %2 blocks differ").arg(lastResult.badBlocks).arg(lastResult.blocks));
    }
    if (job.task == BurnTask::Verify) {
        endWithoutBurn();
    } else {
        // Without the reset the bootloader stays in charge, and the user can burn again.
        setState(accomplished ? State::Reset : State::Finished);
    }
}

void BurnThread::resetStep()
{
    client->resetDevice(0);
    setState(State::Finished);
}

/// Makes the block of this pass the current one: the next one, or the same once more.
/// @return false when no block is left.
bool BurnThread::takeBlock()
{
    return !advance || nextBurnBlock(firmware->scanner);
}

/// @return `text` with address and size of the current block in place of %1 and %2.
QString BurnThread::withBlock(const QString& text) const
{
    const BlockScanner& block = firmware->scanner;
    return text.arg(block.address, 5, 16, QLatin1Char('0')).arg(block.data.size(), 3, 16, QLatin1Char('0'));
}

void BurnThread::postLog(const QString& text)
{
    QCoreApplication::postEvent(parent(), new BurnMessageEvent(MessageKind::Log, text));
}

void BurnThread::postError(const QString& text)
{
    QCoreApplication::postEvent(parent(), new BurnMessageEvent(MessageKind::Error, text));
}

void BurnThread::postStatus(const QString& text)
{
    QCoreApplication::postEvent(parent(), new BurnMessageEvent(MessageKind::Status, text));
}

void BurnThread::postValue(std::int32_t value)
{
    QCoreApplication::postEvent(parent(), new BurnProgressEvent(ProgressKind::Value, value));
}

void BurnThread::postRange(std::int32_t minimum, std::int32_t maximum)
{
    QCoreApplication::postEvent(parent(), new BurnProgressEvent(ProgressKind::Minimum, minimum));
    QCoreApplication::postEvent(parent(), new BurnProgressEvent(ProgressKind::Maximum, maximum));
}

void BurnThread::postEnabled(bool enabled)
{
    QCoreApplication::postEvent(parent(), new BurnProgressEvent(ProgressKind::Enabled, enabled ? 1 : 0));
}
