#include "ztpanel/CoInstallerModule.h"

CoInstallerModule::CoInstallerModule(const std::wstring& path)
    : name_(path.substr(path.find_last_of(L"\\/") + 1))
{
    module_ = LoadLibraryW(path.c_str());
    if (module_ == nullptr) {
        error_ = GetLastError();
        return;
    }
    // FARPROC is only a placeholder type: the export is a co-installer entry.
    entry_ = reinterpret_cast<Entry>(reinterpret_cast<void*>(GetProcAddress(module_, "CoDeviceInstall")));
    if (entry_ == nullptr) {
        error_ = GetLastError();
    }
}

CoInstallerModule::~CoInstallerModule()
{
    unload();
}

void CoInstallerModule::unload()
{
    if (module_ != nullptr) {
        FreeLibrary(module_);
        module_ = nullptr;
        entry_ = nullptr;
    }
}

bool CoInstallerModule::inProcess() const
{
    return GetModuleHandleW(name_.c_str()) != nullptr;
}
