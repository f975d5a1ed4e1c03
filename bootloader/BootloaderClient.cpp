#include "bootloader/BootloaderClient.h"

#include "bootloader/BootFrame.h"
#include "bootloader/BootTables.h"
#include "serial/SerialPort.h"

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

namespace
{

constexpr std::uint32_t writeLimitMs = 500;
constexpr std::uint32_t readLimitMs = 100;
/// The slowest line on which a block of 512 bytes fits into the limits above.
constexpr std::uint32_t fullLimitsBaudRate = 57600;

/// Reads that `dropInput` makes at most. At 57600 baud and below they last twice as long as the longest reply.
constexpr int maxDropReads = 8;

/// Unusable replies in a row after which the input queue is emptied.
constexpr int maxUnusableReplies = 4;

/// How long a probe waits for its answer: no longer than any command, since a cancel does not end it.
constexpr std::chrono::milliseconds probeLimit{300};

/// So long after the last request that the device has answered it may have been pulled off the line.
constexpr std::chrono::milliseconds pullTime{500};

/// What has answered each request since, and answers within this time after that one, is the same device: to exchange
/// it takes longer.
constexpr std::chrono::milliseconds exchangeTime{1900};

/// So much longer than the answer to one question may that to the next take, on the same line.
constexpr std::chrono::milliseconds latenessVaries{150};

/// How often the identity is asked for before a pass of the burn ends without it. A version request is left after one
/// silent read, which is sooner than any other.
constexpr int identityAttempts = 3;

// What ping asks about: one word at the end of the address space, which every device has.
constexpr std::uint16_t pingAddress = 0xFFF0;
constexpr std::uint16_t pingWords = 1;
// Without these two the device refuses to erase.
constexpr std::uint16_t eraseAddress = 0xFF00;
constexpr std::uint16_t eraseKey = 0xA506;

/// The data of a version reply, as offsets into the whole reply.
constexpr std::size_t bootloaderVersionOffset = boot::replyDataOffset;
constexpr std::size_t firmwareVersionOffset = boot::replyDataOffset + 2;
constexpr std::size_t deviceIdOffset = boot::replyDataOffset + 4;
constexpr std::size_t versionWords = 3;
constexpr std::size_t versionReplySize = boot::replyDataOffset + 2 * versionWords;

PortSettings closedPortSettings()
{
    PortSettings settings;
    settings.baudRate = 9600;
    settings.writeTimeoutMs = writeLimitMs;
    settings.readTimeoutMs = readLimitMs;
    return settings;
}

/// A limit in milliseconds that covers at `baudRate` the bytes that `limitMs` covers at `fullLimitsBaudRate`.
std::uint32_t limitFor(std::uint32_t baudRate, std::uint32_t limitMs)
{
    if (baudRate == 0 || baudRate >= fullLimitsBaudRate) {
        return limitMs;
    }
    const std::uint64_t scaled = (std::uint64_t{limitMs} * fullLimitsBaudRate + baudRate - 1) / baudRate;
    return static_cast<std::uint32_t>(scaled);
}
static_assert(std::uint64_t{writeLimitMs} * fullLimitsBaudRate <= UINT32_MAX, "limits at 1 baud fit their type");

std::uint16_t wordAt(const std::vector<std::uint8_t>& bytes, std::size_t offset)
{
    return boot::wordFrom(bytes[offset], bytes[offset + 1]);
}

/// The address word: the low 16 bits are all that the wire carries.
std::uint16_t wireAddress(std::uint32_t address)
{
    return static_cast<std::uint16_t>(address);
}

/// Whether a version reply could be taken for the answer to a request.
bool isVersionLike(const BootFrame& request)
{
    const BootCommand command = boot::commandOf(request.front());
    return command == BootCommand::CmdGetVersion ||
           (command == BootCommand::CmdReadBlock && boot::countOf(request) == versionWords);
}

/// Whether a second copy of the reply to a request, the first one or empty, could be taken for the answer to another.
bool couldTakeCopy(const BootFrame& answered, const BootFrame& next)
{
    return !answered.empty() && answered.front() != next.front() && isVersionLike(answered) && isVersionLike(next);
}

/// @return the number of bytes sent.
std::size_t send(SerialPort& port, const BootFrame& frame)
{
    const std::size_t size = frame.size() * sizeof(std::uint16_t);
    if constexpr (std::endian::native == std::endian::little) {
        return port.write(reinterpret_cast<const std::uint8_t*>(frame.data()), size);
    }

    std::vector<std::uint8_t> bytes;
    bytes.reserve(size);
    for (const std::uint16_t word : frame) {
        bytes.push_back(static_cast<std::uint8_t>(word));
        bytes.push_back(static_cast<std::uint8_t>(word >> 8));
    }
    return port.write(bytes.data(), bytes.size());
}

/// Drops the echo of `size` bytes, counted and not compared. One `skip` drops fewer bytes than a block has.
/// @return false when the echo came back short.
bool dropEcho(SerialPort& port, std::size_t size)
{
    std::size_t missing = size;
    std::size_t dropped = 0;
    do {
        dropped = port.skip(missing);
        missing -= dropped;
    } while (missing > 0 && dropped > 0);
    return missing == 0;
}

} // namespace

