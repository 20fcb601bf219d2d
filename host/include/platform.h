// The host build's stand-in for the Windows headers: exactly the types,
// constants and functions the module uses, with the platform's names, values
// and (where the module depends on them) layouts. The implementations live in
// host/src and can be scripted and observed through host/HostPlatform.h.
//
// One deliberate difference: WCHAR is the host's wchar_t (32 bits), so that
// std::wstring and the C library's wide functions work unchanged. Sizes of wide
// buffers are therefore always computed with sizeof(WCHAR), never with 2.
#pragma once

#include "win32/actctx.h"
#include "win32/base.h"
#include "win32/com.h"
#include "win32/commctrl.h"
#include "win32/files.h"
#include "win32/iphlpapi.h"
#include "win32/oleauto.h"
#include "win32/setupapi.h"
#include "win32/threads.h"
#include "win32/wbem.h"
#include "win32/winuser.h"
