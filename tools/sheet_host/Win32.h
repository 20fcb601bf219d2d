// The sheet host's one way to the Windows SDK headers, in the order they need.
#pragma once

// windows.h must come first; the others build on its types.
// clang-format off
#include <windows.h>
#include <objbase.h>
#include <commctrl.h>
#include <prsht.h>
#include <devpropdef.h>
#include <setupapi.h>
#include <devpkey.h>
// clang-format on
