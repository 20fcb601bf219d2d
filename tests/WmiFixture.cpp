#include "WmiFixture.h"

#include <chrono>

#include "host/HostWindows.h"

sim::Value noInterface()
{
    VARIANT v{};
    v.vt = VT_UNKNOWN;
    return sim::Value::raw(v);
}

WmiFixture::WmiFixture(sim::AdapterSettings settings)
    : sim_(std::move(settings)), service_(sim_.service()), ndis_(&sim_.ndis()), driver_(&sim_.driver())
{
}

void WmiFixture::SetUp()
{
    ASSERT_EQ(sim_.registration(), S_OK);
    using sim::Value;
    service_.defineClass({L"Test_Details", {{L"Temperature", Value::sint32(41)}}, {}});
    service_.defineClass({L"Test_Adapter",
                          {{L"InstanceName", Value()},
                           {L"Active", Value::boolean(true)},
                           {L"Speed", Value::uint8(200)},
                           {L"Count", Value::sint32(-7)},
                           {L"Name", Value::string(L"ZT 10G")},
                           {L"Unset", Value()},
                           {L"Details", Value()}},
                          {{L"Reset", {L"Level"}, {L"ReturnValue"}}, {L"Probe", {}, {L"ReturnValue"}}}});
    service_.addInstance(L"Test_Adapter", L"eth 0 #1", {{L"Details", Value::object({L"Test_Details", {}})}});
    service_.onMethod(L"Test_Adapter", L"Reset", [](sim::MethodCall& call) {
        const auto level = call.input(L"Level").asInteger();
        call.setOutput(L"ReturnValue", Value::uint32(level ? static_cast<std::uint32_t>(*level) : 99U));
        return S_OK;
    });
    host::clearDebugOutput();
    tlsValuesLeft_ = host::tlsValuesLeftAtThreadEnd();
}

void WmiFixture::TearDown()
{
    EXPECT_TRUE(service_.drain(std::chrono::seconds(10)));
    driver_->shutdown();
    const auto refs = service_.references();
    EXPECT_EQ(refs.liveObjects, 0) << ::testing::PrintToString(service_.liveObjects());
    EXPECT_EQ(refs.references, 0);
    EXPECT_EQ(host::tlsValuesLeftAtThreadEnd(), tlsValuesLeft_) << "a thread ended holding its connection";
}

std::vector<std::wstring> WmiFixture::targetsOf(const std::string& name) const
{
    std::vector<std::wstring> targets;
    for (const auto& call : service_.calls()) {
        if (call.call == name) {
            targets.push_back(call.target);
        }
    }
    return targets;
}
