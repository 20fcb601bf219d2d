// Any "pairs" value in the driver's diagRes object, above all arrays of any
// element size, dimensions, bounds, count and contents, through the cable
// test's parser: it reads only arrays of one dimension and 4-byte elements,
// one record per element, and stays inside the array's data.
#include <cstdint>
#include <cstring>
#include <vector>

#include "Check.h"
#include "FuzzInput.h"
#include "Variants.h"
#include "host/HostPlatform.h"
#include "nic/ZtNic.h"
#include "trace/Trace.h"
#include "wmi/WbemClassObject.h"

namespace {

// True if the parser is to accept `pairs`; then `words` are its elements.
bool expectedWords(const variant& pairs, std::vector<std::uint32_t>& words)
{
    const VARIANT& v = pairs.get();
    if (v.vt == VT_EMPTY || (v.vt & VT_ARRAY) == 0 || (v.vt & VT_BYREF) != 0 || v.parray == nullptr
        || v.parray->cDims != 1 || v.parray->cbElements != 4) {
        return false;
    }
    const ULONG count = v.parray->rgsabound[0].cElements;
    words.resize(count);
    if (count != 0) {
        std::memcpy(words.data(), v.parray->pvData, count * sizeof(std::uint32_t));
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput in(data, size);
    const std::uint8_t mode = in.byte();
    traceLevel = (mode & 0x80) != 0 ? 1 : 0;
    VariantArena arena;
    sim::WmiService& service = freshService();
    sim::Object made{L"Zt_CableDiagResult", {}};
    const auto add = [&](const std::wstring& name, const VARIANT& value) {
        arena.keep(value);
        made.properties.emplace_back(name, sim::Value::raw(value));
    };
    const std::size_t others = in.byte() % 4;
    for (std::size_t i = 0; i < others; ++i) {
        const std::wstring name = in.wideText(8);
        add(name, makeVariant(in, arena));
    }
    if ((mode & 0x03) == 0) {
        add(L"pairs", makeVariant(in, arena));  // any tag
    } else if ((mode & 0x03) != 3) {
        VARIANT pairs{};
        VariantInit(&pairs);
        pairs.vt = static_cast<VARTYPE>(VT_ARRAY | ((mode & 0x03) == 1 ? VT_I4 : in.u16() & VT_TYPEMASK));
        pairs.parray = makeArray(in, arena);
        add(L"pairs", pairs);
    }
    if ((mode & 0x04) != 0) {
        const int given = in.byte() % 4;
        const HRESULT end = in.flag() ? WBEM_E_FAILED : WBEM_S_FALSE;
        service.injectFault(sim::Fault::on("Next", end).forTarget(made.className).fromCall(given + 1));
    }
    IWbemClassObject* diagRes = service.makeObject(made);

    std::vector<ZtPairInfo> results(in.byte() % 3, ZtPairInfo(9, 0xFFFFFFFFU));
    const std::vector<ZtPairInfo> before = results;
    {
        const WbemClassObject object(diagRes, false);
        std::vector<std::uint32_t> words;
        const bool expected = expectedWords(object[L"pairs"], words);
        const bool parsed = parseDiagResult(object, results);
        fuzzCheck(parsed == expected, "only one-dimensional arrays of 4-byte elements are read");
        fuzzCheck(results.size() == before.size() + (parsed ? words.size() : 0), "one record per element");
        for (std::size_t i = 0; i < results.size(); ++i) {
            const ZtPairInfo& got = results[i];
            if (i < before.size()) {
                fuzzCheck(got.pairIndex == 9 && got.status == 0xFF, "records already there stay");
                continue;
            }
            const std::uint32_t word = words[i - before.size()];
            fuzzCheck(got.pairIndex == static_cast<std::int32_t>(i - before.size()),
                      "the index is the position");
            fuzzCheck(got.status == (word & 0xFF) && got.distance == ((word >> 8) & 0xFF)
                          && got.farthestDistance == ((word >> 16) & 0xFF) && got.reserved == (word >> 24),
                      "the record holds the element's bytes, lowest first");
        }
    }
    host::clearDebugOutput();
    return 0;
}
