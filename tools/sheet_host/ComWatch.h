// Watches a module's calls of COM's functions (its ole32 imports): those made under the
// loader lock, and whether each CoInitializeEx was undone. The watch stays as long as the module.
#pragma once

#include <string>
#include <vector>

#include "tools/sheet_host/ImportPatch.h"
#include "tools/sheet_host/Win32.h"

class ComWatch {
public:
    // Patches `module`'s imports of CoCreateInstance, CoInitializeEx,
    // CoInitializeSecurity, CoSetProxyBlanket and CoUninitialize, and starts
    // the counts afresh. One watch at a time. The patches stay when this object
    // ends: a call at a thread's end may come after the module's unload was asked for.
    explicit ComWatch(HMODULE module);
    ComWatch(const ComWatch&) = delete;
    ComWatch& operator=(const ComWatch&) = delete;

    const std::vector<std::string>& patched() const { return patch_.patched(); }
    // The module's calls made under the loader lock, by function name, in order.
    static std::vector<std::string> callsUnderLoaderLock();
    // How many, read without a lock (for a run that hangs).
    static int callsUnderLoaderLockSoFar();
    // Successful CoInitializeEx calls not yet undone by a CoUninitialize, and all of them.
    static int initializationsLeft();
    static int initializations();

private:
    ImportPatch patch_;
};
