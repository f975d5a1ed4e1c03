#pragma once

#include "tools/devicesim/WireFormat.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace devicesim
{

/// A request as it came, its checksum right or not.
struct Request {
    Command command = Command::GetVersion;
    /// A byte address, or a parameter of the command.
    std::uint16_t address = 0;
    /// A number of words, or a parameter of the command.
    std::uint16_t count = 0;
    /// 2 × `count` bytes in a write, empty in all other requests.
    std::vector<std::uint8_t> data;
    bool intact = false;
};

/// Finds requests in a stream of bytes. Bytes that cannot begin a request are skipped. A request that is cut off stays
/// partial until `abandon`: it has no end mark, so only silence on the line tells that nothing follows.
class RequestParser
{
public:
    /// @return the request that `byte` completes.
    std::optional<Request> feed(std::uint8_t byte);

    /// The least number of bytes that may complete a request; at least 1.
    std::size_t missing() const;

    /// A request has begun and is not complete.
    bool partial() const { return !frame.empty(); }

    /// Forgets a partial request.
    void abandon() { frame.clear(); }

private:
    std::size_t frameSize() const;
    Request takeRequest();

    std::vector<std::uint8_t> frame;
};

} // namespace devicesim
