#include "cli/LineInput.h"

#include <QMetaObject>
#include <QObject>

#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace
{

constexpr std::size_t longestLine = std::size_t{64} * 1024;

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

void readLines(const std::shared_ptr<Shared>& shared)
{
    std::string pending;
    const auto handOver = [&] {
        if (pending.ends_with('\r')) {
            pending.pop_back();
        }
        shared->post([shared, line = QString::fromLocal8Bit(pending.c_str())] { shared->onLine(line); });
        pending.clear();
    };
    for (int byte = std::getchar(); byte != EOF; byte = std::getchar()) {
        if (byte == '\n') {
            handOver();
        } else if (pending.size() < longestLine) {
            pending += static_cast<char>(byte);
        }
    }
    if (!pending.empty()) {
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
