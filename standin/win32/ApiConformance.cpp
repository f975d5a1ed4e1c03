// What the project relies on in the headers of Windows: sizes, members, codes and the types of the functions that it
// calls, all as documented. Nothing here is linked into a program.

// windows.h has to come first.
// clang-format off
#include <windows.h>
#include <setupapi.h>
#include <cfgmgr32.h>
// clang-format on

#include <cstddef>
#include <type_traits>

static_assert(sizeof(BYTE) == 1 && sizeof(WORD) == 2 && sizeof(DWORD) == 4 && sizeof(LONG) == 4 && sizeof(ULONG) == 4);
static_assert(sizeof(BOOL) == 4 && sizeof(WCHAR) == 2 && sizeof(HANDLE) == sizeof(void*));
static_assert(std::is_unsigned_v<DWORD> && std::is_signed_v<LONG>);
static_assert(FALSE == 0 && TRUE == 1);

static_assert(sizeof(GUID) == 16 && offsetof(GUID, Data2) == 4 && offsetof(GUID, Data4) == 8);

// Serial communication.
static_assert(sizeof(DCB) == 28 && offsetof(DCB, BaudRate) == 4 && offsetof(DCB, wReserved) == 12);
static_assert(offsetof(DCB, ByteSize) == 18 && offsetof(DCB, Parity) == 19 && offsetof(DCB, StopBits) == 20);
static_assert(offsetof(DCB, XonChar) == 21 && offsetof(DCB, wReserved1) == 26);
static_assert(sizeof(COMMTIMEOUTS) == 20 && offsetof(COMMTIMEOUTS, ReadTotalTimeoutMultiplier) == 4);
static_assert(offsetof(COMMTIMEOUTS, ReadTotalTimeoutConstant) == 8);
static_assert(offsetof(COMMTIMEOUTS, WriteTotalTimeoutMultiplier) == 12);
static_assert(offsetof(COMMTIMEOUTS, WriteTotalTimeoutConstant) == 16);
static_assert(sizeof(COMSTAT) == 12 && offsetof(COMSTAT, cbInQue) == 4 && offsetof(COMSTAT, cbOutQue) == 8);
static_assert(NOPARITY == 0 && ODDPARITY == 1 && EVENPARITY == 2 && MARKPARITY == 3 && SPACEPARITY == 4);
static_assert(ONESTOPBIT == 0 && ONE5STOPBITS == 1 && TWOSTOPBITS == 2);
static_assert(DTR_CONTROL_DISABLE == 0 && DTR_CONTROL_ENABLE == 1);
static_assert(RTS_CONTROL_DISABLE == 0 && RTS_CONTROL_ENABLE == 1);
static_assert(PURGE_TXABORT == 1 && PURGE_RXABORT == 2 && PURGE_TXCLEAR == 4 && PURGE_RXCLEAR == 8);

// Files, events and overlapped I/O.
static_assert(sizeof(OVERLAPPED) == 3 * sizeof(void*) + 8 && offsetof(OVERLAPPED, InternalHigh) == sizeof(void*));
static_assert(offsetof(OVERLAPPED, Offset) == 2 * sizeof(void*));
static_assert(offsetof(OVERLAPPED, hEvent) == 2 * sizeof(void*) + 8);
static_assert(GENERIC_READ == 0x80000000 && GENERIC_WRITE == 0x40000000);
static_assert(OPEN_EXISTING == 3 && FILE_FLAG_OVERLAPPED == 0x40000000);
static_assert(INFINITE == 0xFFFFFFFF && WAIT_OBJECT_0 == 0 && WAIT_TIMEOUT == 258 && WAIT_FAILED == 0xFFFFFFFF);
static_assert(FORMAT_MESSAGE_ALLOCATE_BUFFER == 0x100 && FORMAT_MESSAGE_IGNORE_INSERTS == 0x200);
static_assert(FORMAT_MESSAGE_FROM_SYSTEM == 0x1000);

// Error codes.
static_assert(ERROR_SUCCESS == 0 && ERROR_FILE_NOT_FOUND == 2 && ERROR_ACCESS_DENIED == 5);
static_assert(ERROR_INVALID_HANDLE == 6 && ERROR_INVALID_DATA == 13 && ERROR_BAD_COMMAND == 22);
static_assert(ERROR_INVALID_PARAMETER == 87 && ERROR_INSUFFICIENT_BUFFER == 122);
static_assert(ERROR_BUSY == 170 && ERROR_MORE_DATA == 234 && ERROR_NO_MORE_ITEMS == 259);
static_assert(ERROR_MR_MID_NOT_FOUND == 317 && ERROR_OPERATION_ABORTED == 995 && ERROR_IO_INCOMPLETE == 996);
static_assert(ERROR_IO_PENDING == 997 && ERROR_INVALID_USER_BUFFER == 1784);

