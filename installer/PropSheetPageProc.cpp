#include "installer/PropSheetPageProc.h"

#include "installer/ModuleRecord.h"
#include "nic/ZtNic.h"
#include "page_framework/PropertyPageBase.h"
#include "platform/Threading.h"
#include "trace/Trace.h"
#include "wmi/WbemServices.h"

namespace {

// The live adapter object, or a new one for the device of the latest request.
// Made under the record's lock, so two sheets never make two.
std::shared_ptr<ZtNic> sharedNicForNewPage()
{
    const std::lock_guard<SrwLock> guard(moduleRecord.lock);
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

// Forgets a created page; true if it was the last one of the calling thread.
bool pageReleased(LPARAM page)
{
    const std::lock_guard<SrwLock> guard(moduleRecord.lock);
    const auto found = moduleRecord.pageThreads.find(page);
    const DWORD thread = found != moduleRecord.pageThreads.end() ? found->second : 0;
    if (found != moduleRecord.pageThreads.end()) {
        moduleRecord.pageThreads.erase(found);
    }
    if (moduleRecord.pageThreads.empty()) {
        ZT_TRACE(4, "PropSheetPageProc(): all pages released");
    }
    if (thread == 0) {
        return false;  // never created: it made no WMI use
    }
    if (thread != GetCurrentThreadId()) {
        ZT_TRACE(1, "/!\\ PropSheetPageProc(): page released on another thread than its sheet's");
        return false;
    }
    for (const auto& other : moduleRecord.pageThreads) {
        if (other.second == thread) {
            return false;
        }
    }
    return true;
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
                const std::lock_guard<SrwLock> guard(moduleRecord.lock);
                moduleRecord.pageThreads[page->lParam] = GetCurrentThreadId();
            }
            return 1;
        }
        if (message == PSPCB_RELEASE && page != nullptr && page->lParam != 0) {
            delete reinterpret_cast<PropertyPageBase*>(page->lParam);
            if (pageReleased(page->lParam)) {
                // The thread is done with the service: its connection ends here,
                // not at the thread's end, which runs under the loader lock.
                endThreadWbemServices();
            }
        }
    } catch (...) {
        // Only allocation can throw; the sheet must not see it.
        ZT_TRACE(0, "[!] PropSheetPageProc(): out of memory");
    }
    return 0;
}
