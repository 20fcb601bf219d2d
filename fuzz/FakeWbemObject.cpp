#include "FakeWbemObject.h"

#include "Variants.h"

void copyVariant(VARIANT& target, const VARIANT& source)
{
    VariantInit(&target);
    if (FAILED(VariantCopy(&target, &source))) {
        target = source;
    }
}

FakeWbemObject::~FakeWbemObject()
{
    for (auto& property : properties_) {
        endVariant(property.value);
    }
}

void FakeWbemObject::add(const std::wstring& name, const VARIANT& value)
{
    properties_.push_back({name, value, S_OK});
}

void FakeWbemObject::failGet(const std::wstring& name, HRESULT result)
{
    bool found = false;
    for (auto& property : properties_) {
        if (property.name == name) {
            property.getResult = result;
            found = true;
        }
    }
    if (!found) {
        VARIANT empty{};
        VariantInit(&empty);
        properties_.push_back({name, empty, result});
    }
}

HRESULT FakeWbemObject::QueryInterface(REFIID iid, void** object)
{
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (iid != IID_IUnknown && iid != IID_IWbemClassObject) {
        return E_NOINTERFACE;
    }
    *object = static_cast<IWbemClassObject*>(this);
    AddRef();
    return S_OK;
}

ULONG FakeWbemObject::Release()
{
    const ULONG left = --refs_;
    if (left == 0) {
        delete this;
    }
    return left;
}

HRESULT FakeWbemObject::Get(LPCWSTR name, LONG /*flags*/, VARIANT* value, CIMTYPE* type, LONG* flavor)
{
    if (name == nullptr) {
        return WBEM_E_INVALID_PARAMETER;
    }
    for (const auto& property : properties_) {
        if (property.name != name) {
            continue;
        }
        if (FAILED(property.getResult)) {
            return property.getResult;
        }
        if (value != nullptr) {
            copyVariant(*value, property.value);
        }
        if (type != nullptr) {
            *type = CIM_EMPTY;
        }
        if (flavor != nullptr) {
            *flavor = 0;
        }
        return WBEM_S_NO_ERROR;
    }
    return WBEM_E_NOT_FOUND;
}

HRESULT FakeWbemObject::BeginEnumeration(LONG enumFlags)
{
    if (FAILED(beginResult_)) {
        return beginResult_;
    }
    enumerating_ = true;
    nonSystemOnly_ = (enumFlags & WBEM_FLAG_NONSYSTEM_ONLY) == WBEM_FLAG_NONSYSTEM_ONLY;
    cursor_ = 0;
    given_ = 0;
    return WBEM_S_NO_ERROR;
}

HRESULT FakeWbemObject::Next(LONG /*flags*/, BSTR* name, VARIANT* value, CIMTYPE* type, LONG* flavor)
{
    if (!enumerating_) {
        return WBEM_E_FAILED;
    }
    if (given_ >= nextLimit_) {
        return nextEnd_;
    }
    while (cursor_ < properties_.size()
           && (FAILED(properties_[cursor_].getResult)
               || (nonSystemOnly_ && isSystem_(properties_[cursor_].name)))) {
        ++cursor_;
    }
    if (cursor_ >= properties_.size()) {
        return WBEM_S_NO_MORE_DATA;
    }
    const Property& property = properties_[cursor_++];
    ++given_;
    if (name != nullptr) {
        *name = SysAllocStringLen(property.name.data(), static_cast<UINT>(property.name.size()));
    }
    if (value != nullptr) {
        copyVariant(*value, property.value);
    }
    if (type != nullptr) {
        *type = CIM_EMPTY;
    }
    if (flavor != nullptr) {
        *flavor = 0;
    }
    return WBEM_S_NO_ERROR;
}

HRESULT FakeWbemObject::EndEnumeration()
{
    enumerating_ = false;
    return WBEM_S_NO_ERROR;
}