BootloaderClient::BootloaderClient()
    : BootloaderClient(SerialPort::create(closedPortSettings()))
{
}

BootloaderClient::BootloaderClient(std::unique_ptr<SerialPort> serialPort, Clock clientClock)
    : port(std::move(serialPort))
    , now(std::move(clientClock))
{
}

BootloaderClient::~BootloaderClient() = default;

bool BootloaderClient::open(const std::string& portName, std::uint32_t baudRate)
{
    port->setPortName(portName);
    port->setBaudRate(baudRate);
    port->setParity(PortParity::None);
    port->setTimeouts(limitFor(baudRate, writeLimitMs), limitFor(baudRate, readLimitMs));
    inFlight = {};
    unusableReplies = 0;
    otherDevice = false;
    isDoubted = false;
    versionSize.reset();
    lastSeen = now();
    // On a slow line a question and the silence behind it take two read limits.
    const std::uint32_t longer = limitFor(baudRate, readLimitMs) - readLimitMs;
    knownFor = exchangeTime + 2 * std::chrono::milliseconds(longer);
    return port->open();
}

void BootloaderClient::cancel()
{
    port->cancel();
}

std::wstring BootloaderClient::errorString() const
{
    return port->errorString();
}

bool BootloaderClient::readVersion()
{
    if (sendCommand(BootCommand::CmdGetVersion, 0, 0) != BootStatus::Data) {
        return false;
    }
    takeIdentity();
    return true;
}

bool BootloaderClient::confirmIdentity()
{
    const BootFrame question = boot::makeFrame(BootCommand::CmdGetVersion, 0, 0);
    for (int attempt = 0; attempt < identityAttempts; ++attempt) {
        if (isAnswerTo(question, exchange(question))) {
            return !meetsOtherDevice();
        }
    }
    return false;
}

bool BootloaderClient::ping()
{
    sendCommand(BootCommand::CmdBlankCheck, pingAddress, pingWords);
    return true;
}

bool BootloaderClient::eraseMemory()
{
    return sendCommand(BootCommand::CmdErase, eraseAddress, eraseKey) == BootStatus::Ok;
}

BootAnswer BootloaderClient::blankCheck(std::uint32_t address, std::uint64_t size)
{
    const std::uint64_t words = std::max<std::uint64_t>(size / 2, 1);
    if (words > boot::maxWords) {
        return {};
    }
    const BootStatus status =
        sendCommand(BootCommand::CmdBlankCheck, wireAddress(address), static_cast<std::uint16_t>(words));
    return {.blank = status == BootStatus::Ok, .answered = status == BootStatus::Ok || status == BootStatus::NotBlank};
}

