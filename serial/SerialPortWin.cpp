#include "serial/SerialPortWin.h"

#include <array>

namespace
{

/// The name of a port in the device namespace, where a port of any number is found; elsewhere only COM1 to COM9 are.
std::basic_string<WCHAR> devicePath(const std::string& portName)
{
    const std::string prefix = R"(\\.\)";
    std::basic_string<WCHAR> path;
    for (const char character : portName.starts_with(prefix) ? portName : prefix + portName) {
        path += static_cast<WCHAR>(static_cast<signed char>(character));
    }
    return path;
}

// Parities and stop bits have the numbers that Windows gives them.
static_assert(static_cast<int>(PortParity::Odd) == ODDPARITY && static_cast<int>(PortParity::Even) == EVENPARITY);
static_assert(static_cast<int>(PortParity::Mark) == MARKPARITY && static_cast<int>(PortParity::Space) == SPACEPARITY);
static_assert(static_cast<int>(PortStopBits::OneAndHalf) == ONE5STOPBITS);
static_assert(static_cast<int>(PortStopBits::Two) == TWOSTOPBITS);

/// A value out of range leaves what the driver gave.
void writeFormat(DCB& dcb, const PortSettings& settings)
{
    dcb.ByteSize = settings.dataBits;
    if (settings.parity <= PortParity::Space) {
        dcb.Parity = static_cast<BYTE>(settings.parity);
    }
    if (settings.stopBits <= PortStopBits::Two) {
        dcb.StopBits = static_cast<BYTE>(settings.stopBits);
    }
}

/// Binary, parity checked if there is one, DTR and RTS as asked for, no flow control. DSR sensitivity and the reserved
/// bits stay as the driver gave them.
void writeFlags(DCB& dcb, const PortSettings& settings)
{
    dcb.fBinary = TRUE;
    dcb.fParity = dcb.Parity != NOPARITY;
    dcb.fOutxCtsFlow = FALSE;
    dcb.fOutxDsrFlow = FALSE;
    dcb.fDtrControl = settings.dtrEnabled ? DTR_CONTROL_ENABLE : DTR_CONTROL_DISABLE;
    dcb.fOutX = FALSE;
    dcb.fInX = FALSE;
    dcb.fErrorChar = FALSE;
    dcb.fNull = FALSE;
    dcb.fRtsControl = settings.rtsEnabled ? RTS_CONTROL_ENABLE : RTS_CONTROL_DISABLE;
    dcb.fAbortOnError = FALSE;
}

void closeEvent(HANDLE event)
{
    if (event != nullptr) {
        CloseHandle(event);
    }
}

} // namespace

SerialPortWin::SerialPortWin(const PortSettings& portSettings)
    : SerialPort(portSettings)
{
}

SerialPortWin::~SerialPortWin()
{
    close();
    closeEvent(readOverlapped.hEvent);
    closeEvent(writeOverlapped.hEvent);
    closeEvent(cancelEvent);
}

bool SerialPortWin::open()
{
    close();
    if (!makeEvents()) {
        return false;
    }
    handle = CreateFileW(devicePath(settings.portName).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
        FILE_FLAG_OVERLAPPED, nullptr);
    if (!isOpen()) {
        return fail();
    }
    if (!applySettings() || !applyTimeouts()) {
        CloseHandle(handle.exchange(INVALID_HANDLE_VALUE));
        return false;
    }
    if (!PurgeComm(handle, PURGE_TXABORT | PURGE_RXABORT | PURGE_TXCLEAR | PURGE_RXCLEAR)) {
        fail();
    }
    return true;
}

void SerialPortWin::close()
{
    if (!isOpen()) {
        return;
    }
    CancelIo(handle);
    if (cancelEvent != nullptr) {
        SetEvent(cancelEvent);
    }
    CloseHandle(handle.exchange(INVALID_HANDLE_VALUE));
}

bool SerialPortWin::isOpen() const
{
    return handle != INVALID_HANDLE_VALUE;
}

void SerialPortWin::cancel()
{
    // CancelIo ends what the calling thread has started, and nothing else. The event is what wakes a transfer of
    // another thread, which then ends its I/O itself.
    if (isOpen()) {
        CancelIo(handle);
    }
    if (cancelEvent != nullptr) {
        SetEvent(cancelEvent);
    }
}

std::wstring SerialPortWin::errorString() const
{
    LPWSTR text = nullptr;
    // With FORMAT_MESSAGE_ALLOCATE_BUFFER the function takes the address of a pointer where it otherwise takes the
    // buffer.
    const DWORD length =
        FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM,
            nullptr, lastError, 0, reinterpret_cast<LPWSTR>(&text), 0, nullptr);
    if (length == 0 || text == nullptr) {
        return L"Error " + std::to_wstring(lastError) + L": <unknown error>";
    }
    std::wstring message(text, text + length);
    LocalFree(text);
    return message;
}

bool SerialPortWin::purge(bool receive, bool transmit)
{
    const DWORD flags = (receive ? DWORD{PURGE_RXABORT | PURGE_RXCLEAR} : DWORD{0}) |
                        (transmit ? DWORD{PURGE_TXABORT | PURGE_TXCLEAR} : DWORD{0});
    if (!isOpen() || flags == 0) {
        return true;
    }
    return PurgeComm(handle, flags) || fail();
}

