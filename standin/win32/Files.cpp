#include "standin/win32/ApiCall.h"
#include "standin/win32/PortFile.h"
#include "standin/win32/Status.h"
#include "standin/win32/Win32Layer.h"

#include <cerrno>
#include <string_view>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

using win32::ApiCall;
using win32::kernel;
using win32::PortDevice;
using win32::PortFile;

namespace
{

DWORD errorCode(int error)
{
    switch (error) {
    case ENOENT:
    case ENODEV:
    case ENXIO:
        return ERROR_FILE_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EBUSY:
        return ERROR_ACCESS_DENIED;
    default:
        return ERROR_GEN_FAILURE;
    }
}

/// @return a terminal that hands on every byte as it is, or -1 with errno set.
int openTerminal(const std::string& path)
{
    const int terminal = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    termios settings = {};
    if (terminal >= 0 && tcgetattr(terminal, &settings) != 0) {
        ::close(terminal);
        errno = ENOTTY;
        return -1;
    }
    cfmakeraw(&settings);
    tcsetattr(terminal, TCSANOW, &settings);
    return terminal;
}

/// The port behind a name of the device namespace.
auto findPort(std::u16string_view path)
{
    constexpr std::u16string_view prefix = u"\\\\.\\";
    return path.starts_with(prefix) ? kernel().ports.find(std::u16string(path.substr(prefix.size())))
                                    : kernel().ports.end();
}

BOOL transferResult(DWORD result, const OVERLAPPED& overlapped, LPDWORD transferred)
{
    if (result != ERROR_SUCCESS) {
        return ApiCall::fail(result);
    }
    *transferred = static_cast<DWORD>(overlapped.InternalHigh);
    return TRUE;
}

} // namespace

HANDLE WINAPI CreateFileW(LPCWSTR name, DWORD access, DWORD shareMode, LPSECURITY_ATTRIBUTES, DWORD disposition,
    DWORD flags, HANDLE templateFile)
{
    const ApiCall call("CreateFileW", name, access, shareMode, disposition, flags, templateFile);
    const auto refuse = [](DWORD code) {
        SetLastError(code);
        return INVALID_HANDLE_VALUE;
    };
    if (call.mustFail()) {
        return INVALID_HANDLE_VALUE;
    }
    const auto port = findPort(name);
    if (port == kernel().ports.end()) {
        return refuse(ERROR_FILE_NOT_FOUND);
    }
    // A communications resource is opened for one owner alone, as it is, and without a template.
    if (access != (GENERIC_READ | GENERIC_WRITE) || shareMode != 0 || disposition != OPEN_EXISTING ||
        flags != FILE_FLAG_OVERLAPPED || templateFile != nullptr) {
        return refuse(ERROR_INVALID_PARAMETER);
    }
    PortDevice& device = port->second;
    if (device.inUse) {
        return refuse(ERROR_ACCESS_DENIED);
    }
    const int terminal = openTerminal(device.path);
    if (terminal < 0) {
        return refuse(errorCode(errno));
    }
    device.inUse = true;
    return kernel().handles.insert(std::make_shared<PortFile>(port->first, device, terminal));
}

BOOL WINAPI CloseHandle(HANDLE handle)
{
    ApiCall call("CloseHandle", handle);
    // Keys and device sets have functions of their own to close them.
    if (call.mustFail() || !(kernel().handles.find<PortFile>(handle) || ApiCall::object<win32::Event>(handle))) {
        return FALSE;
    }
    const std::shared_ptr<win32::KernelObject> object = kernel().handles.take(handle);
    call.lock.unlock();
    return TRUE;
}

BOOL WINAPI ReadFile(HANDLE handle, LPVOID buffer, DWORD size, LPDWORD transferred, LPOVERLAPPED overlapped)
{
    const ApiCall call("ReadFile", handle, size, overlapped->hEvent);
    *transferred = 0;
    const auto file = call.mustFail() ? nullptr : ApiCall::object<PortFile>(handle);
    return file &&
           transferResult(file->startRead(*overlapped, static_cast<BYTE*>(buffer), size), *overlapped, transferred);
}

BOOL WINAPI WriteFile(HANDLE handle, LPCVOID buffer, DWORD size, LPDWORD transferred, LPOVERLAPPED overlapped)
{
    const ApiCall call("WriteFile", handle, size, overlapped->hEvent);
    *transferred = 0;
    const auto file = call.mustFail() ? nullptr : ApiCall::object<PortFile>(handle);
    return file && transferResult(
                       file->startWrite(*overlapped, static_cast<const BYTE*>(buffer), size), *overlapped, transferred);
}

BOOL WINAPI GetOverlappedResult(HANDLE handle, LPOVERLAPPED overlapped, LPDWORD transferred, BOOL wait)
{
    const ApiCall call("GetOverlappedResult", handle, overlapped->hEvent, wait);
    if (call.mustFail() || !ApiCall::object<PortFile>(handle)) {
        return FALSE;
    }
    if (wait) {
        return ApiCall::fail(ERROR_INVALID_PARAMETER);
    }
    if (overlapped->Internal == win32::StatusPending) {
        return ApiCall::fail(ERROR_IO_INCOMPLETE);
    }
    *transferred = static_cast<DWORD>(overlapped->InternalHigh);
    return overlapped->Internal == win32::StatusSuccess ? TRUE : ApiCall::fail(ERROR_OPERATION_ABORTED);
}

BOOL WINAPI CancelIo(HANDLE handle)
{
    const ApiCall call("CancelIo", handle);
    const auto file = call.mustFail() ? nullptr : ApiCall::object<PortFile>(handle);
    if (!file) {
        return FALSE;
    }
    file->cancelOwn();
    return TRUE;
}
