#include "serial/PortScan.h"

#include "serial/PortDeviceClasses.h"
#include "serial/PortRules.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace
{

constexpr std::uint32_t descriptionProperty = 0;   // SPDRP_DEVICEDESC
constexpr std::uint32_t manufacturerProperty = 11; // SPDRP_MFG
constexpr std::uint32_t identifierLength = 200;    // MAX_DEVICE_ID_LEN
constexpr std::uint32_t valueNameLength = 16383;   // the longest name of a registry value

/// Gives a handle of the system back at the end of its life, if there is one.
template <typename Handle, void (DeviceApi::*release)(Handle)>
class Owned
{
public:
    Owned(DeviceApi& deviceApi, Handle obtained)
        : api(deviceApi)
        , handle(obtained)
    {
    }
    ~Owned()
    {
        if (*this) {
            (api.*release)(handle);
        }
    }
    Owned(const Owned&) = delete;
    Owned(Owned&&) = delete;
    Owned& operator=(const Owned&) = delete;
    Owned& operator=(Owned&&) = delete;

    explicit operator bool() const { return handle.handle != nullptr; }
    Handle get() const { return handle; }

private:
    DeviceApi& api;
    Handle handle;
};

using OpenSet = Owned<DeviceApi::DeviceSet, &DeviceApi::destroyDeviceInfoList>;
using OpenKey = Owned<DeviceApi::Key, &DeviceApi::closeKey>;

std::u16string textUpToZero(const char16_t* begin, std::size_t length)
{
    return std::u16string(begin, std::find(begin, begin + length, u'\0'));
}

/// Room for data of a size that the system tells only when it does not fit. The room is always larger than what is
/// offered, and zero where nothing was written, since text in the registry need not end with a zero.
class SizedBuffer
{
public:
    /// The bytes offered to the next call, which puts there what it gave or what it wants.
    std::uint32_t size = 260;

    char16_t* data() { return characters.data(); }
    void makeRoom() { characters.resize(size / sizeof(char16_t) + 2); }
    void clear() { std::fill(characters.begin(), characters.end(), u'\0'); }

    std::u16string text() const { return textUpToZero(characters.data(), characters.size()); }

    std::u16string decimal() const
    {
        std::uint32_t number = 0;
        std::memcpy(&number, characters.data(), sizeof number);
        const std::string digits = std::to_string(number);
        return std::u16string(digits.begin(), digits.end());
    }

private:
    std::vector<char16_t> characters = std::vector<char16_t>(261);
};

/// A value that names a port, by a text or by a number.
std::u16string readNameValue(DeviceApi& api, DeviceApi::Key key, const char16_t* valueName)
{
    SizedBuffer buffer;
    std::uint32_t type = 0;
    std::uint32_t result = api.queryValue(key, valueName, type, buffer.data(), buffer.size);
    while (result == DeviceApi::moreData) {
        buffer.makeRoom();
        result = api.queryValue(key, valueName, type, buffer.data(), buffer.size);
    }
    if (result == DeviceApi::success && type == DeviceApi::stringType) {
        return buffer.text();
    }
    if (result == DeviceApi::success && type == DeviceApi::numberType) {
        return u"COM" + buffer.decimal();
    }
    return {};
}

/// The instance identifier of a device; empty when it can't be had.
std::u16string readIdentifier(DeviceApi& api, DeviceApi::Instance instance)
{
    std::array<char16_t, identifierLength + 1> buffer = {};
    if (api.getDeviceId(instance, buffer.data(), identifierLength) != DeviceApi::success) {
        return {};
    }
    return textUpToZero(buffer.data(), buffer.size());
}

std::uint16_t readNumber(std::u16string_view identifier, std::u16string_view prefix, std::u16string_view otherPrefix)
{
    const std::optional<std::uint16_t> number = parseDeviceIdentifier(identifier, prefix);
    return number ? *number : parseDeviceIdentifier(identifier, otherPrefix).value_or(0);
}

PortInfo describe(
    DeviceApi& api, DeviceApi::DeviceSet set, const DeviceApi::Device& device, const std::wstring& portName)
{
    const std::u16string identifier = readIdentifier(api, device.instance);
    PortInfo port;
    port.portName = portName;
    port.productId = readNumber(identifier, u"PID_", u"DEV_");
    port.vendorId = readNumber(identifier, u"VID_", u"VEN_");
    port.serialNumber = toWide(findSerialNumber(api, identifier, device.instance));
    port.manufacturer = toWide(readDeviceProperty(api, set, device, manufacturerProperty));
    port.description = toWide(readDeviceProperty(api, set, device, descriptionProperty));
    return port;
}

void appendPortsOf(DeviceApi& api, DeviceApi::DeviceSet set, std::vector<PortInfo>& ports)
{
    DeviceApi::Device device;
    for (std::uint32_t index = 0; api.enumDeviceInfo(set, index, device); ++index) {
        const std::u16string name = readPortName(api, set, device);
        const std::wstring portName = toWide(name);
        if (isPortNameAdmitted(name) && !hasPort(ports, portName)) {
            ports.push_back(describe(api, set, device, portName));
        }
    }
}

} // namespace

