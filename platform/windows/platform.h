// The Windows build's platform header: the real SDK headers, nothing more.
// Every module source includes this (and only this) for the platform.
#pragma once

// windows.h must come first, but for winsock2.h, which IP Helper's types need
// and which would clash with the older socket header windows.h may bring; the
// others build on their types.
// clang-format off
#include <winsock2.h>
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
#include <iphlpapi.h>
// clang-format on
