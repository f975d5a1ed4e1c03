#include "standin/win32/ApiCall.h"
#include "standin/win32/Machine.h"
#include "standin/win32/RegistryKey.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <cfgmgr32.h>
#include <setupapi.h>

using win32::ApiCall;
using win32::DeviceNode;
using win32::kernel;

namespace
{

/// The devices of one class, as they were when the set was made.
class DeviceSet : public win32::KernelObject
{
public:
    explicit DeviceSet(std::vector<DWORD> deviceInstances)
        : instances(std::move(deviceInstances))
    {
    }

    std::string name() const override { return "set"; }

    const std::vector<DWORD> instances;
};

bool isSame(const GUID& left, const GUID& right)
{
    return std::memcmp(&left, &right, sizeof(GUID)) == 0;
}

/// @return null when there is no such node.
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

void win32::setMachine(Machine machine)
{
    const std::lock_guard lock(kernel().mutex);
    kernel().machine = std::move(machine);
}

HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* classGuid, PCWSTR enumerator, HWND, DWORD flags)
{
    const ApiCall call("SetupDiGetClassDevsW", classGuid->Data1, enumerator, flags);
    if (call.mustFail()) {
        return INVALID_HANDLE_VALUE;
    }
    std::vector<DWORD> instances;
    for (const auto& [instance, node] : kernel().machine.devices) {
        if (isInClass(node, *classGuid, flags)) {
            instances.push_back(instance);
        }
    }
    return kernel().handles.insert(std::make_shared<DeviceSet>(std::move(instances)));
}

BOOL WINAPI SetupDiEnumDeviceInfo(HDEVINFO handle, DWORD index, PSP_DEVINFO_DATA device)
{
    const ApiCall call("SetupDiEnumDeviceInfo", handle, index);
    const auto set = call.mustFail() ? nullptr : ApiCall::object<DeviceSet>(handle);
    if (!set) {
        return FALSE;
    }
    if (device->cbSize != sizeof(SP_DEVINFO_DATA)) {
        return ApiCall::fail(ERROR_INVALID_USER_BUFFER);
    }
    if (index >= set->instances.size()) {
        return ApiCall::fail(ERROR_NO_MORE_ITEMS);
    }
    device->DevInst = set->instances[index];
    device->ClassGuid = findNode(device->DevInst)->setupClass;
    device->Reserved = device->DevInst;
    return TRUE;
}

BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO handle)
{
    const ApiCall call("SetupDiDestroyDeviceInfoList", handle);
    if (call.mustFail() || !ApiCall::object<DeviceSet>(handle)) {
        return FALSE;
    }
    kernel().handles.take(handle);
    return TRUE;
}

HKEY WINAPI SetupDiOpenDevRegKey(
    HDEVINFO handle, PSP_DEVINFO_DATA device, DWORD scope, DWORD profile, DWORD keyType, REGSAM access)
{
    const ApiCall call("SetupDiOpenDevRegKey", handle, device->DevInst, scope, profile, keyType, access);
    const DeviceNode* const node = findNode(device->DevInst);
    if (call.mustFail() || !ApiCall::object<DeviceSet>(handle) || node == nullptr) {
        return static_cast<HKEY>(INVALID_HANDLE_VALUE);
    }
    // Other keys of a device than the one of its hardware are not kept here, nor can they be written.
    if (scope != DICS_FLAG_GLOBAL || profile != 0 || keyType != DIREG_DEV || access != KEY_READ) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return static_cast<HKEY>(INVALID_HANDLE_VALUE);
    }
    return static_cast<HKEY>(kernel().handles.insert(std::make_shared<win32::RegistryKey>(node->hardwareKey)));
}

BOOL WINAPI SetupDiGetDeviceRegistryPropertyW(HDEVINFO handle, PSP_DEVINFO_DATA device, DWORD property, PDWORD type,
    PBYTE buffer, DWORD size, PDWORD requiredSize)
{
    const ApiCall call("SetupDiGetDeviceRegistryPropertyW", handle, device->DevInst, property, size);
    const DeviceNode* const node = findNode(device->DevInst);
    if (call.mustFail() || !ApiCall::object<DeviceSet>(handle)) {
        return FALSE;
    }
    if (node == nullptr || !node->properties.contains(property)) {
        return ApiCall::fail(ERROR_INVALID_DATA);
    }
    return win32::copyValue(node->properties.at(property), type, buffer, size, requiredSize)
               ? TRUE
               : ApiCall::fail(ERROR_INSUFFICIENT_BUFFER);
}

CONFIGRET WINAPI CM_Get_Device_IDW(DEVINST instance, PWSTR buffer, ULONG length, ULONG flags)
{
    const ApiCall call("CM_Get_Device_IDW", instance, length, flags);
    if (call.mustFail()) {
        return call.code<CONFIGRET>();
    }
    const DeviceNode* const node = findNode(instance);
    if (node == nullptr) {
        return CR_NO_SUCH_DEVNODE;
    }
    if (node->identifier.size() > length) {
        return CR_BUFFER_SMALL;
    }
    std::ranges::copy(node->identifier, buffer);
    return CR_SUCCESS;
}

CONFIGRET WINAPI CM_Get_DevNode_Status(PULONG status, PULONG problem, DEVINST instance, ULONG flags)
{
    const ApiCall call("CM_Get_DevNode_Status", instance, flags);
    if (call.mustFail()) {
        return call.code<CONFIGRET>();
    }
    *status = 0;
    *problem = 0;
    return findNode(instance) == nullptr ? CR_NO_SUCH_DEVNODE : CR_SUCCESS;
}

CONFIGRET WINAPI CM_Get_Parent(PDEVINST parent, DEVINST instance, ULONG flags)
{
    const ApiCall call("CM_Get_Parent", instance, flags);
    if (call.mustFail()) {
        return call.code<CONFIGRET>();
    }
    const DeviceNode* const node = findNode(instance);
    if (node == nullptr || node->parent == 0) {
        return CR_NO_SUCH_DEVNODE;
    }
    *parent = node->parent;
    return CR_SUCCESS;
}