bool BootloaderClient::writeBlock(std::uint32_t address, const std::vector<std::uint8_t>& data)
{
    if (boot::wordsFor(data.size()) > boot::maxWords) {
        return false;
    }
    return sendData(BootCommand::CmdWriteBlock, wireAddress(address), data) == BootStatus::Ok;
}

std::vector<std::uint8_t> BootloaderClient::readBlock(std::uint32_t address, std::uint64_t size)
{
    const std::uint64_t words = std::max<std::uint64_t>(boot::wordsFor(size), 1);
    if (words > boot::maxWords) {
        return {};
    }
    const BootStatus status =
        sendCommand(BootCommand::CmdReadBlock, wireAddress(address), static_cast<std::uint16_t>(words));
    if (status != BootStatus::Data) {
        return {};
    }
    return {reply.begin() + boot::replyDataOffset, reply.end() - boot::replyChecksumSize};
}

bool BootloaderClient::resetDevice(std::uint32_t address)
{
    sendCommand(BootCommand::CmdReset, wireAddress(address), 0);
    return true;
}

void BootloaderClient::dropInput()
{
    int reads = 0;
    while (port->read(replyBuffer.data(), replyBuffer.size()) > 0 && ++reads < maxDropReads) {
    }
}

void BootloaderClient::rejectReply()
{
    dropInput();
    if (!inFlight.request.empty()) {
        inFlight.cause = InFlight::Cause::Answer;
    }
}

void BootloaderClient::expectEqualReply()
{
    if (!inFlight.request.empty() && inFlight.cause == InFlight::Cause::Nothing) {
        inFlight.cause = InFlight::Cause::Copy;
    }
}

BootStatus BootloaderClient::sendCommand(BootCommand command, std::uint16_t address, std::uint16_t count)
{
    return exchange(boot::makeFrame(command, address, count));
}

BootStatus BootloaderClient::sendData(BootCommand command, std::uint16_t address, const std::vector<std::uint8_t>& data)
{
    return exchange(boot::makeFrame(command, address, data));
}

BootStatus BootloaderClient::exchange(const BootFrame& frame)
{
    if (otherDevice) {
        return BootStatus::None;
    }
    // Nobody relies on the answer to a reset.
    if (boot::commandOf(frame.front()) != BootCommand::CmdReset) {
        if (const std::optional<BootStatus> ended = ensureInStep(frame)) {
            return *ended;
        }
    }
    if (unusableReplies == maxUnusableReplies) {
        dropInput();
        unusableReplies = 0;
    }
    if (inFlight.cause != InFlight::Cause::Answer || inFlight.request != frame) {
        inFlight.firstSent = now();
    }
    const BootStatus status = transfer(frame);
    inFlight.request = frame;
    inFlight.lateness = {};
    if (isAnswerTo(frame, status)) {
        unusableReplies = 0;
        // A status that comes after a longer time, as when this machine has slept, may be that of another device.
        if (boot::wantsData(frame) || wasSeenWithin(knownFor)) {
            lastSeen = inFlight.firstSent;
        }
        isDoubted = isDoubted && boot::commandOf(frame.front()) != BootCommand::CmdGetVersion;
    } else {
        inFlight.cause = InFlight::Cause::Answer;
        isDoubted = true;
        const bool silence = status == BootStatus::None && !inFlight.debris;
        unusableReplies = silence ? 0 : unusableReplies + 1;
    }
    return status;
}

BootStatus BootloaderClient::transfer(const BootFrame& frame)
{
    const std::size_t written = send(*port, frame);
    if (echoOn && !dropEcho(*port, written)) {
        return BootStatus::None;
    }
    return awaitReply(findDeadline(boot::commandOf(frame.front())));
}

