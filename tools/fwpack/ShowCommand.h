#pragma once

#include "tools/fwpack/Arguments.h"

class QTextStream;

namespace fwpack
{

/// Prints what a firmware file holds on `out`, never the image itself; of a bad one what can be read of its header.
/// What is wrong or suspicious goes to `err`.
/// @return false if a burn would not take the file.
bool showFirmware(const ShowRequest& request, QTextStream& out, QTextStream& err);

} // namespace fwpack
