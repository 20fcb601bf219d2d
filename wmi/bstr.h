// Owner of one BSTR (which may be null), freed with SysFreeString.
#pragma once

#include "platform.h"

class bstr {
public:
    bstr() = default;
    explicit bstr(const wchar_t* text) : s_(SysAllocString(text)) { }
    bstr(const bstr&) = delete;
    bstr& operator=(const bstr&) = delete;
    ~bstr() { SysFreeString(s_); }

    BSTR get() const { return s_; }
    // Frees what was held and hands out the slot for a call that fills it.
    BSTR* put()
    {
        SysFreeString(s_);
        s_ = nullptr;
        return &s_;
    }

    // By code units, with case, up to the first difference or zero; a null
    // string reads as empty.
    bool operator==(const wchar_t* text) const;
    bool operator!=(const wchar_t* text) const { return !(*this == text); }

private:
    BSTR s_ = nullptr;
};
