#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include <windows.h>

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

    /// How a recorded call names it.
    virtual std::string name() const = 0;
};

/// The open handles. A value is never given out twice, so that the use of a closed one is always found.
class HandleTable
{
public:
    HANDLE insert(std::shared_ptr<KernelObject> object);

    /// @return the object when the handle is open and of that kind, else null.
    template <typename Object>
    std::shared_ptr<Object> find(HANDLE handle) const
    {
        const auto found = objects.find(reinterpret_cast<std::uintptr_t>(handle));
        return found == objects.end() ? nullptr : std::dynamic_pointer_cast<Object>(found->second);
    }

    /// Takes the object out.
    /// @return null when the handle is not open.
    std::shared_ptr<KernelObject> take(HANDLE handle);

    std::size_t size() const { return objects.size(); }

private:
    std::map<std::uintptr_t, std::shared_ptr<KernelObject>> objects;
    std::uintptr_t next = 0x40;
};

} // namespace win32
