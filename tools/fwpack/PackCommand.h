#pragma once

#include "tools/fwpack/Arguments.h"

class QTextStream;

namespace fwpack
{

/// Makes the firmware file. It is read by the reader of the burn before the output is touched, and again from there.
/// @return false, with the reason on `err`, on failure; an existing output is then as it was, unless the medium did not
/// give back what was written to it.
bool packFirmware(const PackRequest& request, QTextStream& out, QTextStream& err);

} // namespace fwpack
