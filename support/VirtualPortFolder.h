#pragma once

#include <QString>

/// Where a user without privileges puts virtual serial ports, as symbolic links to their terminals: the folder "serial"
/// in the user's runtime folder. That is `QStandardPaths::RuntimeLocation`, found by the same rules, but without the
/// warning that Qt prints where XDG_RUNTIME_DIR is not set.
/// @return its path, whether or not it exists; empty when the runtime folder is missing, or not private to the user as
/// the XDG Base Directory rules demand.
QString virtualPortFolder();

/// Makes the folder, and the runtime folder in the system's folder for temporary files where XDG_RUNTIME_DIR names
/// none.
/// @return its path; empty on failure, with the reason in errno.
QString makeVirtualPortFolder();
