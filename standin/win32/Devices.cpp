// Device installation, configuration manager and registry, over the plain data of a `Machine`.

#include "standin/win32/Kernel.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <cfgmgr32.h>
#include <setupapi.h>

using namespace win32;

namespace
{

/// The devices of one class, as they were when the set was made.
struct DeviceSet : KernelObject {
    std::vector<DWORD> instances;
};

/// An open key of the registry.
struct RegistryKey : KernelObject {
    explicit RegistryKey(Values keyValues)
        : values(std::move(keyValues))
    {
    }

    Values values;
};

HKEY openKey(const Values& values)
{
    return static_cast<HKEY>(newHandle(std::make_shared<RegistryKey>(values)));
}

char16_t upperCase(char16_t character)
{
    return character >= u'a' && character <= u'z' ? static_cast<char16_t>(character - u'a' + u'A') : character;
}

bool isSameName(std::u16string_view left, std::u16string_view right)
{
    return std::ranges::equal(left, right, {}, upperCase, upperCase);
}

/// Hands out the bytes of a value as the system's functions do: all of them, or the size that they need.
/// @return whether `room` was enough for them
bool copyValue(const Value& value, LPDWORD type, LPBYTE data, DWORD room, LPDWORD size)
{
    if (type != nullptr) {
        *type = value.type;
    }
    *size = static_cast<DWORD>(value.bytes.size());
    if (room < value.bytes.size()) {
        return false;
    }
    std::ranges::copy(value.bytes, data);
    return true;
}

bool isSame(const GUID& left, const GUID& right)
{
    return std::memcmp(&left, &right, sizeof(GUID)) == 0;
}

/// @return null when there is no such node
const DeviceNode* findNode(DWORD instance)
{
    const auto found = kernel().machine.devices.find(instance);
    return found == kernel().machine.devices.end() ? nullptr : &found->second;
}

bool isInClass(const DeviceNode& node, const GUID& classGuid, DWORD flags)
{
    if ((flags & DIGCF_PRESENT) != 0 && !node.isPresent) {
        return false;
    }
    if ((flags & DIGCF_DEVICEINTERFACE) == 0) {
        return isSame(node.setupClass, classGuid);
    }
    return std::ranges::any_of(node.interfaceClasses, [&](const GUID& guid) { return isSame(guid, classGuid); });
}

} // namespace

bool NameOrder::operator()(std::u16string_view left, std::u16string_view right) const
{
    return std::ranges::lexicographical_compare(left, right, {}, upperCase, upperCase);
}

Value Value::text(std::u16string_view text, DWORD type)
{
    Value value;
    value.type = type;
    value.bytes.resize(2 * text.size() + 2);
    std::memcpy(value.bytes.data(), text.data(), 2 * text.size());
    return value;
}

Value Value::number(std::uint32_t number)
{
    Value value;
    value.type = REG_DWORD;
    value.bytes.resize(sizeof number);
    std::memcpy(value.bytes.data(), &number, sizeof number);
    return value;
}

HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* classGuid, LPCWSTR, HWND, DWORD flags)
{
    const ApiCall call(__func__);
    if (call.fault()) {
        return INVALID_HANDLE_VALUE;
    }
    auto set = std::make_shared<DeviceSet>();
    for (const auto& [instance, node] : kernel().machine.devices) {
        if (isInClass(node, *classGuid, flags)) {
            set->instances.push_back(instance);
        }
    }
    return newHandle(std::move(set));
}

BOOL WINAPI SetupDiEnumDeviceInfo(HDEVINFO handle, DWORD index, PSP_DEVINFO_DATA device)
{
    return serve<DeviceSet>(__func__, handle, [&](const DeviceSet& set) {
        if (device->cbSize != sizeof(SP_DEVINFO_DATA)) {
            return fail(ERROR_INVALID_USER_BUFFER);
        }
        if (index >= set.instances.size()) {
            return fail(ERROR_NO_MORE_ITEMS);
        }
        device->DevInst = set.instances[index];
        device->ClassGuid = findNode(device->DevInst)->setupClass;
        return TRUE;
    });
}

BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO handle)
{
    return serve<DeviceSet>(__func__, handle, [handle](const DeviceSet&) {
        kernel().handles.erase(handle);
        return TRUE;
    });
}

HKEY WINAPI SetupDiOpenDevRegKey(
    HDEVINFO handle, PSP_DEVINFO_DATA device, DWORD scope, DWORD profile, DWORD keyType, REGSAM access)
{
    const ApiCall call(__func__);
    const DeviceNode* const node = findNode(device->DevInst);
    if (!call.object<DeviceSet>(handle) || node == nullptr) {
        return static_cast<HKEY>(INVALID_HANDLE_VALUE);
    }
    // Other keys of a device than the one of its hardware are not kept here, nor can they be written.
    if (scope != DICS_FLAG_GLOBAL || profile != 0 || keyType != DIREG_DEV || access != KEY_READ) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return static_cast<HKEY>(INVALID_HANDLE_VALUE);
    }
    return openKey(node->hardwareKey);
}

