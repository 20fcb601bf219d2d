// Whether the calling thread holds the process's loader lock: it does inside
// DllMain and TLS callbacks, a thread's end included, where no COM call and
// no call into another process may be made. For the test builds' watch on
// the simulated service (sim::WmiService::watchForbiddenCalls).
#pragma once

#include <windows.h>
#include <winternl.h>

bool holdsLoaderLock();

// Whether holdsLoaderLock() can tell: false on this thread as it is, true while
// it takes the loader lock itself for a moment. Not from under the loader lock.
bool loaderLockVisible();

// The process's environment block, where the loader keeps its lock and its list of modules.
const PEB* processEnvironmentBlock();
