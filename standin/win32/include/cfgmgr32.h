#pragma once

// A stand-in for the header of the same name; see windows.h beside it.

#include <windows.h>

using CONFIGRET = DWORD;
using DEVINST = DWORD;
using PDEVINST = DEVINST*;

inline constexpr CONFIGRET CR_SUCCESS = 0x00;
inline constexpr CONFIGRET CR_NO_SUCH_DEVNODE = 0x0D;
inline constexpr CONFIGRET CR_BUFFER_SMALL = 0x1A;
inline constexpr ULONG MAX_DEVICE_ID_LEN = 200;

CONFIGRET WINAPI CM_Get_Device_IDW(DEVINST instance, LPWSTR buffer, ULONG length, ULONG flags);
CONFIGRET WINAPI CM_Get_DevNode_Status(PULONG status, PULONG problem, DEVINST instance, ULONG flags);
CONFIGRET WINAPI CM_Get_Parent(PDEVINST parent, DEVINST instance, ULONG flags);
