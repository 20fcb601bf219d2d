#include "diag_page/DiagPageFactory.h"

#include "diag_page/ZethoriaDiagPage.h"
#include "trace/Trace.h"

std::unique_ptr<PropertyPageBase> createDiagPage()
{
    try {
        return std::make_unique<ZethoriaDiagPage>();
    } catch (...) {
        // Only allocation can throw; the installer reports the missing page.
        ZT_TRACE(0, "[!] createDiagPage(): out of memory");
        return nullptr;
    }
}
