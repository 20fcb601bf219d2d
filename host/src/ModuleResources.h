// Internal: the module's resources as the DLL carries them, read from the .res
// that the build compiles from resources/ztprop.rc and embeds in this library.
#pragma once

#include <string>
#include <vector>

#include "platform.h"

namespace host {

constexpr WORD rtIcon = 3;
constexpr WORD rtDialog = 5;
constexpr WORD rtGroupIcon = 14;

// A class, title or menu of a template: a string or, if `isOrdinal`, a number.
struct NameOrOrdinal {
    bool isOrdinal = false;
    WORD ordinal = 0;
    std::wstring text;
};

struct DialogItemTemplate {
    DWORD helpId = 0;
    DWORD exStyle = 0;
    DWORD style = 0;
    short x = 0;
    short y = 0;
    short cx = 0;
    short cy = 0;
    DWORD id = 0;
    NameOrOrdinal windowClass;
    NameOrOrdinal title;
    std::vector<BYTE> extra;
};

// An extended dialog template (DLGTEMPLATEEX) and its items, in template order.
struct DialogTemplate {
    DWORD helpId = 0;
    DWORD exStyle = 0;
    DWORD style = 0;
    short x = 0;
    short y = 0;
    short cx = 0;
    short cy = 0;
    NameOrOrdinal menu;
    NameOrOrdinal windowClass;
    std::wstring title;
    WORD pointSize = 0;
    WORD weight = 0;
    BYTE italic = 0;
    BYTE charset = 0;
    std::wstring typeface;
    std::vector<DialogItemTemplate> items;
};

// One image of an icon group (GRPICONDIRENTRY); 0 in the directory means 256.
struct IconImageEntry {
    int width = 0;
    int height = 0;
    int bitCount = 0;
    WORD iconId = 0;
};

// Finds resources as FindResourceW does: ERROR_RESOURCE_TYPE_NOT_FOUND when the
// module has no resource of the type, ERROR_RESOURCE_NAME_NOT_FOUND when it has
// none of the name. Both answer false and leave the error for GetLastError.
bool findDialogTemplate(WORD id, DialogTemplate& dialog);
bool findIconGroup(WORD id, std::vector<IconImageEntry>& images);

}  // namespace host
