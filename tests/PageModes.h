// What the diagnostics page may show: the combinations of run button, category
// controls, timer and list lines that one of its modes allows.
#pragma once

#include <string>

#include "tools/page_reader/PageSheet.h"

// Empty if some mode allows what the page shows, else what is wrong.
// `timerRunning`: the temperature timer is set.
std::string modeViolation(const PageScreen& screen, bool timerRunning);

bool temperatureTimerRunning(HWND page);
