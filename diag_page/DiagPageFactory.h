// Makes the diagnostics page object for a listed adapter.
#pragma once

#include <memory>

#include "page_framework/PropertyPageBase.h"

// A new page object whose sheet page may or may not exist (see pageHandle());
// null if no object could be made.
std::unique_ptr<PropertyPageBase> createDiagPage();
