#include "WmiFixture.h"

#include <algorithm>

void WmiFixture::SetUp()
{
    ASSERT_TRUE(registration_.registered());
    service_.defineClass(
        sim::ClassDef(L"Test_Details").property(L"Temperature", CIM_SINT32, sim::Value::sint32(41)));
    service_.defineClass(sim::ClassDef(L"Test_Adapter")
                             .property(L"InstanceName", CIM_STRING)
                             .property(L"Active", CIM_BOOLEAN, sim::Value::boolean(true))
                             .property(L"Speed", CIM_UINT8, sim::Value::uint8(200))
                             .property(L"Count", CIM_SINT32, sim::Value::sint32(-7))
                             .property(L"Name", CIM_STRING, sim::Value::string(L"ZT 10G"))
                             .property(L"Unset", CIM_SINT32)
                             .property(L"Details", CIM_OBJECT)
                             .method(L"Reset", {{L"Level", CIM_SINT32}}, {{L"ReturnValue", CIM_UINT32}})
                             .method(L"Probe", {}, {{L"ReturnValue", CIM_UINT32}}));
    service_.addInstance(L"Test_Adapter", L"eth 0 #1",
                         {{L"Details", sim::Value::object({L"Test_Details", {}})}});
    service_.onMethod(L"Test_Adapter", L"Reset", [](sim::MethodCall& call) {
        const auto level = call.input(L"Level").asInteger();
        call.setOutput(L"ReturnValue", sim::Value::uint32(level ? static_cast<std::uint32_t>(*level) : 99U));
        return S_OK;
    });
    host::clearDebugOutput();
}

void WmiFixture::TearDown()
{
    const auto refs = service_.references();
    EXPECT_EQ(refs.liveObjects, 0) << ::testing::PrintToString(service_.liveObjects());
    EXPECT_EQ(refs.references, 0);
}

int WmiFixture::callsOf(const std::string& name) const
{
    const auto calls = service_.calls();
    return static_cast<int>(
        std::count_if(calls.begin(), calls.end(), [&](const sim::CallRecord& c) { return c.call == name; }));
}
