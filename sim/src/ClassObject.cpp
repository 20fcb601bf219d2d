#include <algorithm>

#include "Objects.h"
#include "platform/Threading.h"

namespace sim {

// {5B1C43E1-7A0D-4C7E-9B37-2D6F0E4A8C11}
const IID iidSimObject = {0x5b1c43e1, 0x7a0d, 0x4c7e, {0x9b, 0x37, 0x2d, 0x6f, 0x0e, 0x4a, 0x8c, 0x11}};

namespace {

template <class T> void clearOut(T** out)
{
    if (out != nullptr) {
        *out = nullptr;
    }
}

// Hands out a copy of `value`; CIM types and flavors are not modelled (0).
void handOut(const Value& value, VARIANT* out, CIMTYPE* type, LONG* flavor)
{
    if (out != nullptr) {
        copyVariant(*out, value.variant());
    }
    for (LONG* unmodelled : {type, flavor}) {
        if (unmodelled != nullptr) {
            *unmodelled = 0;
        }
    }
}

}  // namespace

ClassObject::ClassObject(std::shared_ptr<ServiceCore> core, std::wstring className,
                         std::shared_ptr<const ClassDef> definition, std::wstring instance,
                         std::uint64_t delivery, PropertyValues properties)
    : ComObject(std::move(core),
                "ClassObject " + narrow(className) + (instance.empty() ? "" : " " + narrow(instance))),
      className_(std::move(className)),
      definition_(std::move(definition)),
      instance_(std::move(instance)),
      delivery_(delivery),
      properties_(std::move(properties))
{
}

std::optional<Value> ClassObject::peek(const std::wstring& name) const
{
    const std::lock_guard<SrwLock> guard(lock_);
    const auto* found = findNamed(const_cast<PropertyValues&>(properties_), name);
    return found != nullptr ? std::optional<Value>(found->second) : std::nullopt;
}

CallInfo ClassObject::call_(const char* call, const std::wstring& detail) const
{
    return {call, className_, detail.empty() ? className_ : className_ + L"." + detail, instance_};
}

// ---- Properties -------------------------------------------------------------------

HRESULT STDMETHODCALLTYPE ClassObject::Get(LPCWSTR name, LONG /*flags*/, VARIANT* value, CIMTYPE* type,
                                           LONG* flavor)
{
    if (delivery_ != 0) {
        try {
            core().events.onEventObjectRead(delivery_);  // the insideIndicate hold point
        } catch (...) {
            (void)0;  // a hold that couldn't wait doesn't fail the read
        }
    }
    const std::lock_guard<SrwLock> guard(lock_);
    return core().serve(call_("Get", name != nullptr ? name : L""), [&]() -> HRESULT {
        const auto* property = name != nullptr ? findNamed(properties_, name) : nullptr;
        if (property == nullptr) {
            return wbem(name != nullptr ? WBEM_E_NOT_FOUND : WBEM_E_INVALID_PARAMETER);
        }
        handOut(property->second, value, type, flavor);
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE ClassObject::Put(LPCWSTR name, LONG /*flags*/, VARIANT* value, CIMTYPE /*type*/)
{
    const std::lock_guard<SrwLock> guard(lock_);
    return core().serve(call_("Put", name != nullptr ? name : L""), [&]() -> HRESULT {
        auto* property = name != nullptr ? findNamed(properties_, name) : nullptr;
        if (property == nullptr) {
            return wbem(name != nullptr ? WBEM_E_NOT_FOUND : WBEM_E_INVALID_PARAMETER);
        }
        const Value given = value != nullptr ? Value::raw(*value) : Value::null();
        const auto number = given.asInteger();
        const bool asText = property->second.is64() && number && given.variant().vt != VT_BSTR;
        // WMI holds 64-bit integers as text.
        property->second = asText ? Value::uint64(static_cast<std::uint64_t>(*number)) : given;
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE ClassObject::BeginEnumeration(LONG enumFlags)
{
    const std::lock_guard<SrwLock> guard(lock_);
    return core().serve(call_("BeginEnumeration"), [&]() -> HRESULT {
        cursor_ = 0;
        nonSystem_ = (enumFlags & WBEM_FLAG_NONSYSTEM_ONLY) != 0;
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE ClassObject::Next(LONG /*flags*/, BSTR* name, VARIANT* value, CIMTYPE* type,
                                            LONG* flavor)
{
    const std::lock_guard<SrwLock> guard(lock_);
    while (cursor_ && *cursor_ < properties_.size() && nonSystem_
           && properties_[*cursor_].first.rfind(L"__", 0) == 0) {
        ++*cursor_;
    }
    const bool more = cursor_ && *cursor_ < properties_.size();
    return core().serve(call_("Next", more ? properties_[*cursor_].first : L""), [&]() -> HRESULT {
        if (!cursor_) {
            return wbemUnexpected;
        }
        if (!more) {
            clearOut(name);
            return wbem(WBEM_S_NO_MORE_DATA);
        }
        const auto& [propertyName, propertyValue] = properties_[(*cursor_)++];
        if (name != nullptr) {
            *name = SysAllocStringLen(propertyName.data(), static_cast<UINT>(propertyName.size()));
        }
        handOut(propertyValue, value, type, flavor);
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE ClassObject::EndEnumeration()
{
    const std::lock_guard<SrwLock> guard(lock_);
    return core().serve(call_("EndEnumeration"), [&]() -> HRESULT {
        cursor_.reset();
        return S_OK;
    });
}

// ---- New objects ------------------------------------------------------------------

HRESULT STDMETHODCALLTYPE ClassObject::SpawnInstance(LONG /*flags*/, IWbemClassObject** newInstance)
{
    clearOut(newInstance);
    const std::lock_guard<SrwLock> guard(lock_);
    return core().serve(call_("SpawnInstance"), [&]() -> HRESULT {
        if (newInstance == nullptr) {
            return wbem(WBEM_E_INVALID_PARAMETER);
        }
        // From its current values: real WMI spawns from a class only.
        *newInstance = new ClassObject(sharedCore(), className_, definition_, L"", 0, properties_);
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE ClassObject::GetMethod(LPCWSTR name, LONG /*flags*/, IWbemClassObject** inSignature,
                                                 IWbemClassObject** outSignature)
{
    clearOut(inSignature);
    clearOut(outSignature);
    const std::lock_guard<SrwLock> guard(lock_);
    return core().serve(call_("GetMethod", name != nullptr ? name : L""), [&]() -> HRESULT {
        static const std::vector<Method> none;
        const Method* method = nullptr;
        for (const Method& m : definition_ ? definition_->methods : none) {
            method = name != nullptr && equalsNoCase(m.name, name) ? &m : method;
        }
        if (method == nullptr) {
            return wbem(WBEM_E_NOT_FOUND);
        }
        if (inSignature != nullptr && !method->in.empty()) {
            Object signature{L"__PARAMETERS", {}};
            for (const std::wstring& parameter : method->in) {
                signature.properties.emplace_back(parameter, Value());
            }
            *inSignature = core().makeObject(signature);
        }
        return S_OK;
    });
}

std::optional<Value> readProperty(IUnknown* unknown, const std::wstring& name)
{
    void* own = nullptr;
    if (unknown == nullptr || FAILED(unknown->QueryInterface(iidSimObject, &own)) || own == nullptr) {
        return std::nullopt;
    }
    auto* object = static_cast<ClassObject*>(static_cast<IWbemClassObject*>(own));
    std::optional<Value> value;
    try {
        value = object->peek(name);
    } catch (...) {
        object->Release();
        throw;
    }
    object->Release();
    return value;
}

}  // namespace sim
