#pragma once

#include <optional>
#include <string>
#include <vector>

#include <windows.h>

namespace win32
{

/// The calls so far, and those that are to fail.
class CallLog
{
public:
    /// @return the error code with which the call is to fail, if it is.
    std::optional<DWORD> record(const std::string& function, const std::string& arguments);

    void failCall(const std::string& function, int nth, DWORD code);
    std::vector<std::string> take();

private:
    struct Fault {
        std::string function;
        int callsToGo;
        DWORD code;
    };

    std::vector<std::string> calls;
    std::vector<Fault> faults;
};

} // namespace win32
