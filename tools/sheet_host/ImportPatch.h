// Points a loaded module's import-table entries for named functions of one DLL
// at replacements, and back at the originals when it ends. A test host's way to
// stand in for a system DLL without changing the module under test.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tools/sheet_host/Win32.h"

class ImportPatch {
public:
    using Replacement = std::pair<std::string, const void*>;  // function name, new address

    // Patches `module`'s entries for `replacements` among its imports from
    // `dllName` (compared ignoring case). The module must outlive this object
    // unless the replacements stay (keepInPlace).
    ImportPatch(HMODULE module, const std::string& dllName, const std::vector<Replacement>& replacements);
    ~ImportPatch();
    ImportPatch(const ImportPatch&) = delete;
    ImportPatch& operator=(const ImportPatch&) = delete;

    // Names of the replacements that were patched, in the order given.
    const std::vector<std::string>& patched() const { return names_; }
    // Leaves the replacements in place when this object ends: they then last
    // as long as the module, which need not outlive this object any more.
    void keepInPlace() { slots_.clear(); }

private:
    struct Slot {
        void** entry;
        void* original;
    };
    static bool write_(void** entry, void* value);

    std::vector<Slot> slots_;
    std::vector<std::string> names_;
};
