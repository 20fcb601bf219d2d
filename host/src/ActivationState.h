// Internal: hooks between the host's activation contexts, its common
// controls and host::reset().
#pragma once

namespace host {

// Notes a call of a common controls function with the calling thread's context.
void recordControlsCall(const char* function);
// Clears what HostActivation.h scripts and counts, and the image lists.
void resetActivation();
void resetImageLists();

}  // namespace host
