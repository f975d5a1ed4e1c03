#include "bootloader/BootloaderClient.h"
#include "tests/support/ScriptedPort.h"

#include <cstdlib>
#include <numeric>
#include <span>

namespace
{

using Bytes = ScriptedLine::Bytes;
using View = std::span<const std::uint8_t>;

/// A call of the client. Returns the status of the reply as the client tells it, 0 without one; `data` gets what it
/// read.
using Call = std::function<int(BootloaderClient& client, unsigned address, std::size_t size, Bytes& data)>;

/// The calls, each with the command of the request that it alone sends, once at most.
const std::vector<std::pair<int, Call>> calls = {
    {0x1E, [](auto& client, auto...) { return client.readVersion() ? 0x80 : 0; }},
    {0x1C, [](auto& client, auto...) { return client.ping(), 0; }},
    {0x16, [](auto& client, auto...) { return client.eraseMemory() ? 0x90 : 0; }},
    {0x12, [](auto& client, auto to, auto n, auto&) { return client.writeBlock(to, Bytes(n, 0x5A)) ? 0x90 : 0; }},
    {0x14, [](auto& client, auto from, auto n, auto& d) { return (d = client.readBlock(from, n)).empty() ? 0 : 0x80; }},
    {0x1C,
        [](auto& client, auto from, auto n, auto&) {
            const BootAnswer answer = client.blankCheck(from, n);
            return !answer.answered ? 0 : answer.blank ? 0x90 : 0x70;
        }},
    {0x1A, [](auto& client, auto...) { return client.resetDevice(0), 0; }},
    {0, [](auto& client, auto...) { return client.rejectReply(), 0; }},
    {0, [](auto& client, auto...) { return client.expectEqualReply(), 0; }},
    {0, [](auto& client, auto...) { return client.cancel(), 0; }}};
constexpr std::array<std::size_t, 8> sizes = {0, 2, 5, 6, 16, 512, 2038, 0x20000};

/// What any call may send: version, and blank check of the one word that every device has.
const std::array<Bytes, 2> questions = {
    {{0x80, 0x1E, 0, 0, 0, 0, 0x7F, 0xE1}, {0x80, 0x1C, 0xF0, 0xFF, 1, 0, 0x8E, 0x1C}}};

/// Whether the bytes that came end with a reply of this status; if that opens a data reply, with one that is whole, has
/// a right checksum, and holds the data or, without any, the device id.
bool endsWithReply(View came, int status, const Bytes& data, int deviceId)
{
    bool found = status != 0x80 && !came.empty() && came.back() == status;
    for (std::size_t size = 0; status == 0x80 && size <= 2038; size += 2) {
        const View reply = came.last(std::min(came.size(), size + 8));
        found = found || (reply.size() == size + 8 && reply[0] == 0x80 && reply[4] + 256U * reply[5] == size / 2 &&
                             std::accumulate(reply.begin(), reply.end(), 0, std::bit_xor()) == 0 &&
                             (data.empty() ? size < 6 || reply[10] + 256 * reply[11] == deviceId
                                           : std::ranges::equal(reply.subspan(6, size), data)));
    }
    return found;
}

} // namespace

/// The input, in bytes: flags (1 the client reckons with an echo, 2 the line has one, 4 the burn is for device 0x0300
/// only), then the calls: which one, and an operand (`% 8` picks the size, from 128 on another address). Behind a call
/// stands, for each request that it leads to, what the device sends: form (odd: data of a good reply, even: bytes as
/// they are; `/ 16` how often more), delay in 4 ms, length, and so many bytes. With nothing left it keeps silent.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t length)
{
    View input(bytes, length);
    const auto take = [&](std::size_t count) {
        const View taken = input.first(std::min(count, input.size()));
        input = input.subspan(taken.size());
        return taken;
    };
    const auto takeByte = [&] { return input.empty() ? 0U : take(1).front(); };
    const auto line = std::make_shared<ScriptedLine>();
    BootloaderClient client(std::make_unique<ScriptedPort>(line), line->clock());
    const unsigned flags = takeByte();
    client.echoOn = (flags & 1) != 0;
    line->echo = (flags & 2) != 0;
    client.expectedDevice = (flags & 4) != 0 ? std::optional<std::uint16_t>(0x0300) : std::nullopt;
    client.open("line", 57600);
    Bytes sent; // to the client
    line->device = [&](const Bytes& request) {
        const unsigned form = takeByte();
        ScriptedLine::Reply reply = {{}, takeByte() * std::chrono::milliseconds(4)};
        const View content = take(takeByte());
        for (unsigned i = 0; i <= form / 16; ++i) {
            reply.bytes.insert(reply.bytes.end(), content.begin(), content.end());
        }
        reply.bytes = form % 2 == 1 ? ScriptedLine::dataReply(reply.bytes).bytes : reply.bytes;
        sent.insert(sent.end(), request.begin(), line->echo ? request.end() : request.begin());
        sent.insert(sent.end(), reply.bytes.begin(), reply.bytes.end());
        return reply;
    };
    for (int count = 0; count < 64 && !input.empty(); ++count) {
        const auto& [command, call] = calls[takeByte() % calls.size()];
        const unsigned operand = takeByte();
        const auto before = line->now;
        const std::size_t requestsBefore = line->requests.size();
        const std::size_t handedBefore = sent.size() - line->input.size();
        const bool refused = client.metOtherDevice();
        Bytes data;
        const int status = call(client, operand < 128 ? 0x3100 : 0x13300, sizes[operand % 8], data);

        const View came = View(sent).first(sent.size() - line->input.size()).subspan(handedBefore);
        int own = 0;
        for (const Bytes& request : std::span(line->requests).subspan(requestsBefore)) {
            const bool isQuestion = std::ranges::find(questions, request) != questions.end();
            own += isQuestion ? 0 : request[1] == command ? 1 : 2;
        }
        // Two probes with the input dropped before and behind, and a transfer. After a cancel only its deadline is
        // left.
        const std::chrono::milliseconds limit(line->cancelled ? 350 : 10000);
        if ((status != 0 && !endsWithReply(came, status, data, client.deviceId)) || own > 1 ||
            line->now - before > limit || (refused && line->requests.size() > requestsBefore) ||
            (client.metOtherDevice() && (!client.expectedDevice || client.deviceId == 0x0300))) {
            std::abort();
        }
    }
    return 0;
}
