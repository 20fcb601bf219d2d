#include <gtest/gtest.h>

#include "WmiFixture.h"
#include "host/CountingUnknown.h"
#include "wmi/WbemServices.h"

namespace {

const wchar_t* const adapterPath = L"Test_Adapter.InstanceName=\"eth 0 #1\"";

class WbemClassObjectTest : public WmiFixture { };

TEST_F(WbemClassObjectTest, snapshotHoldsTheNonSystemPropertiesButInstanceNameAndActive)
{
    onNewThread([&] {
        const WbemClassObject adapter = threadWbemServices().getObject(adapterPath);
        ASSERT_FALSE(adapter.isEmpty());
        EXPECT_EQ(variantToString(adapter[L"Speed"]), L"200");
        EXPECT_EQ(variantToString(adapter[L"Count"]), L"-7");
        EXPECT_EQ(variantToString(adapter[L"Name"]), L"ZT 10G");
        EXPECT_EQ(adapter[L"Unset"].vartype(), VT_NULL) << "present and null stands in the map";
        for (const wchar_t* absent : {L"Active", L"InstanceName", L"__CLASS", L"speed", L"Missing"}) {
            EXPECT_EQ(&adapter[absent], &emptyVariant) << "no entry for that name";
        }
    });
}

TEST_F(WbemClassObjectTest, typedGettersWriteOnlyAnExactType)
{
    onNewThread([&] {
        const WbemClassObject adapter = threadWbemServices().getObject(adapterPath);
        host::clearDebugOutput();
        std::int32_t number = 1234;
        std::uint8_t byte = 0;
        IUnknown* object = nullptr;
        EXPECT_TRUE(adapter.getIntProperty(L"Count", number));
        EXPECT_EQ(number, -7);
        EXPECT_TRUE(adapter.getByteProperty(L"Speed", byte));
        EXPECT_EQ(byte, 200);
        // Another type or no property at all: in the ZtNic tests' temperature cases.
        number = 1234;
        EXPECT_FALSE(adapter.getIntProperty(L"Unset", number));
        EXPECT_FALSE(adapter.getObjectProperty(L"Name", &object));
        EXPECT_EQ(number, 1234) << "untouched on failure";
        EXPECT_EQ(object, nullptr);
        EXPECT_EQ(tracedMessages(),
                  (Messages{"[!] property 'Unset' has invalid type (1)",
                            "[!] property 'Name' has invalid type (8)"}));

        // An embedded object lives as long as its container; a wrapper that keeps
        // it takes a reference of its own.
        ASSERT_TRUE(adapter.getObjectProperty(L"Details", &object));
        IWbemClassObject* details = nullptr;
        ASSERT_EQ(object->QueryInterface(IID_IWbemClassObject, reinterpret_cast<void**>(&details)), S_OK);
        details->Release();
        const WbemClassObject kept(details, true);
        EXPECT_EQ(variantToString(kept[L"Temperature"]), L"41");
    });
}

// An object, or none (read as one with no properties), is in the ZtNic tests'
// thermalInfo and diagRes cases.
TEST_F(WbemClassObjectTest, embeddedObjectLeavesTheTargetAloneForAnInterfaceThatIsNoObject)
{
    onNewThread([&] {
        host::CountingUnknown other;  // answers IUnknown only
        WbemClassObject out = threadWbemServices().getObject(adapterPath);
        EXPECT_FALSE(embeddedObject(&other, out));
        EXPECT_EQ(variantToString(out[L"Name"]), L"ZT 10G");
    });
}

TEST_F(WbemClassObjectTest, enumerationFailuresLeaveWhatWasRead)
{
    struct Case {
        const char* what;
        sim::Fault fault;
        bool hasSpeed;
        Messages lines;
    };
    const Case cases[] = {
        {"BeginEnumeration fails",
         sim::Fault::on("BeginEnumeration", WBEM_E_FAILED),
         false,
         {"[!] couldn't start property enumeration, hr = 0x80041001"}},
        {"Next answers a positive code at once", sim::Fault::on("Next", 1), false, {}},
        {"Next fails after two properties",
         sim::Fault::on("Next", WBEM_E_FAILED).fromCall(3),
         false,
         {"property 'InstanceName' = 'eth 0 #1'", "property 'Active' = 'true'"}},
        {"Next fails after three properties",
         sim::Fault::on("Next", WBEM_E_FAILED).fromCall(4),
         true,
         {"property 'InstanceName' = 'eth 0 #1'", "property 'Active' = 'true'", "property 'Speed' = '200'"}},
    };
    for (const auto& c : cases) {
        service_.clearFaults();
        service_.injectFault(c.fault);
        service_.clearCalls();
        onNewThread([&] {
            WbemServices& services = threadWbemServices();
            host::clearDebugOutput();
            const WbemClassObject adapter = services.getObject(adapterPath);
            EXPECT_FALSE(adapter.isEmpty()) << c.what << ": the object stays";
            EXPECT_EQ(adapter[L"Speed"].vartype() == VT_UI1, c.hasSpeed) << c.what;
            Messages lines = tracedMessages();
            lines.erase(lines.begin());  // the GetObject line
            EXPECT_EQ(lines, c.lines) << c.what;
        });
        EXPECT_EQ(callsOf("EndEnumeration"), c.fault.call == "Next" ? 1 : 0) << c.what;
    }
}

TEST_F(WbemClassObjectTest, getMethodGivesAFreshInstanceOfTheInputSignature)
{
    onNewThread([&] {
        const WbemClassObject adapterClass = threadWbemServices().getObject(L"Test_Adapter");
        const WbemClassObject input = adapterClass.getMethod(L"Reset");
        ASSERT_FALSE(input.isEmpty());
        EXPECT_EQ(input[L"Level"].vartype(), VT_NULL);
        EXPECT_EQ(callsOf("SpawnInstance"), 1);

        EXPECT_TRUE(adapterClass.getMethod(L"Probe").isEmpty()) << "no in-parameters, no signature";
        EXPECT_TRUE(adapterClass.getMethod(L"Missing").isEmpty());
        EXPECT_EQ(callsOf("SpawnInstance"), 1);

        service_.injectFault(sim::Fault::on("SpawnInstance", WBEM_E_OUT_OF_MEMORY));
        host::clearDebugOutput();
        EXPECT_TRUE(adapterClass.getMethod(L"Reset").isEmpty());
        EXPECT_EQ(tracedMessages().back(), "[!] failed to spawn instance, hr = 0x80041006");
    });
}

TEST_F(WbemClassObjectTest, moveLeavesTheSourceEmptyAndReleasesOnce)
{
    onNewThread([&] {
        WbemClassObject source = threadWbemServices().getObject(adapterPath);
        WbemClassObject target(std::move(source));
        // The moved-from state is what is tested here.
        // NOLINTBEGIN(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
        EXPECT_TRUE(source.isEmpty());
        EXPECT_EQ(source[L"Speed"].vartype(), VT_EMPTY);
        EXPECT_TRUE(source.getMethod(L"Reset").isEmpty());
        // NOLINTEND(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
        EXPECT_EQ(variantToString(target[L"Speed"]), L"200");
        WbemClassObject other = threadWbemServices().getObject(L"Test_Adapter");
        const long before = service_.references().liveObjects;
        other = std::move(target);
        EXPECT_EQ(service_.references().liveObjects, before - 1)
            << "the class object held before is released";
        EXPECT_EQ(variantToString(other[L"Name"]), L"ZT 10G");
    });
}

// The plain case is in every ExecMethod and GetObject line of the NdisWmi and ZtNic tests.
TEST(ObjectInstancePath, instanceNameGoesInAsItIs)
{
    EXPECT_EQ(objectInstancePath(L"C", L"a\"b\\c"), L"C.InstanceName=\"a\"b\\c\"");
}

}  // namespace
