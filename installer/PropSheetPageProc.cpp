#include "installer/PropSheetPageProc.h"

#include "installer/ModuleRecord.h"
#include "nic/ZtNic.h"
#include "page_framework/PropertyPageBase.h"
#include "trace/Trace.h"

namespace {

// The live adapter object, or a new one for the device of the latest request.
// Made under the record's lock, so two sheets never make two.
std::shared_ptr<ZtNic> sharedNicForNewPage()
{
    const std::lock_guard<std::mutex> guard(moduleRecord.lock);
    if (std::shared_ptr<ZtNic> live = moduleRecord.sharedNic.lock()) {
        return live;
    }
    const std::shared_ptr<DevPropertiesReader> reader = moduleRecord.deviceReader;
    const DWORD problemCode = reader ? reader->getProblemCode() : 0xFFFFFFFF;
    ZT_TRACE(4, "PropSheetPageProc(): DEVPKEY_Device_ProblemCode %u", problemCode);
    ZT_TRACE(4, "PropSheetPageProc(): Creating ZtNic");
    const std::wstring name = reader ? reader->getAdapterName() : std::wstring();
    auto nic = std::make_shared<ZtNic>(name, problemCode == 0);
    moduleRecord.sharedNic = nic;
    return nic;
}

}  // namespace

UINT CALLBACK PropSheetPageProc(HWND /*window*/, UINT message, LPPROPSHEETPAGEW page)
{
    ZT_TRACE(4, "PropSheetPageProc() called, msg = %u", message);
    try {
        if (message == PSPCB_CREATE) {
            std::shared_ptr<ZtNic> nic = sharedNicForNewPage();
            if (page != nullptr && page->lParam != 0) {
                reinterpret_cast<PropertyPageBase*>(page->lParam)->setNic(std::move(nic));
            }
            const std::lock_guard<std::mutex> guard(moduleRecord.lock);
            ++moduleRecord.pageCount;
            return 1;
        }
        if (message == PSPCB_RELEASE) {
            if (page != nullptr && page->lParam != 0) {
                delete reinterpret_cast<PropertyPageBase*>(page->lParam);
            }
            const std::lock_guard<std::mutex> guard(moduleRecord.lock);
            if (moduleRecord.pageCount != 0 && --moduleRecord.pageCount > 0) {
                return 0;
            }
            ZT_TRACE(4, "PropSheetPageProc(): all pages released");
            return 0;
        }
    } catch (...) {
        // Only allocation can throw; the sheet must not see it.
        ZT_TRACE(0, "[!] PropSheetPageProc(): out of memory");
    }
    return 0;
}
