#pragma once

// A stand-in for the header of the same name; see windows.h beside it.

#include <windows.h>

using HDEVINFO = PVOID;

struct SP_DEVINFO_DATA {
    DWORD cbSize;
    GUID ClassGuid;
    DWORD DevInst;
    ULONG_PTR Reserved;
};
using PSP_DEVINFO_DATA = SP_DEVINFO_DATA*;

inline constexpr DWORD DIGCF_PRESENT = 0x02;
inline constexpr DWORD DIGCF_DEVICEINTERFACE = 0x10;
inline constexpr DWORD DICS_FLAG_GLOBAL = 1;
inline constexpr DWORD DIREG_DEV = 1;
inline constexpr DWORD SPDRP_DEVICEDESC = 0;
inline constexpr DWORD SPDRP_MFG = 11;

HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* classGuid, LPCWSTR enumerator, HWND parent, DWORD flags);
BOOL WINAPI SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA device);
BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO set);
HKEY WINAPI SetupDiOpenDevRegKey(
    HDEVINFO set, PSP_DEVINFO_DATA device, DWORD scope, DWORD profile, DWORD keyType, REGSAM access);
BOOL WINAPI SetupDiGetDeviceRegistryPropertyW(HDEVINFO set, PSP_DEVINFO_DATA device, DWORD property, LPDWORD type,
    LPBYTE buffer, DWORD size, LPDWORD requiredSize);
