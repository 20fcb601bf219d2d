// Windows, dialogs, messages, timers, icons and the standard controls' messages
// of the host platform layer (winuser.h), with the platform's values and layouts.
#pragma once

#include "win32/base.h"

// ---- Messages ------------------------------------------------------------------------
constexpr UINT WM_DESTROY = 0x0002;
constexpr UINT WM_SIZE = 0x0005;
constexpr UINT WM_ENABLE = 0x000A;
constexpr UINT WM_SETTEXT = 0x000C;
constexpr UINT WM_GETTEXT = 0x000D;
constexpr UINT WM_GETTEXTLENGTH = 0x000E;
constexpr UINT WM_SHOWWINDOW = 0x0018;
constexpr UINT WM_NOTIFY = 0x004E;
constexpr UINT WM_HELP = 0x0053;
constexpr UINT WM_CONTEXTMENU = 0x007B;
constexpr UINT WM_NCDESTROY = 0x0082;
constexpr UINT WM_INITDIALOG = 0x0110;
constexpr UINT WM_COMMAND = 0x0111;
constexpr UINT WM_TIMER = 0x0113;
constexpr UINT WM_USER = 0x0400;

constexpr WPARAM SIZE_RESTORED = 0;

// ---- Window long values and styles ----------------------------------------------------
constexpr int GWL_STYLE = -16;
constexpr int GWL_EXSTYLE = -20;
constexpr int GWLP_ID = -12;
constexpr int GWL_ID = -12;
constexpr int DWLP_MSGRESULT = 0;
constexpr int DWLP_DLGPROC = 8;  // sizeof(LRESULT)
constexpr int DWLP_USER = 16;  // sizeof(LRESULT) + sizeof(DLGPROC)

constexpr DWORD WS_POPUP = 0x80000000;
constexpr DWORD WS_CHILD = 0x40000000;
constexpr DWORD WS_VISIBLE = 0x10000000;
constexpr DWORD WS_DISABLED = 0x08000000;
constexpr DWORD WS_CAPTION = 0x00C00000;
constexpr DWORD WS_BORDER = 0x00800000;
constexpr DWORD WS_DLGFRAME = 0x00400000;
constexpr DWORD WS_VSCROLL = 0x00200000;
constexpr DWORD WS_HSCROLL = 0x00100000;
constexpr DWORD WS_SYSMENU = 0x00080000;
constexpr DWORD WS_THICKFRAME = 0x00040000;
constexpr DWORD WS_GROUP = 0x00020000;
constexpr DWORD WS_TABSTOP = 0x00010000;
constexpr LONG WS_EX_TRANSPARENT = 0x00000020;
constexpr LONG WS_EX_CLIENTEDGE = 0x00000200;
constexpr LONG WS_EX_CONTROLPARENT = 0x00010000;
constexpr LONG WS_EX_COMPOSITED = 0x02000000;

constexpr DWORD DS_FIXEDSYS = 0x0008;
constexpr DWORD DS_SETFONT = 0x0040;
constexpr DWORD DS_CONTROL = 0x0400;

// ---- Errors -----------------------------------------------------------------------------
constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;
constexpr DWORD ERROR_INVALID_DWP_HANDLE = 1405;
constexpr DWORD ERROR_INVALID_ICON_HANDLE = 1414;
constexpr DWORD ERROR_CONTROL_ID_NOT_FOUND = 1421;

// ---- Packing and resource names ---------------------------------------------------------
inline LPCWSTR MAKEINTRESOURCEW(WORD id)
{
    return reinterpret_cast<LPCWSTR>(static_cast<ULONG_PTR>(id));
}
inline bool IS_INTRESOURCE(LPCWSTR name)
{
    return (reinterpret_cast<ULONG_PTR>(name) >> 16) == 0;
}
inline WORD LOWORD(ULONG_PTR value)
{
    return static_cast<WORD>(value & 0xFFFF);
}
inline WORD HIWORD(ULONG_PTR value)
{
    return static_cast<WORD>((value >> 16) & 0xFFFF);
}
inline LONG MAKELONG(WORD low, WORD high)
{
    return static_cast<LONG>(static_cast<DWORD>(low) | (static_cast<DWORD>(high) << 16));
}
inline WPARAM MAKEWPARAM(WORD low, WORD high)
{
    return static_cast<WPARAM>(static_cast<DWORD>(MAKELONG(low, high)));
}
inline LPARAM MAKELPARAM(WORD low, WORD high)
{
    return static_cast<LPARAM>(static_cast<DWORD>(MAKELONG(low, high)));
}

// ---- Geometry ---------------------------------------------------------------------------
struct POINT {
    LONG x;
    LONG y;
};
struct SIZE {
    LONG cx;
    LONG cy;
};
struct RECT {
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
};
using LPPOINT = POINT*;
using LPRECT = RECT*;
using HDWP = HANDLE;

// ---- Windows, dialogs, messages --------------------------------------------------------
using DLGPROC = INT_PTR (*)(HWND, UINT, WPARAM, LPARAM);
using TIMERPROC = void (*)(HWND, UINT, UINT_PTR, DWORD);

constexpr int SW_HIDE = 0;
constexpr int SW_SHOWNORMAL = 1;
constexpr int SW_SHOWNOACTIVATE = 4;
constexpr int SW_SHOW = 5;
constexpr int SW_SHOWNA = 8;

