// linger.dll, a helper of the Wine tests that is never shipped: each thread's
// end in the process waits inside its DLL_THREAD_DETACH, where the loader lock
// is held, for as long as the host sets, so that a thread's end overlaps what
// else goes on; and there it asks the host's probe whether the loader lock is
// held, which tells the host that its probe sees it.
#include "tests/wine/linger/linger.h"

#include <atomic>

namespace {

std::atomic<DWORD> delayMs{0};
std::atomic<LingerProbe> probe{nullptr};
std::atomic<LONG> probed{0};
std::atomic<LONG> held{0};

}  // namespace

extern "C" __declspec(dllexport) void WINAPI lingerSetDetachDelay(DWORD milliseconds)
{
    delayMs = milliseconds;
}

extern "C" __declspec(dllexport) void WINAPI lingerSetProbe(LingerProbe newProbe)
{
    probe = newProbe;
}

extern "C" __declspec(dllexport) void WINAPI lingerCounts(LONG* probedEnds, LONG* heldEnds)
{
    *probedEnds = probed;
    *heldEnds = held;
}

extern "C" BOOL WINAPI DllMain(HINSTANCE /*instance*/, DWORD reason, LPVOID /*reserved*/)
{
    if (reason == DLL_THREAD_DETACH) {
        if (const LingerProbe current = probe) {
            ++probed;
            if (current() != FALSE) {
                ++held;
            }
        }
        if (const DWORD delay = delayMs) {
            Sleep(delay);
        }
    }
    return TRUE;
}
