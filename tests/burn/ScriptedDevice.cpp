#include "tests/burn/ScriptedDevice.h"

#include "bootloader/BootloaderClient.h"
#include "tests/support/IntelHex.h"
#include "tools/fwpack/Package.h"

#include <QFile>
#include <QRegularExpression>
#include <QThread>

#include <algorithm>

using Reply = ScriptedLine::Reply;

ScriptedDevice::ScriptedDevice(const QString& script, const std::wstring& openError)
{
    line->device = [this](const ScriptedLine::Bytes& request) { return serve(request); };
    line->openError = openError;
    for (auto word = QRegularExpression("([a-z][0-9*]+)(\\S+)").globalMatch(script); word.hasNext();) {
        const auto match = word.next();
        actions.insert(match.captured(1), match.captured(2));
    }
}

BurnThread::ClientFactory ScriptedDevice::clientFactory()
{
    return [this] {
        if (actions.contains("o1")) {
            awaitStop(false);
        }
        auto made = std::make_shared<BootloaderClient>(std::make_unique<ScriptedPort>(line), line->clock());
        client = made;
        return made;
    };
}

void ScriptedDevice::restart()
{
    requests.clear();
    counts.clear();
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
    const QString every = QString(letter) + '*';
    const QString action = actions.value(letter + QString::number(++counts[letter]), actions.value(every));
    if (action == "s") {
        awaitStop(true);
    }
    if (action == "-" || action == "s") {
        return {};
    }
    if (action == "x" || action == "d") {
        return {{static_cast<std::uint8_t>(action == "x" ? 0xA0 : 0x70)}};
    }
    Reply reply = obey(letter, request);
    if (action == "b") {
        reply.bytes[6] ^= 1;
        reply.bytes[reply.bytes.size() - 2] ^= 1;
    } else if (action == "=") {
        line->deliver(reply);
    }
    return {reply.bytes, reply.after + std::chrono::milliseconds(action.toInt())};
}

Reply ScriptedDevice::obey(char letter, const ScriptedLine::Bytes& request)
{
    const auto place = memory.begin() + (request[2] + request[3] * 0x100);
    const auto size = std::min<std::ptrdiff_t>((request[4] + request[5] * 0x100) * 2, memory.end() - place);
    switch (letter) {
    case 'v':
        return ScriptedLine::dataReply({0x83, 0x10, 0x46, 0x41, 0x00, 0x03});
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
