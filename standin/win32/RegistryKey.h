#pragma once

#include "standin/win32/HandleTable.h"
#include "standin/win32/Machine.h"

#include <string>
#include <utility>

namespace win32
{

/// An open key of the registry.
class RegistryKey : public KernelObject
{
public:
    explicit RegistryKey(Values keyValues)
        : values(std::move(keyValues))
    {
    }

    std::string name() const override { return "key"; }

    const Values values;
};

/// Hands out the bytes of a value as the system's functions do: all of them, or the size that they need.
/// @return whether `room` was enough for them
bool copyValue(const Value& value, LPDWORD type, LPBYTE data, DWORD room, LPDWORD size);

} // namespace win32
