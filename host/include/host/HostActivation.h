// Test-side control of the host's activation contexts, libraries and common
// controls calls. host::reset() clears all of it except the library references.
#pragma once

#include <string>
#include <vector>

#include "platform.h"

namespace host {

// ---- Activation contexts ---------------------------------------------------------
// With support off (on by default), QueryActCtxW and ActivateActCtx fail with
// ERROR_CALL_NOT_IMPLEMENTED, as on a platform without activation contexts.
void setActivationSupported(bool supported);
// A non-zero error makes every later ActivateActCtx fail with it.
void failActivateActCtx(DWORD error);
// Whether the module has a manifest context (default: yes). Without one,
// QueryActCtxW answers a null context for the module's addresses.
void setModuleActivationContext(bool present);
// The context QueryActCtxW gives for the module's addresses.
HANDLE moduleActivationContext();

// Successful calls since reset, all threads together.
int activateActCtxCalls();
int deactivateActCtxCalls();
// Every activation deactivated, and nothing active on the calling thread.
bool activationsBalanced();

// ---- Libraries --------------------------------------------------------------------
// GetProcAddress fails with ERROR_PROC_NOT_FOUND for this name until reset.
void hideProcedure(const std::string& name);
int loadLibraryCalls();
int getProcAddressCalls();
// References to "Comctl32.dll" not yet freed: a fact of the process, which
// reset() does not change.
int comctl32References();

// ---- Common controls calls ------------------------------------------------------
struct ControlsCall {
    std::string function;
    bool activated;  // inside an activation on the calling thread
    HANDLE context;  // the innermost active context, if activated
};
// Every call of the host's common controls functions since reset, in order.
std::vector<ControlsCall> commonControlsCalls();
// Image lists created and not yet destroyed.
int liveImageLists();

}  // namespace host
