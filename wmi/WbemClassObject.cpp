#include "wmi/WbemClassObject.h"

#include "trace/Trace.h"
#include "wmi/bstr.h"

const variant emptyVariant;

WbemClassObject::WbemClassObject(IWbemClassObject* object, bool addRef) : object_(object, addRef)
{
    getProperties_();
}

WbemClassObject::WbemClassObject(WbemClassObject&& other) noexcept
    : object_(std::move(other.object_)), properties_(std::move(other.properties_))
{
    other.properties_.clear();
}

WbemClassObject& WbemClassObject::operator=(WbemClassObject&& other) noexcept
{
    if (this != &other) {
        properties_.clear();
        object_ = std::move(other.object_);
        properties_ = std::move(other.properties_);
        other.properties_.clear();
    }
    return *this;
}

WbemClassObject::~WbemClassObject()
{
    // The values may hold references into the object; they go first.
    properties_.clear();
}

void WbemClassObject::getProperties_()
{
    if (!object_) {
        return;
    }
    properties_.clear();
    const HRESULT begun = object_->BeginEnumeration(WBEM_FLAG_NONSYSTEM_ONLY);
    if (FAILED(begun)) {
        ZT_TRACE(0, "[!] couldn't start property enumeration, hr = %#x", static_cast<unsigned>(begun));
        return;
    }
    for (;;) {
        bstr name;
        variant value;
        if (object_->Next(0, name.put(), value.put(), nullptr, nullptr) != WBEM_S_NO_ERROR) {
            break;  // the end of the properties or a failure: what was read stands
        }
        ZT_TRACE(4, "property '%S' = '%S'", name.get() != nullptr ? name.get() : L"",
                 variantToString(value).c_str());
        if (name == L"InstanceName" || name == L"Active") {
            continue;
        }
        properties_.emplace(std::wstring(name.get() != nullptr ? name.get() : L""), std::move(value));
    }
    object_->EndEnumeration();
}

const variant& WbemClassObject::operator[](const std::wstring& name) const
{
    const auto found = properties_.find(name);
    return found != properties_.end() ? found->second : emptyVariant;
}

WbemClassObject WbemClassObject::getMethodParams_(const std::wstring& name) const
{
    if (!object_) {
        return {};
    }
    IWbemClassObject* signature = nullptr;
    const HRESULT hr = object_->GetMethod(name.c_str(), 0, &signature, nullptr);
    ZT_TRACE(1, "GetMethod(%S) -> %#x", name.c_str(), static_cast<unsigned>(hr));
    return {signature, false};
}

WbemClassObject WbemClassObject::getMethod(const std::wstring& name) const
{
    const WbemClassObject signature = getMethodParams_(name);
    if (signature.isEmpty()) {
        return {};
    }
    IWbemClassObject* instance = nullptr;
    const HRESULT hr = signature.object_->SpawnInstance(0, &instance);
    if (FAILED(hr)) {
        ZT_TRACE(0, "[!] failed to spawn instance, hr = %#x", static_cast<unsigned>(hr));
        if (instance != nullptr) {
            instance->Release();  // a failing call owes us nothing; don't trust it
        }
        return {};
    }
    return {instance, false};
}

std::pair<bool, const variant*> WbemClassObject::getPropertyWithTypeCheck_(const std::wstring& name,
                                                                           VARTYPE type) const
{
    const auto found = properties_.find(name);
    if (found == properties_.end()) {
        ZT_TRACE(0, "[!] property '%S' not found", name.c_str());
        return {false, &emptyVariant};
    }
    if (found->second.vartype() != type) {
        ZT_TRACE(0, "[!] property '%S' has invalid type (%d)", name.c_str(),
                 static_cast<int>(found->second.vartype()));
        return {false, &emptyVariant};
    }
    return {true, &found->second};
}

bool WbemClassObject::getObjectProperty(const std::wstring& name, IUnknown** out) const
{
    const auto [found, value] = getPropertyWithTypeCheck_(name, VT_UNKNOWN);
    if (found) {
        *out = value->get().punkVal;
    }
    return found;
}

bool embeddedObject(IUnknown* held, WbemClassObject& out)
{
    if (held == nullptr) {
        out = WbemClassObject();
        return true;
    }
    // The embedded object arrives as IUnknown; ask it for the object interface.
    IWbemClassObject* object = nullptr;
    if (FAILED(held->QueryInterface(IID_IWbemClassObject, reinterpret_cast<void**>(&object)))) {
        return false;
    }
    out = WbemClassObject(object, false);
    return true;
}

bool WbemClassObject::getByteProperty(const std::wstring& name, std::uint8_t& out) const
{
    const auto [found, value] = getPropertyWithTypeCheck_(name, VT_UI1);
    if (found) {
        out = value->get().bVal;
    }
    return found;
}

bool WbemClassObject::getIntProperty(const std::wstring& name, std::int32_t& out) const
{
    const auto [found, value] = getPropertyWithTypeCheck_(name, VT_I4);
    if (found) {
        out = value->get().lVal;
    }
    return found;
}

std::wstring objectInstancePath(const std::wstring& className, const std::wstring& instanceName)
{
    return className + L".InstanceName=\"" + instanceName + L"\"";
}
