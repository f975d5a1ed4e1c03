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

/// How long a probe of the line waits for its answer: no longer than any command, since a cancel does not end it.
constexpr std::chrono::milliseconds probeLimit{300};

// What ping asks about: one word at the end of the address space, which every device can tell about.
constexpr std::uint16_t pingAddress = 0xFFF0;
constexpr std::uint16_t pingWords = 1;
// Without these two the device refuses to erase.
constexpr std::uint16_t eraseAddress = 0xFF00;
constexpr std::uint16_t eraseKey = 0xA506;

/// The data of a version reply, as offsets into the whole reply.
constexpr std::size_t bootloaderVersionOffset = Boot::replyDataOffset;
constexpr std::size_t firmwareVersionOffset = Boot::replyDataOffset + 2;
constexpr std::size_t deviceIdOffset = Boot::replyDataOffset + 4;
constexpr std::size_t versionReplySize = Boot::replyDataOffset + 6;

/// Where a reply lands. The first byte is the status of the exchange under way. Not guarded: there is one exchange at a
/// time in the process.
std::array<std::uint8_t, Boot::replyCapacity> replyBuffer;

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
    return Boot::wordFrom(bytes[offset], bytes[offset + 1]);
}

/// The address word: the low 16 bits are all that the wire carries.
std::uint16_t wireAddress(std::uint32_t address)
{
    return static_cast<std::uint16_t>(address);
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

BootloaderClient::BootloaderClient(std::unique_ptr<SerialPort> serialPort, Clock clock)
    : port(std::move(serialPort))
    , now(std::move(clock))
{
}

BootloaderClient::~BootloaderClient() = default;

bool BootloaderClient::open(const std::string& portName, std::uint32_t baudRate)
{
    port->setPortName(portName);
    port->setBaudRate(baudRate);
    port->setParity(PortParity::None);
    port->setTimeouts(limitFor(baudRate, writeLimitMs), limitFor(baudRate, readLimitMs));
    forgetUnanswered();
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
    if (reply.size() < versionReplySize) {
        return true;
    }
    bootloaderVersion = BootVersion::fromWord(wordAt(reply, bootloaderVersionOffset));
    firmwareVersion = BootVersion::fromWord(wordAt(reply, firmwareVersionOffset));
    deviceId = wordAt(reply, deviceIdOffset);
    const DeviceFamily& family = findFamily(familyOf(deviceId));
    codeStart = family.codeStart;
    codeEnd = family.codeEnd;
    return true;
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
    if (words > Boot::maxWords) {
        return {};
    }
    const BootStatus status =
        sendCommand(BootCommand::CmdBlankCheck, wireAddress(address), static_cast<std::uint16_t>(words));
    return {.blank = status == BootStatus::Ok, .answered = status == BootStatus::Ok || status == BootStatus::NotBlank};
}

bool BootloaderClient::writeBlock(std::uint32_t address, const std::vector<std::uint8_t>& data)
{
    if (Boot::wordsFor(data.size()) > Boot::maxWords) {
        return false;
    }
    return sendData(BootCommand::CmdWriteBlock, wireAddress(address), data) == BootStatus::Ok;
}

std::vector<std::uint8_t> BootloaderClient::readBlock(std::uint32_t address, std::uint64_t size)
{
    const std::uint64_t words = std::max<std::uint64_t>(Boot::wordsFor(size), 1);
    if (words > Boot::maxWords) {
        return {};
    }
    const BootStatus status =
        sendCommand(BootCommand::CmdReadBlock, wireAddress(address), static_cast<std::uint16_t>(words));
    if (damaged) {
        dropInput();
    }
    if (status != BootStatus::Data) {
        return {};
    }
    if (reply.size() != Boot::replySize(words)) {
        noteUnanswered(BootCommand::CmdReadBlock, wireAddress(address));
    }
    return {reply.begin() + Boot::replyDataOffset, reply.end() - Boot::replyChecksumSize};
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

bool BootloaderClient::resynchronise()
{
    if (!unanswered) {
        return true;
    }
    // A link may be so slow that it brings the answer to one probe while the next is under way. An echo, though, is
    // only counted, so nothing may stand before it, and the rest of a damaged reply can look like anything.
    if (!probeUnanswered || echoOn || damaged) {
        dropInput();
    }
    const BootCommand probe = unansweredBlock ? BootCommand::CmdBlankCheck : BootCommand::CmdGetVersion;
    const QDeadlineTimer deadline = now() + probeLimit.count();
    BootStatus status = unansweredBlock ? sendCommand(probe, *unansweredBlock, 1) : sendCommand(probe, 0, 0);
    while (!isAnswer(probe, status) && !damaged && now() < deadline) {
        status = awaitReply({});
    }
    probeUnanswered = !isAnswer(probe, status);
    if (probeUnanswered) {
        return false;
    }
    // What was taken for the answer may have been noise, or the answer to the probe before this one.
    dropInput();
    forgetUnanswered();
    return true;
}

void BootloaderClient::noteUnanswered(BootCommand command, std::uint16_t address)
{
    unanswered = true;
    if (command == BootCommand::CmdReadBlock) {
        unansweredBlock = address;
    }
}

void BootloaderClient::forgetUnanswered()
{
    unanswered = probeUnanswered = false;
    unansweredBlock.reset();
}

BootStatus BootloaderClient::sendCommand(BootCommand command, std::uint16_t address, std::uint16_t count)
{
    return exchange(Boot::makeFrame(command, address, count));
}

BootStatus BootloaderClient::sendData(BootCommand command, std::uint16_t address, const std::vector<std::uint8_t>& data)
{
    return exchange(Boot::makeFrame(command, address, data));
}

BootStatus BootloaderClient::exchange(const BootFrame& frame)
{
    const BootCommand command = Boot::commandOf(frame.front());
    BootStatus status = BootStatus::None;
    damaged = false;
    const std::size_t written = send(*port, frame);
    if (!echoOn || dropEcho(*port, written)) {
        status = awaitReply(findDeadline(command));
    }
    if (!isAnswer(command, status)) {
        noteUnanswered(command, Boot::addressOf(frame));
    }
    return status;
}

BootStatus BootloaderClient::awaitReply(std::chrono::milliseconds limit)
{
    const BootStatus status = awaitStatus(limit);
    damaged = status == BootStatus::Data && !takeDataReply();
    return damaged ? BootStatus::None : status;
}

BootStatus BootloaderClient::awaitStatus(std::chrono::milliseconds limit)
{
    const QDeadlineTimer deadline = now() + limit.count();
    do {
        if (port->read(replyBuffer.data(), 1) == 1) {
            const BootStatus status = Boot::statusOf(replyBuffer.front());
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
    constexpr std::size_t headRest = Boot::replyDataOffset - statusSize;
    if (port->read(replyBuffer.data() + statusSize, headRest) < headRest) {
        return false;
    }
    const std::size_t words =
        Boot::wordFrom(replyBuffer[Boot::replyCountOffset], replyBuffer[Boot::replyCountOffset + 1]);
    const std::size_t total = Boot::replySize(words);
    if (total >= Boot::replyCapacity) {
        return false;
    }
    const std::size_t rest = total - Boot::replyDataOffset;
    if (port->read(replyBuffer.data() + Boot::replyDataOffset, rest) < rest) {
        return false;
    }
    const std::span<const std::uint8_t> whole(replyBuffer.data(), total);
    if (!Boot::isIntact(whole)) {
        return false;
    }
    reply.assign(whole.begin(), whole.end());
    return true;
}
