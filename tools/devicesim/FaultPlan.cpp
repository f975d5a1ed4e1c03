#include "tools/devicesim/FaultPlan.h"

#include "support/CommandLine.h"

#include <QRegularExpression>

#include <algorithm>
#include <climits>
#include <span>

namespace devicesim
{

namespace
{

constexpr int hourMs = 3'600'000;

struct FaultEntry {
    const char* effect = nullptr;
    /// What the value of a placed fault is, and the largest one; null for a fault without a value.
    const char* value = nullptr;
    int largest = 0;
};

/// By `Fault`.
constexpr std::array<FaultEntry, faultNames.size()> faultTable = {{
    {"the reply is lost"},
    {"the reply comes late, by --late-time if not by MS", "MS", hourMs},
    {"the request is refused"},
    {"the end of a data reply is lost, BYTES come", "BYTES", 0xFFFF},
    {"one bit of the reply is wrong", "BIT", 0x7FFFF},
    {"bytes that are no status precede the reply"},
    {"a status byte too many precedes the reply, or BYTE", "BYTE", 0xFF},
    {"bytes of the request are lost; only by chance"},
    {"the request has neither an effect nor a reply"},
    {"the answer is that the memory is not blank"},
    {"a data bit of a reply is wrong, its checksum fits"},
    {"the reply comes twice"},
    {"the device hears nothing for MS (default 500)", "MS", hourMs},
    {"the same (default 2000), then another device answers", "MS", hourMs},
    {"the line hangs up instead of a reply"},
}};

constexpr const char* stuckBit = "stuck-bit";
constexpr const char* stuckBitForm = "stuck-bit[:ADDRESS[.BIT][=0|1]]";
constexpr const char* lateStart = "late-start";
constexpr const char* lateStartForm = "late-start[:MS]";

/// The name of a fault, with what may follow it where it is placed.
QString formOf(std::size_t index)
{
    const char* value = faultTable[index].value;
    return faultNames[index] + (value == nullptr ? QString() : QString("[:%1]").arg(value));
}

/// @return the number in `text` if it is one from `least` to `largest`.
std::optional<int> readNumber(const QString& text, int least, int largest)
{
    const std::optional<std::int64_t> number = parseNumber(text);
    return number && *number >= least && *number <= largest ? std::optional(static_cast<int>(*number)) : std::nullopt;
}

/// @return the position of `name` in `names`, or their number if it is not there.
std::size_t find(std::span<const char* const> names, const QString& name)
{
    const auto found = std::ranges::find_if(names, [&name](const char* known) { return name == QLatin1String(known); });
    return static_cast<std::size_t>(found - names.begin());
}

QString listOf(std::span<const char* const> names)
{
    return QStringList(names.begin(), names.end()).join(", ");
}

std::optional<StuckBit> readStuckBit(const QString& text)
{
    static const QRegularExpression form("^([^.=]+)(?:\\.([0-7]))?(?:=([01]))?$");
    const QRegularExpressionMatch match = form.match(text);
    const std::optional<int> address = readNumber(match.captured(1), 0, Memory::size - 1);
    if (!address) {
        return std::nullopt;
    }
    return StuckBit{static_cast<std::uint16_t>(*address), match.captured(2).toInt(), match.captured(3) != u"0"};
}

/// @param text what stands behind the name of the fault: "[:VALUE]@REQUEST[.N]".
std::optional<PlacedFault> readPlaced(Fault fault, const QString& text)
{
    static const QRegularExpression form("^(?::([^@]+))?@([a-z-]+)(?:\\.(.+))?$");
    const QRegularExpressionMatch match = form.match(text);
    const std::size_t request = find(requestNames, match.captured(2));
    const FaultEntry& entry = faultTable[indexOf(fault)];
    if (fault == Fault::Lose || request == requestNames.size() || (match.hasCaptured(1) && entry.value == nullptr)) {
        return std::nullopt;
    }
    PlacedFault placed{fault, static_cast<RequestKind>(request), 0, std::nullopt};
    if (match.hasCaptured(1)) {
        placed.value = readNumber(match.captured(1), 0, entry.largest);
    }
    if (match.hasCaptured(3)) {
        placed.number = readNumber(match.captured(3), 1, INT_MAX).value_or(-1);
    }
    const bool isRight = placed.number >= 0 && match.hasCaptured(1) == placed.value.has_value();
    return isRight ? std::optional(placed) : std::nullopt;
}

} // namespace

QString PlacedFault::toText() const
{
    QString text = faultNames[indexOf(fault)];
    if (value) {
        text += QString(":%1").arg(*value);
    }
    text += QString("@%1").arg(requestNames[static_cast<std::size_t>(request)]);
    return number == 0 ? text : QString("%1.%2").arg(text).arg(number);
}

QString FaultPlan::add(const QString& text)
{
    const QString name = text.section(QRegularExpression("[:@]"), 0, 0);
    const QString rest = text.mid(name.size());
    const QString value = rest.mid(1);
    const std::size_t index = find(faultNames, name);
    const bool isKnown = index < faultNames.size();
    const bool isPlaced = isKnown && rest.contains('@');
    if (!isKnown && name != stuckBit && name != lateStart) {
        return QString("unknown fault '%1', expected one of: %2, %3, %4")
            .arg(name, listOf(faultNames), stuckBit, lateStart);
    }
    if (given.contains(name) && !isPlaced) {
        return QString("the fault '%1' is there twice").arg(name);
    }

    QString form;
    bool isRight = false;
    if (isPlaced) {
        const std::optional<PlacedFault> fault = readPlaced(static_cast<Fault>(index), rest);
        placed.push_back(fault.value_or(PlacedFault()));
        isRight = fault.has_value();
        form = static_cast<Fault>(index) == Fault::Lose
                   ? name + ":PROBABILITY"
                   : QString("%1@REQUEST[.N] with REQUEST one of: %2").arg(formOf(index), listOf(requestNames));
    } else if (isKnown) {
        const double probability = rest.isEmpty() ? 0.1 : value.toDouble(&isRight);
        probabilities[index] = probability;
        isRight = (isRight || rest.isEmpty()) && probability >= 0 && probability <= 1;
        form = name + ":PROBABILITY";
        given += name;
    } else if (name == stuckBit) {
        const std::optional<StuckBit> bit = readStuckBit(rest.isEmpty() ? "0x3100.0=1" : value);
        stuckBits.push_back(bit.value_or(StuckBit()));
        isRight = bit.has_value();
        form = stuckBitForm;
    } else {
        const std::optional<int> delay = readNumber(rest.isEmpty() ? "2000" : value, 0, hourMs);
        startDelay = std::chrono::milliseconds(delay.value_or(0));
        isRight = delay.has_value();
        form = lateStartForm;
        given += name;
    }
    return isRight ? QString() : QString("wrong value in the fault '%1', expected %2").arg(text, form);
}

QString FaultPlan::help()
{
    QString lines = QString("Faults. NAME[:PROBABILITY] hits each request by chance, 0 to 1 (default 0.1).\n"
                            "NAME@REQUEST.N hits the Nth request of a kind, NAME@REQUEST each of them, and\n"
                            "then the name may have a value. REQUEST is one of:\n"
                            "  %1.\n")
                        .arg(listOf(requestNames));
    const auto addLine = [&lines](const QString& form, const char* effect) {
        lines += QString("  %1 %2\n").arg(form, -32).arg(effect);
    };
    for (std::size_t index = 0; index < faultNames.size(); ++index) {
        addLine(formOf(index), faultTable[index].effect);
    }
    lines += "And these, by themselves:\n";
    addLine(stuckBitForm, "a bit always reads as 1, or 0; adds to others");
    addLine(lateStartForm, "the device hears nothing at first (default 2000)");
    return lines;
}

} // namespace devicesim
