#include "standin/win32/Event.h"

#include "standin/win32/ApiCall.h"

#include <algorithm>
#include <chrono>
#include <vector>

using win32::ApiCall;
using win32::Event;
using win32::kernel;

void Event::set()
{
    signalled = true;
    kernel().eventSet.notify_all();
}

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL initialState, LPCWSTR name)
{
    const ApiCall call("CreateEventW", manualReset, initialState, name);
    if (call.mustFail()) {
        return nullptr;
    }
    if (!manualReset || name != nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return kernel().handles.insert(std::make_shared<Event>(++kernel().eventsMade, initialState != FALSE));
}

BOOL WINAPI SetEvent(HANDLE handle)
{
    const ApiCall call("SetEvent", handle);
    const auto event = call.mustFail() ? nullptr : ApiCall::object<Event>(handle);
    if (!event) {
        return FALSE;
    }
    event->set();
    return TRUE;
}

BOOL WINAPI ResetEvent(HANDLE handle)
{
    const ApiCall call("ResetEvent", handle);
    const auto event = call.mustFail() ? nullptr : ApiCall::object<Event>(handle);
    if (!event) {
        return FALSE;
    }
    event->signalled = false;
    return TRUE;
}

DWORD WINAPI WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds)
{
    const std::vector<HANDLE> waited(handles, handles + count);
    ApiCall call("WaitForMultipleObjects", waited, waitAll, milliseconds);
    if (call.mustFail()) {
        return WAIT_FAILED;
    }
    std::vector<std::shared_ptr<Event>> events;
    events.reserve(count);
    for (const HANDLE handle : waited) {
        events.push_back(ApiCall::object<Event>(handle));
    }
    if (std::ranges::count(events, nullptr) > 0) {
        return WAIT_FAILED;
    }
    if (count == 0 || count > MAXIMUM_WAIT_OBJECTS || waitAll) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return WAIT_FAILED;
    }

    // Of several signalled objects the one of the lowest index is told.
    auto woken = events.end();
    const auto anySet = [&] {
        woken = std::ranges::find_if(events, [](const auto& event) { return event->signalled; });
        return woken != events.end();
    };
    if (milliseconds == INFINITE) {
        kernel().eventSet.wait(call.lock, anySet);
    } else if (!kernel().eventSet.wait_until(
                   call.lock, std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds), anySet)) {
        return WAIT_TIMEOUT;
    }
    return WAIT_OBJECT_0 + static_cast<DWORD>(woken - events.begin());
}
