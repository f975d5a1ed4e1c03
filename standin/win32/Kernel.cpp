#include "standin/win32/Kernel.h"

#include <utility>

#include <poll.h>

namespace win32
{

Kernel& kernel()
{
    static Kernel instance;
    return instance;
}

HANDLE newHandle(std::shared_ptr<KernelObject> object)
{
    const HANDLE handle = handleOfValue(kernel().nextHandle);
    kernel().nextHandle += 4;
    kernel().handles.emplace(handle, std::move(object));
    return handle;
}

void Event::reset()
{
    eventfd_t ignored = 0;
    eventfd_read(fd.get(), &ignored);
}

bool Event::isSignalled() const
{
    pollfd polled = {fd.get(), POLLIN, 0};
    return poll(&polled, 1, 0) > 0;
}

BOOL fail(DWORD code)
{
    SetLastError(code);
    return FALSE;
}

ApiCall::ApiCall(const char* function)
    : lock(kernel().mutex)
{
    kernel().calls.emplace_back(function);
    for (Kernel::Fault& fault : kernel().faults) {
        if (fault.function == function && --fault.callsToGo == 0) {
            code = fault.code;
            SetLastError(code);
        }
    }
}

void reset()
{
    const std::lock_guard lock(kernel().mutex);
    kernel().ports.clear();
    kernel().machine = {};
    kernel().calls.clear();
    kernel().faults.clear();
}

void connectPort(const std::string& name, const std::string& path)
{
    PortDevice device = {.path = path};
    device.state.DCBlength = sizeof(DCB);
    device.state.BaudRate = 1200;
    device.state.fBinary = 1;
    device.state.ByteSize = 7;
    device.state.Parity = EVENPARITY;
    device.state.StopBits = ONESTOPBIT;
    setPort(name, device);
}

PortDevice port(const std::string& name)
{
    const std::lock_guard lock(kernel().mutex);
    return kernel().ports.at({name.begin(), name.end()});
}

void setPort(const std::string& name, const PortDevice& device)
{
    const std::lock_guard lock(kernel().mutex);
    kernel().ports[{name.begin(), name.end()}] = device;
}

void setMachine(Machine machine)
{
    const std::lock_guard lock(kernel().mutex);
    kernel().machine = std::move(machine);
}

void failCall(const std::string& function, int nth, DWORD code)
{
    const std::lock_guard lock(kernel().mutex);
    kernel().faults.push_back({function, nth, code});
}

std::vector<std::string> takeCalls()
{
    const std::lock_guard lock(kernel().mutex);
    return std::exchange(kernel().calls, {});
}

std::size_t openHandles()
{
    const std::lock_guard lock(kernel().mutex);
    return kernel().handles.size();
}

} // namespace win32
