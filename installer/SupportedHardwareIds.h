// The allow list of adapters that get the diagnostics page.
#pragma once

#include <string>
#include <vector>

// True if any id equals a listed hardware id exactly: same length, same code
// units, with case and revision.
bool isSupportedHardwareId(const std::vector<std::wstring>& hardwareIds);
