#pragma once

// A stand-in for the header of the same name, for machines without Windows: it declares what the project's Windows
// sources call, and nothing more, in the documented sizes. ApiConformance.cpp is compiled against this header and
// against the real one, which keeps the two in step.
//
// WCHAR has 16 bits, as on Windows, and is therefore not the wchar_t of this machine. Sources that compile on both use
// WCHAR where they pass text to the system, and convert there.

#include <cstdarg>
#include <cstdint>

#define WINAPI

using BOOL = int;
using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using ULONG_PTR = std::uintptr_t;
using WCHAR = char16_t;
using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using LPBYTE = BYTE*;
using LPDWORD = DWORD*;
using PULONG = ULONG*;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using HANDLE = void*;
using HLOCAL = HANDLE;
using HWND = struct WindowObject*;
using HKEY = struct KeyObject*;
using PHKEY = HKEY*;
using LSTATUS = LONG;
using REGSAM = DWORD;

/// For handles that are known by their value alone.
inline HANDLE handleOfValue(ULONG_PTR value)
{
    return reinterpret_cast<HANDLE>(value); // NOLINT(performance-no-int-to-ptr)
}

struct GUID {
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
};

struct SECURITY_ATTRIBUTES;
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;

inline constexpr BOOL FALSE = 0;
inline constexpr BOOL TRUE = 1;

// Error codes.
inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_INVALID_DATA = 13;
inline constexpr DWORD ERROR_BAD_COMMAND = 22;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_BUSY = 170;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
inline constexpr DWORD ERROR_MR_MID_NOT_FOUND = 317;
inline constexpr DWORD ERROR_OPERATION_ABORTED = 995;
inline constexpr DWORD ERROR_IO_INCOMPLETE = 996;
inline constexpr DWORD ERROR_IO_PENDING = 997;
inline constexpr DWORD ERROR_INVALID_USER_BUFFER = 1784;
DWORD WINAPI GetLastError();
void WINAPI SetLastError(DWORD code);

// Texts of error codes.
inline constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x100;
inline constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x200;
inline constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;
DWORD WINAPI FormatMessageW(
    DWORD flags, LPCVOID source, DWORD messageId, DWORD languageId, LPWSTR buffer, DWORD size, va_list* arguments);
HLOCAL WINAPI LocalFree(HLOCAL memory);

// Handles, events and waits.
#define INVALID_HANDLE_VALUE (handleOfValue(~ULONG_PTR{0}))
inline constexpr DWORD INFINITE = 0xFFFFFFFF;
inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_TIMEOUT = 258;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
BOOL WINAPI CloseHandle(HANDLE object);
HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCWSTR name);
BOOL WINAPI SetEvent(HANDLE event);
BOOL WINAPI ResetEvent(HANDLE event);
DWORD WINAPI WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL waitAll, DWORD milliseconds);

// Files and overlapped I/O.
struct OVERLAPPED {
    ULONG_PTR Internal;
    ULONG_PTR InternalHigh;
    DWORD Offset;
    DWORD OffsetHigh;
    HANDLE hEvent;
};
using LPOVERLAPPED = OVERLAPPED*;

inline constexpr DWORD GENERIC_READ = 0x80000000;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD FILE_FLAG_OVERLAPPED = 0x40000000;
HANDLE WINAPI CreateFileW(LPCWSTR name, DWORD access, DWORD shareMode, LPSECURITY_ATTRIBUTES security,
    DWORD disposition, DWORD flags, HANDLE templateFile);
BOOL WINAPI ReadFile(HANDLE file, LPVOID buffer, DWORD size, LPDWORD transferred, LPOVERLAPPED overlapped);
BOOL WINAPI WriteFile(HANDLE file, LPCVOID buffer, DWORD size, LPDWORD transferred, LPOVERLAPPED overlapped);
BOOL WINAPI GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD transferred, BOOL wait);
BOOL WINAPI CancelIo(HANDLE file);

