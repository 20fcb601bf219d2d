// Common controls and property sheet pages of the host platform layer.
#pragma once

#include "win32/base.h"

// ---- Common controls and property sheet pages (commctrl.h, prsht.h) -------------
constexpr DWORD ICC_LISTVIEW_CLASSES = 0x1;
constexpr DWORD ICC_STANDARD_CLASSES = 0x4000;

struct INITCOMMONCONTROLSEX {
    DWORD dwSize;
    DWORD dwICC;
};
BOOL InitCommonControlsEx(const INITCOMMONCONTROLSEX* init);

constexpr UINT PSPCB_ADDREF = 0;
constexpr UINT PSPCB_RELEASE = 1;
constexpr UINT PSPCB_CREATE = 2;
constexpr DWORD PSP_USECALLBACK = 0x80;
constexpr DWORD PSP_USEFUSIONCONTEXT = 0x4000;

struct PROPSHEETPAGEW;
struct _PSP;
using HPROPSHEETPAGE = _PSP*;
using LPPROPSHEETPAGEW = PROPSHEETPAGEW*;
using LPCPROPSHEETPAGEW = const PROPSHEETPAGEW*;
using DLGPROC = INT_PTR (*)(HWND, UINT, WPARAM, LPARAM);
using LPFNPSPCALLBACKW = UINT (*)(HWND, UINT, LPPROPSHEETPAGEW);

struct PROPSHEETPAGEW {
    DWORD dwSize;
    DWORD dwFlags;
    HINSTANCE hInstance;
    LPCWSTR pszTemplate;
    HANDLE hIcon;
    LPCWSTR pszTitle;
    DLGPROC pfnDlgProc;
    LPARAM lParam;
    LPFNPSPCALLBACKW pfnCallback;
    UINT* pcRefParent;
    LPCWSTR pszHeaderTitle;
    LPCWSTR pszHeaderSubTitle;
    HANDLE hActCtx;
    HANDLE hbmHeader;
};
static_assert(sizeof(PROPSHEETPAGEW) == 104, "platform layout");

HPROPSHEETPAGE CreatePropertySheetPageW(LPCPROPSHEETPAGEW page);
BOOL DestroyPropertySheetPage(HPROPSHEETPAGE page);

// ---- Image lists -----------------------------------------------------------------
constexpr UINT ILC_MASK = 0x1;
constexpr UINT ILC_COLOR32 = 0x20;

struct HICON__;
using HICON = HICON__*;
struct HostImageList;
using HIMAGELIST = HostImageList*;

HIMAGELIST ImageList_Create(int cx, int cy, UINT flags, int initial, int grow);
// Index -1 appends; the result is the icon's index, or -1.
int ImageList_ReplaceIcon(HIMAGELIST list, int index, HICON icon);
BOOL ImageList_Destroy(HIMAGELIST list);
