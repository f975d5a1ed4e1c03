#include "tools/devicesim/RequestParser.h"

#include <utility>

namespace devicesim
{

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
    return takeRequest();
}

std::size_t RequestParser::missing() const
{
    return frameSize() - frame.size();
}

std::size_t RequestParser::frameSize() const
{
    constexpr std::size_t plainBytes = headerBytes + checksumBytes;
    if (frame.size() < headerBytes || static_cast<Command>(frame[1]) != Command::WriteBlock) {
        return plainBytes;
    }
    return plainBytes + std::size_t{2} * wordAt(frame, 4);
}

Request RequestParser::takeRequest()
{
    const std::vector<std::uint8_t> bytes = std::exchange(frame, {});
    const std::size_t checksumOffset = bytes.size() - checksumBytes;
    Request request;
    request.command = static_cast<Command>(bytes[1]);
    request.address = wordAt(bytes, 2);
    request.count = wordAt(bytes, 4);
    request.data.assign(bytes.begin() + headerBytes, bytes.begin() + static_cast<std::ptrdiff_t>(checksumOffset));
    request.intact = checksumOf({bytes.data(), checksumOffset}) == wordAt(bytes, checksumOffset);
    return request;
}

} // namespace devicesim
