#pragma once

#include "standin/win32/CallLog.h"
#include "standin/win32/HandleTable.h"
#include "standin/win32/Machine.h"
#include "standin/win32/PortDevice.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

namespace win32
{

/// All state of the layer, under one lock.
struct Kernel {
    std::mutex mutex;
    /// Notified when an event becomes signalled.
    std::condition_variable eventSet;
    HandleTable handles;
    CallLog calls;
    std::map<std::u16string, PortDevice, NameOrder> ports;
    Machine machine;
    int eventsMade = 0;
};

Kernel& kernel();

} // namespace win32
