#pragma once

#include "burn/BurnThread.h"
#include "tests/support/ScriptedPort.h"

#include <QByteArray>
#include <QString>
#include <QVector>

#include <array>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <utility>
#include <vector>

/// What goes wrong with one request of a burn.
struct Fault {
    enum Kind {
        /// Neither an effect nor a reply.
        Ignored,
        ReplyLost,
        Refused,
        NotBlank,
        /// A reply to a read with a wrong bit, and a checksum to match.
        BadBit,
        SentTwice,
        /// The reply comes `value` milliseconds later.
        Late,
        /// Only the first `value` bytes of the reply come.
        Cut,
        /// Bit `value` of the reply is wrong, counted from the lowest one of the first byte.
        Flipped,
        /// The byte `value` comes before the reply.
        Stray,
        /// The device restarts: neither effects nor replies for `value` milliseconds.
        Restart,
        /// A stop comes while the request runs.
        Stop,
        /// Neither effects nor replies for `value` milliseconds, then a device of another id answers; or the first
        /// again.
        Swapped,
    };
    static constexpr int every = 0;
    /// As `requestNumber` of the opening of the port, which is no request.
    static constexpr char opening = 'o';

    /// The type of the request, a letter as in `ScriptedDevice::requests`.
    char request;
    /// Which request of that type, from 1 on, or `every`.
    int requestNumber;
    Kind kind;
    int value = 0;
};
using Faults = std::vector<Fault>;

/// A device on a scripted line, with 64 KiB of memory and id 0x0300, which behaves well but for the faults given.
class ScriptedDevice
{
public:
    /// `openError`, if there is one, keeps the port from being opened.
    explicit ScriptedDevice(Faults deviceFaults = {}, const std::wstring& openError = {});

    BurnThread::ClientFactory clientFactory();

    /// Starts the faults anew, with a used memory.
    void restart();

    /// What goes wrong with a request, given its letter and its number; by default as the faults given say.
    std::function<std::optional<Fault>(char, int)> faultFor;

    /// The requests so far, a letter each: version, ping (a row of them counts as one), erase, blank check, write,
    /// read, reset (x).
    QString requests;
    /// Asks for a stop, on the worker thread, which then waits until the stop has come.
    std::function<void()> requestStop = [] {};

    std::shared_ptr<ScriptedLine> line = std::make_shared<ScriptedLine>();
    /// The client of the last burn, while it lives.
    std::weak_ptr<BootloaderClient> client;
    /// Time between a request and its reply; a ping takes 50 ms more.
    std::chrono::milliseconds latency{0};
    /// Real time that a ping takes, for burns by the real clock.
    unsigned long pingMs = 0;
    std::array<std::uint8_t, 0x10000> memory{};
    /// A bit of the memory that never becomes 0, as address and mask.
    std::pair<unsigned, std::uint8_t> stuckBit = {0, 0};
    /// The device of the other id was erased or written.
    bool otherTouched = false;

private:
    std::optional<Fault> nextFault(char request);
    void awaitStop(bool whileOpen);
    ScriptedLine::Reply serve(const ScriptedLine::Bytes& request);
    ScriptedLine::Reply obey(char letter, const ScriptedLine::Bytes& request);

    std::map<char, int> counts;
    /// The device of the other id answers.
    bool swapped = false;
    ScriptedLine::Time restarted{0};
};

/// Data of an image: address and bytes.
using ImagePart = std::pair<unsigned, QByteArray>;

/// Writes a firmware file.
/// @return its path.
QString writeFirmware(
    const QString& folder, const QVector<ImagePart>& image, int device = 0x0300, int baudrate = 57600, int link = 0);
