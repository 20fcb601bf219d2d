// Automation memory with the platform's layouts: BSTRs behind their byte
// length, VARIANT clear and copy, and SAFEARRAYs allocated as one block of
// hidden type header, descriptor and data, as SafeArrayCreateVector does.
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <utility>

#include "HostState.h"
#include "host/HostPlatform.h"

namespace {

// ---- BSTR --------------------------------------------------------------------
using BstrPrefix = std::uint32_t;  // the length in bytes, right before the text

BYTE* bstrBlock(BSTR text)
{
    return reinterpret_cast<BYTE*>(text) - sizeof(BstrPrefix);
}

BSTR allocBstr(const OLECHAR* text, std::size_t length)
{
    // The byte length must fit the prefix, as on the platform.
    constexpr std::size_t maxLength = (0xFFFFFFFFU - sizeof(BstrPrefix) - sizeof(OLECHAR)) / sizeof(OLECHAR);
    if (length > maxLength) {
        return nullptr;
    }
    const std::size_t bytes = length * sizeof(OLECHAR);
    auto* block = static_cast<BYTE*>(std::malloc(sizeof(BstrPrefix) + bytes + sizeof(OLECHAR)));
    if (block == nullptr) {
        return nullptr;
    }
    const auto prefix = static_cast<BstrPrefix>(bytes);
    std::memcpy(block, &prefix, sizeof prefix);
    auto* chars = reinterpret_cast<OLECHAR*>(block + sizeof prefix);
    if (text != nullptr) {
        std::memcpy(chars, text, bytes);
    } else {
        std::memset(chars, 0, bytes);
    }
    chars[length] = 0;
    ++host::state().liveBstrs;
    return chars;
}

// ---- VARIANT -----------------------------------------------------------------
// The tags VariantClear and VariantCopy accept on the platform, less VT_RECORD
// by value: records need IRecordInfo, which this layer does not have.
bool knownTag(VARTYPE vt)
{
    const auto base = static_cast<VARTYPE>(vt & VT_TYPEMASK);
    const auto extra = static_cast<VARTYPE>(vt & ~VT_TYPEMASK);
    if ((extra & ~(VT_ARRAY | VT_BYREF)) != 0 || (extra != 0 && base <= VT_NULL)) {
        return false;
    }
    if (base <= VT_UINT) {
        return base != 15;  // the hole between VT_DECIMAL and VT_I1
    }
    return base == VT_CLSID || (base == VT_RECORD && (extra & VT_BYREF) != 0);
}

bool holdsInterface(VARTYPE vt)
{
    return vt == VT_UNKNOWN || vt == VT_DISPATCH;
}

// ---- SAFEARRAY ---------------------------------------------------------------
// The platform's mark of a descriptor that carries its data in the same block.
constexpr USHORT createVector = 0x2000;
// Before the descriptor: an IID (FADF_HAVEIID), or a VARTYPE in the last four
// bytes (FADF_HAVEVARTYPE).
constexpr std::size_t hiddenBytes = 16;
constexpr USHORT callerOwned = FADF_AUTO | FADF_STATIC | FADF_EMBEDDED;
constexpr USHORT elementOwning = FADF_BSTR | FADF_UNKNOWN | FADF_DISPATCH | FADF_VARIANT;
constexpr ULONG maxLocks = 0xFFFF;
constexpr IID iidIDispatch = {0x00020400, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

ULONG elementSize(VARTYPE vt)
{
    switch (vt) {
    case VT_I1:
    case VT_UI1:
        return 1;
    case VT_I2:
    case VT_UI2:
    case VT_BOOL:
        return 2;
    case VT_I4:
    case VT_UI4:
    case VT_INT:
    case VT_UINT:
    case VT_R4:
    case VT_ERROR:
        return 4;
    case VT_I8:
    case VT_UI8:
    case VT_R8:
    case VT_CY:
    case VT_DATE:
        return 8;
    case VT_BSTR:
    case VT_UNKNOWN:
    case VT_DISPATCH:
        return sizeof(void*);
    case VT_VARIANT:
        return sizeof(VARIANT);
    default:
        return 0;
    }
}

BYTE* arrayBlock(SAFEARRAY* array)
{
    return reinterpret_cast<BYTE*>(array) - hiddenBytes;
}

// Bounds are stored last dimension first. Read through bytes: the declared
// bound array has one entry only.
SAFEARRAYBOUND boundAt(const SAFEARRAYBOUND* stored, std::size_t index)
{
    SAFEARRAYBOUND bound{};
    std::memcpy(&bound, reinterpret_cast<const BYTE*>(stored) + index * sizeof bound, sizeof bound);
    return bound;
}

// Elements over all dimensions; false when the count or its bytes overflow.
bool countElements(USHORT dims, const SAFEARRAYBOUND* stored, ULONG elementBytes, std::size_t* count)
{
    constexpr std::size_t limit = 0x7FFFFFFFU;
    std::size_t total = 1;
    for (std::size_t i = 0; i < dims; ++i) {
        const std::size_t extent = boundAt(stored, i).cElements;
        if (extent != 0 && total > limit / extent) {
            return false;
        }
        total *= extent;
    }
    if (elementBytes != 0 && total > limit / elementBytes) {
        return false;
    }
    *count = total;
    return true;
}

bool countElements(const SAFEARRAY* array, std::size_t* count)
{
    return countElements(array->cDims, array->rgsabound, array->cbElements, count);
}

// One zeroed block: hidden header, descriptor with `dims` bounds, data.
SAFEARRAY* allocateArray(USHORT dims, const SAFEARRAYBOUND* stored, ULONG elementBytes)
{
    std::size_t count = 0;
    if (dims == 0 || !countElements(dims, stored, elementBytes, &count)) {
        return nullptr;
    }
    const std::size_t descriptor = sizeof(SAFEARRAY) + (dims - 1U) * sizeof(SAFEARRAYBOUND);
    const std::size_t dataOffset = (hiddenBytes + descriptor + 15U) & ~std::size_t{15U};
    auto* block = static_cast<BYTE*>(std::calloc(1, dataOffset + count * elementBytes));
    if (block == nullptr) {
        return nullptr;
    }
    auto* array = reinterpret_cast<SAFEARRAY*>(block + hiddenBytes);
    array->cDims = dims;
    array->fFeatures = createVector;
    array->cbElements = elementBytes;
    array->pvData = block + dataOffset;
    std::memcpy(reinterpret_cast<BYTE*>(array->rgsabound), stored, dims * sizeof(SAFEARRAYBOUND));
    ++host::state().liveSafeArrays;
    return array;
}

ULONG locksOf(const SAFEARRAY* array)
{
    return __atomic_load_n(&array->cLocks, __ATOMIC_ACQUIRE);
}

// Frees, releases or clears what the elements own, leaving them empty.
void clearElements(SAFEARRAY* array)
{
    std::size_t count = 0;
    if ((array->fFeatures & elementOwning) == 0 || array->pvData == nullptr
        || !countElements(array, &count)) {
        return;
    }
    if ((array->fFeatures & FADF_BSTR) != 0) {
        auto* strings = static_cast<BSTR*>(array->pvData);
        for (std::size_t i = 0; i < count; ++i) {
            SysFreeString(std::exchange(strings[i], nullptr));
        }
    } else if ((array->fFeatures & (FADF_UNKNOWN | FADF_DISPATCH)) != 0) {
        auto* objects = static_cast<IUnknown**>(array->pvData);
        for (std::size_t i = 0; i < count; ++i) {
            if (IUnknown* object = std::exchange(objects[i], nullptr)) {
                object->Release();
            }
        }
    } else {
        auto* values = static_cast<VARIANT*>(array->pvData);
        for (std::size_t i = 0; i < count; ++i) {
            VariantClear(&values[i]);
        }
    }
}

struct DestroyArray {
    void operator()(SAFEARRAY* array) const { SafeArrayDestroy(array); }
};
using ArrayOwner = std::unique_ptr<SAFEARRAY, DestroyArray>;

// Fills `copy` (same shape, zeroed data) with a deep copy of the elements.
HRESULT copyElements(SAFEARRAY* source, SAFEARRAY* copy)
{
    std::size_t count = 0;
    if (source->pvData == nullptr || !countElements(source, &count)) {
        return E_INVALIDARG;
    }
    if ((source->fFeatures & FADF_BSTR) != 0) {
        const auto* from = static_cast<const BSTR*>(source->pvData);
        auto* to = static_cast<BSTR*>(copy->pvData);
        for (std::size_t i = 0; i < count; ++i) {
            if (from[i] != nullptr && (to[i] = allocBstr(from[i], SysStringLen(from[i]))) == nullptr) {
                return E_OUTOFMEMORY;
            }
        }
    } else if ((source->fFeatures & FADF_VARIANT) != 0) {
        const auto* from = static_cast<const VARIANT*>(source->pvData);
        auto* to = static_cast<VARIANT*>(copy->pvData);
        for (std::size_t i = 0; i < count; ++i) {
            const HRESULT hr = VariantCopy(&to[i], &from[i]);
            if (FAILED(hr)) {
                return hr;
            }
        }
    } else {
        std::memcpy(copy->pvData, source->pvData, count * source->cbElements);
        if ((source->fFeatures & (FADF_UNKNOWN | FADF_DISPATCH)) != 0) {
            for (std::size_t i = 0; i < count; ++i) {
                if (IUnknown* object = static_cast<IUnknown**>(copy->pvData)[i]) {
                    object->AddRef();
                }
            }
        }
    }
    return S_OK;
}

}  // namespace

BSTR SysAllocString(const OLECHAR* text)
{
    return text != nullptr ? allocBstr(text, std::wcslen(text)) : nullptr;
}

BSTR SysAllocStringLen(const OLECHAR* text, UINT length)
{
    return allocBstr(text, length);
}

void SysFreeString(BSTR text)
{
    if (text != nullptr) {
        --host::state().liveBstrs;
        std::free(bstrBlock(text));
    }
}

UINT SysStringLen(BSTR text)
{
    if (text == nullptr) {
        return 0;
    }
    BstrPrefix bytes = 0;
    std::memcpy(&bytes, bstrBlock(text), sizeof bytes);
    return static_cast<UINT>(bytes / sizeof(OLECHAR));
}

void VariantInit(VARIANT* value)
{
    if (value != nullptr) {
        value->vt = VT_EMPTY;
    }
}

HRESULT VariantClear(VARIANT* value)
{
    if (value == nullptr) {
        return E_INVALIDARG;
    }
    const VARTYPE vt = value->vt;
    if (!knownTag(vt)) {
        return DISP_E_BADVARTYPE;
    }
    if ((vt & VT_BYREF) == 0) {
        if ((vt & VT_ARRAY) != 0) {
            // A locked array stays where it is rather than leak.
            const HRESULT hr = SafeArrayDestroy(value->parray);
            if (FAILED(hr)) {
                return hr;
            }
        } else if (vt == VT_BSTR) {
            SysFreeString(value->bstrVal);
        } else if (holdsInterface(vt) && value->punkVal != nullptr) {
            value->punkVal->Release();
        }
    }
    value->vt = VT_EMPTY;
    return S_OK;
}

HRESULT VariantCopy(VARIANT* destination, const VARIANT* source)
{
    if (destination == nullptr || source == nullptr) {
        return E_INVALIDARG;
    }
    if (!knownTag(source->vt)) {
        return DISP_E_BADVARTYPE;
    }
    if (destination == source) {
        return S_OK;
    }
    HRESULT hr = VariantClear(destination);
    if (FAILED(hr)) {
        return hr;
    }
    VARIANT copy = *source;  // plain values and by-ref pointers as they are
    const VARTYPE vt = source->vt;
    if ((vt & VT_BYREF) == 0) {
        if ((vt & VT_ARRAY) != 0) {
            hr = SafeArrayCopy(source->parray, &copy.parray);
        } else if (vt == VT_BSTR && source->bstrVal != nullptr) {
            copy.bstrVal = allocBstr(source->bstrVal, SysStringLen(source->bstrVal));
            hr = copy.bstrVal != nullptr ? S_OK : E_OUTOFMEMORY;
        } else if (holdsInterface(vt) && source->punkVal != nullptr) {
            source->punkVal->AddRef();
        }
    }
    if (SUCCEEDED(hr)) {
        *destination = copy;
    }
    return hr;
}

SAFEARRAY* SafeArrayCreateVector(VARTYPE type, LONG lowerBound, ULONG elements)
{
    const ULONG size = elementSize(type);
    if (size == 0) {
        return nullptr;
    }
    const SAFEARRAYBOUND bound{elements, lowerBound};
    SAFEARRAY* array = allocateArray(1, &bound, size);
    if (array == nullptr) {
        return nullptr;
    }
    BYTE* hidden = arrayBlock(array);
    if (holdsInterface(type)) {
        const IID& iid = type == VT_DISPATCH ? iidIDispatch : IID_IUnknown;
        std::memcpy(hidden, &iid, sizeof iid);
        array->fFeatures |= FADF_HAVEIID | (type == VT_DISPATCH ? FADF_DISPATCH : FADF_UNKNOWN);
    } else {
        const DWORD stored = type;
        std::memcpy(hidden + hiddenBytes - sizeof stored, &stored, sizeof stored);
        array->fFeatures |= FADF_HAVEVARTYPE;
        if (type == VT_BSTR) {
            array->fFeatures |= FADF_BSTR;
        } else if (type == VT_VARIANT) {
            array->fFeatures |= FADF_VARIANT;
        }
    }
    return array;
}

HRESULT SafeArrayDestroy(SAFEARRAY* array)
{
    if (array == nullptr) {
        return S_OK;
    }
    if (locksOf(array) > 0) {
        return DISP_E_ARRAYISLOCKED;
    }
    clearElements(array);
    // Descriptors the caller declared are the caller's; ours are one block.
    if ((array->fFeatures & callerOwned) == 0 && (array->fFeatures & createVector) != 0) {
        --host::state().liveSafeArrays;
        std::free(arrayBlock(array));
    }
    return S_OK;
}

namespace {
HRESULT getBound(SAFEARRAY* array, UINT dimension, LONG* bound, bool upper)
{
    if (array == nullptr || bound == nullptr) {
        return E_INVALIDARG;
    }
    if (dimension < 1 || dimension > array->cDims) {
        return DISP_E_BADINDEX;
    }
    const SAFEARRAYBOUND stored = boundAt(array->rgsabound, array->cDims - dimension);
    *bound = upper ? static_cast<LONG>(stored.lLbound + static_cast<std::int64_t>(stored.cElements) - 1)
                   : stored.lLbound;
    return S_OK;
}
}  // namespace

HRESULT SafeArrayGetLBound(SAFEARRAY* array, UINT dimension, LONG* bound)
{
    return getBound(array, dimension, bound, false);
}

HRESULT SafeArrayGetUBound(SAFEARRAY* array, UINT dimension, LONG* bound)
{
    return getBound(array, dimension, bound, true);
}

UINT SafeArrayGetElemsize(SAFEARRAY* array)
{
    return array != nullptr ? array->cbElements : 0;
}

UINT SafeArrayGetDim(SAFEARRAY* array)
{
    return array != nullptr ? array->cDims : 0;
}

HRESULT SafeArrayAccessData(SAFEARRAY* array, void** data)
{
    if (array == nullptr || data == nullptr) {
        return E_INVALIDARG;
    }
    if (__atomic_add_fetch(&array->cLocks, 1, __ATOMIC_ACQ_REL) > maxLocks) {
        __atomic_sub_fetch(&array->cLocks, 1, __ATOMIC_ACQ_REL);
        *data = nullptr;
        return E_UNEXPECTED;
    }
    *data = array->pvData;
    return S_OK;
}

HRESULT SafeArrayUnaccessData(SAFEARRAY* array)
{
    if (array == nullptr) {
        return E_INVALIDARG;
    }
    ULONG locks = locksOf(array);
    do {
        if (locks == 0) {
            return E_UNEXPECTED;
        }
    } while (!__atomic_compare_exchange_n(&array->cLocks, &locks, locks - 1, false, __ATOMIC_ACQ_REL,
                                          __ATOMIC_ACQUIRE));
    return S_OK;
}

HRESULT SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* type)
{
    if (array == nullptr || type == nullptr) {
        return E_INVALIDARG;
    }
    const USHORT features = array->fFeatures;
    if ((features & FADF_RECORD) != 0) {
        *type = VT_RECORD;
    } else if ((features & FADF_HAVEIID) != 0) {
        *type = (features & FADF_DISPATCH) != 0 ? VT_DISPATCH : VT_UNKNOWN;
    } else if ((features & FADF_HAVEVARTYPE) != 0) {
        DWORD stored = 0;
        std::memcpy(&stored, arrayBlock(array) + hiddenBytes - sizeof stored, sizeof stored);
        *type = static_cast<VARTYPE>(stored);
    } else {
        return E_INVALIDARG;
    }
    return S_OK;
}

