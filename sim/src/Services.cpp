#include <optional>
#include <regex>

#include "Objects.h"

namespace sim {

namespace {

template <class T> void clearOut(T** out)
{
    if (out != nullptr) {
        *out = nullptr;
    }
}

std::wstring text(const BSTR value)
{
    return value != nullptr ? std::wstring(value, SysStringLen(value)) : std::wstring();
}

// A path or query as parsed: its class, and the instance of `InstanceName="name"`
// (verbatim up to the last quote); `parsed` false when the text doesn't fit.
struct Target {
    bool parsed = false;
    std::wstring className;
    std::optional<std::wstring> instanceName;
    std::wstring instance() const { return instanceName.value_or(L""); }
};

// `Class` or `Class.InstanceName="name"` (`query`: `SELECT * FROM Class`,
// optionally `WHERE InstanceName = "name"`); keywords ignore case.
Target parse(const std::wstring& text, bool query)
{
    static const std::wregex path(LR"((\w+)(?:\.InstanceName=(["'])(.*)\2)?)", std::regex::icase);
    static const std::wregex select(
        LR"(\s*SELECT\s+\*\s+FROM\s+(\w+)(?:\s+WHERE\s+InstanceName\s*=\s*(["'])(.*)\2)?\s*)",
        std::regex::icase);
    std::wsmatch match;
    if (!std::regex_match(text, match, query ? select : path)) {
        return {};
    }
    return {true, match[1], match[3].matched ? std::optional<std::wstring>(match[3]) : std::nullopt};
}

}  // namespace

// ---- Services -------------------------------------------------------------------

Services::Services(const std::shared_ptr<ServiceCore>& core)
    : ComObject(core, "Services"), connection_(core->newConnection())
{
}

HRESULT STDMETHODCALLTYPE Services::GetObject(const BSTR objectPath, LONG /*flags*/,
                                              IWbemContext* /*context*/, IWbemClassObject** object,
                                              IWbemCallResult** callResult)
{
    clearOut(object);
    clearOut(callResult);
    const std::wstring path = text(objectPath);
    const Target t = parse(path, false);
    return core().serve({"GetObject", t.className, path, t.instance(), true}, [&]() -> HRESULT {
        if (!t.parsed || object == nullptr) {
            return wbem(object == nullptr ? WBEM_E_INVALID_PARAMETER : WBEM_E_INVALID_OBJECT_PATH);
        }
        if (!core().findClass(t.className)) {
            return wbem(WBEM_E_INVALID_CLASS);
        }
        auto values = t.instanceName ? core().instance(t.className, t.instance()) : PropertyValues();
        if (!values) {
            return wbem(WBEM_E_NOT_FOUND);
        }
        *object = core().makeObject({t.className, std::move(*values)}, t.instance());
        return S_OK;
    });
}

HRESULT STDMETHODCALLTYPE Services::ExecMethod(const BSTR objectPath, const BSTR methodName, LONG /*flags*/,
                                               IWbemContext* /*context*/, IWbemClassObject* inParams,
                                               IWbemClassObject** outParams, IWbemCallResult** callResult)
{
    clearOut(outParams);
    clearOut(callResult);
    const std::wstring path = text(objectPath);
    const Target t = parse(path, false);
    const CallInfo info{"ExecMethod", t.className, (t.parsed ? t.className : path) + L"." + text(methodName),
                        t.instance(), true};
    return core().serve(info, [&]() -> HRESULT {
        if (!t.parsed) {
            return wbem(WBEM_E_INVALID_OBJECT_PATH);
        }
        const auto definition = core().findClass(t.className);
        if (!definition) {
            return wbem(WBEM_E_INVALID_CLASS);
        }
        const Method* method = nullptr;
        for (const Method& m : definition->methods) {
            method = equalsNoCase(m.name, text(methodName)) ? &m : method;
        }
        if (method == nullptr) {
            return wbem(WBEM_E_INVALID_METHOD);
        }
        if (t.instanceName && !core().instance(t.className, t.instance())) {
            return wbem(WBEM_E_NOT_FOUND);
        }
        const MethodHandler handler = core().handler(definition->name, method->name);
        if (!handler) {
            return wbem(WBEM_E_NOT_SUPPORTED);
        }
        MethodCall call{definition->name, t.instance(), method->name, {}, {}};
        for (const std::wstring& name : method->in) {
            call.in.emplace_back(name, readProperty(inParams, name).value_or(Value()));
        }
        const HRESULT result = handler(call);
        if (SUCCEEDED(result) && outParams != nullptr && (!method->out.empty() || !call.out.empty())) {
            Object out{L"__PARAMETERS", {}};
            for (const std::wstring& name : method->out) {
                out.properties.emplace_back(name, Value());
            }
            for (const auto& [name, value] : call.out) {
                setNamed(out.properties, name, value);
            }
            *outParams = core().makeObject(out);
        }
        return result;
    });
}

HRESULT STDMETHODCALLTYPE Services::ExecNotificationQueryAsync(const BSTR queryLanguage, const BSTR query,
                                                               LONG /*flags*/, IWbemContext* /*context*/,
                                                               IWbemObjectSink* responseHandler)
{
    const std::wstring queryText = text(query);
    const Target t = parse(queryText, true);
    return core().serve(
        {"ExecNotificationQueryAsync", t.className, queryText, t.instance(), true}, [&]() -> HRESULT {
            if (responseHandler == nullptr) {
                return wbem(WBEM_E_INVALID_PARAMETER);
            }
            if (!equalsNoCase(text(queryLanguage), L"WQL")) {
                return wbem(WBEM_E_INVALID_QUERY_TYPE);
            }
            if (!t.parsed) {
                return wbem(WBEM_E_INVALID_QUERY);
            }
            const auto definition = core().findClass(t.className);
            if (!definition) {
                return wbem(WBEM_E_INVALID_CLASS);
            }
            const bool held
                = core().events.subscribe(connection_, definition->name, t.instanceName, responseHandler);
            return held ? S_OK : wbem(WBEM_E_SHUTTING_DOWN);
        });
}

HRESULT STDMETHODCALLTYPE Services::CancelAsyncCall(IWbemObjectSink* sink)
{
    EventHub::EntryList ended;
    const HRESULT result = core().serve({"CancelAsyncCall", L"", L"", L"", true}, [&]() -> HRESULT {
        bool found = false;
        ended = core().events.cancel(connection_, sink, found);
        return found ? S_OK : wbem(WBEM_E_NOT_FOUND);
    });
    // SetStatus and the subscriptions' references go outside every lock of the
    // service; those with a delivery still in Indicate end when it returns.
    core().events.finish(ended);
    return result;
}

// ---- Locator and its factory ----------------------------------------------------

HRESULT STDMETHODCALLTYPE Locator::ConnectServer(const BSTR networkResource, const BSTR /*user*/,
                                                 const BSTR /*password*/, const BSTR /*locale*/,
                                                 LONG /*securityFlags*/, const BSTR /*authority*/,
                                                 IWbemContext* /*context*/, IWbemServices** services)
{
    clearOut(services);
    const std::wstring resource = text(networkResource);
    return core().serve({"ConnectServer", L"", resource, L"", true}, [&]() -> HRESULT {
        // The local machine's root\wmi, with or without the "\\.\" server part.
        const bool local = resource.size() > 4 && equalsNoCase(resource.substr(0, 4), L"\\\\.\\");
        if (!equalsNoCase(local ? resource.substr(4) : resource, L"root\\wmi") || services == nullptr) {
            return wbem(services == nullptr ? WBEM_E_INVALID_PARAMETER : WBEM_E_INVALID_NAMESPACE);
        }
        *services = new Services(sharedCore());
        return S_OK;
    });
}

ULONG STDMETHODCALLTYPE LocatorFactory::Release()
{
    const ULONG left = --references_;
    if (left == 0) {
        delete this;
    }
    return left;
}

HRESULT STDMETHODCALLTYPE LocatorFactory::CreateInstance(IUnknown* outer, REFIID iid, void** object)
{
    clearOut(object);
    return core_->serve({"CreateInstance", L"", L"", L"", true}, [&]() -> HRESULT {
        if (object == nullptr || outer != nullptr) {
            return object == nullptr ? E_POINTER : CLASS_E_NOAGGREGATION;
        }
        auto* locator = new Locator(core_);
        const HRESULT result = locator->QueryInterface(iid, object);
        locator->Release();
        return result;
    });
}

}  // namespace sim
