// The module's one process-wide record. Its destructor is the clean-up that
// runs at module unload.
#pragma once

#include <cstdint>
#include <memory>

#include "installer/DevPropertiesReader.h"
#include "platform.h"

struct ModuleRecord {
    HINSTANCE moduleInstance = nullptr;
    // Reader of the device of the latest page request; replaced by each one.
    std::unique_ptr<DevPropertiesReader> deviceReader;
    // Pages between PSPCB_CREATE and PSPCB_RELEASE.
    std::uint32_t pageCount = 0;
};

extern ModuleRecord moduleRecord;
