// The Windows build's platform header: the real SDK headers, nothing more.
// Every module source includes this (and only this) for the platform.
#pragma once

// windows.h must come first; the others build on its types.
// clang-format off
#include <windows.h>
#include <commctrl.h>
#include <devpropdef.h>
#include <prsht.h>
#include <setupapi.h>
#include <devguid.h>
#include <devpkey.h>
#include <objbase.h>
#include <oleauto.h>
#include <wbemidl.h>
// clang-format on
