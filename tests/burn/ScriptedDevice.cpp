#include "tests/burn/ScriptedDevice.h"

#include "bootloader/BootloaderClient.h"
#include "tests/support/IntelHex.h"
#include "tools/fwpack/Package.h"

#include <QFile>
#include <QThread>

#include <algorithm>

using Reply = ScriptedLine::Reply;

ScriptedDevice::ScriptedDevice(Faults deviceFaults, const std::wstring& openError)
    : faults(std::move(deviceFaults))
{
    line->device = [this](const ScriptedLine::Bytes& request) { return serve(request); };
    line->openError = openError;
}

BurnThread::ClientFactory ScriptedDevice::clientFactory()
{
    return [this] {
        if (nextFault(Fault::opening) != nullptr) {
            awaitStop(false);
        }
        auto made = std::make_shared<BootloaderClient>(std::make_unique<ScriptedPort>(line), line->clock());
        client = made;
        return made;
    };
}

/// Counts a request.
/// @return what goes wrong with it; null when nothing does.
const Fault* ScriptedDevice::nextFault(char request)
{
    const int number = ++counts[request];
    const auto found = std::find_if(faults.begin(), faults.end(), [=](const Fault& fault) {
        return fault.request == request && (fault.requestNumber == number || fault.requestNumber == Fault::every);
    });
    return found == faults.end() ? nullptr : &*found;
}

void ScriptedDevice::restart()
{
    requests.clear();
    counts.clear();
    idLow = 0;
    memory.fill(0x55);
}

void ScriptedDevice::awaitStop(bool whileOpen)
{
    requestStop();
    while ((whileOpen && !line->cancelled) || !QThread::currentThread()->isInterruptionRequested()) {
        QThread::usleep(100);
    }
}

Reply ScriptedDevice::serve(const ScriptedLine::Bytes& request)
{
    static const QHash<int, char> letters = {
        {0x1E, 'v'}, {0x1C, 'b'}, {0x16, 'e'}, {0x12, 'w'}, {0x14, 'r'}, {0x1A, 'x'}};
    const bool ping = request[1] == 0x1C && request[2] == 0xF0 && request[3] == 0xFF;
    const char letter = ping ? 'p' : letters[request[1]];
    if (!ping || !requests.endsWith('p')) {
        requests += letter;
    }
    const Fault* fault = nextFault(letter);
    if (fault == nullptr) {
        return obey(letter, request);
    }
    switch (fault->kind) {
    case Fault::Refused:
        return {{0xA0}};
    case Fault::NotBlank:
        return {{0x70}};
    case Fault::Stop:
        awaitStop(true);
        return {};
    case Fault::Swapped:
        idLow = 1;
        return {};
    case Fault::Ignored:
        return {};
    case Fault::BadBit:
    case Fault::SentTwice:
    case Fault::Late:
        break;
    }
    Reply reply = obey(letter, request);
    if (fault->kind == Fault::BadBit) {
        reply.bytes[6] ^= 1;
        reply.bytes[reply.bytes.size() - 2] ^= 1;
    } else if (fault->kind == Fault::SentTwice) {
        line->deliver(reply);
    }
    return {reply.bytes, reply.after + std::chrono::milliseconds(fault->laterMs)};
}

Reply ScriptedDevice::obey(char letter, const ScriptedLine::Bytes& request)
{
    const auto place = memory.begin() + (request[2] + request[3] * 0x100);
    const auto size = std::min<std::ptrdiff_t>((request[4] + request[5] * 0x100) * 2, memory.end() - place);
    switch (letter) {
    case 'v':
        return ScriptedLine::dataReply({0x83, 0x10, 0x46, 0x41, idLow, 0x03});
    case 'p':
        QThread::msleep(pingMs);
        return {{0x90}, std::chrono::milliseconds(50)};
    case 'e':
        memory.fill(0xFF);
        return {{0x90}};
    case 'w':
        std::copy_n(request.begin() + 6, size, place);
        return {{0x90}};
    case 'r':
        return ScriptedLine::dataReply({place, place + size});
    case 'b':
        return {{static_cast<std::uint8_t>(std::count(place, place + size, 0xFF) == size ? 0x90 : 0x70)}};
    default:
        return {};
    }
}

QString writeFirmware(const QString& folder, const QVector<ImagePart>& image, int device, int baudrate)
{
    QFile file(folder + "/firmware.txt");
    if (file.open(QIODevice::WriteOnly)) {
        file.write(fwpack::makePackage(
            {static_cast<std::uint16_t>(device), "1.2%1", "Board %2", baudrate, 0}, hexText(image)));
    }
    return file.fileName();
}
