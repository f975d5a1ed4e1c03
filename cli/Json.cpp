#include "cli/Json.h"

#include "bootloader/BootTables.h"

#include <QJsonDocument>

namespace
{

QString versionText(const BootVersion& version)
{
    return QStringLiteral("%1.%2.%3").arg(version.major).arg(version.minor).arg(version.patch);
}

QString outcomeWord(RunEnd end)
{
    switch (end) {
    case RunEnd::Succeeded:
        return QStringLiteral("succeeded");
    case RunEnd::Failed:
    case RunEnd::NoDevice:
    case RunEnd::GaveUp:
        return QStringLiteral("failed");
    case RunEnd::Stopped:
        return QStringLiteral("stopped");
    }
    return {};
}

} // namespace

QByteArray jsonLine(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QString jsonTime(const QDateTime& time)
{
    return time.toUTC().toString(Qt::ISODateWithMs);
}

QJsonObject toJson(const RunReport& report)
{
    QJsonObject object{
        {QStringLiteral("outcome"), outcomeWord(report.end)},
        {QStringLiteral("reason"), report.reason},
        {QStringLiteral("explanation"), report.explanation},
        {QStringLiteral("blocks"), report.result.blocks},
        {QStringLiteral("badBlocks"), report.result.badBlocks},
        {QStringLiteral("erases"), report.result.erases},
        {QStringLiteral("seconds"), report.seconds},
    };
    if (report.result.identity) {
        object.insert(QStringLiteral("deviceId"), report.result.identity->deviceId);
        object.insert(QStringLiteral("deviceFamily"), static_cast<int>(familyOf(report.result.identity->deviceId)));
        object.insert(QStringLiteral("bootloaderVersion"), versionText(report.result.identity->bootloaderVersion));
        object.insert(QStringLiteral("previousFirmware"), versionText(report.result.identity->firmwareVersion));
    }
    return object;
}
