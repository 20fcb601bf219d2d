// Any text as "XmitLinkSpeed": the parse must stay inside the text and give
// the plain unsigned decimal value, or 0 for no digits and for an overflow.
#include <cstdint>
#include <string>

#include "Check.h"
#include "FuzzInput.h"
#include "ndis/NdisWmi.h"
#include "platform.h"

namespace {

std::uint64_t expectedSpeed(const std::wstring& text)
{
    std::size_t i = text.find_first_not_of(L" \t");
    if (i == std::wstring::npos || text[i] < L'0' || text[i] > L'9') {
        return 0;
    }
    unsigned __int128 value = 0;
    for (; i < text.size() && text[i] >= L'0' && text[i] <= L'9'; ++i) {
        value = value * 10 + static_cast<unsigned>(text[i] - L'0');
        if (value > UINT64_MAX) {
            return 0;
        }
    }
    return static_cast<std::uint64_t>(value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput in(data, size);
    // As the service hands it over: a BSTR, exactly as long as its text.
    const std::wstring text = in.wideText(64);
    BSTR value = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    fuzzCheck(value != nullptr, "the string is allocated");
    const std::uint64_t speed = parseLinkSpeed(value);
    SysFreeString(value);
    fuzzCheck(speed == expectedSpeed(text), "the speed is the text's decimal value");
    return 0;
}
