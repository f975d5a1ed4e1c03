#include "standin/win32/ApiCall.h"
#include "standin/win32/PortFile.h"

using win32::ApiCall;
using win32::PortFile;

namespace
{

/// What every driver refuses: no rate, a character of no sensible size, and the stop bits that go with another size.
bool isLinePossible(const DCB& dcb)
{
    const bool stopBitsFit = dcb.ByteSize == 5 ? dcb.StopBits != TWOSTOPBITS : dcb.StopBits != ONE5STOPBITS;
    return dcb.BaudRate > 0 && dcb.ByteSize >= 5 && dcb.ByteSize <= 8 && dcb.Parity <= SPACEPARITY &&
           dcb.StopBits <= TWOSTOPBITS && stopBitsFit;
}

/// The open port behind a handle; the last error is set where there is none, or where its line has hung up.
std::shared_ptr<PortFile> livePort(HANDLE handle)
{
    auto file = ApiCall::object<PortFile>(handle);
    if (file && file->isDead()) {
        SetLastError(ERROR_BAD_COMMAND);
        return nullptr;
    }
    return file;
}

} // namespace

BOOL WINAPI GetCommState(HANDLE handle, LPDCB dcb)
{
    const ApiCall call("GetCommState", handle, dcb->DCBlength);
    const auto file = call.mustFail() ? nullptr : livePort(handle);
    if (!file) {
        return FALSE;
    }
    *dcb = file->device.state;
    dcb->DCBlength = sizeof(DCB);
    return TRUE;
}

BOOL WINAPI SetCommState(HANDLE handle, LPDCB dcb)
{
    const ApiCall call("SetCommState", handle, dcb->DCBlength);
    const auto file = call.mustFail() ? nullptr : livePort(handle);
    if (!file) {
        return FALSE;
    }
    if (dcb->DCBlength != sizeof(DCB) || !isLinePossible(*dcb)) {
        return ApiCall::fail(ERROR_INVALID_PARAMETER);
    }
    file->device.state = *dcb;
    return TRUE;
}

BOOL WINAPI SetCommTimeouts(HANDLE handle, LPCOMMTIMEOUTS timeouts)
{
    const ApiCall call("SetCommTimeouts", handle);
    const auto file = call.mustFail() ? nullptr : livePort(handle);
    if (!file) {
        return FALSE;
    }
    // This driver knows totals only.
    if (timeouts->ReadIntervalTimeout != 0) {
        return ApiCall::fail(ERROR_INVALID_PARAMETER);
    }
    file->device.timeouts = *timeouts;
    return TRUE;
}

BOOL WINAPI PurgeComm(HANDLE handle, DWORD flags)
{
    const ApiCall call("PurgeComm", handle, flags);
    const auto file = call.mustFail() ? nullptr : livePort(handle);
    if (!file) {
        return FALSE;
    }
    if ((flags & PURGE_RXABORT) != 0) {
        file->cancelRead();
    }
    if ((flags & PURGE_TXABORT) != 0) {
        file->cancelWrite();
    }
    if ((flags & PURGE_RXCLEAR) != 0) {
        file->dropInput();
    }
    // Nothing for PURGE_TXCLEAR: what has left a pending write has left the line too.
    return TRUE;
}

BOOL WINAPI ClearCommError(HANDLE handle, LPDWORD errors, LPCOMSTAT status)
{
    const ApiCall call("ClearCommError", handle);
    const auto file = call.mustFail() ? nullptr : livePort(handle);
    if (!file) {
        return FALSE;
    }
    *errors = 0;
    *status = {};
    status->cbInQue = file->inputCount();
    status->cbOutQue = file->unsentCount();
    return TRUE;
}
