#pragma once

#include <windows.h>

namespace win32
{

/// How a transfer stands, as NTSTATUS in OVERLAPPED::Internal.
inline constexpr ULONG_PTR StatusSuccess = 0;
inline constexpr ULONG_PTR StatusPending = 0x103;
inline constexpr ULONG_PTR StatusCancelled = 0xC0000120;

} // namespace win32
