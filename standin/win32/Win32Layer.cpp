#include "standin/win32/Win32Layer.h"

#include "standin/win32/Kernel.h"

namespace win32
{

namespace
{

std::u16string wide(const std::string& ascii)
{
    return {ascii.begin(), ascii.end()};
}

/// A port as a driver sets it up before anybody has used it.
PortDevice freshDevice(const std::string& path)
{
    PortDevice device;
    device.path = path;
    device.state.DCBlength = sizeof(DCB);
    device.state.BaudRate = 1200;
    device.state.fBinary = 1;
    device.state.ByteSize = 7;
    device.state.Parity = EVENPARITY;
    device.state.StopBits = ONESTOPBIT;
    return device;
}

} // namespace

Kernel& kernel()
{
    static Kernel instance;
    return instance;
}

void reset()
{
    const std::lock_guard lock(kernel().mutex);
    kernel().calls = {};
    kernel().ports.clear();
    kernel().machine = {};
    kernel().eventsMade = 0;
}

void connectPort(const std::string& name, const std::string& path)
{
    const std::lock_guard lock(kernel().mutex);
    kernel().ports.insert_or_assign(wide(name), freshDevice(path));
}

void setCompletion(const std::string& port, Completion completion)
{
    const std::lock_guard lock(kernel().mutex);
    kernel().ports.at(wide(port)).completion = completion;
}

DCB lineState(const std::string& port)
{
    const std::lock_guard lock(kernel().mutex);
    return kernel().ports.at(wide(port)).state;
}

void setLineState(const std::string& port, const DCB& state)
{
    const std::lock_guard lock(kernel().mutex);
    kernel().ports.at(wide(port)).state = state;
}

COMMTIMEOUTS lineTimeouts(const std::string& port)
{
    const std::lock_guard lock(kernel().mutex);
    return kernel().ports.at(wide(port)).timeouts;
}

void failCall(const std::string& function, int nth, DWORD code)
{
    const std::lock_guard lock(kernel().mutex);
    kernel().calls.failCall(function, nth, code);
}

std::vector<std::string> takeCalls()
{
    const std::lock_guard lock(kernel().mutex);
    return kernel().calls.take();
}

std::size_t openHandles()
{
    const std::lock_guard lock(kernel().mutex);
    return kernel().handles.size();
}

} // namespace win32
