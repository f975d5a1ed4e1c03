#pragma once

#include <string>
#include <vector>

/// Where a user puts a virtual port: the folder `serial` of QStandardPaths::RuntimeLocation. Each link in it to a
/// terminal that is there now is a port, named by the path of the link. Sorted by name. Opens no port and makes no
/// folder.
std::vector<std::wstring> virtualPortNames();
