// The reference for the cost of a suppressed trace line: a call of the same
// shape that does nothing, in a unit of its own so that it is not inlined.
#include "EmptyCall.h"

void emptyTraceCall(int /*level*/, const char* /*format*/, ...)
{
}
