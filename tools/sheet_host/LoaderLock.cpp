#include "tools/sheet_host/LoaderLock.h"

namespace {

RTL_CRITICAL_SECTION* loaderLock()
{
    // The PEB's LoaderLock (x64: offset 0x110) points at the loader's critical
    // section; its owner is the id of the thread that holds it.
    constexpr std::size_t loaderLockOffset = 0x110;
    const auto* peb = reinterpret_cast<const unsigned char*>(processEnvironmentBlock());
    return *reinterpret_cast<RTL_CRITICAL_SECTION* const*>(peb + loaderLockOffset);
}

}  // namespace

const PEB* processEnvironmentBlock()
{
#if defined(__GNUC__)
// GCC takes NtCurrentTeb's read through the gs segment for a read of a small address.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Warray-bounds"
#endif
    return NtCurrentTeb()->ProcessEnvironmentBlock;
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
}

bool holdsLoaderLock()
{
    const RTL_CRITICAL_SECTION* lock = loaderLock();
    return lock != nullptr && lock->OwningThread == ULongToHandle(GetCurrentThreadId());
}

bool loaderLockVisible()
{
    RTL_CRITICAL_SECTION* lock = loaderLock();
    if (lock == nullptr || holdsLoaderLock()) {
        return false;
    }
    // The loader's own lock, as LdrLockLoaderLock takes it.
    EnterCriticalSection(lock);
    const bool seen = holdsLoaderLock();
    LeaveCriticalSection(lock);
    return seen && !holdsLoaderLock();
}