// Serial communication.
struct DCB {
    DWORD DCBlength;
    DWORD BaudRate;
    DWORD fBinary : 1;
    DWORD fParity : 1;
    DWORD fOutxCtsFlow : 1;
    DWORD fOutxDsrFlow : 1;
    DWORD fDtrControl : 2;
    DWORD fDsrSensitivity : 1;
    DWORD fTXContinueOnXoff : 1;
    DWORD fOutX : 1;
    DWORD fInX : 1;
    DWORD fErrorChar : 1;
    DWORD fNull : 1;
    DWORD fRtsControl : 2;
    DWORD fAbortOnError : 1;
    DWORD fDummy2 : 17;
    WORD wReserved;
    WORD XonLim;
    WORD XoffLim;
    BYTE ByteSize;
    BYTE Parity;
    BYTE StopBits;
    char XonChar;
    char XoffChar;
    char ErrorChar;
    char EofChar;
    char EvtChar;
    WORD wReserved1;
};
using LPDCB = DCB*;

inline constexpr BYTE NOPARITY = 0;
inline constexpr BYTE ODDPARITY = 1;
inline constexpr BYTE EVENPARITY = 2;
inline constexpr BYTE MARKPARITY = 3;
inline constexpr BYTE SPACEPARITY = 4;
inline constexpr BYTE ONESTOPBIT = 0;
inline constexpr BYTE ONE5STOPBITS = 1;
inline constexpr BYTE TWOSTOPBITS = 2;
#define DTR_CONTROL_DISABLE 0
#define DTR_CONTROL_ENABLE 1
#define RTS_CONTROL_DISABLE 0
#define RTS_CONTROL_ENABLE 1

struct COMMTIMEOUTS {
    DWORD ReadIntervalTimeout;
    DWORD ReadTotalTimeoutMultiplier;
    DWORD ReadTotalTimeoutConstant;
    DWORD WriteTotalTimeoutMultiplier;
    DWORD WriteTotalTimeoutConstant;
};
using LPCOMMTIMEOUTS = COMMTIMEOUTS*;

struct COMSTAT {
    DWORD fCtsHold : 1;
    DWORD fDsrHold : 1;
    DWORD fRlsdHold : 1;
    DWORD fXoffHold : 1;
    DWORD fXoffSent : 1;
    DWORD fEof : 1;
    DWORD fTxim : 1;
    DWORD fReserved : 25;
    DWORD cbInQue;
    DWORD cbOutQue;
};
using LPCOMSTAT = COMSTAT*;

inline constexpr DWORD PURGE_TXABORT = 1;
inline constexpr DWORD PURGE_RXABORT = 2;
inline constexpr DWORD PURGE_TXCLEAR = 4;
inline constexpr DWORD PURGE_RXCLEAR = 8;
BOOL WINAPI GetCommState(HANDLE file, LPDCB dcb);
BOOL WINAPI SetCommState(HANDLE file, LPDCB dcb);
BOOL WINAPI SetCommTimeouts(HANDLE file, LPCOMMTIMEOUTS timeouts);
BOOL WINAPI PurgeComm(HANDLE file, DWORD flags);
BOOL WINAPI ClearCommError(HANDLE file, LPDWORD errors, LPCOMSTAT status);

// The registry.
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_EXPAND_SZ = 2;
inline constexpr DWORD REG_DWORD = 4;
inline constexpr REGSAM KEY_QUERY_VALUE = 0x0001;
inline constexpr REGSAM KEY_READ = 0x20019;
#define HKEY_LOCAL_MACHINE (static_cast<HKEY>(handleOfValue(~ULONG_PTR{0} - 0x7FFFFFFD)))
LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, PHKEY result);
LSTATUS WINAPI RegQueryValueExW(HKEY key, LPCWSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data, LPDWORD size);
LSTATUS WINAPI RegEnumValueW(HKEY key, DWORD index, LPWSTR valueName, LPDWORD valueNameLength, LPDWORD reserved,
    LPDWORD type, LPBYTE data, LPDWORD size);
LSTATUS WINAPI RegCloseKey(HKEY key);
