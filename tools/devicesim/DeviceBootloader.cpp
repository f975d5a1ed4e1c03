#include "tools/devicesim/DeviceBootloader.h"

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
    std::vector<std::uint8_t> reply;
    reply.reserve(headerBytes + data.size() + checksumBytes);
    reply.push_back(static_cast<std::uint8_t>(Status::Data));
    reply.push_back(static_cast<std::uint8_t>(request.command));
    appendWord(reply, request.address);
    appendWord(reply, static_cast<std::uint16_t>(data.size() / 2));
    reply.insert(reply.end(), data.begin(), data.end());
    appendWord(reply, checksumOf(reply));
    return reply;
}

std::size_t lengthOf(const Request& request)
{
    return std::size_t{2} * request.count;
}

} // namespace

DeviceBootloader::DeviceBootloader(const DeviceIdentity& deviceIdentity, DeviceMemory& deviceMemory)
    : identity(deviceIdentity)
    , memory(deviceMemory)
{
}

std::vector<std::uint8_t> DeviceBootloader::execute(const Request& request)
{
    switch (request.command) {
    case Command::WriteBlock:
        return write(request);
    case Command::ReadBlock:
        return read(request);
    case Command::Erase:
        return erase(request);
    case Command::Reset:
        return statusReply(Status::Ok);
    case Command::BlankCheck:
        return checkBlank(request);
    case Command::GetVersion:
        return version(request);
    }
    return statusReply(Status::Refused);
}

std::vector<std::uint8_t> DeviceBootloader::erase(const Request& request)
{
    if (request.address != eraseAddress || request.count != eraseCount) {
        return statusReply(Status::Refused);
    }
    memory.erase();
    return statusReply(Status::Ok);
}

std::vector<std::uint8_t> DeviceBootloader::write(const Request& request)
{
    if (!DeviceMemory::holds(request.address, request.data.size())) {
        return statusReply(Status::Refused);
    }
    memory.write(request.address, request.data);
    return statusReply(Status::Ok);
}

std::vector<std::uint8_t> DeviceBootloader::read(const Request& request) const
{
    if (request.count > largestReadCount || !DeviceMemory::holds(request.address, lengthOf(request))) {
        return statusReply(Status::Refused);
    }
    return dataReply(request, std::span(memory.bytes()).subspan(request.address, lengthOf(request)));
}

std::vector<std::uint8_t> DeviceBootloader::checkBlank(const Request& request) const
{
    if (!DeviceMemory::holds(request.address, lengthOf(request))) {
        return statusReply(Status::Refused);
    }
    return statusReply(memory.isBlank(request.address, lengthOf(request)) ? Status::Ok : Status::NotBlank);
}

std::vector<std::uint8_t> DeviceBootloader::version(const Request& request) const
{
    std::vector<std::uint8_t> data;
    appendWord(data, identity.bootloaderVersion);
    appendWord(data, identity.firmwareVersion);
    appendWord(data, identity.deviceId);
    return dataReply(request, data);
}

} // namespace devicesim
