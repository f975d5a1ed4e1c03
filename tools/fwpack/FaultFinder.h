#pragma once

#include <QByteArray>
#include <QStringList>

namespace fwpack
{

/// Why the content of a firmware file does not load: names the outermost bad one of its layers (JSON, header, Base64,
/// cipher text, Intel HEX), the place in it as far as that can be known, and what else hints at the cause. Shows
/// nothing of the image.
/// @return one fault a string; nothing if nothing wrong is found.
QStringList findFaults(const QByteArray& content);

} // namespace fwpack
