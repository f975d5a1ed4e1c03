#pragma once

#include <QByteArray>
#include <QStringView>

/// Decodes Base64 in the standard alphabet of RFC 4648, as `QByteArray::fromBase64` does with its default options, but
/// several times as fast: every character outside the alphabet is passed over, '=' included, and so are left-over bits
/// at the end that fill no byte.
QByteArray decodeBase64(QStringView text);
