#include "Variants.h"

#include <cstring>

namespace {

// The tags a service could plausibly give, and a few it couldn't.
const VARTYPE knownTags[] = {
    VT_EMPTY,  VT_NULL,     VT_I2,       VT_I4,        VT_R4,      VT_R8,          VT_CY,        VT_DATE,
    VT_BSTR,   VT_DISPATCH, VT_ERROR,    VT_BOOL,      VT_VARIANT, VT_UNKNOWN,     VT_DECIMAL,   15,
    VT_I1,     VT_UI1,      VT_UI2,      VT_UI4,       VT_I8,      VT_UI8,         VT_INT,       VT_UINT,
    VT_VOID,   VT_HRESULT,  VT_PTR,      VT_SAFEARRAY, VT_CARRAY,  VT_USERDEFINED, VT_LPSTR,     VT_LPWSTR,
    VT_RECORD, VT_INT_PTR,  VT_UINT_PTR, VT_FILETIME,  VT_BLOB,    VT_CLSID,       VT_BSTR_BLOB,
};

// Element types SafeArrayCreateVector knows.
const VARTYPE vectorTypes[]
    = {VT_I1,    VT_UI1, VT_I2,  VT_UI2, VT_BOOL, VT_I4,   VT_UI4,  VT_INT,     VT_UINT,     VT_R4,
       VT_ERROR, VT_I8,  VT_UI8, VT_R8,  VT_CY,   VT_DATE, VT_BSTR, VT_UNKNOWN, VT_DISPATCH, VT_VARIANT};

VARTYPE readTag(FuzzInput& in)
{
    const std::uint8_t mode = in.byte();
    if (mode >= 0xC0) {
        return in.u16();  // anything at all
    }
    auto tag = knownTags[mode % std::size(knownTags)];
    const std::uint8_t modifiers = in.byte();
    if ((modifiers & 0x0F) == 1) {
        tag = static_cast<VARTYPE>(tag | VT_BYREF);
    } else if ((modifiers & 0x0F) == 2) {
        tag = static_cast<VARTYPE>(tag | VT_ARRAY);
    } else if ((modifiers & 0x0F) == 3) {
        tag = static_cast<VARTYPE>(tag | VT_ARRAY | VT_BYREF);
    }
    return tag;
}

void fillPlain(FuzzInput& in, VARIANT& v)
{
    const std::uint64_t bits = in.u64();
    std::memcpy(&v.llVal, &bits, sizeof bits);
}

BSTR makeBstr(FuzzInput& in)
{
    if (in.byte() == 0xFF) {
        return nullptr;
    }
    const std::wstring text = in.wideText(48, true);
    return SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
}

wchar_t* arenaText(FuzzInput& in, VariantArena& arena)
{
    const std::wstring text = in.wideText(48);
    auto* out = static_cast<wchar_t*>(arena.bytes((text.size() + 1) * sizeof(wchar_t)));
    std::memcpy(out, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
    return out;
}

// What a by-reference tag points at, typed as the tag says.
void* byRefTarget(FuzzInput& in, VariantArena& arena, VARTYPE tag)
{
    if ((tag & VT_ARRAY) != 0) {
        auto* slot = static_cast<SAFEARRAY**>(arena.bytes(sizeof(void*)));
        *slot = nullptr;  // an array behind a reference is never read by the module's code
        return slot;
    }
    switch (tag & VT_TYPEMASK) {
    case VT_BSTR:
        return arena.bstrSlot(makeBstr(in));
    case VT_LPWSTR: {
        auto* slot = static_cast<wchar_t**>(arena.bytes(sizeof(wchar_t*)));
        *slot = arenaText(in, arena);
        return slot;
    }
    case VT_UNKNOWN:
    case VT_DISPATCH: {
        auto* slot = static_cast<IUnknown**>(arena.bytes(sizeof(void*)));
        *slot = arena.unknown();
        (*slot)->Release();  // a reference slot owns nothing: the arena keeps the object
        return slot;
    }
    case VT_VARIANT: {
        auto* inner = static_cast<VARIANT*>(arena.bytes(sizeof(VARIANT)));
        VariantInit(inner);
        return inner;
    }
    default: {
        // Room for the widest plain value (DECIMAL, CLSID) from the input.
        auto* target = static_cast<std::uint8_t*>(arena.bytes(16));
        for (int i = 0; i < 16; ++i) {
            target[i] = in.byte();
        }
        return target;
    }
    }
}

}  // namespace

VariantArena::~VariantArena()
{
    for (VARIANT& value : kept_) {
        endVariant(value);
    }
    for (BSTR text : bstrs_) {
        SysFreeString(text);
    }
}

void* VariantArena::bytes(std::size_t size)
{
    blocks_.emplace_back(new std::uint8_t[size == 0 ? 1 : size]());
    return blocks_.back().get();
}

BSTR* VariantArena::bstrSlot(BSTR text)
{
    bstrs_.push_back(text);
    auto* slot = static_cast<BSTR*>(bytes(sizeof(BSTR)));
    *slot = text;
    return slot;
}

IUnknown* VariantArena::unknown()
{
    unknowns_.push_back(std::make_unique<host::CountingUnknown>());
    return unknowns_.back().get();
}

sim::WmiService& freshService()
{
    static sim::WmiService service;
    service.clearFaults();
    service.clearCalls();
    return service;
}

SAFEARRAY* makeArray(FuzzInput& in, VariantArena& arena)
{
    const std::uint8_t kind = in.byte() % 3;
    if (kind == 0) {
        return nullptr;
    }
    if (kind == 1) {
        const VARTYPE type = vectorTypes[in.below(std::size(vectorTypes))];
        const auto lowerBound = static_cast<LONG>(in.byte()) - 128;
        const ULONG count = in.byte() % 17;
        SAFEARRAY* array = SafeArrayCreateVector(type, lowerBound, count);
        if (array == nullptr) {
            return nullptr;
        }
        if (type == VT_BSTR) {
            auto* strings = static_cast<BSTR*>(array->pvData);
            for (ULONG i = 0; i < count; ++i) {
                strings[i] = makeBstr(in);
            }
        } else if (type != VT_UNKNOWN && type != VT_DISPATCH && type != VT_VARIANT) {
            auto* data = static_cast<std::uint8_t*>(array->pvData);
            for (ULONG i = 0; i < count * array->cbElements; ++i) {
                data[i] = in.byte();
            }
        }
        return array;
    }
    // A descriptor the caller owns (FADF_STATIC): any element size, one to
    // three dimensions, data of exactly the size the bounds give.
    const USHORT dims = static_cast<USHORT>(1 + in.byte() % 3);
    const ULONG elementBytes = in.byte() % 17;
    std::vector<SAFEARRAYBOUND> bounds(dims);
    std::size_t elements = 1;
    for (auto& bound : bounds) {
        bound.cElements = in.byte() % 9;
        bound.lLbound = static_cast<LONG>(in.u32());
        elements *= bound.cElements;
    }
    const std::size_t descriptorBytes = sizeof(SAFEARRAY) + (dims - 1U) * sizeof(SAFEARRAYBOUND);
    auto* array = static_cast<SAFEARRAY*>(arena.bytes(descriptorBytes));
    array->cDims = dims;
    array->fFeatures = FADF_STATIC;
    array->cbElements = elementBytes;
    array->cLocks = 0;
    std::memcpy(reinterpret_cast<std::uint8_t*>(array->rgsabound), bounds.data(),
                dims * sizeof(SAFEARRAYBOUND));
    const std::size_t dataBytes = elements * elementBytes;
    auto* data = static_cast<std::uint8_t*>(arena.bytes(dataBytes));
    for (std::size_t i = 0; i < dataBytes; ++i) {
        data[i] = in.byte();
    }
    array->pvData = dataBytes == 0 && in.flag() ? nullptr : data;
    return array;
}

void endVariant(VARIANT& value)
{
    if (FAILED(VariantClear(&value)) && (value.vt & (VT_ARRAY | VT_BYREF)) == VT_ARRAY) {
        SafeArrayDestroy(value.parray);
        value.vt = VT_EMPTY;
    }
}

VARIANT makeVariant(FuzzInput& in, VariantArena& arena, IUnknown* object)
{
    VARIANT v{};
    VariantInit(&v);
    const VARTYPE tag = readTag(in);
    v.vt = tag;
    if ((tag & VT_BYREF) != 0) {
        v.byref = byRefTarget(in, arena, tag);
    } else if ((tag & VT_ARRAY) != 0) {
        v.parray = makeArray(in, arena);
    } else if (tag == VT_BSTR) {
        v.bstrVal = makeBstr(in);
    } else if (tag == VT_LPWSTR) {
        v.byref = arenaText(in, arena);
    } else if (tag == VT_UNKNOWN || tag == VT_DISPATCH) {
        if (object != nullptr) {
            object->AddRef();
            v.punkVal = object;
        } else {
            v.punkVal = in.flag() ? arena.unknown() : nullptr;
        }
    } else if (tag == VT_RECORD) {
        v.brecord.pvRecord = nullptr;
        v.brecord.pRecInfo = nullptr;
    } else {
        fillPlain(in, v);
    }
    return v;
}