/// Makes sure that no reply to an earlier request can be taken for the answer to `frame`, which would make verification
/// unsound. When a reply may be in flight, the client asks for something whose answer looks unlike it. Once that answer
/// has come, all replies before it have come too.
///
/// A repeat of the request that is without its answer is sent at once. That is not only allowed, since any reply to it
/// will do, but necessary: the repeats use up the late replies, and a line with a long delay would never get in step
/// otherwise. Only what changes the memory or tells what is in it is not repeated without a question when the device
/// has been silent for so long that it may be another one by now, and not sent before a known one has answered. A
/// device that has left a request without an answer is known again when it has told its version.
/// @return nothing if `frame` may be sent. Otherwise the exchange ends with this status: `None` if the probe was not
/// answered, or by another device; or the late answer to `frame`, if that came instead.
std::optional<BootStatus> BootloaderClient::ensureInStep(const BootFrame& frame)
{
    using Cause = InFlight::Cause;
    using std::chrono::milliseconds;
    const bool concernsMemory = boot::concernsMemory(frame);
    const auto isKnown = [&] { return !concernsMemory || (!isDoubted && wasSeenWithin(knownFor)); };
    if (inFlight.cause == Cause::Nothing && !inFlight.request.empty() && !isKnown()) {
        inFlight.cause = Cause::Answer;
    }
    for (;;) {
        if (inFlight.cause == Cause::Nothing && couldTakeCopy(inFlight.request, frame)) {
            inFlight.cause = Cause::Copy;
        }
        const bool repeats = inFlight.request == frame;
        if (inFlight.cause == Cause::Nothing || (repeats && (!concernsMemory || wasSeenWithin(pullTime)))) {
            return {};
        }
        const BootFrame question = questionUnlike(inFlight.request);
        const bool asksVersion = boot::wantsData(question);
        const BootStatus status = probe(question, repeats);
        const milliseconds silence(inFlight.heard.deadline() - inFlight.firstProbe.deadline());
        isDoubted = isDoubted || silence >= inFlight.lateness + latenessVaries;
        if (status == BootStatus::None) {
            return status;
        }
        if (repeats && isAnswerTo(frame, status)) {
            return status;
        }
        if (asksVersion) {
            isDoubted = false;
            if (meetsOtherDevice()) {
                return BootStatus::None;
            }
            // A status proves nothing here: it may be a stray one, or late.
            lastSeen = inFlight.firstProbe;
        }
        // The answer may have been that to an earlier probe. Those that follow do not matter if they look unlike the
        // answer to `frame`; otherwise they are the replies to wait for.
        const bool settled = isKnown() && (inFlight.probes == 1 || asksVersion != boot::wantsData(frame));
        const milliseconds lateness = asksVersion ? silence : milliseconds(0);
        inFlight = {question, settled ? Cause::Nothing : Cause::Answer, inFlight.firstProbe, lateness};
    }
}

/// Whether the device that the client knows was on the line so short a time ago.
bool BootloaderClient::wasSeenWithin(std::chrono::milliseconds time) const
{
    return now() < lastSeen + time.count();
}

/// A request whose answer cannot be taken for the one to `request`: the version, which noise can hardly imitate, or the
/// blank check of one word where a version reply could look like the missing one.
BootFrame BootloaderClient::questionUnlike(const BootFrame& request) const
{
    return isVersionLike(request) || inFlight.cause == InFlight::Cause::Copy
               ? boot::makeFrame(BootCommand::CmdBlankCheck, pingAddress, pingWords)
               : boot::makeFrame(BootCommand::CmdGetVersion, 0, 0);
}

/// @param repeats the request is about to be repeated, so that a late answer to it is welcome too.
/// @return the status of the answer that has come; `None` without one.
BootStatus BootloaderClient::probe(const BootFrame& question, bool repeats)
{
    const bool copyOnly = inFlight.cause == InFlight::Cause::Copy;
    const auto answered = [&](BootStatus status) {
        const bool ofRequest = isAnswerTo(inFlight.request, status);
        const bool alike = status == BootStatus::Data && ofRequest;
        return (repeats && ofRequest) || (isAnswerTo(question, status) && !alike);
    };
    // A line with a long delay may bring the answer to one probe during the next, so that only the first one drops what
    // is there. An echo, though, is only counted, so nothing may stand in front of it.
    if ((inFlight.probes == 0 && !copyOnly && !repeats) || echoOn || inFlight.debris) {
        dropInput();
    }
    if (inFlight.question != question) {
        inFlight.question = question;
        inFlight.firstProbe = now();
    }
    ++inFlight.probes;
    inFlight.cause = InFlight::Cause::Answer;
    const QDeadlineTimer deadline = now() + probeLimit.count();
    BootStatus status = transfer(question);
    while (!answered(status) && !inFlight.debris && now() < deadline) {
        status = awaitReply({});
    }
    inFlight.heard = now();
    if (!answered(status)) {
        return BootStatus::None;
    }
    // Noise may have looked like the answer.
    if (!copyOnly && !repeats) {
        dropInput();
    }
    return status;
}

