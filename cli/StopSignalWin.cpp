#include "cli/StopSignal.h"

#include <QCoreApplication>

#include <atomic>
#include <utility>

#include <windows.h>

struct StopSignal::Watch {
    explicit Watch(std::function<void()> onStop)
        : handler(std::move(onStop))
    {
        current.store(this);
        SetConsoleCtrlHandler(&Watch::onControl, TRUE);
    }

    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    ~Watch()
    {
        SetConsoleCtrlHandler(&Watch::onControl, FALSE);
        current.store(nullptr);
    }

    // Runs on a thread that the system makes for the event (Windows documentation, HandlerRoutine).
    static BOOL WINAPI onControl(DWORD /*event*/)
    {
        const Watch* watch = current.load();
        if (watch == nullptr) {
            return FALSE;
        }
        QMetaObject::invokeMethod(QCoreApplication::instance(), watch->handler, Qt::QueuedConnection);
        return TRUE;
    }

    std::function<void()> handler;
    static inline std::atomic<Watch*> current{nullptr};
};

StopSignal::StopSignal(std::function<void()> onStop)
    : watch(std::make_unique<Watch>(std::move(onStop)))
{
}

StopSignal::~StopSignal() = default;

void StopSignal::check()
{
    // A control event waits its turn among the events of the thread.
}
