#pragma once

#include "standin/win32/Kernel.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <windows.h>

namespace win32
{

std::string argumentText(int value);
std::string argumentText(DWORD value);
std::string argumentText(LPCWSTR text);
std::string argumentText(HANDLE handle);
std::string argumentText(HKEY key);
std::string argumentText(const std::vector<HANDLE>& handles);

/// One call of an API function, from its entry to its return: it is recorded, and the layer's lock is held.
class ApiCall
{
public:
    template <typename... Arguments>
    explicit ApiCall(const char* function, const Arguments&... arguments)
        : lock(kernel().mutex)
        , fault(kernel().calls.record(function, joined(arguments...)))
    {
    }

    /// Whether a test has asked for the failure of this call. The last error is then set.
    bool mustFail() const
    {
        if (fault) {
            SetLastError(*fault);
        }
        return fault.has_value();
    }

    /// The code with which the call must fail, for functions that return theirs.
    template <typename Code = LSTATUS>
    Code code() const
    {
        return static_cast<Code>(*fault);
    }

    /// Sets the last error.
    /// @return FALSE
    static BOOL fail(DWORD code)
    {
        SetLastError(code);
        return FALSE;
    }

    /// The object behind a handle; the last error is set where there is none of that kind.
    template <typename Object>
    static std::shared_ptr<Object> object(HANDLE handle)
    {
        std::shared_ptr<Object> found = kernel().handles.find<Object>(handle);
        if (!found) {
            SetLastError(ERROR_INVALID_HANDLE);
        }
        return found;
    }

    std::unique_lock<std::mutex> lock;

private:
    template <typename... Arguments>
    static std::string joined(const Arguments&... arguments)
    {
        std::string text;
        ((text += (text.empty() ? "" : ", ") + argumentText(arguments)), ...);
        return text;
    }

    std::optional<DWORD> fault;
};

} // namespace win32
