// Saves what the screen shows of a window as a 32-bit BMP file.
#pragma once

#include <string>

#include "tools/sheet_host/Win32.h"

// Copies the window's rectangle from the screen (so child windows and other
// threads' drawing are in it, as a person sees it); false if it can't be written.
bool saveWindowBitmap(HWND window, const std::wstring& path);
