#include "cli/LineInput.h"

#include <QByteArray>
#include <QMetaObject>
#include <QObject>

#include <array>
#include <mutex>
#include <thread>
#include <utility>

#include <windows.h>

namespace
{

constexpr qsizetype longestLine = qsizetype{64} * 1024;

/// What the reading thread shares with the object. The thread cannot be ended while it waits for input, so it may
/// outlive the object, which then takes the target away.
struct Shared {
    std::mutex mutex;
    QObject* target = nullptr;
    std::function<void(const QString&)> onLine;
    std::function<void()> onEnd;

    void post(std::function<void()> call)
    {
        const std::lock_guard lock(mutex);
        if (target != nullptr) {
            QMetaObject::invokeMethod(target, std::move(call), Qt::QueuedConnection);
        }
    }
};

/// Reads standard input. The functions of <cstdio> are of no use here: the end of the program would wait for the lock
/// of a stream that another thread is reading.
/// @return bytes, which are UTF-8 if the input is a console; nothing at the end of the input
QByteArray readInput(HANDLE input, bool isConsole)
{
    DWORD length = 0;
    if (!isConsole) {
        std::array<char, 4096> bytes{};
        ReadFile(input, bytes.data(), DWORD{bytes.size()}, &length, nullptr);
        return {bytes.data(), static_cast<qsizetype>(length)};
    }
    std::array<wchar_t, 4096> characters{};
    while (length == 0) { // as after Ctrl-C
        if (!ReadConsoleW(input, characters.data(), DWORD{characters.size()}, &length, nullptr)) {
            return {};
        }
    }
    constexpr wchar_t endOfInput = 0x1A; // what Ctrl-Z types
    return characters[0] == endOfInput ? QByteArray() : QString::fromWCharArray(characters.data(), length).toUtf8();
}

void readLines(const std::shared_ptr<Shared>& shared)
{
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    const bool isConsole = GetConsoleMode(input, &mode);
    QByteArray pending;
    const auto handOver = [&] {
        if (pending.endsWith('\r')) {
            pending.chop(1);
        }
        const QString line = isConsole ? QString::fromUtf8(pending) : QString::fromLocal8Bit(pending);
        shared->post([shared, line] { shared->onLine(line); });
        pending.clear();
    };
    for (QByteArray bytes = readInput(input, isConsole); !bytes.isEmpty(); bytes = readInput(input, isConsole)) {
        for (const char byte : bytes) {
            if (byte == '\n') {
                handOver();
            } else if (pending.size() < longestLine) {
                pending += byte;
            }
        }
    }
    if (!pending.isEmpty()) {
        handOver();
    }
    shared->post([shared] { shared->onEnd(); });
}

} // namespace

struct LineInput::Reader {
    QObject context;
    std::shared_ptr<Shared> shared = std::make_shared<Shared>();
};

LineInput::LineInput(std::function<void(const QString&)> onLine, std::function<void()> onEnd)
    : reader(std::make_unique<Reader>())
{
    reader->shared->target = &reader->context;
    reader->shared->onLine = std::move(onLine);
    reader->shared->onEnd = std::move(onEnd);
    std::thread(readLines, reader->shared).detach();
}

LineInput::~LineInput()
{
    const std::lock_guard lock(reader->shared->mutex);
    reader->shared->target = nullptr;
}
