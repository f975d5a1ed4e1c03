#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <windows.h>

/// What tests see and control of the stand-in for Windows.
namespace win32
{

/// Forgets ports, machine, faults and recorded calls. Every handle has to be closed before.
void reset();

/// When the driver of a port ends a transfer, other than a read whose bytes are there already.
enum class Completion {
    Later,   ///< When its bytes have moved at the pace of the line, or at its time-out.
    AtOnce,  ///< A write: before the call returns, since the driver has room for the bytes.
    Nothing, ///< Any transfer: before the call returns, without a byte moved.
};

/// A serial port: what its driver keeps from one opening to the next.
struct PortDevice {
    /// The terminal behind it.
    std::string path;
    DCB state = {};
    COMMTIMEOUTS timeouts = {};
    Completion completion = Completion::Later;
    bool inUse = false;
};

/// Makes the terminal at `path`, such as the far end of a pseudo-terminal, the serial port `name`, for instance COM5.
/// Its line settings are none that a port should keep.
void connectPort(const std::string& name, const std::string& path);

/// A port that is connected, open or not.
PortDevice port(const std::string& name);
void setPort(const std::string& name, const PortDevice& device);

/// The order of names in Windows, which knows no case. Good for ASCII.
struct NameOrder {
    bool operator()(std::u16string_view left, std::u16string_view right) const;
};

/// A value of the registry, or a property of a device.
struct Value {
    DWORD type = REG_SZ;
    std::vector<BYTE> bytes;

    /// A text with the zero that ends it.
    static Value text(std::u16string_view text, DWORD type = REG_SZ);
    static Value number(std::uint32_t number);
};

/// The registry keeps values in an order of its own.
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

void setMachine(Machine machine);

/// Lets the `nth` call of `function` from now on fail with `code`, doing nothing; 1 is the next call.
void failCall(const std::string& function, int nth, DWORD code);

/// The names of the functions called since the last time, in order, without those that cannot fail.
std::vector<std::string> takeCalls();

/// Handles, keys and device sets that are open.
std::size_t openHandles();

} // namespace win32
