#include "tools/devicesim/FaultPlan.h"

#include <QRegularExpression>

namespace devicesim
{

namespace
{

constexpr double usualProbability = 0.1;

struct FaultEntry {
    const char* name;
    /// Takes the text behind the colon, which is null without one. False: the value is wrong.
    bool (*apply)(FaultPlan& plan, const QString& value);
    const char* value;
    const char* effect;
};

bool readNumber(const QString& value, qulonglong largest, qulonglong& number)
{
    bool ok = false;
    number = value.toULongLong(&ok, 0);
    return ok && number <= largest;
}

template <Fault fault>
bool applyProbability(FaultPlan& plan, const QString& value)
{
    bool ok = true;
    const double probability = value.isNull() ? usualProbability : value.toDouble(&ok);
    if (!ok || !(probability >= 0 && probability <= 1)) {
        return false;
    }
    plan.probability(fault) = probability;
    return true;
}

bool applyStuckBit(FaultPlan& plan, const QString& value)
{
    StuckBit stuck{0x3100, 0, true};
    if (!value.isNull()) {
        static const QRegularExpression form(QStringLiteral("^([^.=]+)(?:\\.([0-7]))?(?:=([01]))?$"));
        const QRegularExpressionMatch match = form.match(value);
        qulonglong address = 0;
        if (!match.hasMatch() || !readNumber(match.captured(1), DeviceMemory::size - 1, address)) {
            return false;
        }
        stuck.address = static_cast<std::uint16_t>(address);
        stuck.bit = match.captured(2).toInt();
        stuck.value = match.captured(3) != QLatin1String("0");
    }
    plan.stuckBits.push_back(stuck);
    return true;
}

bool applyDirtyBlank(FaultPlan& plan, const QString& value)
{
    plan.dirtyBlank = true;
    return value.isNull();
}

bool applyHangup(FaultPlan& plan, const QString& value)
{
    qulonglong number = 1;
    const QStringList parts = value.split(u'+');
    const std::optional<Command> command = commandNamed(parts.first().toLatin1().constData());
    const bool valid = command
                           ? parts.size() == 1 || (parts.size() == 2 && readNumber(parts.last(), UINT32_MAX, number))
                           : value.isNull() || readNumber(value, UINT32_MAX, number);
    plan.hangupFrom = command;
    plan.hangupAt = command && parts.size() == 2 ? number + 1 : number;
    return valid && plan.hangupAt > 0;
}

bool applyLateStart(FaultPlan& plan, const QString& value)
{
    constexpr qulonglong hour = 3'600'000;
    qulonglong milliseconds = 2000;
    if (!value.isNull() && !readNumber(value, hour, milliseconds)) {
        return false;
    }
    plan.startDelay = std::chrono::milliseconds(milliseconds);
    return true;
}

constexpr FaultEntry faultTable[] = {
    {"drop", applyProbability<Fault::Drop>, "PROBABILITY", "the reply is lost"},
    {"late", applyProbability<Fault::Late>, "PROBABILITY", "the reply comes late by --late-time"},
    {"refuse", applyProbability<Fault::Refuse>, "PROBABILITY", "the request is refused"},
    {"cut", applyProbability<Fault::Cut>, "PROBABILITY", "the end of a data reply is lost"},
    {"flip", applyProbability<Fault::Flip>, "PROBABILITY", "one bit of the reply is wrong"},
    {"noise", applyProbability<Fault::Noise>, "PROBABILITY", "bytes that are no status precede the reply"},
    {"stray", applyProbability<Fault::Stray>, "PROBABILITY", "a status byte too many precedes the reply"},
    {"lose", applyProbability<Fault::Lose>, "PROBABILITY", "bytes of the request are lost"},
    {"stuck-bit", applyStuckBit, "ADDRESS[.BIT][=0|1]",
        "a bit never clears (=1) or never sets (=0), each time another; 0x3100.0=1"},
    {"dirty-blank", applyDirtyBlank, nullptr, "the first blank check after an erase answers not blank"},
    {"hangup", applyHangup, "N|COMMAND[+N]", "the line hangs up at the Nth request, or N behind the first COMMAND; 1"},
    {"late-start", applyLateStart, "MS", "the device hears nothing for so long at first; 2000"},
};

} // namespace

QString FaultPlan::add(const QString& text)
{
    const qsizetype colon = text.indexOf(u':');
    const QString name = text.left(colon);
    const QString value = colon < 0 ? QString() : text.mid(colon + 1);
    QStringList names;
    for (const FaultEntry& entry : faultTable) {
        const QString known = QString::fromLatin1(entry.name);
        if (known == name) {
            if (given.contains(name) && entry.apply != applyStuckBit) {
                return QStringLiteral("the fault '%1' is there twice").arg(name);
            }
            FaultPlan changed = *this;
            changed.given += name;
            if (!entry.apply(changed, value)) {
                return QStringLiteral("wrong value in the fault '%1', expected %2")
                    .arg(text, entry.value != nullptr ? known + u':' + QString::fromLatin1(entry.value) : known);
            }
            *this = changed;
            return {};
        }
        names += known;
    }
    return QStringLiteral("unknown fault '%1', expected one of: %2").arg(name, names.join(QStringLiteral(", ")));
}

QString FaultPlan::help()
{
    QString lines = QStringLiteral("Faults; a PROBABILITY is one per request, 0 to 1, and 0.1 if it is left out:\n");
    for (const FaultEntry& entry : faultTable) {
        const QString name = QString::fromLatin1(entry.name);
        const QString form =
            entry.value != nullptr ? name + QStringLiteral("[:%1]").arg(QLatin1String(entry.value)) : name;
        lines += QStringLiteral("  %1 %2\n").arg(form, -31).arg(QLatin1String(entry.effect));
    }
    return lines;
}

} // namespace devicesim
