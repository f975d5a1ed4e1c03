#pragma once

#include "standin/win32/Win32Layer.h"
#include "support/FileDescriptor.h"

#include <memory>
#include <mutex>

#include <sys/eventfd.h>

namespace win32
{

/// What a handle stands for.
class KernelObject
{
public:
    KernelObject() = default;
    KernelObject(const KernelObject&) = delete;
    KernelObject& operator=(const KernelObject&) = delete;
    virtual ~KernelObject() = default;
};

/// A manual-reset event.
class Event : public KernelObject
{
public:
    void set() { eventfd_write(fd.get(), 1); }
    void reset();
    bool isSignalled() const;

    /// Can be read while the event is signalled.
    int descriptor() const { return fd.get(); }

private:
    FileDescriptor fd{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

/// All state of the layer, under one lock.
struct Kernel {
    struct Fault {
        std::string function;
        int callsToGo;
        DWORD code;
    };

    std::mutex mutex;
    /// The open handles. A value is never given out twice, so that the use of a closed one is always found.
    std::map<HANDLE, std::shared_ptr<KernelObject>> handles;
    ULONG_PTR nextHandle = 0x40;
    std::map<std::u16string, PortDevice, NameOrder> ports;
    Machine machine;
    std::vector<std::string> calls;
    std::vector<Fault> faults;
};

Kernel& kernel();

HANDLE newHandle(std::shared_ptr<KernelObject> object);

/// @return null when the handle is not open or stands for something else; the last error is then set.
template <typename Object>
std::shared_ptr<Object> objectOf(HANDLE handle)
{
    const auto found = kernel().handles.find(handle);
    auto object = found == kernel().handles.end() ? nullptr : std::dynamic_pointer_cast<Object>(found->second);
    if (!object) {
        SetLastError(ERROR_INVALID_HANDLE);
    }
    return object;
}

/// Sets the last error.
/// @return FALSE
BOOL fail(DWORD code);

/// One call of an API function, from its entry to its return: it holds the lock of the layer and is recorded.
class ApiCall
{
public:
    explicit ApiCall(const char* function);

    /// The code with which a test wants the call to fail, which is then the last error too; else 0.
    DWORD fault() const { return code; }

    /// What the handle stands for; null, with the last error set, when it is no such object or the call must fail.
    template <typename Object>
    std::shared_ptr<Object> object(HANDLE handle) const
    {
        return code == 0 ? objectOf<Object>(handle) : nullptr;
    }

    std::unique_lock<std::mutex> lock;

private:
    DWORD code = 0;
};

/// Serves a call of `function` by what `action` does with the object that the handle stands for.
/// @return the result of `action`; FALSE, with the last error set, when there is no such object or the call must fail
template <typename Object, typename Action>
BOOL serve(const char* function, HANDLE handle, Action action)
{
    const ApiCall call(function);
    const auto object = call.object<Object>(handle);
    return object ? action(*object) : FALSE;
}

} // namespace win32
