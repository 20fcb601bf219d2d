// Internal: IWbemClassObject of the service: a class, an instance snapshot, a
// method signature or parameters ("__PARAMETERS"), each with its own copy of
// the properties, as real WMI objects are.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ComObject.h"
#include "Model.h"
#include "platform.h"

namespace sim {

// Answered by QueryInterface of the service's own objects only, so the service
// reads parameters it is given without going through (and logging) Get.
extern const IID kIidSimClassObject;

class ClassObject final : public IWbemClassObject, public ComObject {
public:
    enum class Genus { classDefinition = 1, instance = 2 };

    struct State {
        std::wstring className;
        Genus genus = Genus::instance;
        Slots slots;
        std::shared_ptr<const ClassDef> definition;  // the methods; null for parameters
        std::optional<std::wstring> key;  // the instance name it was read as
        bool fromService = false;  // has __SERVER, __NAMESPACE, __PATH
        std::vector<std::wstring> hidden;  // names it lacks, system ones included
        std::uint64_t delivery = 0;  // the event delivery it was made for; 0: none
    };

    // A new object with one reference for the caller.
    static ClassObject* create(std::shared_ptr<ServiceCore> core, State state);
    // The property's value, without the logging and faults of Get.
    std::optional<Value> peek(const std::wstring& name) const;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return addReference(); }
    ULONG STDMETHODCALLTYPE Release() override { return releaseReference(); }

    HRESULT STDMETHODCALLTYPE GetQualifierSet(IWbemQualifierSet** qualifiers) override;
    HRESULT STDMETHODCALLTYPE Get(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE* type,
                                  LONG* flavor) override;
    HRESULT STDMETHODCALLTYPE Put(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE type) override;
    HRESULT STDMETHODCALLTYPE Delete(LPCWSTR name) override;
    HRESULT STDMETHODCALLTYPE GetNames(LPCWSTR qualifierName, LONG flags, VARIANT* qualifierValue,
                                       SAFEARRAY** names) override;
    HRESULT STDMETHODCALLTYPE BeginEnumeration(LONG enumFlags) override;
    HRESULT STDMETHODCALLTYPE Next(LONG flags, BSTR* name, VARIANT* value, CIMTYPE* type,
                                   LONG* flavor) override;
    HRESULT STDMETHODCALLTYPE EndEnumeration() override;
    HRESULT STDMETHODCALLTYPE GetPropertyQualifierSet(LPCWSTR property,
                                                      IWbemQualifierSet** qualifiers) override;
    HRESULT STDMETHODCALLTYPE Clone(IWbemClassObject** copy) override;
    HRESULT STDMETHODCALLTYPE GetObjectText(LONG flags, BSTR* objectText) override;
    HRESULT STDMETHODCALLTYPE SpawnDerivedClass(LONG flags, IWbemClassObject** newClass) override;
    HRESULT STDMETHODCALLTYPE SpawnInstance(LONG flags, IWbemClassObject** newInstance) override;
    HRESULT STDMETHODCALLTYPE CompareTo(LONG flags, IWbemClassObject* compareTo) override;
    HRESULT STDMETHODCALLTYPE GetPropertyOrigin(LPCWSTR name, BSTR* className) override;
    HRESULT STDMETHODCALLTYPE InheritsFrom(LPCWSTR ancestor) override;
    HRESULT STDMETHODCALLTYPE GetMethod(LPCWSTR name, LONG flags, IWbemClassObject** inSignature,
                                        IWbemClassObject** outSignature) override;
    HRESULT STDMETHODCALLTYPE PutMethod(LPCWSTR name, LONG flags, IWbemClassObject* inSignature,
                                        IWbemClassObject* outSignature) override;
    HRESULT STDMETHODCALLTYPE DeleteMethod(LPCWSTR name) override;
    HRESULT STDMETHODCALLTYPE BeginMethodEnumeration(LONG enumFlags) override;
    HRESULT STDMETHODCALLTYPE NextMethod(LONG flags, BSTR* name, IWbemClassObject** inSignature,
                                         IWbemClassObject** outSignature) override;
    HRESULT STDMETHODCALLTYPE EndMethodEnumeration() override;
    HRESULT STDMETHODCALLTYPE GetMethodQualifierSet(LPCWSTR method, IWbemQualifierSet** qualifiers) override;
    HRESULT STDMETHODCALLTYPE GetMethodOrigin(LPCWSTR methodName, BSTR* className) override;

private:
    struct Property {
        std::wstring name;
        CIMTYPE type;
        Value value;
        bool system;
    };

    ClassObject(std::shared_ptr<ServiceCore> core, State state);
    // Caller holds lock_.
    std::vector<Property> systemProperties_() const;
    std::optional<Property> find_(const std::wstring& name) const;
    bool isHidden_(const std::wstring& name) const;
    std::optional<std::vector<std::wstring>> names_(LONG flags) const;
    std::optional<std::wstring> relativePath_() const;
    std::wstring instanceText_() const;
    HRESULT unsupported_(const char* call);

    const std::uint64_t delivery_;  // copied out of state_: read without the lock
    mutable std::mutex lock_;
    State state_;
    std::optional<std::vector<std::wstring>> enumeration_;  // names left, from BeginEnumeration
    std::size_t cursor_ = 0;
};

// A property of a client-side object: read directly from the service's own
// objects, through Get from any other; null when the object lacks it.
std::optional<Value> readProperty(IWbemClassObject* object, const std::wstring& name);

}  // namespace sim
