#pragma once

#include "serial/PortEnumerator.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The rules that decide which ports reach the list, and what is read out of the identifiers that the system gives. They
// work on plain data. Text of Windows stays UTF-16 until it goes into a PortInfo.

/// The same text as a wide string, unit for unit.
std::wstring toWide(std::u16string_view text);

/// @return whether a device with this port name is a serial port: false for empty text and for a name with "LPT", in
/// upper case, anywhere in it.
bool isPortNameAdmitted(std::u16string_view name);

/// @return whether the list holds a row of exactly this name; case counts.
bool hasPort(const std::vector<PortInfo>& ports, std::wstring_view name);

/// Appends a row with nothing but the name for each name that is not in the list yet, in the order of the names.
void appendNewNames(std::vector<PortInfo>& ports, const std::vector<std::wstring>& names);

/// The number that stands behind the first occurrence of the prefix in a device instance identifier such as
/// `USB\VID_0403&PID_6001\A50285BI`: up to four hexadecimal digits.
/// @return nothing when the prefix or a digit behind it is missing.
std::optional<std::uint16_t> parseDeviceIdentifier(std::u16string_view identifier, std::u16string_view prefix);

/// The serial number in a device instance identifier that begins with `USB\` (its last part, unless Windows made that
/// part up, which the "&" in it tells; "-" and two characters at its end number an interface) or with `FTDIBUS\` (from
/// its last "+" to the backslash behind it).
/// @return empty text when there is none.
std::u16string_view parseSerialNumber(std::u16string_view identifier);
