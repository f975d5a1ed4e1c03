#include "cli/BurnRecord.h"

#include "cli/Json.h"
#include "support/CommandLine.h"
#include "support/Printable.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFileInfo>

namespace
{

constexpr qsizetype longestLabel = 200;
/// Room that one record needs at most, in bytes.
constexpr qint64 recordSize = 4096;

/// @return the SHA-256 of a regular file in hexadecimal digits; empty when it cannot be read.
QString hashOf(const QString& path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly) || !hash.addData(&file)) {
        return {};
    }
    return QString::fromLatin1(hash.result().toHex());
}

} // namespace

BurnRecord::BurnRecord(const QString& recordPath, const QString& firmwarePath)
    : recordFileName(recordPath)
    , firmwareFileName(firmwarePath)
    , file(recordPath)
{
}

QString BurnRecord::open()
{
    return problemWith(file.open());
}

QString BurnRecord::prepare(std::size_t burns)
{
    firmwareHash = hashOf(firmwareFileName);
    return problemWith(file.reserve(static_cast<qint64>(burns) * recordSize));
}

/// @return `problem` with the name of the record in front; empty when there is none.
QString BurnRecord::problemWith(const QString& problem) const
{
    return problem.isEmpty() ? QString() : QStringLiteral("the record %1: %2").arg(quoted(recordFileName), problem);
}

void BurnRecord::add(const QString& command, const QString& label, const RunReport& report)
{
    QJsonObject object = toJson(report);
    object.insert(QStringLiteral("started"), jsonTime(report.started));
    object.insert(QStringLiteral("finished"), jsonTime(report.finished));
    object.insert(QStringLiteral("label"), label);
    object.insert(QStringLiteral("port"), report.port.name);
    object.insert(QStringLiteral("adapterSerial"), report.port.adapterSerial);
    object.insert(QStringLiteral("file"), firmwareFileName);
    object.insert(QStringLiteral("sha256"), firmwareHash);
    object.insert(QStringLiteral("target"), report.result.target);
    object.insert(QStringLiteral("version"), report.result.version);
    object.insert(QStringLiteral("program"), QCoreApplication::applicationVersion());
    const QByteArray line = jsonLine(object);
    if (const QString problem = file.append(line); !problem.isEmpty()) {
        complete = false;
        complain(command, problemWith(problem));
        complain(command, QStringLiteral("the record of this burn is ") + QString::fromUtf8(line));
    }
}

QString labelProblem(const QString& label)
{
    if (label.size() > longestLabel) {
        return QStringLiteral("a label has at most %1 characters").arg(longestLabel);
    }
    if (printable(label) != label) {
        return QStringLiteral("a label has no control characters");
    }
    return {};
}
