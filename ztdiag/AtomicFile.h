// Replaces a file's content at once, as a reader polling its folder needs:
// the new content goes to a file of its own beside it, is flushed, and is then
// renamed over the old one, so a reader opens the old content or the new one,
// never part of either. On failure the old file is left as it was, and so is
// no temporary file.
#pragma once

#include <string>

#include "platform.h"

struct FileReplaceError {
    DWORD code = 0;  // the platform's error code
    const wchar_t* step = L"";  // "create", "write" or "replace"
};

bool replaceFileContent(const std::wstring& path, const std::string& bytes, FileReplaceError& error);
