#include "tests/burn/ScriptedDevice.h"

#include "bootloader/BootloaderClient.h"
#include "tests/support/IntelHex.h"
#include "tools/fwpack/Package.h"

#include <QFile>
#include <QThread>

#include <algorithm>
#include <functional>

using Reply = ScriptedLine::Reply;

ScriptedDevice::ScriptedDevice(Faults deviceFaults, const std::wstring& openError)
    : faultFor([faults = std::move(deviceFaults)](char request, int number) -> std::optional<Fault> {
        const auto found = std::ranges::find_if(faults, [=](const Fault& fault) {
            return fault.request == request && (fault.requestNumber == number || fault.requestNumber == Fault::every);
        });
        return found == faults.end() ? std::nullopt : std::optional(*found);
    })
{
    line->device = [this](const ScriptedLine::Bytes& request) { return serve(request); };
    line->openError = openError;
}

BurnThread::ClientFactory ScriptedDevice::clientFactory()
{
    return [this] {
        if (nextFault(Fault::opening)) {
            awaitStop(false);
        }
        auto made = std::make_shared<BootloaderClient>(std::make_unique<ScriptedPort>(line), line->clock());
        client = made;
        return made;
    };
}

/// Counts a request.
/// @return what goes wrong with it.
std::optional<Fault> ScriptedDevice::nextFault(char request)
{
    return faultFor(request, ++counts[request]);
}

void ScriptedDevice::restart()
{
    requests.clear();
    counts.clear();
    swapped = otherTouched = false;
    restarted = {};
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
    static const std::map<int, char> letters = {
        {0x1E, 'v'}, {0x1C, 'b'}, {0x16, 'e'}, {0x12, 'w'}, {0x14, 'r'}, {0x1A, 'x'}};
    const bool ping = request[1] == 0x1C && request[2] == 0xF0 && request[3] == 0xFF;
    const char letter = ping ? 'p' : letters.at(request[1]);
    if (!ping || !requests.endsWith('p')) {
        requests += letter;
    }
    const std::optional<Fault> fault = nextFault(letter);
    if (line->now < restarted) {
        return {};
    }
    if (!fault) {
        return obey(letter, request);
    }
    const auto value = static_cast<std::size_t>(fault->value);
    switch (fault->kind) {
    case Fault::Refused:
        return {{0xA0}, latency};
    case Fault::NotBlank:
        return {{0x70}, latency};
    case Fault::Stop:
        awaitStop(true);
        return {};
    case Fault::Swapped:
        swapped = !swapped;
        [[fallthrough]];
    case Fault::Restart:
        restarted = line->now + std::chrono::milliseconds(value);
        return {};
    case Fault::Ignored:
        return {};
    default:
        break;
    }
    Reply reply = obey(letter, request);
    switch (fault->kind) {
    case Fault::ReplyLost:
        return {};
    case Fault::BadBit:
        reply.bytes[6] ^= 1;
        reply.bytes[reply.bytes.size() - 2] ^= 1;
        break;
    case Fault::SentTwice:
        line->deliver(reply);
        break;
    case Fault::Late:
        reply.after += std::chrono::milliseconds(value);
        break;
    case Fault::Cut:
        reply.bytes.resize(std::min(value, reply.bytes.size()));
        break;
    case Fault::Flipped:
        if (value / 8 < reply.bytes.size()) {
            reply.bytes[value / 8] ^= static_cast<std::uint8_t>(1 << value % 8);
        }
        break;
    case Fault::Stray:
        reply.bytes.insert(reply.bytes.begin(), static_cast<std::uint8_t>(value));
        break;
    default:
        break;
    }
    return reply;
}

Reply ScriptedDevice::obey(char letter, const ScriptedLine::Bytes& request)
{
    const unsigned address = request[2] + request[3] * 0x100U;
    const std::size_t size = std::min<std::size_t>((request[4] + request[5] * 0x100U) * 2, memory.size() - address);
    const std::span place = std::span(memory).subspan(address, size);
    switch (letter) {
    case 'v': {
        const auto idLow = static_cast<std::uint8_t>(swapped ? 1 : 0);
        return {ScriptedLine::dataReply({0x83, 0x10, 0x46, 0x41, idLow, 0x03}).bytes, latency};
    }
    case 'p':
        if (pingMs > 0) {
            QThread::msleep(pingMs);
        }
        return {{0x90}, latency + std::chrono::milliseconds(50)};
    case 'e':
    case 'w':
        otherTouched = otherTouched || swapped;
        if (!swapped && letter == 'e') {
            memory.fill(0xFF);
        } else if (!swapped) {
            std::transform(place.begin(), place.end(), request.begin() + 6, place.begin(), std::bit_and());
            memory[stuckBit.first] |= stuckBit.second;
        }
        return {{0x90}, latency};
    case 'r':
        return {ScriptedLine::dataReply({place.begin(), place.end()}).bytes, latency};
    case 'b': {
        const bool blank = std::ranges::count(place, 0xFF) == std::ssize(place);
        return {{static_cast<std::uint8_t>(blank ? 0x90 : 0x70)}, latency};
    }
    default:
        return {};
    }
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
