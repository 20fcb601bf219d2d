// Windows and messages of the host platform layer: window slots and posted
// messages, enough for a dialog procedure and its hand-over from other threads.
#pragma once

#include "win32/base.h"

constexpr UINT WM_SIZE = 0x0005;
constexpr UINT WM_NOTIFY = 0x004E;
constexpr UINT WM_HELP = 0x0053;
constexpr UINT WM_CONTEXTMENU = 0x007B;
constexpr UINT WM_INITDIALOG = 0x0110;
constexpr UINT WM_COMMAND = 0x0111;
constexpr UINT WM_TIMER = 0x0113;
constexpr UINT WM_USER = 0x0400;

constexpr int GWL_EXSTYLE = -20;
constexpr int DWLP_USER = 16;  // sizeof(LRESULT) + sizeof(DLGPROC)
constexpr LONG WS_EX_COMPOSITED = 0x02000000;
constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;

inline LPCWSTR MAKEINTRESOURCEW(WORD id)
{
    return reinterpret_cast<LPCWSTR>(static_cast<ULONG_PTR>(id));
}
inline WORD LOWORD(ULONG_PTR value)
{
    return static_cast<WORD>(value & 0xFFFF);
}
inline WORD HIWORD(ULONG_PTR value)
{
    return static_cast<WORD>((value >> 16) & 0xFFFF);
}

BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
LONG_PTR GetWindowLongPtrW(HWND window, int index);
LONG_PTR SetWindowLongPtrW(HWND window, int index, LONG_PTR value);
LONG SetWindowLongW(HWND window, int index, LONG value);
