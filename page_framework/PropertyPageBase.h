// Base of a property sheet page object. Once its page handle has gone to the
// installer, the sheet page owns the object and deletes it on release.
#pragma once

#include "platform.h"

class PropertyPageBase {
public:
    PropertyPageBase() = default;
    PropertyPageBase(const PropertyPageBase&) = delete;
    PropertyPageBase& operator=(const PropertyPageBase&) = delete;
    virtual ~PropertyPageBase() = default;

    // The sheet page, or null if it could not be created.
    HPROPSHEETPAGE pageHandle() const { return pageHandle_; }

protected:
    HPROPSHEETPAGE pageHandle_ = nullptr;
};
