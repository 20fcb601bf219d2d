// A function with traceMessage's signature that does nothing.
#pragma once

void emptyTraceCall(int level, const char* format, ...);
