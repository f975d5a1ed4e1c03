#include "cli/StopSignal.h"
#include "support/FileDescriptor.h"

#include <QSocketNotifier>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace
{

constexpr std::array stopSignals{SIGINT, SIGTERM, SIGHUP};

// The write end of the pipe for the handler, which may use async-signal-safe functions only (POSIX.1-2017, 2.4.3).
volatile std::sig_atomic_t wakeUpEnd = -1;

void onSignal(int /*number*/)
{
    const int error = errno;
    const char byte = 0;
    [[maybe_unused]] const ssize_t written = write(wakeUpEnd, &byte, 1);
    errno = error;
}

} // namespace

struct StopSignal::Watch {
    explicit Watch(std::function<void()> onStop)
        : handler(std::move(onStop))
    {
        std::array<int, 2> ends{-1, -1};
        if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
            return;
        }
        readEnd = FileDescriptor(ends[0]);
        writeEnd = FileDescriptor(ends[1]);
        wakeUpEnd = writeEnd.get();
        notifier = std::make_unique<QSocketNotifier>(readEnd.get(), QSocketNotifier::Read);
        QObject::connect(notifier.get(), &QSocketNotifier::activated, notifier.get(), [this] { check(); });
        struct sigaction action = {};
        action.sa_handler = onSignal;
        action.sa_flags = SA_RESTART;
        for (std::size_t i = 0; i < stopSignals.size(); ++i) {
            sigaction(stopSignals[i], nullptr, &earlier[i]);
            // Under nohup a burn outlives its terminal.
            if (stopSignals[i] != SIGHUP || earlier[i].sa_handler != SIG_IGN) {
                sigaction(stopSignals[i], &action, nullptr);
            }
        }
        // A reader of the log that goes away must not end the program in the middle of an erase.
        action.sa_handler = SIG_IGN;
        sigaction(SIGPIPE, &action, &earlierPipe);
    }

    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    ~Watch()
    {
        if (!notifier) {
            return;
        }
        for (std::size_t i = 0; i < stopSignals.size(); ++i) {
            sigaction(stopSignals[i], &earlier[i], nullptr);
        }
        sigaction(SIGPIPE, &earlierPipe, nullptr);
        wakeUpEnd = -1;
    }

    void check()
    {
        std::array<char, 16> bytes{};
        if (read(readEnd.get(), bytes.data(), bytes.size()) > 0) {
            handler();
        }
    }

    std::function<void()> handler;
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
    std::unique_ptr<QSocketNotifier> notifier;
    std::array<struct sigaction, stopSignals.size()> earlier{};
    struct sigaction earlierPipe = {};
};

StopSignal::StopSignal(std::function<void()> onStop)
    : watch(std::make_unique<Watch>(std::move(onStop)))
{
}

StopSignal::~StopSignal() = default;

void StopSignal::check()
{
    watch->check();
}
