// Common controls and property sheet pages of the host platform layer.
#pragma once

#include "win32/base.h"
#include "win32/winuser.h"

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
constexpr DWORD PSP_DLGINDIRECT = 0x1;
constexpr DWORD PSP_USETITLE = 0x8;
constexpr DWORD PSP_USECALLBACK = 0x80;
constexpr DWORD PSP_USEFUSIONCONTEXT = 0x4000;

struct PROPSHEETPAGEW;
struct _PSP;
using HPROPSHEETPAGE = _PSP*;
using LPPROPSHEETPAGEW = PROPSHEETPAGEW*;
using LPCPROPSHEETPAGEW = const PROPSHEETPAGEW*;
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

struct HostImageList;
using HIMAGELIST = HostImageList*;

HIMAGELIST ImageList_Create(int cx, int cy, UINT flags, int initial, int grow);
// Index -1 appends; the result is the icon's index, or -1.
int ImageList_ReplaceIcon(HIMAGELIST list, int index, HICON icon);
BOOL ImageList_Destroy(HIMAGELIST list);
BOOL ImageList_GetIconSize(HIMAGELIST list, int* cx, int* cy);
int ImageList_GetImageCount(HIMAGELIST list);

// ---- List view ---------------------------------------------------------------------------
constexpr DWORD LVS_REPORT = 0x0001;
constexpr DWORD LVS_SHAREIMAGELISTS = 0x0040;
constexpr DWORD LVS_ALIGNLEFT = 0x0800;
constexpr DWORD LVS_NOCOLUMNHEADER = 0x4000;
constexpr DWORD LVS_NOSORTHEADER = 0x8000;
constexpr DWORD LVS_EX_FULLROWSELECT = 0x00000020;
constexpr DWORD LVS_EX_DOUBLEBUFFER = 0x00010000;

constexpr UINT LVM_FIRST = 0x1000;
constexpr UINT LVM_GETIMAGELIST = LVM_FIRST + 2;
constexpr UINT LVM_SETIMAGELIST = LVM_FIRST + 3;
constexpr UINT LVM_GETITEMCOUNT = LVM_FIRST + 4;
constexpr UINT LVM_DELETEITEM = LVM_FIRST + 8;
constexpr UINT LVM_DELETEALLITEMS = LVM_FIRST + 9;
constexpr UINT LVM_GETCOLUMNWIDTH = LVM_FIRST + 29;
constexpr UINT LVM_SETCOLUMNWIDTH = LVM_FIRST + 30;
constexpr UINT LVM_SETEXTENDEDLISTVIEWSTYLE = LVM_FIRST + 54;
constexpr UINT LVM_GETEXTENDEDLISTVIEWSTYLE = LVM_FIRST + 55;
constexpr UINT LVM_GETITEMW = LVM_FIRST + 75;
constexpr UINT LVM_SETITEMW = LVM_FIRST + 76;
constexpr UINT LVM_INSERTITEMW = LVM_FIRST + 77;
constexpr UINT LVM_INSERTCOLUMNW = LVM_FIRST + 97;
constexpr UINT LVM_GETITEMTEXTW = LVM_FIRST + 115;

constexpr int LVSIL_NORMAL = 0;
constexpr int LVSIL_SMALL = 1;
constexpr int LVSIL_STATE = 2;
constexpr int LVSCW_AUTOSIZE = -1;
constexpr int LVSCW_AUTOSIZE_USEHEADER = -2;

constexpr UINT LVIF_TEXT = 0x0001;
constexpr UINT LVIF_IMAGE = 0x0002;
constexpr UINT LVIF_PARAM = 0x0004;

constexpr UINT LVCF_FMT = 0x0001;
constexpr UINT LVCF_WIDTH = 0x0002;
constexpr UINT LVCF_TEXT = 0x0004;
constexpr UINT LVCF_SUBITEM = 0x0008;

struct LVITEMW {
    UINT mask;
    int iItem;
    int iSubItem;
    UINT state;
    UINT stateMask;
    LPWSTR pszText;
    int cchTextMax;
    int iImage;
    LPARAM lParam;
    int iIndent;
    int iGroupId;
    UINT cColumns;
    UINT* puColumns;
    int* piColFmt;
    int iGroup;
};
static_assert(sizeof(LVITEMW) == 88, "platform layout");

struct LVCOLUMNW {
    UINT mask;
    int fmt;
    int cx;
    LPWSTR pszText;
    int cchTextMax;
    int iSubItem;
    int iImage;
    int iOrder;
    int cxMin;
    int cxDefault;
    int cxIdeal;
};
static_assert(sizeof(LVCOLUMNW) == 56, "platform layout");
