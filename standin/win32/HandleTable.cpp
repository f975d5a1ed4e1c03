#include "standin/win32/HandleTable.h"

#include <utility>

namespace win32
{

HANDLE HandleTable::insert(std::shared_ptr<KernelObject> object)
{
    const std::uintptr_t value = next;
    next += 4;
    objects.emplace(value, std::move(object));
    return handleOfValue(value);
}

std::shared_ptr<KernelObject> HandleTable::take(HANDLE handle)
{
    const auto found = objects.find(reinterpret_cast<std::uintptr_t>(handle));
    if (found == objects.end()) {
        return nullptr;
    }
    std::shared_ptr<KernelObject> object = std::move(found->second);
    objects.erase(found);
    return object;
}

} // namespace win32
