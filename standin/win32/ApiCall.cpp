#include "standin/win32/ApiCall.h"

#include <sstream>

namespace win32
{

std::string argumentText(int value)
{
    return std::to_string(value);
}

std::string argumentText(DWORD value)
{
    std::ostringstream text;
    text << "0x" << std::uppercase << std::hex << value;
    return text.str();
}

std::string argumentText(LPCWSTR text)
{
    if (text == nullptr) {
        return "null";
    }
    std::string narrow;
    for (; *text != 0; ++text) {
        narrow += *text < 0x80 ? std::string(1, static_cast<char>(*text)) : '<' + argumentText(DWORD{*text}) + '>';
    }
    return narrow;
}

std::string argumentText(HANDLE handle)
{
    const auto object = kernel().handles.find<KernelObject>(handle);
    return object ? object->name() : "none";
}

std::string argumentText(HKEY key)
{
    return key == HKEY_LOCAL_MACHINE ? "HKLM" : argumentText(reinterpret_cast<HANDLE>(key));
}

std::string argumentText(const std::vector<HANDLE>& handles)
{
    std::string text;
    for (const HANDLE handle : handles) {
        text += (text.empty() ? "" : " ") + argumentText(handle);
    }
    return text;
}

} // namespace win32
