#include "serial/PortEnumerator.h"
#include "serial/PortRules.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <type_traits>

// windows.h has to come first.
// clang-format off
#include <windows.h>
#include <setupapi.h>
#include <cfgmgr32.h>
// clang-format on

namespace
{

/// A device class that holds serial ports, and how SetupDiGetClassDevsW lists its devices.
struct PortDeviceClass {
    GUID guid;
    DWORD flags;
};

/// The classes in the order in which they are searched. The GUIDs are those of the Windows documentation on device
/// setup classes and on device interface classes.
constexpr std::array<PortDeviceClass, 4> portDeviceClasses = {{
    // GUID_DEVCLASS_PORTS
    {{0x4D36E978, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}}, DIGCF_PRESENT},
    // GUID_DEVCLASS_MODEM
    {{0x4D36E96D, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}}, DIGCF_PRESENT},
    // GUID_DEVINTERFACE_COMPORT
    {{0x86E0D1E0, 0x8089, 0x11D0, {0x9C, 0xE4, 0x08, 0x00, 0x3E, 0x30, 0x1F, 0x73}},
        DIGCF_PRESENT | DIGCF_DEVICEINTERFACE},
    // GUID_DEVINTERFACE_MODEM
    {{0x2C7089AA, 0x2E0E, 0x11D1, {0xB1, 0x14, 0x00, 0xC0, 0x4F, 0xC2, 0xAA, 0xE4}},
        DIGCF_PRESENT | DIGCF_DEVICEINTERFACE},
}};

/// The longest name of a registry value, in characters.
constexpr DWORD longestValueName = 16383;

template <auto Function>
struct Release {
    template <typename Object>
    void operator()(Object* handle) const
    {
        Function(handle);
    }
};

using DeviceSet = std::unique_ptr<void, Release<SetupDiDestroyDeviceInfoList>>;
using RegistryKey = std::unique_ptr<std::remove_pointer_t<HKEY>, Release<RegCloseKey>>;

/// @return null in place of INVALID_HANDLE_VALUE
template <typename Handle>
Handle handleOrNull(Handle handle)
{
    return handle == INVALID_HANDLE_VALUE ? nullptr : handle;
}

std::basic_string<WCHAR> systemText(std::string_view ascii)
{
    return {ascii.begin(), ascii.end()};
}

template <typename Buffer>
std::u16string textUpToZero(const Buffer& buffer)
{
    return {buffer.begin(), std::find(buffer.begin(), buffer.end(), WCHAR{0})};
}

/// Room for data of a size that the system tells only when it does not fit. The room is always larger than what is
/// offered, and zero where nothing was written, since text in the registry need not end with a zero.
class SizedBuffer
{
public:
    /// The bytes offered to the next call, which puts there what it gave or what it wants.
    DWORD size = 260;

    BYTE* data() { return reinterpret_cast<BYTE*>(characters.data()); }
    void makeRoom() { characters.resize(size / sizeof(WCHAR) + 2); }
    void clear() { std::fill(characters.begin(), characters.end(), WCHAR{0}); }

    std::u16string text() const { return textUpToZero(characters); }

    std::u16string decimal() const
    {
        std::uint32_t number = 0;
        std::memcpy(&number, characters.data(), sizeof number);
        const std::string digits = std::to_string(number);
        return {digits.begin(), digits.end()};
    }

private:
    std::vector<WCHAR> characters = std::vector<WCHAR>(261);
};

/// A value that names a port, by a text or by a number; empty when it does neither.
std::u16string readNameValue(HKEY key, std::string_view valueName)
{
    const auto name = systemText(valueName);
    SizedBuffer buffer;
    DWORD type = 0;
    LSTATUS result = RegQueryValueExW(key, name.c_str(), nullptr, &type, buffer.data(), &buffer.size);
    while (result == ERROR_MORE_DATA) {
        buffer.makeRoom();
        result = RegQueryValueExW(key, name.c_str(), nullptr, &type, buffer.data(), &buffer.size);
    }
    if (result == ERROR_SUCCESS && type == REG_SZ) {
        return buffer.text();
    }
    if (result == ERROR_SUCCESS && type == REG_DWORD) {
        return u"COM" + buffer.decimal();
    }
    return {};
}

/// The name of a device's port; empty when it has none.
std::u16string readPortName(HDEVINFO set, SP_DEVINFO_DATA& device)
{
    const RegistryKey key(handleOrNull(SetupDiOpenDevRegKey(set, &device, DICS_FLAG_GLOBAL, 0, DIREG_DEV, KEY_READ)));
    if (!key) {
        return {};
    }
    std::u16string name = readNameValue(key.get(), "PortName");
    return name.empty() ? readNameValue(key.get(), "PortNumber") : name;
}

