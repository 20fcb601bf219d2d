// Test side of the simulated WMI service: owners for what a client holds, a
// model to script, and a fixture that registers the service as COM would see it
// and checks on teardown that the client gave every reference back.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <string>
#include <utility>

#include "platform.h"
#include "sim/LocatorRegistration.h"
#include "sim/WmiService.h"

namespace simtest {

// Owns one reference.
template <class T> class Ref {
public:
    Ref() = default;
    explicit Ref(T* object) : object_(object) { }
    ~Ref() { reset(); }
    Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) { }
    Ref& operator=(Ref&& other) noexcept
    {
        if (this != &other) {
            reset();
            object_ = std::exchange(other.object_, nullptr);
        }
        return *this;
    }
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;

    T** put()
    {
        reset();
        return &object_;
    }
    T* get() const { return object_; }
    T* operator->() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }
    T* detach() { return std::exchange(object_, nullptr); }
    void reset()
    {
        if (object_ != nullptr) {
            std::exchange(object_, nullptr)->Release();
        }
    }

private:
    T* object_ = nullptr;
};

// A VARIANT the test owns.
class Var {
public:
    Var() : value_() { VariantInit(&value_); }
    ~Var() { VariantClear(&value_); }
    Var(const Var&) = delete;
    Var& operator=(const Var&) = delete;
    VARIANT* operator&() { return &value_; }
    const VARIANT* operator->() const { return &value_; }
    const VARIANT& get() const { return value_; }

private:
    VARIANT value_;
};

// A BSTR the test owns.
class Bstr {
public:
    explicit Bstr(const std::wstring& text)
        : text_(SysAllocStringLen(text.data(), static_cast<UINT>(text.size())))
    {
    }
    ~Bstr() { SysFreeString(text_); }
    Bstr(const Bstr&) = delete;
    Bstr& operator=(const Bstr&) = delete;
    BSTR get() const { return text_; }

private:
    BSTR text_;
};

std::wstring bstrText(BSTR text);

// A sink that only counts its references, so tests see what the service holds.
class CountingSink final : public IWbemObjectSink {
public:
    CountingSink() = default;
    virtual ~CountingSink() = default;
    CountingSink(const CountingSink&) = delete;
    CountingSink& operator=(const CountingSink&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override
    {
        if (iid == IID_IUnknown || iid == IID_IWbemObjectSink) {
            *object = static_cast<IWbemObjectSink*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    HRESULT STDMETHODCALLTYPE Indicate(LONG /*count*/, IWbemClassObject** /*objects*/) override
    {
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetStatus(LONG /*flags*/, HRESULT /*result*/, BSTR /*param*/,
                                        IWbemClassObject* /*object*/) override
    {
        return S_OK;
    }

    std::atomic<ULONG> references{1};  // the test's own
};

// "Sim_Widget" (every CIM shape, methods Reset and Ping) and "Sim_Version",
// with instances "PCI\\VEN_1&DEV_2\\3&0" and "Second".
extern const wchar_t* const widget;
extern const wchar_t* const firstName;
extern const wchar_t* const secondName;
void scriptModel(sim::WmiService& service);
std::wstring widgetPath(const std::wstring& instanceName);

class SimTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    sim::WmiService& service() { return *service_; }
    // CoCreateInstance(CLSID_WbemLocator) and ConnectServer(root\wmi), asserting success.
    Ref<IWbemServices> connect();
    Ref<IWbemClassObject> getObject(IWbemServices* services, const std::wstring& path);
    // The names Next gives after BeginEnumeration(flags).
    std::vector<std::wstring> enumerate(IWbemClassObject* object, LONG flags);
    // Releases references a test leaked on purpose, once it has checked them.
    void forgive(IUnknown* leaked) { leaked->Release(); }

private:
    std::optional<sim::WmiService> service_;
    std::optional<sim::LocatorRegistration> registration_;
    long bstrsBefore_ = 0;
    long arraysBefore_ = 0;
};

}  // namespace simtest
