#include "cli/LineInput.h"

#include <QByteArray>
#include <QSocketNotifier>

#include <array>
#include <cerrno>
#include <utility>

#include <unistd.h>

namespace
{

constexpr qsizetype longestLine = qsizetype{64} * 1024;

} // namespace

struct LineInput::Reader {
    Reader(std::function<void(const QString&)> lineHandler, std::function<void()> endHandler)
        : onLine(std::move(lineHandler))
        , onEnd(std::move(endHandler))
        , notifier(STDIN_FILENO, QSocketNotifier::Read)
    {
        QObject::connect(&notifier, &QSocketNotifier::activated, &notifier, [this] { read(); });
    }

    void read()
    {
        std::array<char, 4096> bytes{};
        const ssize_t count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
            return;
        }
        if (count <= 0) {
            notifier.setEnabled(false);
            if (!pending.isEmpty()) {
                handOver();
            }
            onEnd();
            return;
        }
        for (const char byte : QByteArrayView(bytes.data(), count)) {
            if (byte == '\n') {
                handOver();
            } else if (pending.size() < longestLine) {
                pending += byte;
            }
        }
    }

    void handOver()
    {
        const QByteArray line = std::exchange(pending, {});
        onLine(QString::fromLocal8Bit(line.endsWith('\r') ? line.chopped(1) : line));
    }

    std::function<void(const QString&)> onLine;
    std::function<void()> onEnd;
    QByteArray pending;
    QSocketNotifier notifier;
};

LineInput::LineInput(std::function<void(const QString&)> onLine, std::function<void()> onEnd)
    : reader(std::make_unique<Reader>(std::move(onLine), std::move(onEnd)))
{
}

LineInput::~LineInput() = default;
