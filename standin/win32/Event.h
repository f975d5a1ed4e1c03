#pragma once

#include "standin/win32/HandleTable.h"

#include <string>

namespace win32
{

/// A manual-reset event.
class Event : public KernelObject
{
public:
    explicit Event(int number, bool isSignalled)
        : signalled(isSignalled)
        , label("event" + std::to_string(number))
    {
    }

    std::string name() const override { return label; }

    void set();

    bool signalled;

private:
    std::string label;
};

} // namespace win32
