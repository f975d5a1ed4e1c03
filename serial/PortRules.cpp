#include "serial/PortRules.h"

#include <algorithm>

namespace
{

constexpr std::size_t identifierDigits = 4;

/// The value of a hexadecimal digit, judged by the low byte of the character; nothing for any other character.
std::optional<std::uint16_t> digitValue(char16_t character)
{
    const int low = character & 0xFF;
    if (low >= '0' && low <= '9') {
        return static_cast<std::uint16_t>(low - '0');
    }
    if (low >= 'a' && low <= 'f') {
        return static_cast<std::uint16_t>(low - 'a' + 10);
    }
    if (low >= 'A' && low <= 'F') {
        return static_cast<std::uint16_t>(low - 'A' + 10);
    }
    return std::nullopt;
}

std::u16string_view usbSerialNumber(std::u16string_view identifier)
{
    const std::u16string_view part = identifier.substr(identifier.rfind(u'\\') + 1);
    const std::size_t dash = part.find(u'-');
    const bool interfaceFollows = dash != std::u16string_view::npos && part.size() - dash == 3;
    const std::u16string_view number = interfaceFollows ? part.substr(0, dash) : part;
    return number.find(u'&') == std::u16string_view::npos ? number : std::u16string_view();
}

std::u16string_view ftdiSerialNumber(std::u16string_view identifier)
{
    const std::size_t plus = identifier.rfind(u'+');
    if (plus == std::u16string_view::npos) {
        return {};
    }
    const std::size_t end = identifier.find(u'\\', plus);
    if (end == std::u16string_view::npos) {
        return {};
    }
    return identifier.substr(plus + 1, end - plus - 1);
}

} // namespace

std::wstring toWide(std::u16string_view text)
{
    return {text.begin(), text.end()};
}

bool isPortNameAdmitted(std::u16string_view name)
{
    return !name.empty() && name.find(u"LPT") == std::u16string_view::npos;
}

bool hasPort(const std::vector<PortInfo>& ports, std::wstring_view name)
{
    return std::any_of(ports.begin(), ports.end(), [name](const PortInfo& port) { return port.portName == name; });
}

void appendNewNames(std::vector<PortInfo>& ports, const std::vector<std::wstring>& names)
{
    for (const std::wstring& name : names) {
        if (!hasPort(ports, name)) {
            PortInfo port;
            port.portName = name;
            ports.push_back(std::move(port));
        }
    }
}

std::optional<std::uint16_t> parseDeviceIdentifier(std::u16string_view identifier, std::u16string_view prefix)
{
    const std::size_t position = identifier.find(prefix);
    if (position == std::u16string_view::npos) {
        return std::nullopt;
    }
    std::optional<std::uint16_t> number;
    for (const char16_t character : identifier.substr(position + prefix.size(), identifierDigits)) {
        const std::optional<std::uint16_t> digit = digitValue(character);
        if (!digit) {
            break;
        }
        number = static_cast<std::uint16_t>(number.value_or(0) * 16 + *digit);
    }
    return number;
}

std::u16string_view parseSerialNumber(std::u16string_view identifier)
{
    if (identifier.starts_with(u"USB\\")) {
        return usbSerialNumber(identifier);
    }
    if (identifier.starts_with(u"FTDIBUS\\")) {
        return ftdiSerialNumber(identifier);
    }
    return {};
}
