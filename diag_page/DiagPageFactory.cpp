#include "diag_page/DiagPageFactory.h"

std::unique_ptr<PropertyPageBase> createDiagPage()
{
    // The diagnostics page is not built yet: a listed adapter gets no page and
    // the installer is told so.
    return nullptr;
}