HRESULT SafeArrayCopy(SAFEARRAY* source, SAFEARRAY** copy)
{
    if (copy == nullptr) {
        return E_INVALIDARG;
    }
    *copy = nullptr;
    if (source == nullptr) {
        return S_OK;
    }
    if (source->cDims == 0 || source->cbElements == 0 || (source->fFeatures & FADF_RECORD) != 0) {
        return E_INVALIDARG;
    }
    ArrayOwner owned(allocateArray(source->cDims, source->rgsabound, source->cbElements));
    if (!owned) {
        return E_OUTOFMEMORY;
    }
    const auto features = static_cast<USHORT>(source->fFeatures & ~(callerOwned | FADF_FIXEDSIZE));
    if ((features & FADF_HAVEIID) != 0) {
        std::memcpy(arrayBlock(owned.get()), arrayBlock(source), sizeof(IID));
    } else if ((features & FADF_HAVEVARTYPE) != 0) {
        std::memcpy(arrayBlock(owned.get()) + hiddenBytes - sizeof(DWORD),
                    arrayBlock(source) + hiddenBytes - sizeof(DWORD), sizeof(DWORD));
    }
    owned->fFeatures = static_cast<USHORT>(features | createVector);
    const HRESULT hr = copyElements(source, owned.get());
    if (FAILED(hr)) {
        return hr;  // `owned` frees what was copied so far
    }
    *copy = owned.release();
    return S_OK;
}

namespace host {

long liveBstrs()
{
    return state().liveBstrs.load();
}

long liveSafeArrays()
{
    return state().liveSafeArrays.load();
}

}  // namespace host
