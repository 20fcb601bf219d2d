// Whether the calling thread holds the process's loader lock: it does inside
// DllMain and TLS callbacks, a thread's end included, where no COM call and
// no call into another process may be made. For the test builds' watch on
// the simulated service (sim::WmiService::watchForbiddenCalls).
#pragma once

bool holdsLoaderLock();