BOOL WINAPI SetupDiGetDeviceRegistryPropertyW(HDEVINFO handle, PSP_DEVINFO_DATA device, DWORD property, LPDWORD type,
    LPBYTE buffer, DWORD size, LPDWORD requiredSize)
{
    return serve<DeviceSet>(__func__, handle, [&](const DeviceSet&) {
        const DeviceNode* const node = findNode(device->DevInst);
        if (node == nullptr || !node->properties.contains(property)) {
            return fail(ERROR_INVALID_DATA);
        }
        const bool isCopied = copyValue(node->properties.at(property), type, buffer, size, requiredSize);
        return isCopied ? TRUE : fail(ERROR_INSUFFICIENT_BUFFER);
    });
}

CONFIGRET WINAPI CM_Get_Device_IDW(DEVINST instance, LPWSTR buffer, ULONG length, ULONG)
{
    const ApiCall call(__func__);
    const DeviceNode* const node = findNode(instance);
    if (call.fault() || node == nullptr) {
        return call.fault() ? call.fault() : CR_NO_SUCH_DEVNODE;
    }
    if (node->identifier.size() > length) {
        return CR_BUFFER_SMALL;
    }
    std::ranges::copy(node->identifier, buffer);
    return CR_SUCCESS;
}

CONFIGRET WINAPI CM_Get_DevNode_Status(PULONG status, PULONG problem, DEVINST instance, ULONG)
{
    const ApiCall call(__func__);
    if (call.fault() || findNode(instance) == nullptr) {
        return call.fault() ? call.fault() : CR_NO_SUCH_DEVNODE;
    }
    *status = 0;
    *problem = 0;
    return CR_SUCCESS;
}

CONFIGRET WINAPI CM_Get_Parent(PDEVINST parent, DEVINST instance, ULONG)
{
    const ApiCall call(__func__);
    const DeviceNode* const node = findNode(instance);
    if (call.fault() || node == nullptr || node->parent == 0) {
        return call.fault() ? call.fault() : CR_NO_SUCH_DEVNODE;
    }
    *parent = node->parent;
    return CR_SUCCESS;
}

LSTATUS WINAPI RegOpenKeyExW(HKEY key, LPCWSTR subKey, DWORD options, REGSAM access, PHKEY result)
{
    const ApiCall call(__func__);
    if (call.fault()) {
        return static_cast<LSTATUS>(call.fault());
    }
    if (options != 0 || access != KEY_QUERY_VALUE) {
        return ERROR_INVALID_PARAMETER;
    }
    const auto found = kernel().machine.registry.find(subKey);
    if (key != HKEY_LOCAL_MACHINE || found == kernel().machine.registry.end()) {
        return ERROR_FILE_NOT_FOUND;
    }
    *result = openKey(found->second);
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegQueryValueExW(HKEY handle, LPCWSTR valueName, LPDWORD, LPDWORD type, LPBYTE data, LPDWORD size)
{
    const ApiCall call(__func__);
    const auto key = call.object<RegistryKey>(handle);
    if (!key) {
        return static_cast<LSTATUS>(GetLastError());
    }
    const auto found = std::ranges::find_if(
        key->values, [valueName](const NamedValue& value) { return isSameName(value.name, valueName); });
    if (found == key->values.end()) {
        return ERROR_FILE_NOT_FOUND;
    }
    if (!copyValue(found->value, type, data, *size, size)) {
        return ERROR_MORE_DATA;
    }
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegEnumValueW(HKEY handle, DWORD index, LPWSTR valueName, LPDWORD valueNameLength, LPDWORD, LPDWORD type,
    LPBYTE data, LPDWORD size)
{
    const ApiCall call(__func__);
    const auto key = call.object<RegistryKey>(handle);
    if (!key) {
        return static_cast<LSTATUS>(GetLastError());
    }
    if (index >= key->values.size()) {
        return ERROR_NO_MORE_ITEMS;
    }
    const auto& [name, value] = key->values[index];
    if (name.size() >= *valueNameLength || !copyValue(value, type, data, *size, size)) {
        return ERROR_MORE_DATA;
    }
    *std::ranges::copy(name, valueName).out = 0;
    *valueNameLength = static_cast<DWORD>(name.size());
    return ERROR_SUCCESS;
}

LSTATUS WINAPI RegCloseKey(HKEY handle)
{
    const ApiCall call(__func__);
    if (!call.object<RegistryKey>(handle)) {
        return static_cast<LSTATUS>(GetLastError());
    }
    kernel().handles.erase(handle);
    return ERROR_SUCCESS;
}
