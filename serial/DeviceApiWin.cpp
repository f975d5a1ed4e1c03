#include "serial/DeviceApiWin.h"

#include <algorithm>

// windows.h has to come first.
// clang-format off
#include <windows.h>
#include <setupapi.h>
#include <cfgmgr32.h>
// clang-format on

namespace
{

static_assert(sizeof(WCHAR) == sizeof(char16_t), "text goes to Windows as it is");
static_assert(DeviceApi::success == ERROR_SUCCESS && DeviceApi::success == CR_SUCCESS);
static_assert(DeviceApi::moreData == ERROR_MORE_DATA && DeviceApi::insufficientBuffer == ERROR_INSUFFICIENT_BUFFER);

GUID systemGuid(const DeviceApi::Guid& guid)
{
    GUID system = {};
    system.Data1 = guid.data1;
    system.Data2 = guid.data2;
    system.Data3 = guid.data3;
    std::copy(guid.data4.begin(), guid.data4.end(), system.Data4);
    return system;
}

SP_DEVINFO_DATA systemRecord(const DeviceApi::Device& device)
{
    SP_DEVINFO_DATA record = {};
    record.cbSize = sizeof record;
    record.ClassGuid = systemGuid(device.classGuid);
    record.DevInst = device.instance;
    record.Reserved = device.reserved;
    return record;
}

DeviceApi::Device deviceOf(const SP_DEVINFO_DATA& record)
{
    DeviceApi::Device device;
    device.classGuid.data1 = record.ClassGuid.Data1;
    device.classGuid.data2 = record.ClassGuid.Data2;
    device.classGuid.data3 = record.ClassGuid.Data3;
    std::copy_n(record.ClassGuid.Data4, device.classGuid.data4.size(), device.classGuid.data4.begin());
    device.instance = record.DevInst;
    device.reserved = record.Reserved;
    return device;
}

void* handleOrNull(void* handle)
{
    return handle == INVALID_HANDLE_VALUE ? nullptr : handle;
}

HKEY systemKey(DeviceApi::Key key)
{
    return static_cast<HKEY>(key.handle);
}

LPCWSTR systemText(const char16_t* text)
{
    return reinterpret_cast<LPCWSTR>(text);
}

LPWSTR systemText(char16_t* text)
{
    return reinterpret_cast<LPWSTR>(text);
}

LPBYTE systemBytes(char16_t* data)
{
    return reinterpret_cast<LPBYTE>(data);
}

} // namespace

DeviceApi::DeviceSet DeviceApiWin::getClassDevs(const Guid& classGuid, std::uint32_t flags)
{
    const GUID guid = systemGuid(classGuid);
    return {handleOrNull(SetupDiGetClassDevsW(&guid, nullptr, nullptr, flags))};
}

bool DeviceApiWin::enumDeviceInfo(DeviceSet set, std::uint32_t index, Device& device)
{
    SP_DEVINFO_DATA record = systemRecord({});
    if (!SetupDiEnumDeviceInfo(set.handle, index, &record)) {
        return false;
    }
    device = deviceOf(record);
    return true;
}

void DeviceApiWin::destroyDeviceInfoList(DeviceSet set)
{
    SetupDiDestroyDeviceInfoList(set.handle);
}

DeviceApi::Key DeviceApiWin::openDevRegKey(DeviceSet set, const Device& device)
{
    SP_DEVINFO_DATA record = systemRecord(device);
    return {handleOrNull(SetupDiOpenDevRegKey(set.handle, &record, DICS_FLAG_GLOBAL, 0, DIREG_DEV, KEY_READ))};
}

std::uint32_t DeviceApiWin::queryValue(
    Key key, const char16_t* name, std::uint32_t& type, char16_t* data, std::uint32_t& size)
{
    DWORD valueType = 0;
    DWORD valueSize = size;
    const LONG result =
        RegQueryValueExW(systemKey(key), systemText(name), nullptr, &valueType, systemBytes(data), &valueSize);
    type = valueType;
    size = valueSize;
    return static_cast<std::uint32_t>(result);
}

void DeviceApiWin::closeKey(Key key)
{
    RegCloseKey(systemKey(key));
}

bool DeviceApiWin::getDeviceRegistryProperty(DeviceSet set, const Device& device, std::uint32_t property,
    std::uint32_t& type, char16_t* data, std::uint32_t size, std::uint32_t& requiredSize)
{
    SP_DEVINFO_DATA record = systemRecord(device);
    DWORD propertyType = 0;
    DWORD propertySize = 0;
    const bool given = SetupDiGetDeviceRegistryPropertyW(
        set.handle, &record, property, &propertyType, systemBytes(data), size, &propertySize);
    type = propertyType;
    requiredSize = propertySize;
    return given;
}

std::uint32_t DeviceApiWin::lastError()
{
    return GetLastError();
}

std::uint32_t DeviceApiWin::openKey(const char16_t* path, Key& key)
{
    HKEY opened = nullptr;
    const LONG result = RegOpenKeyExW(HKEY_LOCAL_MACHINE, systemText(path), 0, KEY_QUERY_VALUE, &opened);
    key.handle = opened;
    return static_cast<std::uint32_t>(result);
}

std::uint32_t DeviceApiWin::enumValue(
    Key key, std::uint32_t index, char16_t* name, std::uint32_t& nameLength, char16_t* data, std::uint32_t& size)
{
    DWORD length = nameLength;
    DWORD valueSize = size;
    const LONG result = RegEnumValueW(
        systemKey(key), index, systemText(name), &length, nullptr, nullptr, systemBytes(data), &valueSize);
    nameLength = length;
    size = valueSize;
    return static_cast<std::uint32_t>(result);
}

std::uint32_t DeviceApiWin::getDeviceId(Instance instance, char16_t* identifier, std::uint32_t length)
{
    return CM_Get_Device_IDW(instance, systemText(identifier), length, 0);
}

std::uint32_t DeviceApiWin::getDevNodeStatus(std::uint32_t& status, std::uint32_t& problem, Instance instance)
{
    ULONG statusBits = 0;
    ULONG problemNumber = 0;
    const CONFIGRET result = CM_Get_DevNode_Status(&statusBits, &problemNumber, instance, 0);
    status = statusBits;
    problem = problemNumber;
    return result;
}

std::uint32_t DeviceApiWin::getParent(Instance& parent, Instance instance)
{
    DEVINST node = 0;
    const CONFIGRET result = CM_Get_Parent(&node, instance, 0);
    parent = node;
    return result;
}
