// The sheet page's life-cycle callback: binds a page to the shared adapter
// object when the sheet builds it, and deletes the page object on release.
#pragma once

#include "platform.h"

UINT CALLBACK PropSheetPageProc(HWND window, UINT message, LPPROPSHEETPAGEW page);
