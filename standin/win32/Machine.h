#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <windows.h>

namespace win32
{

/// The order of names in Windows, which knows no case. Good for ASCII.
struct NameOrder {
    bool operator()(std::u16string_view left, std::u16string_view right) const;
};

bool isSameName(std::u16string_view left, std::u16string_view right);

/// A value of the registry, or a property of a device.
struct Value {
    DWORD type = REG_SZ;
    std::vector<BYTE> bytes;

    /// A text with the zero that ends it.
    static Value text(std::u16string_view text, DWORD type = REG_SZ);
    static Value number(std::uint32_t number);
};

/// A value with its name; the registry keeps them in an order of its own.
struct NamedValue {
    std::u16string name;
    Value value;
};

using Values = std::vector<NamedValue>;

/// A node of the device tree.
struct DeviceNode {
    std::u16string identifier = {};
    /// The number of the parent node; 0 at the root.
    DWORD parent = 0;
    GUID setupClass = {};
    std::vector<GUID> interfaceClasses = {};
    /// The values of the hardware key.
    Values hardwareKey = {};
    std::map<DWORD, Value> properties = {};
    bool isPresent = true;
};

/// What the functions of device installation, configuration manager and registry tell about.
struct Machine {
    /// By the number that stands for the device instance, from 1 on.
    std::map<DWORD, DeviceNode> devices = {};
    /// Keys below HKEY_LOCAL_MACHINE, by path.
    std::map<std::u16string, Values, NameOrder> registry = {};
};

/// Makes the layer tell about this machine from now on.
void setMachine(Machine machine);

} // namespace win32
