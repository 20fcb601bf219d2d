// linger.dll's exports, for the sheet host that loads it (tests/wine/linger).
#pragma once

#include <windows.h>

extern "C" {

// What DLL_THREAD_DETACH calls on the ending thread: whether it holds the loader lock.
using LingerProbe = BOOL(WINAPI*)();

// How long each thread's end waits from now on; 0 (the start): not at all.
using LingerSetDetachDelay = void(WINAPI*)(DWORD milliseconds);
// The probe each thread's end calls from now on; null: none.
using LingerSetProbe = void(WINAPI*)(LingerProbe probe);
// Thread ends that called the probe so far, and those where it answered TRUE.
using LingerCounts = void(WINAPI*)(LONG* probed, LONG* held);
}
