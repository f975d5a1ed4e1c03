#include "tools/devicesim/Bootloader.h"

#include <algorithm>
#include <utility>

namespace devicesim
{

namespace
{

void appendWord(std::vector<std::uint8_t>& bytes, std::uint16_t word)
{
    bytes.push_back(static_cast<std::uint8_t>(word));
    bytes.push_back(static_cast<std::uint8_t>(word >> 8));
}

/// Between status and count the device repeats the command and the address that it answers.
std::vector<std::uint8_t> dataReply(const Request& request, std::span<const std::uint8_t> data)
{
    std::vector<std::uint8_t> reply = statusReply(Status::Data);
    reply.push_back(static_cast<std::uint8_t>(request.command));
    appendWord(reply, request.address);
    appendWord(reply, static_cast<std::uint16_t>(data.size() / 2));
    reply.insert(reply.end(), data.begin(), data.end());
    appendWord(reply, checksumOf(reply));
    return reply;
}

std::vector<std::uint8_t> versionReply(const Request& request, const Identity& identity)
{
    std::vector<std::uint8_t> data;
    appendWord(data, identity.bootloaderVersion);
    appendWord(data, identity.firmwareVersion);
    appendWord(data, identity.deviceId);
    return dataReply(request, data);
}

/// The size of the request that `frame` begins, as far as that tells.
std::size_t requestSize(std::span<const std::uint8_t> frame)
{
    constexpr std::size_t sizeWithoutData = headerBytes + checksumBytes;
    if (frame.size() < headerBytes || static_cast<Command>(frame[1]) != Command::WriteBlock) {
        return sizeWithoutData;
    }
    return sizeWithoutData + std::size_t{2} * wordAt(frame, 4);
}

} // namespace

Memory::Memory(std::span<const std::uint8_t> content, std::vector<StuckBit> stuck)
    : cells(content.begin(), content.end())
    , stuckBits(std::move(stuck))
{
    cells.resize(size, 0xFF);
    applyStuckBits();
}

void Memory::erase()
{
    std::ranges::fill(cells, std::uint8_t{0xFF});
    applyStuckBits();
}

void Memory::write(std::size_t address, std::span<const std::uint8_t> bytes)
{
    for (const std::uint8_t byte : bytes) {
        cells[address] = static_cast<std::uint8_t>(cells[address] & byte);
        ++address;
    }
    applyStuckBits();
}

bool Memory::isBlank(std::size_t address, std::size_t length) const
{
    return std::ranges::all_of(
        std::span(cells).subspan(address, length), [](std::uint8_t byte) { return byte == 0xFF; });
}

void Memory::applyStuckBits()
{
    for (const StuckBit& stuck : stuckBits) {
        std::uint8_t& cell = cells[stuck.address];
        const int mask = 1 << stuck.bit;
        cell = static_cast<std::uint8_t>(stuck.value ? cell | mask : cell & ~mask);
    }
}

RequestKind kindOf(const Request& request)
{
    switch (request.command) {
    case Command::WriteBlock:
        return RequestKind::Write;
    case Command::ReadBlock:
        return RequestKind::Read;
    case Command::Erase:
        return RequestKind::Erase;
    case Command::Reset:
        return RequestKind::Reset;
    case Command::BlankCheck:
        return request.address == pingAddress && request.count == 1 ? RequestKind::Ping : RequestKind::BlankCheck;
    case Command::GetVersion:
        break;
    }
    return RequestKind::Version;
}

std::optional<Request> RequestParser::feed(std::uint8_t byte)
{
    if (frame.size() == 1 && commandName(byte) == nullptr) {
        frame.clear();
    }
    if (frame.empty() && byte != requestStart) {
        return std::nullopt;
    }
    frame.push_back(byte);
    if (missing() > 0) {
        return std::nullopt;
    }
    const std::vector<std::uint8_t> whole = std::exchange(frame, {});
    const std::span content = std::span(whole).first(whole.size() - checksumBytes);
    const std::span data = content.subspan(headerBytes);
    Request request;
    request.command = static_cast<Command>(content[1]);
    request.address = wordAt(content, 2);
    request.count = wordAt(content, 4);
    request.data.assign(data.begin(), data.end());
    request.intact = checksumOf(content) == wordAt(whole, content.size());
    return request;
}

std::size_t RequestParser::missing() const
{
    return requestSize(frame) - frame.size();
}

std::vector<std::uint8_t> execute(const Request& request, const Identity& identity, Memory& memory)
{
    const std::size_t length = std::size_t{2} * request.count;
    const bool withinMemory = Memory::holds(request.address, length);
    switch (request.command) {
    case Command::WriteBlock:
        if (!withinMemory) {
            break;
        }
        memory.write(request.address, request.data);
        return statusReply(Status::Ok);
    case Command::ReadBlock:
        if (!withinMemory || request.count > largestReadCount) {
            break;
        }
        return dataReply(request, std::span(memory.bytes()).subspan(request.address, length));
    case Command::Erase:
        if (request.address != eraseAddress || request.count != eraseCount) {
            break;
        }
        memory.erase();
        return statusReply(Status::Ok);
    case Command::Reset:
        return statusReply(Status::Ok);
    case Command::BlankCheck:
        if (!withinMemory) {
            break;
        }
        return statusReply(memory.isBlank(request.address, length) ? Status::Ok : Status::NotBlank);
    case Command::GetVersion:
        return versionReply(request, identity);
    }
    return statusReply(Status::Refused);
}

} // namespace devicesim
