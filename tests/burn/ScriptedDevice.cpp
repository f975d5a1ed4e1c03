#include "tests/burn/ScriptedDevice.h"

#include "bootloader/BootloaderClient.h"
#include "tests/support/IntelHex.h"
#include "tools/fwpack/Package.h"

#include <QFile>
#include <QThread>

using namespace devicesim;
using namespace std::chrono_literals;

ScriptedDevice::ScriptedDevice(const QString& faults, const std::wstring& openError)
{
    for (const QString& fault : faults.split(' ', Qt::SkipEmptyParts)) {
        if (const QString problem = traits.faults.add(fault); !problem.isEmpty()) {
            qFatal("%s", qPrintable(problem));
        }
    }
    traits.memory.assign(Memory::size, 0x55);
    line->device = [this](const ScriptedLine::Bytes& bytes) { return serve(bytes); };
    line->openError = openError;
}

BurnThread::ClientFactory ScriptedDevice::clientFactory()
{
    return [this] {
        if (!device) {
            restart();
        }
        if (stopAtOpening) {
            stop(false);
        }
        auto made = std::make_shared<BootloaderClient>(std::make_unique<ScriptedPort>(line), line->clock());
        client = made;
        return made;
    };
}

void ScriptedDevice::restart()
{
    requests.clear();
    otherTouched = false;
    device.emplace(traits);
}

void ScriptedDevice::stop(bool whileOpen)
{
    requestStop();
    while ((whileOpen && !line->cancelled) || !QThread::currentThread()->isInterruptionRequested()) {
        QThread::usleep(100);
    }
}

ScriptedLine::Reply ScriptedDevice::serve(const ScriptedLine::Bytes& bytes)
{
    RequestParser parser;
    std::optional<Request> request;
    std::optional<Reaction> reaction;
    for (const std::uint8_t byte : bytes) {
        request = parser.feed(byte);
        reaction = device->receive(byte, line->now);
    }
    const RequestKind kind = kindOf(request.value());
    const bool ping = kind == RequestKind::Ping;
    if (!ping || !requests.endsWith('p')) {
        requests += "vpebwrx"[static_cast<int>(kind)];
    }
    onRequest(kind);
    if (!reaction) {
        return {};
    }
    if (reaction->hangUp) {
        stop();
        return {};
    }
    const bool changes = kind == RequestKind::Erase || kind == RequestKind::Write;
    const bool done = reaction->record.status == static_cast<std::uint8_t>(Status::Ok);
    otherTouched = otherTouched || (changes && done && device->id() != traits.identity.deviceId);
    if (ping && pingMs > 0) {
        QThread::msleep(pingMs);
    }
    return {reaction->reply, latency + reaction->delay + (ping ? 50ms : 0ms)};
}

QString writeFirmware(const QString& folder, const QVector<ImagePart>& image, int device, int baudrate, int link)
{
    QFile file(folder + "/firmware.txt");
    if (file.open(QIODevice::WriteOnly)) {
        file.write(fwpack::makePackage(
            {static_cast<std::uint16_t>(device), "1.2%1", "Board %2", baudrate, link}, hexText(image)));
    }
    return file.fileName();
}
