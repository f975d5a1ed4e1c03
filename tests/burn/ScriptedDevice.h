#pragma once

#include "burn/BurnThread.h"
#include "tests/support/ScriptedPort.h"

#include <QHash>
#include <QString>
#include <QVector>

#include <array>
#include <functional>
#include <memory>
#include <utility>

/// A well-behaved device on a scripted line, with 64 KiB of memory and id 0x0300, but for what a script says.
///
/// Requests have a letter each: version, ping, erase, blank check, write, read, reset (x). The script is a list of a
/// letter, a number (the how-manieth of its kind, * for all) and what befalls it: "-" no reply and no effect,
/// "x" refused, "d" not blank, "b" a flipped bit in the data, "=" a reply sent twice, "+130" a reply 130 ms later than
/// usual, "s" a stop while it runs. "o1s" is a stop before the port is opened.
class ScriptedDevice
{
public:
    /// `openError`, if there is one, keeps the port from being opened.
    explicit ScriptedDevice(const QString& script, const std::wstring& openError = {});

    BurnThread::ClientFactory clientFactory();

    /// Begins the script anew, with a used memory.
    void restart();

    /// The letters of all requests, one for each row of pings.
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
    void awaitStop(bool whileOpen);
    ScriptedLine::Reply serve(const ScriptedLine::Bytes& request);
    ScriptedLine::Reply obey(char letter, const ScriptedLine::Bytes& request);

    QHash<QString, QString> actions;
    QHash<char, int> counts;
};

/// Data of an image: address and bytes.
using ImagePart = std::pair<unsigned, QByteArray>;

/// Writes a firmware file.
/// @return its path.
QString writeFirmware(
    const QString& folder, const QVector<ImagePart>& image, int device = 0x0300, int baudrate = 57600);
