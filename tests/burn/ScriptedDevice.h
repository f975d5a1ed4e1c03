#pragma once

#include "burn/BurnThread.h"
#include "tests/support/ScriptedPort.h"

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QVector>

#include <array>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

/// What goes wrong with one request of a burn.
struct Fault {
    enum Kind {
        /// Neither an effect nor a reply.
        Ignored,
        Refused,
        NotBlank,
        /// A reply to a read with a wrong bit, and a checksum to match.
        BadBit,
        SentTwice,
        /// The reply comes `laterMs` later.
        Late,
        /// A stop comes while the request runs.
        Stop,
        /// No effect and no reply, and from the next request on a device of another id answers.
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
    int laterMs = 0;
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

    /// The requests so far, a letter each: version, ping (a row of them counts as one), erase, blank check, write,
    /// read, reset (x).
    QString requests;
    /// Asks for a stop, on the worker thread, which then waits until the stop has come.
    std::function<void()> requestStop = [] {};

    std::shared_ptr<ScriptedLine> line = std::make_shared<ScriptedLine>();
    /// The client of the last burn, while it lives.
    std::weak_ptr<BootloaderClient> client;
    /// Real time that a ping takes, for burns by the real clock.
    unsigned long pingMs = 0;
    std::array<std::uint8_t, 0x10000> memory{};

private:
    const Fault* nextFault(char request);
    void awaitStop(bool whileOpen);
    ScriptedLine::Reply serve(const ScriptedLine::Bytes& request);
    ScriptedLine::Reply obey(char letter, const ScriptedLine::Bytes& request);

    Faults faults;
    QHash<char, int> counts;
    std::uint8_t idLow = 0;
};

/// Data of an image: address and bytes.
using ImagePart = std::pair<unsigned, QByteArray>;

/// Writes a firmware file.
/// @return its path.
QString writeFirmware(
    const QString& folder, const QVector<ImagePart>& image, int device = 0x0300, int baudrate = 57600);
