#include "cli/StopSignal.h"

#include <QMetaObject>
#include <QObject>

#include <mutex>
#include <thread>
#include <utility>

#include <windows.h>

struct StopSignal::Watch {
    explicit Watch(std::function<void()> onStop)
        : handler(std::move(onStop))
    {
        static std::once_flag installed;
        std::call_once(installed, [] {
            SetConsoleCtrlHandler(&Watch::onControl, TRUE);
            std::thread(&Watch::awaitEndOfSession).detach();
        });
        const std::lock_guard lock(mutex);
        current = this;
    }

    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    // Taking the handler away could wait for one that runs, and that one may wait for the end of the program. So it
    // stays, and leaves everything to the system.
    ~Watch()
    {
        const std::lock_guard lock(mutex);
        current = nullptr;
    }

    /// Asks the program to stop. May be called on any thread.
    /// @return false when it has nothing to stop
    static bool requestStop()
    {
        const std::lock_guard lock(mutex);
        return current != nullptr &&
               QMetaObject::invokeMethod(&current->context, current->handler, Qt::QueuedConnection);
    }

    // Runs on a thread that the system makes for the event (Windows documentation, HandlerRoutine).
    static BOOL WINAPI onControl(DWORD event)
    {
        if (!requestStop()) {
            return FALSE;
        }
        if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) {
            // The console closes. The system ends the program as soon as this function returns, or some seconds later.
            Sleep(INFINITE);
        }
        return TRUE;
    }

    /// A console program that has loaded user32.dll gets no control event when the user logs off or the machine shuts
    /// down; a hidden window is told instead (Windows documentation, SetConsoleCtrlHandler).
    static void awaitEndOfSession()
    {
        WNDCLASSW windowClass = {};
        windowClass.lpfnWndProc = &Watch::onWindowMessage;
        windowClass.hInstance = GetModuleHandleW(nullptr);
        windowClass.lpszClassName = L"TavimoraEndOfSession";
        RegisterClassW(&windowClass);
        CreateWindowExW(
            0, windowClass.lpszClassName, L"", 0, 0, 0, 0, 0, nullptr, nullptr, windowClass.hInstance, nullptr);
        for (MSG message = {}; GetMessageW(&message, nullptr, 0, 0) > 0;) {
            DispatchMessageW(&message);
        }
    }

    static LRESULT CALLBACK onWindowMessage(HWND window, UINT message, WPARAM first, LPARAM second)
    {
        if (message == WM_ENDSESSION && first != FALSE && requestStop()) {
            Sleep(INFINITE); // the system may end the program as soon as this function returns
        }
        return DefWindowProcW(window, message, first, second);
    }

    std::function<void()> handler;
    QObject context;
    static inline std::mutex mutex;
    static inline Watch* current = nullptr;
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
