#include "tools/devicesim/FaultPlan.h"

#include <QRegularExpression>

#include <algorithm>

namespace devicesim
{

namespace
{

constexpr double defaultProbability = 0.1;
constexpr std::uint64_t defaultStartDelayMs = 2000;
constexpr std::uint64_t hourMs = 3'600'000;

struct FaultEntry {
    const char* name;
    /// What may follow the name and a colon; null if nothing may.
    const char* value;
    const char* effect;
    /// Takes the text behind the colon, which is null without one. False: the text is wrong.
    bool (*apply)(FaultPlan& plan, const QString& text);
};

/// In decimal, in hexadecimal behind 0x, or in octal behind 0.
std::optional<std::uint64_t> readNumber(const QString& text, std::uint64_t largest)
{
    bool ok = false;
    const std::uint64_t number = text.toULongLong(&ok, 0);
    return ok && number <= largest ? std::optional(number) : std::nullopt;
}

template <Fault Kind>
bool applyProbability(FaultPlan& plan, const QString& text)
{
    bool ok = true;
    const double probability = text.isNull() ? defaultProbability : text.toDouble(&ok);
    plan.probabilities[indexOf(Kind)] = probability;
    return ok && probability >= 0 && probability <= 1;
}

bool applyStuckBit(FaultPlan& plan, const QString& text)
{
    static const QRegularExpression form("^([^.=]+)(?:\\.([0-7]))?(?:=([01]))?$");
    const QRegularExpressionMatch match = form.match(text.isNull() ? "0x3100.0=1" : text);
    const std::optional<std::uint64_t> address = readNumber(match.captured(1), Memory::size - 1);
    const int bit = match.captured(2).toInt();
    plan.stuckBits.push_back({static_cast<std::uint16_t>(address.value_or(0)), bit, match.captured(3) != u"0"});
    return address.has_value();
}

bool applyDirtyBlank(FaultPlan& plan, const QString& text)
{
    plan.dirtyBlank = true;
    return text.isNull();
}

bool applyHangup(FaultPlan& plan, const QString& text)
{
    plan.hangupAt = 1;
    if (text.isNull()) {
        return true;
    }
    const QString command = text.section(u'+', 0, 0);
    plan.hangupFrom = commandNamed(command.toStdString());
    if (!plan.hangupFrom) {
        plan.hangupAt = readNumber(text, UINT32_MAX).value_or(0);
        return plan.hangupAt > 0;
    }
    if (command == text) {
        return true;
    }
    const std::optional<std::uint64_t> behind = readNumber(text.mid(command.size() + 1), UINT32_MAX);
    plan.hangupAt = 1 + behind.value_or(0);
    return behind.has_value();
}

bool applyLateStart(FaultPlan& plan, const QString& text)
{
    const std::optional<std::uint64_t> delay = text.isNull() ? defaultStartDelayMs : readNumber(text, hourMs);
    plan.startDelay = std::chrono::milliseconds(delay.value_or(0));
    return delay.has_value();
}

template <Fault Kind>
constexpr FaultEntry chance(const char* effect)
{
    return {faultNames[indexOf(Kind)], "PROBABILITY", effect, applyProbability<Kind>};
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
    FaultEntry{"stuck-bit", "ADDRESS[.BIT][=0|1]",
        "a bit never clears (=1) or never sets (=0), each time another (default 0x3100.0=1)", applyStuckBit},
    FaultEntry{"dirty-blank", nullptr, "the first blank check after an erase answers not blank", applyDirtyBlank},
    FaultEntry{"hangup", "N|COMMAND[+N]",
        "the line hangs up at the Nth request, or N behind the first COMMAND (default 1)", applyHangup},
    FaultEntry{"late-start", "MS", "the device hears nothing for so long at first (default 2000)", applyLateStart},
};

} // namespace

QString FaultPlan::add(const QString& text)
{
    const QString name = text.section(u':', 0, 0);
    const QString value = name == text ? QString() : text.mid(name.size() + 1);
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
    if (!entry->apply(*this, value)) {
        const QString form = entry->value != nullptr ? QString("%1:%2").arg(name, entry->value) : name;
        return QString("wrong value in the fault '%1', expected %2").arg(text, form);
    }
    return {};
}

QString FaultPlan::help()
{
    QString lines = "Faults; a PROBABILITY is one per request, 0 to 1 (default 0.1):\n";
    for (const FaultEntry& entry : faultTable) {
        const QString value = entry.value != nullptr ? QString("[:%1]").arg(entry.value) : QString();
        lines += QString("  %1 %2\n").arg(entry.name + value, -31).arg(entry.effect);
    }
    return lines;
}

} // namespace devicesim
