#include "SimClient.h"

#include "host/HostPlatform.h"

namespace simtest {

const wchar_t* const widget = L"Sim_Widget";
const wchar_t* const firstName = L"PCI\\VEN_1&DEV_2\\3&0";
const wchar_t* const secondName = L"Second";

std::wstring bstrText(BSTR text)
{
    return text != nullptr ? std::wstring(text, SysStringLen(text)) : std::wstring();
}

std::wstring widgetPath(const std::wstring& instanceName)
{
    return std::wstring(widget) + L".InstanceName=\"" + instanceName + L"\"";
}

void scriptModel(sim::WmiService& service)
{
    using sim::Value;
    service.defineClass(sim::ClassDef(L"Sim_Version")
                            .property(L"Major", CIM_UINT32)
                            .property(L"Minor", CIM_UINT32, Value::uint32(9)));
    service.defineClass(sim::ClassDef(widget)
                            .property(L"InstanceName", CIM_STRING)
                            .property(L"Active", CIM_BOOLEAN, Value::boolean(true))
                            .property(L"Count", CIM_UINT32, Value::uint32(7))
                            .property(L"Small", CIM_UINT16)
                            .property(L"Tiny", CIM_SINT8)
                            .property(L"Octet", CIM_UINT8)
                            .property(L"Short", CIM_SINT16)
                            .property(L"Big", CIM_UINT64)
                            .property(L"Signed", CIM_SINT64)
                            .property(L"Ratio", CIM_REAL64)
                            .property(L"Version", CIM_OBJECT)
                            .property(L"Mac", CIM_UINT8 | CIM_FLAG_ARRAY)
                            .property(L"Names", CIM_STRING | CIM_FLAG_ARRAY)
                            .property(L"Unset", CIM_STRING)
                            .method(L"Reset", {{L"Mode", CIM_UINT32}, {L"Note", CIM_STRING}},
                                    {{L"Status", CIM_STRING}, {L"ReturnValue", CIM_UINT32}})
                            .method(L"Ping", {}, {{L"ReturnValue", CIM_UINT32}}));
    service.addInstance(widget, firstName,
                        {{L"Count", Value::uint32(0xFFFFFFFFU)},
                         {L"Small", Value::uint16(65535)},
                         {L"Tiny", Value::sint8(-5)},
                         {L"Octet", Value::uint8(200)},
                         {L"Short", Value::sint16(-300)},
                         {L"Big", Value::uint64(18446744073709551615ULL)},
                         {L"Signed", Value::sint64(-9000000000LL)},
                         {L"Ratio", Value::real64(0.5)},
                         {L"Version", Value::object({L"Sim_Version", {{L"Major", Value::uint32(3)}}})},
                         {L"Mac", Value::bytes({0x00, 0x1b, 0x21, 0xaa, 0xbb, 0xcc})},
                         {L"Names", Value::strings({L"a", L"b"})}});
    service.addInstance(widget, secondName);
}

void SimTest::SetUp()
{
    host::reset();
    bstrsBefore_ = host::liveBstrs();
    arraysBefore_ = host::liveSafeArrays();
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    service_.emplace();
    scriptModel(*service_);
    registration_.emplace(*service_);
    ASSERT_EQ(registration_->result(), S_OK);
}

void SimTest::TearDown()
{
    const sim::ReferenceCounts counts = service_->references();
    std::string live;
    for (const std::string& line : service_->liveObjects()) {
        live += "\n  " + line;
    }
    EXPECT_EQ(counts.references, 0) << "references the client still holds:" << live;
    EXPECT_EQ(counts.liveObjects, 0);
    EXPECT_EQ(counts.factoryReferences, 1) << "the COM runtime holds the registered factory";
    EXPECT_EQ(registration_->revoke(), S_OK);
    EXPECT_EQ(service_->references().liveFactories, 0) << "revoking gives the factory back";
    registration_.reset();
    service_.reset();
    CoUninitialize();
    EXPECT_EQ(host::liveBstrs(), bstrsBefore_) << "the service frees every string it made";
    EXPECT_EQ(host::liveSafeArrays(), arraysBefore_);
}

Ref<IWbemServices> SimTest::connect()
{
    Ref<IWbemLocator> locator;
    EXPECT_EQ(CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                               reinterpret_cast<void**>(locator.put())),
              S_OK);
    Ref<IWbemServices> services;
    if (locator) {
        const Bstr ns(L"root\\wmi");
        EXPECT_EQ(
            locator->ConnectServer(ns.get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr, services.put()),
            S_OK);
    }
    return services;
}

Ref<IWbemClassObject> SimTest::getObject(IWbemServices* services, const std::wstring& path)
{
    const Bstr text(path);
    Ref<IWbemClassObject> object;
    EXPECT_EQ(services->GetObject(text.get(), 0, nullptr, object.put(), nullptr), S_OK);
    return object;
}

std::vector<std::wstring> SimTest::enumerate(IWbemClassObject* object, LONG flags)
{
    std::vector<std::wstring> names;
    EXPECT_EQ(object->BeginEnumeration(flags), S_OK);
    for (;;) {
        BSTR name = nullptr;
        Var value;
        const HRESULT hr = object->Next(0, &name, &value, nullptr, nullptr);
        if (hr != S_OK) {
            EXPECT_EQ(hr, static_cast<HRESULT>(WBEM_S_NO_MORE_DATA));
            EXPECT_EQ(name, nullptr);
            break;
        }
        names.push_back(bstrText(name));
        SysFreeString(name);
    }
    EXPECT_EQ(object->EndEnumeration(), S_OK);
    return names;
}

}  // namespace simtest
