// Last errors and their texts, events and waits.

#include "standin/win32/PortFile.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>

#include <poll.h>

using namespace std::chrono_literals;
using namespace win32;

namespace
{

using Clock = PortFile::Clock;

thread_local DWORD lastError = 0;

struct SystemText {
    DWORD code;
    std::u16string_view text;
};

constexpr std::array systemTexts = {
    SystemText{ERROR_FILE_NOT_FOUND, u"The system cannot find the file specified.\r\n"},
    SystemText{ERROR_ACCESS_DENIED, u"Access is denied.\r\n"},
    SystemText{ERROR_INVALID_HANDLE, u"The handle is invalid.\r\n"},
};

void pollUntil(std::vector<pollfd>& polled, Clock::time_point time)
{
    const auto left = std::clamp<std::chrono::nanoseconds>(time - Clock::now(), 0ns, 1h);
    const timespec limit = {left / 1s, (left % 1s).count()};
    ppoll(polled.data(), polled.size(), &limit, nullptr);
}

} // namespace

DWORD WINAPI GetLastError()
{
    return lastError;
}

void WINAPI SetLastError(DWORD code)
{
    lastError = code;
}

DWORD WINAPI FormatMessageW(DWORD flags, LPCVOID, DWORD messageId, DWORD languageId, LPWSTR buffer, DWORD, va_list*)
{
    const ApiCall call(__func__);
    if (call.fault()) {
        return 0;
    }
    constexpr DWORD knownFlags =
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM;
    if (flags != knownFlags || languageId != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    const auto* const found = std::ranges::find(systemTexts, messageId, &SystemText::code);
    if (found == systemTexts.end()) {
        SetLastError(ERROR_MR_MID_NOT_FOUND);
        return 0;
    }
    auto* const text = static_cast<LPWSTR>(std::calloc(found->text.size() + 1, sizeof(WCHAR)));
    std::ranges::copy(found->text, text);
    *reinterpret_cast<LPWSTR*>(buffer) = text;
    return static_cast<DWORD>(found->text.size());
}

HLOCAL WINAPI LocalFree(HLOCAL memory)
{
    std::free(memory);
    return nullptr;
}

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL initialState, LPCWSTR name)
{
    const ApiCall call(__func__);
    if (call.fault()) {
        return nullptr;
    }
    if (!manualReset || initialState || name != nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return newHandle(std::make_shared<Event>());
}

BOOL WINAPI SetEvent(HANDLE handle)
{
    return serve<Event>(__func__, handle, [](Event& event) {
        event.set();
        return TRUE;
    });
}

BOOL WINAPI ResetEvent(HANDLE handle)
{
    return serve<Event>(__func__, handle, [](Event& event) {
        event.reset();
        return TRUE;
    });
}

DWORD WINAPI WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds)
{
    ApiCall call(__func__);
    std::vector<std::shared_ptr<Event>> events;
    for (DWORD i = 0; i < count; ++i) {
        events.push_back(call.object<Event>(handles[i]));
        if (!events.back()) {
            return WAIT_FAILED;
        }
    }
    if (count == 0 || waitAll) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }

    const auto end =
        milliseconds == INFINITE ? Clock::time_point::max() : Clock::now() + std::chrono::milliseconds(milliseconds);
    for (;;) {
        auto next = end;
        std::vector<pollfd> polled;
        const auto busyPorts = advancePorts();
        for (const auto& port : busyPorts) {
            next = std::min(next, port->nextTime());
            polled.push_back({port->inputDescriptor(), POLLIN, 0});
        }
        // Of several signalled objects the one of the lowest index counts.
        const auto woken = std::ranges::find_if(events, [](const auto& event) { return event->isSignalled(); });
        if (woken != events.end()) {
            return WAIT_OBJECT_0 + static_cast<DWORD>(woken - events.begin());
        }
        if (Clock::now() >= end) {
            return WAIT_TIMEOUT;
        }
        for (const auto& event : events) {
            polled.push_back({event->descriptor(), POLLIN, 0});
        }
        call.lock.unlock();
        pollUntil(polled, next);
        call.lock.lock();
    }
}
