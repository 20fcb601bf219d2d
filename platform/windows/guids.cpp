// Instantiates the property keys that the SDK headers only declare.
#include <initguid.h>

#include "platform.h"
