// Serial ports: opening, transfers and communication functions.

#include "standin/win32/PortFile.h"

#include <cerrno>

#include <fcntl.h>
#include <termios.h>

using namespace win32;

namespace
{

/// @return a terminal that passes every byte unchanged; invalid on failure, with errno set
FileDescriptor openTerminal(const std::string& path)
{
    FileDescriptor terminal(::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    termios settings = {};
    if (!terminal.isValid() || tcgetattr(terminal.get(), &settings) != 0) {
        return {};
    }
    cfmakeraw(&settings);
    tcsetattr(terminal.get(), TCSANOW, &settings);
    return terminal;
}

/// @param path a name in the device namespace; elsewhere there are no ports here
/// @return null when there is no such port
PortDevice* findPort(std::u16string_view path)
{
    constexpr std::u16string_view prefix = u"\\\\.\\";
    if (!path.starts_with(prefix)) {
        return nullptr;
    }
    const auto found = kernel().ports.find(std::u16string(path.substr(prefix.size())));
    return found == kernel().ports.end() ? nullptr : &found->second;
}

HANDLE refuseToOpen(DWORD code)
{
    SetLastError(code);
    return INVALID_HANDLE_VALUE;
}

/// Serves a call that a driver refuses when its line has hung up.
template <typename Action>
BOOL serveLine(const char* function, HANDLE handle, Action action)
{
    return serve<PortFile>(
        function, handle, [action](PortFile& port) { return port.isDead() ? fail(ERROR_BAD_COMMAND) : action(port); });
}

/// What a call that starts a transfer returns.
BOOL startResult(DWORD result, const OVERLAPPED& overlapped, DWORD& transferred)
{
    if (result != ERROR_SUCCESS) {
        return fail(result);
    }
    transferred = static_cast<DWORD>(overlapped.InternalHigh);
    return TRUE;
}

} // namespace

HANDLE WINAPI CreateFileW(LPCWSTR name, DWORD access, DWORD shareMode, LPSECURITY_ATTRIBUTES, DWORD disposition,
    DWORD flags, HANDLE templateFile)
{
    const ApiCall call(__func__);
    if (call.fault()) {
        return INVALID_HANDLE_VALUE;
    }
    PortDevice* const device = findPort(name);
    if (device == nullptr) {
        return refuseToOpen(ERROR_FILE_NOT_FOUND);
    }
    // A communications resource is opened for one owner alone, as it is, and without a template.
    if (access != (GENERIC_READ | GENERIC_WRITE) || shareMode != 0 || disposition != OPEN_EXISTING ||
        flags != FILE_FLAG_OVERLAPPED || templateFile != nullptr) {
        return refuseToOpen(ERROR_INVALID_PARAMETER);
    }
    if (device->inUse) {
        return refuseToOpen(ERROR_ACCESS_DENIED);
    }
    FileDescriptor terminal = openTerminal(device->path);
    if (!terminal.isValid()) {
        return refuseToOpen(errno == ENOENT ? ERROR_FILE_NOT_FOUND : ERROR_ACCESS_DENIED);
    }
    return newHandle(std::make_shared<PortFile>(*device, std::move(terminal)));
}

BOOL WINAPI CloseHandle(HANDLE handle)
{
    const ApiCall call(__func__);
    // Keys and device sets have functions of their own that close them.
    std::shared_ptr<KernelObject> object = call.object<PortFile>(handle);
    if (!object) {
        object = call.object<Event>(handle);
    }
    if (!object) {
        return FALSE;
    }
    kernel().handles.erase(handle);
    return TRUE;
}

BOOL WINAPI ReadFile(HANDLE handle, LPVOID buffer, DWORD size, LPDWORD transferred, LPOVERLAPPED overlapped)
{
    *transferred = 0;
    return serve<PortFile>(__func__, handle, [&](PortFile& port) {
        const DWORD result = port.startRead(*overlapped, static_cast<BYTE*>(buffer), size);
        return startResult(result, *overlapped, *transferred);
    });
}

BOOL WINAPI WriteFile(HANDLE handle, LPCVOID buffer, DWORD size, LPDWORD transferred, LPOVERLAPPED overlapped)
{
    *transferred = 0;
    return serve<PortFile>(__func__, handle, [&](PortFile& port) {
        const DWORD result = port.startWrite(*overlapped, static_cast<const BYTE*>(buffer), size);
        return startResult(result, *overlapped, *transferred);
    });
}

BOOL WINAPI GetOverlappedResult(HANDLE handle, LPOVERLAPPED overlapped, LPDWORD transferred, BOOL wait)
{
    return serve<PortFile>(__func__, handle, [&](PortFile& port) {
        if (wait) {
            return fail(ERROR_INVALID_PARAMETER);
        }
        port.advance();
        if (overlapped->Internal == statusPending) {
            return fail(ERROR_IO_INCOMPLETE);
        }
        *transferred = static_cast<DWORD>(overlapped->InternalHigh);
        return overlapped->Internal == statusSuccess ? TRUE : fail(ERROR_OPERATION_ABORTED);
    });
}

BOOL WINAPI CancelIo(HANDLE handle)
{
    return serve<PortFile>(__func__, handle, [](PortFile& port) {
        port.cancelOwn();
        return TRUE;
    });
}

BOOL WINAPI GetCommState(HANDLE handle, LPDCB dcb)
{
    return serveLine(__func__, handle, [dcb](const PortFile& port) {
        if (dcb->DCBlength != sizeof(DCB)) {
            return fail(ERROR_INVALID_PARAMETER);
        }
        *dcb = port.device.state;
        return TRUE;
    });
}

BOOL WINAPI SetCommState(HANDLE handle, LPDCB dcb)
{
    return serveLine(__func__, handle, [dcb](PortFile& port) {
        if (dcb->DCBlength != sizeof(DCB) || dcb->BaudRate == 0) {
            return fail(ERROR_INVALID_PARAMETER);
        }
        port.device.state = *dcb;
        return TRUE;
    });
}

BOOL WINAPI SetCommTimeouts(HANDLE handle, LPCOMMTIMEOUTS timeouts)
{
    return serveLine(__func__, handle, [timeouts](PortFile& port) {
        port.device.timeouts = *timeouts;
        return TRUE;
    });
}

BOOL WINAPI PurgeComm(HANDLE handle, DWORD flags)
{
    return serveLine(__func__, handle, [flags](PortFile& port) {
        port.cancel((flags & PURGE_RXABORT) != 0, (flags & PURGE_TXABORT) != 0);
        if ((flags & PURGE_RXCLEAR) != 0) {
            port.dropInput();
        }
        // Nothing for PURGE_TXCLEAR: the driver keeps no bytes of a transfer that has ended.
        return TRUE;
    });
}

BOOL WINAPI ClearCommError(HANDLE handle, LPDWORD errors, LPCOMSTAT status)
{
    return serveLine(__func__, handle, [errors, status](const PortFile& port) {
        *errors = 0;
        *status = {};
        status->cbInQue = port.inputCount();
        return TRUE;
    });
}
