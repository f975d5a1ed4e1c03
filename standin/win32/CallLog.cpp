#include "standin/win32/CallLog.h"

#include <utility>

namespace win32
{

std::optional<DWORD> CallLog::record(const std::string& function, const std::string& arguments)
{
    calls.push_back(function + '(' + arguments + ')');
    std::optional<DWORD> due;
    for (Fault& fault : faults) {
        if (fault.function == function && --fault.callsToGo == 0) {
            due = fault.code;
        }
    }
    std::erase_if(faults, [](const Fault& fault) { return fault.callsToGo == 0; });
    return due;
}

void CallLog::failCall(const std::string& function, int nth, DWORD code)
{
    faults.push_back({function, nth, code});
}

std::vector<std::string> CallLog::take()
{
    return std::exchange(calls, {});
}

} // namespace win32