// Devices and the registry.
static_assert(sizeof(SP_DEVINFO_DATA) == 24 + sizeof(void*) && offsetof(SP_DEVINFO_DATA, ClassGuid) == 4);
static_assert(offsetof(SP_DEVINFO_DATA, DevInst) == 20 && offsetof(SP_DEVINFO_DATA, Reserved) == 24);
static_assert(DIGCF_PRESENT == 2 && DIGCF_DEVICEINTERFACE == 16 && DICS_FLAG_GLOBAL == 1 && DIREG_DEV == 1);
static_assert(SPDRP_DEVICEDESC == 0 && SPDRP_MFG == 11);
static_assert(CR_SUCCESS == 0 && CR_NO_SUCH_DEVNODE == 0x0D && CR_BUFFER_SMALL == 0x1A && MAX_DEVICE_ID_LEN == 200);
static_assert(REG_SZ == 1 && REG_EXPAND_SZ == 2 && REG_DWORD == 4);
static_assert(KEY_QUERY_VALUE == 1 && KEY_READ == 0x20019);

namespace
{

template <typename Function, Function* Declared>
constexpr bool isDeclared = true;

} // namespace

static_assert(isDeclared<DWORD WINAPI(), GetLastError>);
static_assert(isDeclared<void WINAPI(DWORD), SetLastError>);
// va_list carries attributes of the compiler, which a type of a template cannot.
static_assert(
    std::is_same_v<DWORD, decltype(FormatMessageW(DWORD{}, LPCVOID{}, DWORD{}, DWORD{}, LPWSTR{}, DWORD{}, nullptr))>);
static_assert(isDeclared<HLOCAL WINAPI(HLOCAL), LocalFree>);
static_assert(isDeclared<BOOL WINAPI(HANDLE), CloseHandle>);
static_assert(isDeclared<HANDLE WINAPI(LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR), CreateEventW>);
static_assert(isDeclared<BOOL WINAPI(HANDLE), SetEvent>);
static_assert(isDeclared<BOOL WINAPI(HANDLE), ResetEvent>);
static_assert(isDeclared<DWORD WINAPI(DWORD, const HANDLE*, BOOL, DWORD), WaitForMultipleObjects>);
static_assert(
    isDeclared<HANDLE WINAPI(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE), CreateFileW>);
static_assert(isDeclared<BOOL WINAPI(HANDLE, LPVOID, DWORD, LPDWORD, LPOVERLAPPED), ReadFile>);
static_assert(isDeclared<BOOL WINAPI(HANDLE, LPCVOID, DWORD, LPDWORD, LPOVERLAPPED), WriteFile>);
static_assert(isDeclared<BOOL WINAPI(HANDLE, LPOVERLAPPED, LPDWORD, BOOL), GetOverlappedResult>);
static_assert(isDeclared<BOOL WINAPI(HANDLE), CancelIo>);
static_assert(isDeclared<BOOL WINAPI(HANDLE, LPDCB), GetCommState>);
static_assert(isDeclared<BOOL WINAPI(HANDLE, LPDCB), SetCommState>);
static_assert(isDeclared<BOOL WINAPI(HANDLE, LPCOMMTIMEOUTS), SetCommTimeouts>);
static_assert(isDeclared<BOOL WINAPI(HANDLE, DWORD), PurgeComm>);
static_assert(isDeclared<BOOL WINAPI(HANDLE, LPDWORD, LPCOMSTAT), ClearCommError>);

static_assert(isDeclared<LSTATUS WINAPI(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY), RegOpenKeyExW>);
static_assert(isDeclared<LSTATUS WINAPI(HKEY, LPCWSTR, LPDWORD, LPDWORD, LPBYTE, LPDWORD), RegQueryValueExW>);
static_assert(
    isDeclared<LSTATUS WINAPI(HKEY, DWORD, LPWSTR, LPDWORD, LPDWORD, LPDWORD, LPBYTE, LPDWORD), RegEnumValueW>);
static_assert(isDeclared<LSTATUS WINAPI(HKEY), RegCloseKey>);
static_assert(isDeclared<HDEVINFO WINAPI(const GUID*, LPCWSTR, HWND, DWORD), SetupDiGetClassDevsW>);
static_assert(isDeclared<BOOL WINAPI(HDEVINFO, DWORD, PSP_DEVINFO_DATA), SetupDiEnumDeviceInfo>);
static_assert(isDeclared<BOOL WINAPI(HDEVINFO), SetupDiDestroyDeviceInfoList>);
static_assert(isDeclared<HKEY WINAPI(HDEVINFO, PSP_DEVINFO_DATA, DWORD, DWORD, DWORD, REGSAM), SetupDiOpenDevRegKey>);
static_assert(isDeclared<BOOL WINAPI(HDEVINFO, PSP_DEVINFO_DATA, DWORD, LPDWORD, LPBYTE, DWORD, LPDWORD),
    SetupDiGetDeviceRegistryPropertyW>);
static_assert(isDeclared<CONFIGRET WINAPI(DEVINST, LPWSTR, ULONG, ULONG), CM_Get_Device_IDW>);
static_assert(isDeclared<CONFIGRET WINAPI(PULONG, PULONG, DEVINST, ULONG), CM_Get_DevNode_Status>);
static_assert(isDeclared<CONFIGRET WINAPI(PDEVINST, DEVINST, ULONG), CM_Get_Parent>);
