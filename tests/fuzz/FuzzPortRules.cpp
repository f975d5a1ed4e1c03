#include "serial/PortRules.h"

#include <QByteArrayList>
#include <QString>

#include <algorithm>
#include <cstdlib>

/// The input: lines of UTF-8. A device instance identifier, the prefix of a number in it, and names of ports.
extern "C" int LLVMFuzzerTestOneInput(const char* bytes, std::size_t size)
{
    const auto require = [](bool holds) { holds ? void() : std::abort(); };
    std::vector<std::u16string> lines;
    for (const QByteArray& line : QByteArray(bytes, qsizetype(size)).split('\n')) {
        lines.push_back(QString::fromUtf8(line).toStdU16String());
    }
    lines.resize(std::max<std::size_t>(lines.size(), 2));
    const std::u16string &identifier = lines[0], &prefix = lines[1];

    // Nothing but the four characters behind the first prefix counts, and the first of them decides if there is one.
    const std::optional<std::uint16_t> number = parseDeviceIdentifier(identifier, prefix);
    const std::size_t at = identifier.find(prefix);
    const std::u16string behind = at == std::u16string::npos ? u"" : identifier.substr(at + prefix.size(), 4);
    require(parseDeviceIdentifier(behind, u"") == number);
    require(parseDeviceIdentifier(behind.substr(0, 1), u"").has_value() == number.has_value());
    require(!number || *number >> 4 * behind.size() == 0);

    const std::u16string serial(parseSerialNumber(identifier));
    const std::u16string part = identifier.substr(identifier.rfind(u'\\') + 1);
    if (identifier.starts_with(u"USB\\")) {
        require(serial == part || (part.starts_with(serial + u"-") && part.size() == serial.size() + 3) ||
                (serial.empty() && part.find(u'&') != std::u16string::npos));
        require(serial.find(u'&') == std::u16string::npos);
    } else if (identifier.starts_with(u"FTDIBUS\\")) {
        require(serial.empty() || identifier.rfind(u'+') == identifier.rfind(u"+" + serial + u"\\"));
        require(serial.find_first_of(u"+\\") == std::u16string::npos);
    } else {
        require(serial.empty());
    }

    std::vector<PortInfo> ports(1);
    ports[0].portName = toWide(prefix);
    ports[0].description = toWide(identifier);
    std::vector<std::wstring> names;
    for (const std::u16string& line : lines) {
        names.push_back(toWide(line));
        require(std::equal(line.begin(), line.end(), names.back().begin(), names.back().end()));
        require(!isPortNameAdmitted(prefix + u"LPT" + line));
        require(isPortNameAdmitted(line) || line.empty() || line.find(u"LPT") != std::u16string::npos);
    }
    appendNewNames(ports, names);
    require(ports[0].portName == toWide(prefix) && ports[0].description == toWide(identifier));
    std::vector<std::wstring> listed;
    for (const PortInfo& port : ports) {
        require(std::ranges::count(listed, port.portName) == 0 && (listed.empty() || port.description.empty()));
        listed.push_back(port.portName);
    }
    for (const std::wstring& name : names) {
        require(hasPort(ports, name) && std::ranges::count(listed, name) == 1);
    }
    return 0;
}
