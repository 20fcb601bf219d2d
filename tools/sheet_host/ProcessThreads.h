// The process's threads as the system lists them, and a wait for those a program
// didn't start with: Wine ends a process with the C library's exit(), which a
// thread still inside its own end can race into a SIGSEGV of the whole process.
#pragma once

#include <vector>

#include "tools/sheet_host/Win32.h"

// The ids of this process's threads, the caller's included; empty if there is no list.
std::vector<DWORD> processThreads();

// Until no thread is left but those in `kept` and the caller: threads made while
// it waits are waited for too. Returns at once if the system can't list them.
void awaitOtherThreadsEnded(const std::vector<DWORD>& kept);
