#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <windows.h>

/// What tests see and steer of the stand-in for Windows.
namespace win32
{

/// Forgets ports, device tree, registry, faults and recorded calls, and counts events from 1 again.
/// Every handle has to be closed before.
void reset();

/// Makes the terminal at `path`, such as the far end of a pseudo-terminal, the serial port `name`, for instance COM5.
void connectPort(const std::string& name, const std::string& path);

/// When the driver of a port ends a transfer, other than a read whose bytes are there already.
enum class Completion {
    Later,   ///< When its bytes have moved at the pace of the line, or at its time-out.
    AtOnce,  ///< A write: before the call returns, since the driver has room for the bytes.
    Nothing, ///< Any transfer: before the call returns, without a byte moved.
};

/// The port must be connected.
void setCompletion(const std::string& port, Completion completion);

/// The line settings that the port's driver keeps, open or not. The port must be connected.
DCB lineState(const std::string& port);
void setLineState(const std::string& port, const DCB& state);

/// The time-outs that the port's driver keeps. The port must be connected.
COMMTIMEOUTS lineTimeouts(const std::string& port);

/// Lets the `nth` call of `function` from now on fail with `code`, doing nothing; 1 is the next call.
void failCall(const std::string& function, int nth, DWORD code);

/// The calls since the last time, in order, each as its name with the arguments that matter: numbers as 0x..., handles
/// by the name of the port or as event1, event2 and so on in the order of their making. GetLastError, SetLastError and
/// LocalFree are not among them.
std::vector<std::string> takeCalls();

/// Handles, keys and device sets that are open.
std::size_t openHandles();

} // namespace win32
