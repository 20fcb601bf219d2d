// The module's one process-wide record. Sheets of two adapters may run on two
// threads of one process, so its fields are read and changed under `lock`; the
// reader is shared so that a replacement never deletes one in use. Its
// destructor is the clean-up that runs at module unload.
#pragma once

#include <map>
#include <memory>
#include <mutex>

#include "installer/DevPropertiesReader.h"
#include "platform.h"
#include "platform/Threading.h"

class ZtNic;

struct ModuleRecord {
    HINSTANCE moduleInstance = nullptr;
    SrwLock lock;
    // Reader of the device of the latest page request; replaced by each one.
    std::shared_ptr<DevPropertiesReader> deviceReader;
    // Pages between PSPCB_CREATE and PSPCB_RELEASE (by their lParam), with the
    // thread that created each: that thread's WMI use ends with its last page.
    std::map<LPARAM, DWORD> pageThreads;
    // The live adapter object, if any page holds one; never keeps it alive.
    std::weak_ptr<ZtNic> sharedNic;

    // The current reader, kept alive for the caller's use.
    std::shared_ptr<DevPropertiesReader> currentReader()
    {
        const std::lock_guard<SrwLock> guard(lock);
        return deviceReader;
    }
};

extern ModuleRecord moduleRecord;
