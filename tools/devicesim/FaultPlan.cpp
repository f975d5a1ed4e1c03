#include "tools/devicesim/FaultPlan.h"

#include "support/CommandLine.h"

#include <QRegularExpression>

#include <algorithm>

namespace devicesim
{

namespace
{

constexpr std::int64_t hourMs = 3'600'000;

struct FaultEntry {
    const char* name;
    /// What may follow the name and a colon; null for a fault without a value.
    const char* value;
    const char* defaultValue;
    const char* effect;
    /// False: the value is wrong.
    bool (*apply)(FaultPlan& plan, const QString& value);
};

/// @return the number in `text` if it is one from 0 to `largest`.
std::optional<std::int64_t> readNumber(const QString& text, std::int64_t largest)
{
    const std::optional<std::int64_t> number = parseNumber(text);
    return number && *number >= 0 && *number <= largest ? number : std::nullopt;
}

template <Fault Kind>
bool applyProbability(FaultPlan& plan, const QString& value)
{
    bool ok = false;
    const double probability = value.toDouble(&ok);
    plan.probabilities[indexOf(Kind)] = probability;
    return ok && probability >= 0 && probability <= 1;
}

bool applyStuckBit(FaultPlan& plan, const QString& value)
{
    static const QRegularExpression form("^([^.=]+)(?:\\.([0-7]))?(?:=([01]))?$");
    const QRegularExpressionMatch match = form.match(value);
    const std::optional<std::int64_t> address = readNumber(match.captured(1), Memory::size - 1);
    const int bit = match.captured(2).toInt();
    plan.stuckBits.push_back({static_cast<std::uint16_t>(address.value_or(0)), bit, match.captured(3) != u"0"});
    return address.has_value();
}

bool applyDirtyBlank(FaultPlan& plan, const QString& /*value*/)
{
    plan.dirtyBlank = true;
    return true;
}

bool applyHangup(FaultPlan& plan, const QString& value)
{
    const QString command = value.section(u'+', 0, 0);
    plan.hangupFrom = commandNamed(command.toStdString());
    if (!plan.hangupFrom) {
        plan.hangupAt = readNumber(value, UINT32_MAX).value_or(0);
        return plan.hangupAt > 0;
    }
    const QString behind = command == value ? "0" : value.mid(command.size() + 1);
    const std::optional<std::int64_t> number = readNumber(behind, UINT32_MAX);
    plan.hangupAt = 1 + number.value_or(0);
    return number.has_value();
}

bool applyLateStart(FaultPlan& plan, const QString& value)
{
    const std::optional<std::int64_t> delay = readNumber(value, hourMs);
    plan.startDelay = std::chrono::milliseconds(delay.value_or(0));
    return delay.has_value();
}

template <Fault Kind>
constexpr FaultEntry chance(const char* effect)
{
    return {faultNames[indexOf(Kind)], "PROBABILITY", "0.1", effect, applyProbability<Kind>};
}

constexpr std::array faultTable = {
    chance<Fault::Drop>("the reply is lost"),
    chance<Fault::Late>("the reply comes late by --late-time"),
    chance<Fault::Refuse>("the request is refused"),
    chance<Fault::Cut>("the end of a data reply is lost"),
    chance<Fault::Flip>("one bit of the reply is wrong"),
    chance<Fault::Noise>("bytes that are no status precede the reply"),
    chance<Fault::Stray>("a status byte too many precedes the reply"),
    chance<Fault::Lose>("bytes of the request are lost"),
    FaultEntry{"stuck-bit", "ADDRESS[.BIT][=0|1]", "0x3100.0=1",
        "a bit never clears (=1) or never sets (=0), each time another", applyStuckBit},
    FaultEntry{
        "dirty-blank", nullptr, nullptr, "the first blank check after an erase answers not blank", applyDirtyBlank},
    FaultEntry{"hangup", "N|COMMAND[+N]", "1", "the line hangs up at the Nth request, or N behind the first COMMAND",
        applyHangup},
    FaultEntry{"late-start", "MS", "2000", "the device hears nothing for so long at first", applyLateStart},
};

} // namespace

QString FaultPlan::add(const QString& text)
{
    const QString name = text.section(u':', 0, 0);
    const bool hasValue = name != text;
    const auto* const entry = std::ranges::find_if(
        faultTable, [&name](const FaultEntry& known) { return name == QLatin1String(known.name); });
    if (entry == faultTable.end()) {
        QStringList names;
        for (const FaultEntry& known : faultTable) {
            names += known.name;
        }
        return QString("unknown fault '%1', expected one of: %2").arg(name, names.join(", "));
    }
    if (given.contains(name) && entry->apply != applyStuckBit) {
        return QString("the fault '%1' is there twice").arg(name);
    }
    given += name;
    if (hasValue && entry->value == nullptr) {
        return QString("wrong value in the fault '%1', expected %2").arg(text, name);
    }
    if (!entry->apply(*this, hasValue ? text.mid(name.size() + 1) : entry->defaultValue)) {
        return QString("wrong value in the fault '%1', expected %2:%3").arg(text, name, entry->value);
    }
    return {};
}

QString FaultPlan::help()
{
    QString lines = "Faults; a PROBABILITY is one per request, 0 to 1:\n";
    for (const FaultEntry& entry : faultTable) {
        const bool takesValue = entry.value != nullptr;
        const QString form = takesValue ? QString("%1[:%2]").arg(entry.name, entry.value) : entry.name;
        const QString byDefault = takesValue ? QString(" (default %1)").arg(entry.defaultValue) : QString();
        lines += QString("  %1 %2%3\n").arg(form, -31).arg(entry.effect, byDefault);
    }
    return lines;
}

} // namespace devicesim
