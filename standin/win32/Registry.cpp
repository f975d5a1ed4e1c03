#include "standin/win32/ApiCall.h"
#include "standin/win32/RegistryKey.h"

#include <algorithm>

using win32::ApiCall;
using win32::kernel;
using win32::NamedValue;
using win32::RegistryKey;
using win32::Value;

namespace
{

char16_t upperCase(char16_t character)
{
    return character >= u'a' && character <= u'z' ? static_cast<char16_t>(character - u'a' + u'A') : character;
}

} // namespace

bool win32::NameOrder::operator()(std::u16string_view left, std::u16string_view right) const
{
    return std::ranges::lexicographical_compare(left, right, {}, upperCase, upperCase);
}

bool win32::isSameName(std::u16string_view left, std::u16string_view right)
{
    return std::ranges::equal(left, right, {}, upperCase, upperCase);
}

Value Value::text(std::u16string_view text, DWORD type)
{
    Value value;
    value.type = type;
    for (const char16_t character : text) {
        value.bytes.push_back(static_cast<BYTE>(character & 0xFF));
        value.bytes.push_back(static_cast<BYTE>(character >> 8));
    }
    value.bytes.insert(value.bytes.end(), 2, BYTE{0});
    return value;
}

Value Value::number(std::uint32_t number)
{
    Value value;
    value.type = REG_DWORD;
    for (int shift = 0; shift < 32; shift += 8) {
        value.bytes.push_back(static_cast<BYTE>(number >> shift & 0xFF));
    }
    return value;
}

bool win32::copyValue(const Value& value, LPDWORD type, LPBYTE data, DWORD room, LPDWORD size)
{
    if (type != nullptr) {
        *type = value.type;
    }
    if (size != nullptr) {
        *size = static_cast<DWORD>(value.bytes.size());
    }
    if (room < value.bytes.size()) {
        return false;
    }
    std::ranges::copy(value.bytes, data);
    return true;
}

LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, PHKEY result)
{
    const ApiCall call("RegOpenKeyExW", key, subKey, options, access);
    if (call.mustFail()) {
        return call.code();
    }
    if (options != 0 || access != KEY_QUERY_VALUE) {
        return ERROR_INVALID_PARAMETER;
    }
    const auto found = kernel().machine.registry.find(subKey);
    if (key != HKEY_LOCAL_MACHINE || found == kernel().machine.registry.end()) {
        return ERROR_FILE_NOT_FOUND;
    }
    *result = static_cast<HKEY>(kernel().handles.insert(std::make_shared<RegistryKey>(found->second)));
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegQueryValueExW(HKEY handle, LPCWSTR valueName, LPDWORD, LPDWORD type, LPBYTE data, LPDWORD size)
{
    const ApiCall call("RegQueryValueExW", handle, valueName, *size);
    if (call.mustFail()) {
        return call.code();
    }
    const auto key = kernel().handles.find<RegistryKey>(handle);
    if (!key) {
        return ERROR_INVALID_HANDLE;
    }
    const auto found = std::ranges::find_if(
        key->values, [valueName](const NamedValue& value) { return win32::isSameName(value.name, valueName); });
    if (found == key->values.end()) {
        return ERROR_FILE_NOT_FOUND;
    }
    if (!win32::copyValue(found->value, type, data, *size, size)) {
        return ERROR_MORE_DATA;
    }
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegEnumValueW(HKEY handle, DWORD index, LPWSTR valueName, LPDWORD valueNameLength, LPDWORD, LPDWORD type,
    LPBYTE data, LPDWORD size)
{
    const ApiCall call("RegEnumValueW", handle, index, *valueNameLength, *size);
    if (call.mustFail()) {
        return call.code();
    }
    const auto key = kernel().handles.find<RegistryKey>(handle);
    if (!key) {
        return ERROR_INVALID_HANDLE;
    }
    if (index >= key->values.size()) {
        return ERROR_NO_MORE_ITEMS;
    }
    const auto& [name, value] = key->values[index];
    if (name.size() >= *valueNameLength || !win32::copyValue(value, type, data, *size, size)) {
        return ERROR_MORE_DATA;
    }
    *std::ranges::copy(name, valueName).out = 0;
    *valueNameLength = static_cast<DWORD>(name.size());
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegCloseKey(HKEY handle)
{
    const ApiCall call("RegCloseKey", handle);
    if (call.mustFail()) {
        return call.code();
    }
    if (!kernel().handles.find<RegistryKey>(handle)) {
        return ERROR_INVALID_HANDLE;
    }
    kernel().handles.take(handle);
    return ERROR_SUCCESS;
}
