#include "tools/sheet_host/LoaderLock.h"

#include <windows.h>
#include <winternl.h>

bool holdsLoaderLock()
{
    // The PEB's LoaderLock (x64: offset 0x110) points at the loader's critical
    // section; its owner is the id of the thread that holds it.
    constexpr std::size_t loaderLockOffset = 0x110;
    const auto* peb = reinterpret_cast<const unsigned char*>(NtCurrentTeb()->ProcessEnvironmentBlock);
    const auto* lock = *reinterpret_cast<const RTL_CRITICAL_SECTION* const*>(peb + loaderLockOffset);
    return lock != nullptr && lock->OwningThread == ULongToHandle(GetCurrentThreadId());
}
