#include "standin/win32/ApiCall.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

namespace
{

thread_local DWORD lastError = 0;

struct SystemText {
    DWORD code;
    std::u16string_view text;
};

constexpr std::array SystemTexts = {
    SystemText{ERROR_FILE_NOT_FOUND, u"The system cannot find the file specified.\r\n"},
    SystemText{ERROR_ACCESS_DENIED, u"Access is denied.\r\n"},
    SystemText{ERROR_INVALID_HANDLE, u"The handle is invalid.\r\n"},
    SystemText{ERROR_BAD_COMMAND, u"The device does not recognize the command.\r\n"},
    SystemText{ERROR_GEN_FAILURE, u"A device attached to the system is not functioning.\r\n"},
    SystemText{ERROR_INVALID_PARAMETER, u"The parameter is incorrect.\r\n"},
};

constexpr DWORD AllFlags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM;

} // namespace

DWORD WINAPI GetLastError()
{
    return lastError;
}

void WINAPI SetLastError(DWORD code)
{
    lastError = code;
}

DWORD WINAPI FormatMessageW(DWORD flags, LPCVOID, DWORD messageId, DWORD languageId, LPWSTR buffer, DWORD, va_list*)
{
    const win32::ApiCall call("FormatMessageW", flags, messageId, languageId);
    if (call.mustFail()) {
        return 0;
    }
    const auto* const found = std::ranges::find(SystemTexts, messageId, &SystemText::code);
    if (flags != AllFlags || found == SystemTexts.end()) {
        SetLastError(flags != AllFlags ? ERROR_INVALID_PARAMETER : ERROR_MR_MID_NOT_FOUND);
        return 0;
    }
    auto* const text = static_cast<LPWSTR>(std::calloc(found->text.size() + 1, sizeof(WCHAR)));
    std::ranges::copy(found->text, text);
    *reinterpret_cast<LPWSTR*>(buffer) = text;
    return static_cast<DWORD>(found->text.size());
}

HLOCAL WINAPI LocalFree(HLOCAL memory)
{
    std::free(memory);
    return nullptr;
}
