#pragma once

#include "cli/DeviceRun.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QString>

/// An object on one line in UTF-8, without its line feed (JSON Lines; values as in RFC 8259).
QByteArray jsonLine(const QJsonObject& object);

/// A time in UTC with milliseconds, as RFC 3339 has it.
QString jsonTime(const QDateTime& time);

/// The fields of a result, which are the same in the output and in a record: outcome, reason, explanation, blocks,
/// badBlocks, erases, seconds, and if the device has answered deviceId, bootloaderVersion and previousFirmware.
QJsonObject toJson(const RunReport& report);
