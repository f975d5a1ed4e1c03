#pragma once

#include "standin/win32/Win32Layer.h"

#include <string>

#include <windows.h>

namespace win32
{

/// A serial port of the machine: what its driver keeps from one opening to the next.
struct PortDevice {
    /// The terminal behind it.
    std::string path;
    DCB state = {};
    COMMTIMEOUTS timeouts = {};
    Completion completion = Completion::Later;
    bool inUse = false;
};

} // namespace win32
