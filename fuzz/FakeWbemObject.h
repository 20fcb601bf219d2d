// A management-service object the fuzz targets fill by hand: named VARIANT
// values, handed out as copies by Get and by the property enumeration, with
// failures on request. Reference counted; the last Release frees it.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <vector>

#include "platform.h"

// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): only Release ends it
class FakeWbemObject final : public IWbemClassObject {
public:
    FakeWbemObject() = default;
    FakeWbemObject(const FakeWbemObject&) = delete;
    FakeWbemObject& operator=(const FakeWbemObject&) = delete;

    // Takes `value` over. Names that begin with "__" are system properties:
    // Get finds them, the non-system enumeration skips them.
    void add(const std::wstring& name, const VARIANT& value);
    // Get of `name` answers `result` (a failure) from now on.
    void failGet(const std::wstring& name, HRESULT result);
    void failBeginEnumeration(HRESULT result) { beginResult_ = result; }
    // Next answers `result` after `count` properties instead of going on.
    void endNextAfter(std::size_t count, HRESULT result)
    {
        nextLimit_ = count;
        nextEnd_ = result;
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE Get(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE* type,
                                  LONG* flavor) override;
    HRESULT STDMETHODCALLTYPE BeginEnumeration(LONG enumFlags) override;
    HRESULT STDMETHODCALLTYPE Next(LONG flags, BSTR* name, VARIANT* value, CIMTYPE* type,
                                   LONG* flavor) override;
    HRESULT STDMETHODCALLTYPE EndEnumeration() override;

    // Nothing else is asked of the object by the code under test.
    HRESULT STDMETHODCALLTYPE GetQualifierSet(IWbemQualifierSet** /*qualifiers*/) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Put(LPCWSTR /*name*/, LONG /*flags*/, VARIANT* /*value*/,
                                  CIMTYPE /*type*/) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Delete(LPCWSTR /*name*/) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetNames(LPCWSTR /*qualifierName*/, LONG /*flags*/, VARIANT* /*qualifierValue*/,
                                       SAFEARRAY** /*names*/) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetPropertyQualifierSet(LPCWSTR /*property*/,
                                                      IWbemQualifierSet** /*qualifiers*/) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Clone(IWbemClassObject** /*copy*/) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetObjectText(LONG /*flags*/, BSTR* /*objectText*/) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SpawnDerivedClass(LONG /*flags*/, IWbemClassObject** /*newClass*/) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE SpawnInstance(LONG /*flags*/, IWbemClassObject** /*newInstance*/) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE CompareTo(LONG /*flags*/, IWbemClassObject* /*compareTo*/) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetPropertyOrigin(LPCWSTR /*name*/, BSTR* /*className*/) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE InheritsFrom(LPCWSTR /*ancestor*/) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetMethod(LPCWSTR /*name*/, LONG /*flags*/, IWbemClassObject** /*inSignature*/,
                                        IWbemClassObject** /*outSignature*/) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE PutMethod(LPCWSTR /*name*/, LONG /*flags*/, IWbemClassObject* /*inSignature*/,
                                        IWbemClassObject* /*outSignature*/) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE DeleteMethod(LPCWSTR /*name*/) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE BeginMethodEnumeration(LONG /*enumFlags*/) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE NextMethod(LONG /*flags*/, BSTR* /*name*/, IWbemClassObject** /*inSignature*/,
                                         IWbemClassObject** /*outSignature*/) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE EndMethodEnumeration() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetMethodQualifierSet(LPCWSTR /*method*/,
                                                    IWbemQualifierSet** /*qualifiers*/) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetMethodOrigin(LPCWSTR /*methodName*/, BSTR* /*className*/) override
    {
        return E_NOTIMPL;
    }

private:
    struct Property {
        std::wstring name;
        VARIANT value;
        HRESULT getResult;
    };

    ~FakeWbemObject();
    static bool isSystem_(const std::wstring& name) { return name.rfind(L"__", 0) == 0; }

    std::atomic<ULONG> refs_{1};
    std::vector<Property> properties_;
    HRESULT beginResult_ = S_OK;
    std::size_t nextLimit_ = static_cast<std::size_t>(-1);
    HRESULT nextEnd_ = WBEM_S_NO_MORE_DATA;
    bool enumerating_ = false;
    bool nonSystemOnly_ = false;
    std::size_t cursor_ = 0;
    std::size_t given_ = 0;
};

// A copy of `source` as the service would hand it out: VariantCopy, or the
// bits as they are for the tags VariantCopy refuses (their pointers, if any,
// stay with whoever made the source).
void copyVariant(VARIANT& target, const VARIANT& source);
