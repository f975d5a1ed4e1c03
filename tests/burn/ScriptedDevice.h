#pragma once

#include "burn/BurnThread.h"
#include "tests/support/ScriptedPort.h"
#include "tools/devicesim/Device.h"

#include <QByteArray>
#include <QString>
#include <QVector>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

/// A simulated device on a scripted line, with id 0x0300 and a used memory.
class ScriptedDevice
{
public:
    /// @param faults as the command line of devicesim takes them, separated by blanks. Where the line hangs up, a stop
    /// comes.
    /// @param openError keeps the port from being opened unless it is empty.
    explicit ScriptedDevice(const QString& faults = {}, const std::wstring& openError = {});

    BurnThread::ClientFactory clientFactory();

    /// Starts the device anew, as `traits` tell. The first burn does that too.
    void restart();

    const std::vector<std::uint8_t>& memory() const { return device->memory(); }

    /// Asks for a stop, on the worker thread, and waits until it has come.
    /// @param whileOpen the port is open, and is cancelled too.
    void stop(bool whileOpen = true);

    devicesim::DeviceTraits traits;
    /// The requests so far, a letter each: version, ping (a row of them counts as one), erase, blank check, write,
    /// read, reset (x).
    QString requests;
    /// Called with each of them, heard by the device or not.
    std::function<void(devicesim::RequestKind)> onRequest = [](devicesim::RequestKind) {};
    /// Asks for a stop.
    std::function<void()> requestStop = [] {};
    bool stopAtOpening = false;

    std::shared_ptr<ScriptedLine> line = std::make_shared<ScriptedLine>();
    /// The client of the last burn, while it lives.
    std::weak_ptr<BootloaderClient> client;
    /// Time between a request and its reply; a ping takes 50 ms more.
    std::chrono::milliseconds latency{0};
    /// Real time that a ping takes, for burns by the real clock.
    unsigned long pingMs = 0;
    /// A device of another id was erased or written.
    bool otherTouched = false;

private:
    ScriptedLine::Reply serve(const ScriptedLine::Bytes& bytes);

    std::optional<devicesim::Device> device;
};

/// Data of an image: address and bytes.
using ImagePart = std::pair<unsigned, QByteArray>;

/// Writes a firmware file.
/// @return its path.
QString writeFirmware(
    const QString& folder, const QVector<ImagePart>& image, int device = 0x0300, int baudrate = 57600, int link = 0);
