#include "serial/PortErrorText.h"

#include <array>
#include <cerrno>
#include <cstring>

#include <grp.h>
#include <sys/stat.h>

namespace
{

std::wstring widen(const std::string& text)
{
    std::wstring wide;
    for (const char character : text) {
        wide += static_cast<wchar_t>(static_cast<unsigned char>(character));
    }
    return wide;
}

/// Name of the group that may read and write the device; empty when there is none, or nobody's name for it.
std::string groupWithAccess(const std::string& path)
{
    constexpr mode_t groupAccess = S_IRGRP | S_IWGRP;
    struct stat status {
    };
    if (::stat(path.c_str(), &status) != 0 || (status.st_mode & groupAccess) != groupAccess) {
        return {};
    }
    std::array<char, 4096> text{};
    group entry{};
    group* found = nullptr;
    if (::getgrgid_r(status.st_gid, &entry, text.data(), text.size(), &found) != 0 || found == nullptr) {
        return {};
    }
    return found->gr_name;
}

std::wstring permissionText(const std::string& path)
{
    const std::string owners = groupWithAccess(path);
    if (owners.empty()) {
        return L"You have no permission to use this port.";
    }
    return L"You have no permission to use this port. It is open to the group " + widen(owners) +
           L": add yourself to it, log out and log in again.";
}

std::wstring settingsText(const PortSettings& settings)
{
    return L"The port does not support these line settings: " + std::to_wstring(settings.baudRate) + L" baud, " +
           std::to_wstring(settings.dataBits) + L" data bits.";
}

} // namespace

std::wstring portErrorText(int code, const std::string& path, const PortSettings& settings)
{
    switch (code) {
    case ENOENT:
    case ENODEV:
    case ENXIO:
    case ENOTDIR:
        return L"There is no such port. Check that the device is plugged in.";
    case EBUSY:
        return L"The port is in use by another program. Close that program and try again.";
    case EACCES:
    case EPERM:
        return permissionText(path);
    case ENOTTY:
    case EISDIR:
        return L"This is not a serial port.";
    case EIO:
        return L"The port does not answer. Check that the device is plugged in.";
    case EINVAL:
        return settingsText(settings);
    default:
        break;
    }
    // Unlike strerror() neither translated nor shared between threads.
    if (const char* description = ::strerrordesc_np(code)) {
        return widen(description);
    }
    return L"Error " + std::to_wstring(code) + L": <unknown error>";
}