/// A property of a device as text; empty when it can't be read.
std::wstring readDeviceProperty(HDEVINFO set, SP_DEVINFO_DATA& device, DWORD property)
{
    SizedBuffer buffer;
    DWORD type = 0;
    DWORD required = 0;
    while (!SetupDiGetDeviceRegistryPropertyW(set, &device, property, &type, buffer.data(), buffer.size, &required)) {
        if (GetLastError() != ERROR_INSUFFICIENT_BUFFER || (type != REG_SZ && type != REG_EXPAND_SZ)) {
            return {};
        }
        buffer.size = required;
        buffer.makeRoom();
    }
    return toWide(buffer.text());
}

/// The instance identifier of a device; empty when it can't be had.
std::u16string readIdentifier(DEVINST instance)
{
    std::array<WCHAR, MAX_DEVICE_ID_LEN + 1> buffer = {};
    const CONFIGRET result = CM_Get_Device_IDW(instance, buffer.data(), MAX_DEVICE_ID_LEN, 0);
    return result == CR_SUCCESS ? textUpToZero(buffer) : std::u16string();
}

std::uint16_t readNumber(std::u16string_view identifier, std::u16string_view prefix, std::u16string_view otherPrefix)
{
    const std::optional<std::uint16_t> number = parseDeviceIdentifier(identifier, prefix);
    return number ? *number : parseDeviceIdentifier(identifier, otherPrefix).value_or(0);
}

/// The serial number in the identifier of a device or in that of the nearest parent that has one; empty when there is
/// none.
std::wstring findSerialNumber(std::u16string identifier, DEVINST instance)
{
    for (;;) {
        const std::u16string_view serialNumber = parseSerialNumber(identifier);
        if (!serialNumber.empty()) {
            return toWide(serialNumber);
        }
        ULONG status = 0;
        ULONG problem = 0;
        DEVINST parent = 0;
        if (CM_Get_DevNode_Status(&status, &problem, instance, 0) != CR_SUCCESS ||
            CM_Get_Parent(&parent, instance, 0) != CR_SUCCESS || parent == 0) {
            return {};
        }
        instance = parent;
        identifier = readIdentifier(instance);
        if (identifier.empty()) {
            return {};
        }
    }
}

PortInfo describe(HDEVINFO set, SP_DEVINFO_DATA& device, const std::wstring& portName)
{
    const std::u16string identifier = readIdentifier(device.DevInst);
    PortInfo port;
    port.portName = portName;
    port.productId = readNumber(identifier, u"PID_", u"DEV_");
    port.vendorId = readNumber(identifier, u"VID_", u"VEN_");
    port.serialNumber = findSerialNumber(identifier, device.DevInst);
    port.manufacturer = readDeviceProperty(set, device, SPDRP_MFG);
    port.description = readDeviceProperty(set, device, SPDRP_DEVICEDESC);
    return port;
}

void appendPortsOf(HDEVINFO set, std::vector<PortInfo>& ports)
{
    SP_DEVINFO_DATA device = {};
    device.cbSize = sizeof device;
    for (DWORD index = 0; SetupDiEnumDeviceInfo(set, index, &device); ++index) {
        const std::u16string name = readPortName(set, device);
        const std::wstring portName = toWide(name);
        if (isPortNameAdmitted(name) && !hasPort(ports, portName)) {
            ports.push_back(describe(set, device, portName));
        }
    }
}

/// The names in the system's map of serial ports, in its order.
std::vector<std::wstring> readSerialCommPorts()
{
    std::vector<std::wstring> names;
    HKEY opened = nullptr;
    const auto path = systemText("HARDWARE\\DEVICEMAP\\SERIALCOMM");
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_QUERY_VALUE, &opened) != ERROR_SUCCESS) {
        return names;
    }
    const RegistryKey key(opened);
    std::vector<WCHAR> valueName(longestValueName);
    SizedBuffer buffer;
    for (DWORD index = 0;;) {
        buffer.clear();
        DWORD length = longestValueName;
        const LSTATUS result =
            RegEnumValueW(key.get(), index, valueName.data(), &length, nullptr, nullptr, buffer.data(), &buffer.size);
        if (result == ERROR_MORE_DATA) {
            buffer.makeRoom();
        } else if (result == ERROR_SUCCESS) {
            names.push_back(toWide(buffer.text()));
            ++index;
        } else {
            return names;
        }
    }
}

} // namespace

/// First the devices of each of the `portDeviceClasses`, then what the system's map of serial ports names beyond them.
/// Where the devices of a class can't be listed at all, the list ends there.
std::vector<PortInfo> availablePorts()
{
    std::vector<PortInfo> ports;
    for (const PortDeviceClass& deviceClass : portDeviceClasses) {
        const DeviceSet set(handleOrNull(SetupDiGetClassDevsW(&deviceClass.guid, nullptr, nullptr, deviceClass.flags)));
        if (!set) {
            return ports;
        }
        appendPortsOf(set.get(), ports);
    }
    appendNewNames(ports, readSerialCommPorts());
    return ports;
}
