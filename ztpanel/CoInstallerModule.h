// A co-installer DLL loaded as the device installer loads one: LoadLibraryW,
// then its CoDeviceInstall export by name; FreeLibrary when it ends.
#pragma once

#include <string>

#include "platform.h"

class CoInstallerModule {
public:
    using Entry = DWORD(CALLBACK*)(DI_FUNCTION, HDEVINFO, PSP_DEVINFO_DATA, PCOINSTALLER_CONTEXT_DATA);

    explicit CoInstallerModule(const std::wstring& path);
    ~CoInstallerModule();  // unload()
    CoInstallerModule(const CoInstallerModule&) = delete;
    CoInstallerModule& operator=(const CoInstallerModule&) = delete;

    HMODULE handle() const { return module_; }
    Entry entry() const { return entry_; }
    // GetLastError of a failed load or look-up; 0 when both worked.
    DWORD error() const { return error_; }
    // FreeLibrary, once.
    void unload();
    // Whether a module of the DLL's name is in the process (a thread may pin it).
    bool inProcess() const;

private:
    std::wstring name_;
    HMODULE module_ = nullptr;
    Entry entry_ = nullptr;
    DWORD error_ = 0;
};
