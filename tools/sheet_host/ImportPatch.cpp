#include "tools/sheet_host/ImportPatch.h"

#include <cstring>

namespace {

template <typename T> T* at(HMODULE module, DWORD offset)
{
    return reinterpret_cast<T*>(reinterpret_cast<BYTE*>(module) + offset);
}

}  // namespace

ImportPatch::ImportPatch(HMODULE module, const std::string& dllName,
                         const std::vector<Replacement>& replacements)
{
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(module);
    if (module == nullptr || dos->e_magic != IMAGE_DOS_SIGNATURE) {
        return;
    }
    const auto* nt = at<const IMAGE_NT_HEADERS>(module, static_cast<DWORD>(dos->e_lfanew));
    const IMAGE_DATA_DIRECTORY& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (directory.VirtualAddress == 0) {
        return;
    }
    for (auto* descriptor = at<const IMAGE_IMPORT_DESCRIPTOR>(module, directory.VirtualAddress);
         descriptor->Name != 0; ++descriptor) {
        if (_stricmp(at<const char>(module, descriptor->Name), dllName.c_str()) != 0
            || descriptor->OriginalFirstThunk == 0) {
            continue;
        }
        // The name table and the address table run in step.
        const auto* names = at<const IMAGE_THUNK_DATA>(module, descriptor->OriginalFirstThunk);
        auto* addresses = at<IMAGE_THUNK_DATA>(module, descriptor->FirstThunk);
        for (; names->u1.AddressOfData != 0; ++names, ++addresses) {
            if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal)) {
                continue;
            }
            const auto* byName
                = at<const IMAGE_IMPORT_BY_NAME>(module, static_cast<DWORD>(names->u1.AddressOfData));
            for (const auto& [name, replacement] : replacements) {
                if (name != reinterpret_cast<const char*>(byName->Name)) {
                    continue;
                }
                auto** entry = reinterpret_cast<void**>(&addresses->u1.Function);
                void* original = *entry;
                if (write_(entry, const_cast<void*>(replacement))) {
                    slots_.push_back({entry, original});
                    names_.push_back(name);
                }
            }
        }
    }
}

ImportPatch::~ImportPatch()
{
    for (const Slot& slot : slots_) {
        write_(slot.entry, slot.original);
    }
}

bool ImportPatch::write_(void** entry, void* value)
{
    DWORD protection = 0;
    if (!VirtualProtect(entry, sizeof(void*), PAGE_READWRITE, &protection)) {
        return false;
    }
    std::memcpy(entry, &value, sizeof value);
    DWORD unused = 0;
    VirtualProtect(entry, sizeof(void*), protection, &unused);
    return true;
}
