// The console tool's text conversions on the platform's own wide text: UTF-32
// on the host, UTF-16 on Windows, where surrogate pairs join into one character.
// Run by the host's tests and by a plain program under Wine.
#pragma once

#include <string>
#include <vector>

// One line for each case that failed; none when all pass.
std::vector<std::string> utf8Failures();
