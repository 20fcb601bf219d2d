// What the host sees of the module through some of its imports, for the
// output only: the lines it hands to OutputDebugStringA; the life of the sheet
// pages it creates through the late-bound CreatePropertySheetPageW (the size
// of each description, and each page's callback wrapped to count PSPCB_CREATE
// and PSPCB_RELEASE before the module's own callback runs); the icons it loads
// with LoadImageW and gives back with DestroyIcon.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tools/sheet_host/ImportPatch.h"
#include "tools/sheet_host/Win32.h"

class ModuleSpy {
public:
    struct PageCounts {
        int made = 0;  // sheet pages the module created
        int created = 0;  // PSPCB_CREATE seen
        int released = 0;  // PSPCB_RELEASE seen
        std::vector<UINT> descriptionSizes;  // each size the module gave, in the order first seen
    };

    struct IconCounts {
        int loaded = 0;  // icons of its own (not LR_SHARED) that LoadImageW gave
        int destroyed = 0;  // of those, the ones DestroyIcon took back
    };

    // Patches `module`'s imports of OutputDebugStringA, GetProcAddress,
    // LoadImageW and DestroyIcon. One spy at a time; it must end before the
    // module is unloaded.
    explicit ModuleSpy(HMODULE module);
    ~ModuleSpy();
    ModuleSpy(const ModuleSpy&) = delete;
    ModuleSpy& operator=(const ModuleSpy&) = delete;

    const std::vector<std::string>& patched() const { return patch_->patched(); }
    // Trace lines since the last call, in order, without the " @function+line" suffix.
    std::vector<std::string> takeTraceLines();
    PageCounts pageCounts() const;
    IconCounts iconCounts() const;

private:
    std::unique_ptr<ImportPatch> patch_;
    std::unique_ptr<ImportPatch> user32_;
};