std::vector<PortInfo> scanPorts(DeviceApi& api)
{
    std::vector<PortInfo> ports;
    for (const PortDeviceClass& deviceClass : portDeviceClasses) {
        const OpenSet set(api, api.getClassDevs(deviceClass.guid, deviceClass.flags));
        if (!set) {
            return ports;
        }
        appendPortsOf(api, set.get(), ports);
    }
    appendNewNames(ports, readSerialCommPorts(api));
    return ports;
}

std::u16string readPortName(DeviceApi& api, DeviceApi::DeviceSet set, const DeviceApi::Device& device)
{
    const OpenKey key(api, api.openDevRegKey(set, device));
    if (!key) {
        return {};
    }
    std::u16string name = readNameValue(api, key.get(), u"PortName");
    return name.empty() ? readNameValue(api, key.get(), u"PortNumber") : name;
}

std::u16string readDeviceProperty(
    DeviceApi& api, DeviceApi::DeviceSet set, const DeviceApi::Device& device, std::uint32_t property)
{
    SizedBuffer buffer;
    std::uint32_t type = 0;
    std::uint32_t required = 0;
    while (!api.getDeviceRegistryProperty(set, device, property, type, buffer.data(), buffer.size, required)) {
        const bool isText = type == DeviceApi::stringType || type == DeviceApi::expandableStringType;
        if (api.lastError() != DeviceApi::insufficientBuffer || !isText) {
            return {};
        }
        buffer.size = required;
        buffer.makeRoom();
    }
    return buffer.text();
}

std::vector<std::wstring> readSerialCommPorts(DeviceApi& api)
{
    std::vector<std::wstring> names;
    DeviceApi::Key opened;
    if (api.openKey(u"HARDWARE\\DEVICEMAP\\SERIALCOMM", opened) != DeviceApi::success) {
        return names;
    }
    const OpenKey key(api, opened);
    std::vector<char16_t> valueName(valueNameLength);
    SizedBuffer buffer;
    for (std::uint32_t index = 0;;) {
        buffer.clear();
        std::uint32_t length = valueNameLength;
        const std::uint32_t result =
            api.enumValue(key.get(), index, valueName.data(), length, buffer.data(), buffer.size);
        if (result == DeviceApi::moreData) {
            buffer.makeRoom();
        } else if (result == DeviceApi::success) {
            names.push_back(toWide(buffer.text()));
            ++index;
        } else {
            return names;
        }
    }
}

std::u16string findSerialNumber(DeviceApi& api, std::u16string identifier, DeviceApi::Instance instance)
{
    for (;;) {
        const std::u16string_view serialNumber = parseSerialNumber(identifier);
        if (!serialNumber.empty()) {
            return std::u16string(serialNumber);
        }
        std::uint32_t status = 0;
        std::uint32_t problem = 0;
        if (api.getDevNodeStatus(status, problem, instance) != DeviceApi::success) {
            return {};
        }
        DeviceApi::Instance parent = 0;
        if (api.getParent(parent, instance) != DeviceApi::success || parent == 0) {
            return {};
        }
        instance = parent;
        identifier = readIdentifier(api, instance);
        if (identifier.empty()) {
            return {};
        }
    }
}
