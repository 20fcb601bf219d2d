#include "wmi/bstr.h"

bool bstr::operator==(const wchar_t* text) const
{
    const wchar_t* a = s_ != nullptr ? s_ : L"";
    const wchar_t* b = text != nullptr ? text : L"";
    while (*a != 0 && *a == *b) {
        ++a;
        ++b;
    }
    return *a == *b;
}
