#include "tools/fwpack/HeaderReport.h"

#include "tools/fwpack/Package.h"
#include "tools/fwpack/Printable.h"

#include <QJsonObject>

namespace fwpack
{

namespace
{

QString note(const QString& text)
{
    return text.isEmpty() ? QString() : " (" + text + ')';
}

/// Why a value does not count; empty if it does.
QString textNote(const QJsonValue& value)
{
    if (value.isUndefined()) {
        return "not given";
    }
    return value.isString() ? QString() : "given as " + typeName(value) + ", which does not count";
}

/// Why a value does not count; empty if it does.
QString numberNote(const QJsonValue& value)
{
    if (value.isUndefined()) {
        return "not given";
    }
    if (!value.isDouble()) {
        return "given as " + typeName(value) + ", which does not count";
    }
    const bool counts = value.toInt(0) == value.toInt(1);
    return counts ? QString() : QString("given as %1, no whole number of 32 bits").arg(value.toDouble(), 0, 'g', 17);
}

QString deviceLine(const QJsonValue& value)
{
    const int given = value.toInt(0);
    const auto device = static_cast<std::uint16_t>(given);
    QString reason = numberNote(value);
    if (reason.isEmpty() && given != device) {
        reason = QString("given as %1, of which the low 16 bits count").arg(given);
    }
    return "device:   " + hexNumber(device) + note(reason);
}

QString baudrateLine(const QJsonValue& value)
{
    const int baudrate = value.toInt(PackageHeader().baudrate);
    QString reason = numberNote(value);
    if (reason.isEmpty() && baudrate <= 0) {
        reason = "no speed that a port can have";
    }
    return "baudrate: " + QString::number(baudrate) + note(reason);
}

QString linkLine(const QJsonValue& value)
{
    const int link = value.toInt(PackageHeader().link);
    QString reason = numberNote(value);
    if (link == 1) {
        reason = "the line echoes what is sent";
    }
    return "link:     " + QString::number(link) + note(reason);
}

} // namespace

QStringList describeHeader(const QJsonValue& header)
{
    const QJsonObject fields = header.toObject();
    const QJsonValue version = fields.value("version");
    const QJsonValue target = fields.value("target");
    QStringList lines;
    if (!header.isObject()) {
        lines << "header:   " + typeName(header) + ", not an object: nothing in it counts";
    }
    return lines << deviceLine(fields.value("device"))
                 << "version:  " + quoted(version.toString()) + note(textNote(version))
                 << "target:   " + quoted(target.toString()) + note(textNote(target))
                 << baudrateLine(fields.value("baudrate")) << linkLine(fields.value("link"));
}

QString typeName(const QJsonValue& value)
{
    switch (value.type()) {
    case QJsonValue::Null:
        return "null";
    case QJsonValue::Bool:
        return "a boolean";
    case QJsonValue::Double:
        return "a number";
    case QJsonValue::String:
        return "a string";
    case QJsonValue::Array:
        return "an array";
    case QJsonValue::Object:
        return "an object";
    case QJsonValue::Undefined:
        break;
    }
    return "missing";
}

} // namespace fwpack
