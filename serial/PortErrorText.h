#pragma once

#include "serial/PortSettings.h"

#include <string>

/// What to tell the user about the failure `code` (an errno value) of a port whose device is at `path`: why it failed
/// and what helps.
std::wstring portErrorText(int code, const std::string& path, const PortSettings& settings);