BootStatus BootloaderClient::awaitReply(std::chrono::milliseconds limit)
{
    const BootStatus status = awaitStatus(limit);
    inFlight.debris = status == BootStatus::Data && !takeDataReply();
    return inFlight.debris ? BootStatus::None : status;
}

BootStatus BootloaderClient::awaitStatus(std::chrono::milliseconds limit)
{
    const QDeadlineTimer deadline = now() + limit.count();
    do {
        if (port->read(replyBuffer.data(), 1) == 1) {
            const BootStatus status = boot::statusOf(replyBuffer.front());
            if (status != BootStatus::None) {
                return status;
            }
        }
    } while (now() < deadline);
    return BootStatus::None;
}

bool BootloaderClient::takeDataReply()
{
    constexpr std::size_t statusSize = 1;
    constexpr std::size_t headRest = boot::replyDataOffset - statusSize;
    if (port->read(replyBuffer.data() + statusSize, headRest) < headRest) {
        return false;
    }
    const std::size_t words =
        boot::wordFrom(replyBuffer[boot::replyCountOffset], replyBuffer[boot::replyCountOffset + 1]);
    const std::size_t total = boot::replySize(words);
    if (total >= boot::replyCapacity) {
        return false;
    }
    const std::size_t rest = total - boot::replyDataOffset;
    if (port->read(replyBuffer.data() + boot::replyDataOffset, rest) < rest) {
        return false;
    }
    const std::span<const std::uint8_t> whole(replyBuffer.data(), total);
    if (!boot::isIntact(whole)) {
        return false;
    }
    reply.assign(whole.begin(), whole.end());
    return true;
}

/// Whether a reply proves to be the answer to `frame`. One that does not may belong to something else, with the answer
/// still to come. The echo of a version request, for one, looks like a version reply without data.
bool BootloaderClient::isAnswerTo(const BootFrame& frame, BootStatus status) const
{
    const BootCommand command = boot::commandOf(frame.front());
    if (!isAnswer(command, status)) {
        return false;
    }
    switch (command) {
    case BootCommand::CmdReadBlock:
        return reply.size() == boot::replySize(boot::countOf(frame));
    case BootCommand::CmdGetVersion:
        // A copy of the reply to a read is no version.
        return versionSize ? reply.size() == *versionSize : reply.size() >= versionReplySize;
    default:
        return true;
    }
}

/// Takes what a version reply tells, and whether it is that of another device than `expectedDevice`.
bool BootloaderClient::meetsOtherDevice()
{
    takeIdentity();
    otherDevice = expectedDevice && deviceId != *expectedDevice;
    return otherDevice;
}

/// Takes versions and identity out of the last version reply, unless it is too short to hold them.
void BootloaderClient::takeIdentity()
{
    if (reply.size() < versionReplySize) {
        return;
    }
    bootloaderVersion = BootVersion::fromWord(wordAt(reply, bootloaderVersionOffset));
    firmwareVersion = BootVersion::fromWord(wordAt(reply, firmwareVersionOffset));
    deviceId = wordAt(reply, deviceIdOffset);
    versionSize = reply.size();
    const DeviceFamily& family = findFamily(familyOf(deviceId));
    codeStart = family.codeStart;
    codeEnd = family.codeEnd;
}