constexpr UINT SWP_NOSIZE = 0x0001;
constexpr UINT SWP_NOMOVE = 0x0002;
constexpr UINT SWP_NOZORDER = 0x0004;
constexpr UINT SWP_NOACTIVATE = 0x0010;
const HWND HWND_TOP = nullptr;

constexpr UINT USER_TIMER_MINIMUM = 0x0000000A;

// Dialogs come from the module's own dialog resources (RT_DIALOG, extended templates).
HWND CreateDialogParamW(HINSTANCE instance, LPCWSTR templateName, HWND parent, DLGPROC dialogProc,
                        LPARAM initParam);
BOOL DestroyWindow(HWND window);
BOOL IsWindow(HWND window);
HWND GetParent(HWND window);
HWND GetDlgItem(HWND dialog, int id);
int GetDlgCtrlID(HWND window);

BOOL EnableWindow(HWND window, BOOL enable);
BOOL IsWindowEnabled(HWND window);
BOOL ShowWindow(HWND window, int command);
BOOL IsWindowVisible(HWND window);
BOOL SetWindowTextW(HWND window, LPCWSTR text);
BOOL SetDlgItemTextW(HWND dialog, int id, LPCWSTR text);
int GetWindowTextW(HWND window, LPWSTR buffer, int maxCount);
int GetWindowTextLengthW(HWND window);

LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
// Queues the message for the thread that created the window.
BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
LONG_PTR GetWindowLongPtrW(HWND window, int index);
LONG_PTR SetWindowLongPtrW(HWND window, int index, LONG_PTR value);
LONG SetWindowLongW(HWND window, int index, LONG value);

UINT_PTR SetTimer(HWND window, UINT_PTR id, UINT elapse, TIMERPROC timerProc);
BOOL KillTimer(HWND window, UINT_PTR id);

BOOL SetWindowPos(HWND window, HWND insertAfter, int x, int y, int cx, int cy, UINT flags);
BOOL GetWindowRect(HWND window, LPRECT rect);
BOOL GetClientRect(HWND window, LPRECT rect);
BOOL ScreenToClient(HWND window, LPPOINT point);
BOOL ClientToScreen(HWND window, LPPOINT point);
int MapWindowPoints(HWND from, HWND to, LPPOINT points, UINT count);
HDWP BeginDeferWindowPos(int numWindows);
HDWP DeferWindowPos(HDWP positions, HWND window, HWND insertAfter, int x, int y, int cx, int cy, UINT flags);
BOOL EndDeferWindowPos(HDWP positions);

// ---- Keyboard ---------------------------------------------------------------------------
constexpr int VK_SHIFT = 0x10;
constexpr int VK_CONTROL = 0x11;
constexpr int VK_MENU = 0x12;
constexpr int VK_CAPITAL = 0x14;
constexpr int VK_NUMLOCK = 0x90;
constexpr int VK_SCROLL = 0x91;
constexpr int VK_LSHIFT = 0xA0;
constexpr int VK_RSHIFT = 0xA1;
constexpr int VK_LCONTROL = 0xA2;
constexpr int VK_RCONTROL = 0xA3;
constexpr int VK_LMENU = 0xA4;
constexpr int VK_RMENU = 0xA5;

SHORT GetKeyState(int virtualKey);

// ---- Icons ------------------------------------------------------------------------------
constexpr UINT IMAGE_ICON = 1;
constexpr UINT LR_DEFAULTCOLOR = 0x0000;
constexpr UINT LR_DEFAULTSIZE = 0x0040;
constexpr UINT LR_SHARED = 0x8000;

HANDLE LoadImageW(HINSTANCE instance, LPCWSTR name, UINT type, int cx, int cy, UINT flags);
HICON LoadIconW(HINSTANCE instance, LPCWSTR name);
BOOL DestroyIcon(HICON icon);

// ---- Standard controls: button, static, combo box -------------------------------------
constexpr DWORD BS_PUSHBUTTON = 0x0000;
constexpr WORD BN_CLICKED = 0;

constexpr DWORD SS_LEFT = 0x0000;
constexpr DWORD SS_ICON = 0x0003;
constexpr DWORD SS_TYPEMASK = 0x001F;
constexpr DWORD SS_ETCHEDHORZ = 0x0010;
constexpr DWORD SS_REALSIZECONTROL = 0x0040;
constexpr DWORD SS_CENTERIMAGE = 0x0200;
constexpr DWORD SS_REALSIZEIMAGE = 0x0800;
constexpr UINT STM_SETICON = 0x0170;
constexpr UINT STM_GETICON = 0x0171;

constexpr DWORD CBS_DROPDOWNLIST = 0x0003;
constexpr DWORD CBS_SORT = 0x0100;
constexpr UINT CB_ADDSTRING = 0x0143;
constexpr UINT CB_GETCOUNT = 0x0146;
constexpr UINT CB_GETCURSEL = 0x0147;
constexpr UINT CB_GETLBTEXT = 0x0148;
constexpr UINT CB_GETLBTEXTLEN = 0x0149;
constexpr UINT CB_SETCURSEL = 0x014E;
constexpr LRESULT CB_ERR = -1;
constexpr WORD CBN_SELCHANGE = 1;
