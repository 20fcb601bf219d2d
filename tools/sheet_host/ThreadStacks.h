// Every other thread's stack, for a run that hangs: unwound from each suspended thread's context
// and named by the image's symbols or exports, taking no loader lock (a hung thread may hold it).
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tools/sheet_host/Win32.h"

// "thread 0x2c (sheet):", then a line per frame, innermost first:
// "  ztprop.dll+0x1c2f3 CoDeviceInstall+0x5f3". `names` names some threads by id.
// Nothing is allocated while a thread is suspended: it may hold the heap's lock.
std::vector<std::string> threadStacks(const std::map<DWORD, std::string>& names);
