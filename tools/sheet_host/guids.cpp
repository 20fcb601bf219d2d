// Instantiates the device property keys that the SDK headers only declare.
// clang-format off
#include <windows.h>
#include <devpropdef.h>
#include <initguid.h>
#include <devpkey.h>
// clang-format on