std::uint32_t SerialPortWin::bytesAvailable() const
{
    DWORD errors = 0;
    COMSTAT status = {};
    return isOpen() && ClearCommError(handle, &errors, &status) ? status.cbInQue : 0;
}

std::size_t SerialPortWin::write(const std::uint8_t* buffer, std::size_t size)
{
    if (!canTransfer(buffer, size)) {
        return 0;
    }
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(settings.writeTimeoutMs);
    ResetEvent(writeOverlapped.hEvent);
    DWORD transferred = 0;
    const bool isDone = WriteFile(handle, buffer, static_cast<DWORD>(size), &transferred, &writeOverlapped);
    return finish(isDone, writeOverlapped, transferred, end);
}

std::size_t SerialPortWin::read(std::uint8_t* buffer, std::size_t size)
{
    if (!canTransfer(buffer, size)) {
        return 0;
    }
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(settings.readTimeoutMs);
    ResetEvent(readOverlapped.hEvent);
    DWORD transferred = 0;
    const bool isDone = ReadFile(handle, buffer, static_cast<DWORD>(size), &transferred, &readOverlapped);
    return finish(isDone, readOverlapped, transferred, end);
}

bool SerialPortWin::applySettings()
{
    DCB dcb = {};
    dcb.DCBlength = sizeof(dcb);
    if (!GetCommState(handle, &dcb)) {
        return fail();
    }
    dcb.BaudRate = settings.baudRate;
    writeFormat(dcb, settings);
    writeFlags(dcb, settings);
    return SetCommState(handle, &dcb) || fail();
}

bool SerialPortWin::applyTimeouts()
{
    // Only the totals limit a transfer: no time-out between characters, no addition for each byte.
    COMMTIMEOUTS timeouts = {};
    timeouts.ReadTotalTimeoutConstant = settings.readTimeoutMs;
    timeouts.WriteTotalTimeoutConstant = settings.writeTimeoutMs;
    return SetCommTimeouts(handle, &timeouts) || fail();
}

/// Makes the manual-reset event unless it is there already, else clears it.
/// @return null when it could not be made.
HANDLE SerialPortWin::freshEvent(HANDLE event)
{
    if (event != nullptr) {
        ResetEvent(event);
        return event;
    }
    const HANDLE made = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (made == nullptr) {
        fail();
    }
    return made;
}

/// Makes or clears the three events, which lifts a standing cancel.
bool SerialPortWin::makeEvents()
{
    readOverlapped.hEvent = freshEvent(readOverlapped.hEvent);
    writeOverlapped.hEvent = freshEvent(writeOverlapped.hEvent);
    cancelEvent = freshEvent(cancelEvent);
    return readOverlapped.hEvent != nullptr && writeOverlapped.hEvent != nullptr && cancelEvent != nullptr;
}

bool SerialPortWin::canTransfer(const std::uint8_t* buffer, std::size_t size)
{
    if (buffer == nullptr || size == 0) {
        return false;
    }
    if (!isOpen()) {
        lastError = ERROR_INVALID_HANDLE;
        return false;
    }
    return true;
}

/// Ends a transfer: waits until it is done, or until its limit where nothing has moved.
/// @param isDone whether it was done when its call returned, with `transferred` bytes moved
/// @param end when its limit has passed
/// @return the number of bytes moved
std::size_t SerialPortWin::finish(bool isDone, OVERLAPPED& overlapped, DWORD transferred, Clock::time_point end)
{
    if (!isDone) {
        lastError = GetLastError();
        transferred = 0;
        if (lastError == ERROR_IO_PENDING && !awaitTransfer(overlapped, transferred)) {
            return 0;
        }
    }
    if (transferred == 0) {
        waitOutLimit(end);
    }
    return transferred;
}

/// Waits until the driver has ended a transfer.
/// @return false when a cancel or a failure of the wait ended it
bool SerialPortWin::awaitTransfer(OVERLAPPED& overlapped, DWORD& transferred)
{
    const std::array<HANDLE, 2> events = {overlapped.hEvent, cancelEvent};
    const DWORD woken = WaitForMultipleObjects(static_cast<DWORD>(events.size()), events.data(), FALSE, INFINITE);
    if (woken == WAIT_OBJECT_0) {
        if (!GetOverlappedResult(handle, &overlapped, &transferred, FALSE)) {
            fail();
        }
        return true;
    }
    if (woken != WAIT_OBJECT_0 + 1) {
        fail();
    }
    // Until the driver has ended what is cancelled, buffer and structure are its own (Windows documentation, CancelIo).
    CancelIo(handle);
    WaitForMultipleObjects(1, events.data(), FALSE, INFINITE);
    return false;
}

/// Waits for the end of a limit or for a cancel. The driver of an adapter that was pulled out fails every transfer at
/// once, or ends it without a byte moved; that has to look like a silent line, or those who poll for a reply would
/// spin.
void SerialPortWin::waitOutLimit(Clock::time_point end)
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
    if (left.count() > 0) {
        const HANDLE event = cancelEvent;
        WaitForMultipleObjects(1, &event, FALSE, static_cast<DWORD>(left.count()));
    }
}

/// Keeps the reason of a failed call.
/// @return false
bool SerialPortWin::fail()
{
    lastError = GetLastError();
    return false;
}
