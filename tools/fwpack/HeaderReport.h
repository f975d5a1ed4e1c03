#pragma once

#include <QJsonValue>
#include <QStringList>

namespace fwpack
{

/// The fields of a firmware file's header as a burn takes them, one a line and fit for a terminal, with a note on each
/// that is missing, of another type or out of range, so that it counts for something else than what stands in the file.
/// @param header the value of the key "header"
QStringList describeHeader(const QJsonValue& header);

/// The type of a JSON value with its article: "a string".
QString typeName(const QJsonValue& value);

} // namespace fwpack
