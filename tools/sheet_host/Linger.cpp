#include "tools/sheet_host/Linger.h"

#include "tests/wine/linger/linger.h"
#include "tools/sheet_host/LoaderLock.h"

namespace {

BOOL WINAPI loaderLockProbe()
{
    return holdsLoaderLock() ? TRUE : FALSE;
}

template <typename Function> Function exported(HMODULE module, const char* name)
{
    // FARPROC is only a placeholder type.
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

}  // namespace

Linger::Linger(std::chrono::milliseconds delay)
{
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring file(path);
    file = file.substr(0, file.find_last_of(L"\\/") + 1) + L"linger.dll";
    module_ = LoadLibraryW(file.c_str());
    if (module_ == nullptr) {
        error_ = "LoadLibraryW failed, code " + std::to_string(GetLastError());
        return;
    }
    const auto setDelay = exported<LingerSetDetachDelay>(module_, "lingerSetDetachDelay");
    const auto setProbe = exported<LingerSetProbe>(module_, "lingerSetProbe");
    counts_ = GetProcAddress(module_, "lingerCounts");
    if (setDelay == nullptr || setProbe == nullptr || counts_ == nullptr) {
        error_ = "an export is missing";
        return;
    }
    setProbe(loaderLockProbe);
    setDelay(static_cast<DWORD>(delay.count()));
}

Linger::~Linger()
{
    if (module_ != nullptr) {
        FreeLibrary(module_);
    }
}

Linger::Counts Linger::counts() const
{
    LONG probed = 0;
    LONG held = 0;
    if (counts_ != nullptr) {
        reinterpret_cast<LingerCounts>(reinterpret_cast<void*>(counts_))(&probed, &held);
    }
    return {probed, held};
}
