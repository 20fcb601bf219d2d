#include "ClassObject.h"

#include <algorithm>
#include <new>

#include "Coercion.h"
#include "ServiceCore.h"
#include "Text.h"

namespace sim {

// {5B1C43E1-7A0D-4C7E-9B37-2D6F0E4A8C11}
const IID kIidSimClassObject = {0x5b1c43e1, 0x7a0d, 0x4c7e, {0x9b, 0x37, 0x2d, 0x6f, 0x0e, 0x4a, 0x8c, 0x11}};

namespace {

constexpr LONG flavorOriginSystem = 0x40;  // WBEM_FLAVOR_ORIGIN_SYSTEM
constexpr wchar_t serverName[] = L"SIMHOST";
constexpr wchar_t namespaceName[] = L"root\\wmi";

std::string describe(const ClassObject::State& state)
{
    std::string text = "ClassObject " + narrow(state.className);
    if (state.genus == ClassObject::Genus::classDefinition) {
        return text + " (class)";
    }
    return text + (state.key ? " (instance " + narrow(*state.key) + ")" : " (instance)");
}

bool isSystemName(const std::wstring& name)
{
    return name.rfind(L"__", 0) == 0;
}

Value textOrNull(const std::optional<std::wstring>& text)
{
    return text ? Value::string(*text) : Value::null();
}

}  // namespace

ClassObject::ClassObject(std::shared_ptr<ServiceCore> core, State state)
    : ComObject(std::move(core), ObjectKind::classObject, describe(state)),
      delivery_(state.delivery),
      state_(std::move(state))
{
}

ClassObject* ClassObject::create(std::shared_ptr<ServiceCore> core, State state)
{
    return new ClassObject(std::move(core), std::move(state));
}

std::optional<Value> ClassObject::peek(const std::wstring& name) const
{
    const std::lock_guard<std::mutex> guard(lock_);
    const auto property = find_(name);
    return property ? std::optional<Value>(property->value) : std::nullopt;
}

HRESULT STDMETHODCALLTYPE ClassObject::QueryInterface(REFIID iid, void** object)
{
    if (object == nullptr) {
        return E_POINTER;
    }
    if (iid == IID_IUnknown || iid == IID_IWbemClassObject || iid == kIidSimClassObject) {
        *object = static_cast<IWbemClassObject*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

// ---- Properties -------------------------------------------------------------------

std::optional<std::wstring> ClassObject::relativePath_() const
{
    if (!state_.definition) {
        return std::nullopt;  // parameters have no path
    }
    if (state_.genus == Genus::classDefinition) {
        return state_.className;
    }
    std::optional<std::wstring> key = state_.key;
    if (const Slot* slot = findSlot(state_.slots, L"InstanceName")) {
        if (auto text = slot->value.asString()) {
            key = std::move(text);
        }
    }
    return key ? std::optional<std::wstring>(instancePath(state_.className, *key)) : std::nullopt;
}

std::vector<ClassObject::Property> ClassObject::systemProperties_() const
{
    const std::optional<std::wstring> relPath = relativePath_();
    const bool located = state_.fromService && relPath;
    std::optional<std::wstring> path;
    if (located) {
        path = std::wstring(L"\\\\") + serverName + L"\\" + namespaceName + L":" + *relPath;
    }
    return {
        {L"__GENUS", CIM_SINT32, Value::sint32(static_cast<std::int32_t>(state_.genus)), true},
        {L"__CLASS", CIM_STRING, Value::string(state_.className), true},
        {L"__SUPERCLASS", CIM_STRING, Value::null(), true},
        {L"__DYNASTY", CIM_STRING, Value::string(state_.className), true},
        {L"__RELPATH", CIM_STRING, textOrNull(relPath), true},
        {L"__PROPERTY_COUNT", CIM_SINT32, Value::sint32(static_cast<std::int32_t>(state_.slots.size())),
         true},
        {L"__DERIVATION", CIM_STRING | CIM_FLAG_ARRAY, Value::strings({}), true},
        {L"__SERVER", CIM_STRING, located ? Value::string(serverName) : Value::null(), true},
        {L"__NAMESPACE", CIM_STRING, located ? Value::string(namespaceName) : Value::null(), true},
        {L"__PATH", CIM_STRING, textOrNull(path), true},
    };
}

bool ClassObject::isHidden_(const std::wstring& name) const
{
    return std::any_of(state_.hidden.begin(), state_.hidden.end(),
                       [&](const std::wstring& hidden) { return equalsNoCase(hidden, name); });
}

std::optional<ClassObject::Property> ClassObject::find_(const std::wstring& name) const
{
    if (isHidden_(name)) {
        return std::nullopt;
    }
    if (isSystemName(name)) {
        for (Property& property : systemProperties_()) {
            if (equalsNoCase(property.name, name)) {
                return std::move(property);
            }
        }
        return std::nullopt;
    }
    if (const Slot* slot = findSlot(state_.slots, name)) {
        return Property{slot->name, slot->type, slot->value, false};
    }
    return std::nullopt;
}

std::optional<std::vector<std::wstring>> ClassObject::names_(LONG flags) const
{
    // Without inheritance every property is local; none is propagated.
    bool system = false;
    bool local = false;
    switch (flags) {
    case 0:
        system = local = true;
        break;
    case WBEM_FLAG_SYSTEM_ONLY:
        system = true;
        break;
    case WBEM_FLAG_NONSYSTEM_ONLY:
    case WBEM_FLAG_LOCAL_ONLY:
        local = true;
        break;
    case WBEM_FLAG_PROPAGATED_ONLY:
        break;
    default:
        return std::nullopt;
    }
    std::vector<std::wstring> names;
    if (system) {
        for (const Property& property : systemProperties_()) {
            if (!isHidden_(property.name)) {
                names.push_back(property.name);
            }
        }
    }
    if (local) {
        for (const Slot& slot : state_.slots) {
            names.push_back(slot.name);
        }
    }
    return names;
}

std::wstring ClassObject::instanceText_() const
{
    return state_.key.value_or(L"");
}

HRESULT STDMETHODCALLTYPE ClassObject::Get(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE* type,
                                           LONG* flavor)
{
    if (delivery_ != 0) {
        // An event object read inside Indicate: where HoldPoint::insideIndicate waits.
        try {
            core().events().onEventObjectRead(delivery_);
        } catch (...) {
            (void)0;  // a hold that couldn't wait doesn't fail the read
        }
    }
    const std::lock_guard<std::mutex> guard(lock_);
    const std::wstring asked = name != nullptr ? name : L"";
    const CallInfo info{"Get", state_.className, state_.className + L"." + asked, instanceText_()};
    return core().serve(info, [&]() -> HRESULT {
        if (name == nullptr || flags != 0) {
            return codes::invalidParameter;
        }
        const auto property = find_(asked);
        if (!property) {
            return codes::notFound;
        }
        if (value != nullptr) {
            VARIANT copy{};
            const HRESULT copied = core().toVariant(property->value, &copy);
            if (FAILED(copied)) {
                return copied;
            }
            *value = copy;
        }
        if (type != nullptr) {
            *type = property->type;
        }
        if (flavor != nullptr) {
            *flavor = property->system ? flavorOriginSystem : 0;
        }
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE ClassObject::Put(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE type)
{
    const std::lock_guard<std::mutex> guard(lock_);
    const std::wstring asked = name != nullptr ? name : L"";
    const CallInfo info{"Put", state_.className, state_.className + L"." + asked, instanceText_()};
    return core().serve(info, [&]() -> HRESULT {
        if (name == nullptr || flags != 0) {
            return codes::invalidParameter;
        }
        if (isSystemName(asked)) {
            return find_(asked) ? codes::readOnly : codes::notFound;
        }
        Slot* slot = findSlot(state_.slots, asked);
        if (slot == nullptr) {
            return codes::notFound;
        }
        if (type != 0 && type != slot->type) {
            return codes::typeMismatch;
        }
        if (value == nullptr) {
            slot->value = Value::null();
            return S_OK;
        }
        Value converted;
        const HRESULT result = coerce(slot->type, *value, converted);
        if (SUCCEEDED(result)) {
            slot->value = std::move(converted);
        }
        return result;
    });
}

HRESULT STDMETHODCALLTYPE ClassObject::GetNames(LPCWSTR qualifierName, LONG flags,
                                                VARIANT* /*qualifierValue*/, SAFEARRAY** names)
{
    const std::lock_guard<std::mutex> guard(lock_);
    const CallInfo info{"GetNames", state_.className, state_.className, instanceText_()};
    return core().serve(info, [&]() -> HRESULT {
        if (names == nullptr) {
            return codes::invalidParameter;
        }
        if (qualifierName != nullptr) {
            return codes::notSupported;  // the model has no qualifiers
        }
        const auto list = names_(flags);
        if (!list) {
            return codes::invalidParameter;
        }
        std::vector<Value> elements;
        for (const std::wstring& text : *list) {
            elements.push_back(Value::string(text));
        }
        VARIANT array{};
        const HRESULT built = core().toVariant(Value::array(CIM_STRING, elements), &array);
        if (FAILED(built)) {
            return built;
        }
        *names = array.parray;
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE ClassObject::BeginEnumeration(LONG enumFlags)
{
    const std::lock_guard<std::mutex> guard(lock_);
    const CallInfo info{"BeginEnumeration", state_.className, state_.className, instanceText_()};
    return core().serve(info, [&]() -> HRESULT {
        auto names = names_(enumFlags);
        if (!names) {
            return codes::invalidParameter;
        }
        enumeration_ = std::move(names);
        cursor_ = 0;
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE ClassObject::Next(LONG flags, BSTR* name, VARIANT* value, CIMTYPE* type,
                                            LONG* flavor)
{
    const std::lock_guard<std::mutex> guard(lock_);
    const bool more = enumeration_ && cursor_ < enumeration_->size();
    const std::wstring target = more ? state_.className + L"." + (*enumeration_)[cursor_] : state_.className;
    const CallInfo info{"Next", state_.className, target, instanceText_()};
    return core().serve(info, [&]() -> HRESULT {
        if (flags != 0) {
            return codes::invalidParameter;
        }
        if (!enumeration_) {
            return codes::unexpected;
        }
        // A property removed since BeginEnumeration is skipped, not an error.
        std::optional<Property> property;
        while (cursor_ < enumeration_->size() && !(property = find_((*enumeration_)[cursor_]))) {
            ++cursor_;
        }
        if (!property) {
            return codes::noMoreData;
        }
        VARIANT copy{};
        VariantInit(&copy);
        if (value != nullptr) {
            const HRESULT copied = core().toVariant(property->value, &copy);
            if (FAILED(copied)) {
                return copied;
            }
        }
        BSTR text = nullptr;
        if (name != nullptr) {
            text = SysAllocStringLen(property->name.data(), static_cast<UINT>(property->name.size()));
            if (text == nullptr) {
                VariantClear(&copy);
                return codes::outOfMemory;
            }
            *name = text;
        }
        if (value != nullptr) {
            *value = copy;
        }
        if (type != nullptr) {
            *type = property->type;
        }
        if (flavor != nullptr) {
            *flavor = property->system ? flavorOriginSystem : 0;
        }
        ++cursor_;
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE ClassObject::EndEnumeration()
{
    const std::lock_guard<std::mutex> guard(lock_);
    const CallInfo info{"EndEnumeration", state_.className, state_.className, instanceText_()};
    return core().serve(info, [&]() -> HRESULT {
        enumeration_.reset();
        cursor_ = 0;
        return S_OK;
    });
}

// ---- New objects ------------------------------------------------------------------

HRESULT STDMETHODCALLTYPE ClassObject::Clone(IWbemClassObject** copy)
{
    if (copy != nullptr) {
        *copy = nullptr;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    const CallInfo info{"Clone", state_.className, state_.className, instanceText_()};
    return core().serve(info, [&]() -> HRESULT {
        if (copy == nullptr) {
            return codes::invalidParameter;
        }
        *copy = create(sharedCore(), state_);
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE ClassObject::SpawnInstance(LONG flags, IWbemClassObject** newInstance)
{
    if (newInstance != nullptr) {
        *newInstance = nullptr;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    const CallInfo info{"SpawnInstance", state_.className, state_.className, instanceText_()};
    return core().serve(info, [&]() -> HRESULT {
        if (newInstance == nullptr || flags != 0) {
            return codes::invalidParameter;
        }
        // Real WMI spawns from a class; from an instance the sim spawns from its values.
        State spawned{state_.className, Genus::instance, state_.slots,  state_.definition,
                      std::nullopt,     false,           state_.hidden, 0};
        *newInstance = create(sharedCore(), std::move(spawned));
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE ClassObject::GetMethod(LPCWSTR name, LONG flags, IWbemClassObject** inSignature,
                                                 IWbemClassObject** outSignature)
{
    if (inSignature != nullptr) {
        *inSignature = nullptr;
    }
    if (outSignature != nullptr) {
        *outSignature = nullptr;
    }
    const std::lock_guard<std::mutex> guard(lock_);
    const std::wstring asked = name != nullptr ? name : L"";
    const CallInfo info{"GetMethod", state_.className, state_.className + L"." + asked, instanceText_()};
    return core().serve(info, [&]() -> HRESULT {
        if (name == nullptr || flags != 0) {
            return codes::invalidParameter;
        }
        const MethodDef* method = state_.definition ? state_.definition->findMethod(asked) : nullptr;
        if (method == nullptr) {
            return codes::notFound;
        }
        // A side without parameters has no signature object, as in WMI.
        const auto signature = [&](const std::vector<Parameter>& parameters) -> IWbemClassObject* {
            if (parameters.empty()) {
                return nullptr;
            }
            State state{L"__PARAMETERS",
                        Genus::classDefinition,
                        parameterSlots(parameters),
                        nullptr,
                        std::nullopt,
                        false,
                        {},
                        0};
            return create(sharedCore(), std::move(state));
        };
        IWbemClassObject* in = inSignature != nullptr ? signature(method->in) : nullptr;
        try {
            if (outSignature != nullptr) {
                *outSignature = signature(method->out);
            }
        } catch (...) {
            if (in != nullptr) {
                in->Release();
            }
            throw;
        }
        if (inSignature != nullptr) {
            *inSignature = in;
        }
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE ClassObject::InheritsFrom(LPCWSTR /*ancestor*/)
{
    const std::lock_guard<std::mutex> guard(lock_);
    const CallInfo info{"InheritsFrom", state_.className, state_.className, instanceText_()};
    return core().serve(info, [] { return codes::sFalse; });  // the model's classes have no ancestors
}

// ---- Not part of the model ------------------------------------------------------

HRESULT ClassObject::unsupported_(const char* call)
{
    const std::lock_guard<std::mutex> guard(lock_);
    const CallInfo info{call, state_.className, state_.className, instanceText_()};
    return core().serve(info, [] { return codes::notSupported; });
}

HRESULT STDMETHODCALLTYPE ClassObject::GetQualifierSet(IWbemQualifierSet** qualifiers)
{
    if (qualifiers != nullptr) {
        *qualifiers = nullptr;
    }
    return unsupported_("GetQualifierSet");
}

HRESULT STDMETHODCALLTYPE ClassObject::Delete(LPCWSTR /*name*/)
{
    return unsupported_("Delete");
}

HRESULT STDMETHODCALLTYPE ClassObject::GetPropertyQualifierSet(LPCWSTR /*property*/,
                                                               IWbemQualifierSet** qualifiers)
{
    if (qualifiers != nullptr) {
        *qualifiers = nullptr;
    }
    return unsupported_("GetPropertyQualifierSet");
}

HRESULT STDMETHODCALLTYPE ClassObject::GetObjectText(LONG /*flags*/, BSTR* objectText)
{
    if (objectText != nullptr) {
        *objectText = nullptr;
    }
    return unsupported_("GetObjectText");
}

HRESULT STDMETHODCALLTYPE ClassObject::SpawnDerivedClass(LONG /*flags*/, IWbemClassObject** newClass)
{
    if (newClass != nullptr) {
        *newClass = nullptr;
    }
    return unsupported_("SpawnDerivedClass");
}

HRESULT STDMETHODCALLTYPE ClassObject::CompareTo(LONG /*flags*/, IWbemClassObject* /*compareTo*/)
{
    return unsupported_("CompareTo");
}

HRESULT STDMETHODCALLTYPE ClassObject::GetPropertyOrigin(LPCWSTR /*name*/, BSTR* className)
{
    if (className != nullptr) {
        *className = nullptr;
    }
    return unsupported_("GetPropertyOrigin");
}

HRESULT STDMETHODCALLTYPE ClassObject::PutMethod(LPCWSTR /*name*/, LONG /*flags*/,
                                                 IWbemClassObject* /*inSignature*/,
                                                 IWbemClassObject* /*outSignature*/)
{
    return unsupported_("PutMethod");
}

HRESULT STDMETHODCALLTYPE ClassObject::DeleteMethod(LPCWSTR /*name*/)
{
    return unsupported_("DeleteMethod");
}

HRESULT STDMETHODCALLTYPE ClassObject::BeginMethodEnumeration(LONG /*enumFlags*/)
{
    return unsupported_("BeginMethodEnumeration");
}

HRESULT STDMETHODCALLTYPE ClassObject::NextMethod(LONG /*flags*/, BSTR* name, IWbemClassObject** inSignature,
                                                  IWbemClassObject** outSignature)
{
    if (name != nullptr) {
        *name = nullptr;
    }
    if (inSignature != nullptr) {
        *inSignature = nullptr;
    }
    if (outSignature != nullptr) {
        *outSignature = nullptr;
    }
    return unsupported_("NextMethod");
}

HRESULT STDMETHODCALLTYPE ClassObject::EndMethodEnumeration()
{
    return unsupported_("EndMethodEnumeration");
}

HRESULT STDMETHODCALLTYPE ClassObject::GetMethodQualifierSet(LPCWSTR /*method*/,
                                                             IWbemQualifierSet** qualifiers)
{
    if (qualifiers != nullptr) {
        *qualifiers = nullptr;
    }
    return unsupported_("GetMethodQualifierSet");
}

HRESULT STDMETHODCALLTYPE ClassObject::GetMethodOrigin(LPCWSTR /*methodName*/, BSTR* className)
{
    if (className != nullptr) {
        *className = nullptr;
    }
    return unsupported_("GetMethodOrigin");
}

std::optional<Value> readProperty(IWbemClassObject* object, const std::wstring& name)
{
    void* own = nullptr;
    if (SUCCEEDED(object->QueryInterface(kIidSimClassObject, &own)) && own != nullptr) {
        auto* simObject = static_cast<ClassObject*>(static_cast<IWbemClassObject*>(own));
        std::optional<Value> value;
        try {
            value = simObject->peek(name);
        } catch (...) {
            simObject->Release();
            throw;
        }
        simObject->Release();
        return value;
    }
    VARIANT v{};
    VariantInit(&v);
    if (FAILED(object->Get(name.c_str(), 0, &v, nullptr, nullptr))) {
        return std::nullopt;
    }
    try {
        Value copy = Value::raw(v);
        VariantClear(&v);
        return copy;
    } catch (...) {
        VariantClear(&v);
        throw;
    }
}

}  // namespace sim
