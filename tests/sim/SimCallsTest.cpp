// ExecMethod dispatch and event subscriptions, as a client of root\wmi sees them.
#include <gtest/gtest.h>

#include "SimClient.h"

namespace simtest {
namespace {

using sim::Value;

class SimCallsTest : public SimTest {
protected:
    Ref<IWbemServices> services_;

    void SetUp() override
    {
        SimTest::SetUp();
        services_ = connect();
    }
    void TearDown() override
    {
        services_.reset();
        SimTest::TearDown();
    }

    // Reset's in-parameters: Mode and Note put on a spawned signature instance.
    Ref<IWbemClassObject> resetParameters(LONG mode, const wchar_t* note)
    {
        const auto classObject = getObject(services_.get(), widget);
        Ref<IWbemClassObject> signature;
        Ref<IWbemClassObject> parameters;
        EXPECT_EQ(classObject->GetMethod(L"Reset", 0, signature.put(), nullptr), S_OK);
        EXPECT_EQ(signature->SpawnInstance(0, parameters.put()), S_OK);
        Var modeValue;
        (&modeValue)->vt = VT_I4;
        (&modeValue)->lVal = mode;
        EXPECT_EQ(parameters->Put(L"Mode", 0, &modeValue, 0), S_OK);
        Var noteValue;
        (&noteValue)->vt = VT_BSTR;
        (&noteValue)->bstrVal = SysAllocString(note);
        EXPECT_EQ(parameters->Put(L"Note", 0, &noteValue, 0), S_OK);
        return parameters;
    }
    HRESULT execMethod(const std::wstring& path, const std::wstring& method, IWbemClassObject* in,
                       Ref<IWbemClassObject>* out)
    {
        const Bstr pathText(path);
        const Bstr methodText(method);
        return services_->ExecMethod(pathText.get(), methodText.get(), 0, nullptr, in,
                                     out != nullptr ? out->put() : nullptr, nullptr);
    }
    HRESULT subscribe(const std::wstring& query, IWbemObjectSink* sink, const wchar_t* language = L"WQL")
    {
        const Bstr languageText(language);
        const Bstr queryText(query);
        return services_->ExecNotificationQueryAsync(languageText.get(), queryText.get(), 0, nullptr, sink);
    }
};

TEST_F(SimCallsTest, aHandlerSeesTheInstanceAndInParametersAndFillsTheOutObject)
{
    sim::MethodCall seen;
    service().onMethod(widget, L"Reset", [&](sim::MethodCall& call) {
        seen = call;
        call.setOutput(L"ReturnValue", Value::uint32(0));
        call.setOutput(L"Status", Value::string(L"done " + call.input(L"note").asString().value_or(L"?")));
        return S_OK;
    });
    const auto in = resetParameters(2, L"now");
    Ref<IWbemClassObject> out;
    ASSERT_EQ(execMethod(widgetPath(firstName), L"Reset", in.get(), &out), S_OK);

    EXPECT_EQ(seen.className, widget);
    EXPECT_EQ(seen.instanceName, firstName);
    EXPECT_EQ(seen.method, L"Reset");
    EXPECT_EQ(seen.input(L"Mode").asInteger(), 2);
    ASSERT_TRUE(out);
    Var returnValue;
    Var status;
    Var className;
    ASSERT_EQ(out->Get(L"ReturnValue", 0, &returnValue, nullptr, nullptr), S_OK);
    ASSERT_EQ(out->Get(L"Status", 0, &status, nullptr, nullptr), S_OK);
    ASSERT_EQ(out->Get(L"__CLASS", 0, &className, nullptr, nullptr), S_OK);
    EXPECT_EQ(returnValue->vt, VT_I4);
    EXPECT_EQ(returnValue->lVal, 0);
    EXPECT_EQ(bstrText(status->bstrVal), L"done now");
    EXPECT_EQ(bstrText(className->bstrVal), L"__PARAMETERS");
}

TEST_F(SimCallsTest, withoutInParametersTheHandlerSeesNulls)
{
    bool nullNote = false;
    service().onMethod(widget, L"Reset", [&](sim::MethodCall& call) {
        nullNote = call.input(L"Note").isNull();
        return S_OK;
    });
    Ref<IWbemClassObject> out;
    ASSERT_EQ(execMethod(widget, L"Reset", nullptr, &out), S_OK);
    EXPECT_TRUE(nullNote);
    ASSERT_TRUE(out) << "the declared out-parameters, unset";
    Var returnValue;
    ASSERT_EQ(out->Get(L"ReturnValue", 0, &returnValue, nullptr, nullptr), S_OK);
    EXPECT_EQ(returnValue->vt, VT_NULL);
}

TEST_F(SimCallsTest, execMethodFailuresHandOutNothing)
{
    service().onMethod(widget, L"Ping", [](sim::MethodCall&) { return WBEM_E_ACCESS_DENIED; });
    const struct {
        std::wstring path;
        const wchar_t* method;
        HRESULT expected;
    } cases[] = {
        {widgetPath(firstName), L"Explode", WBEM_E_INVALID_METHOD},
        {widgetPath(L"Third"), L"Ping", WBEM_E_NOT_FOUND},
        {L"Sim_Gadget", L"Ping", WBEM_E_INVALID_CLASS},
        {L"Sim_Widget.Key=1", L"Ping", WBEM_E_INVALID_OBJECT_PATH},
        {widgetPath(firstName), L"Ping", WBEM_E_ACCESS_DENIED},  // the handler's answer
        {widgetPath(firstName), L"Reset", WBEM_E_NOT_SUPPORTED},  // no handler scripted
    };
    for (const auto& c : cases) {
        Ref<IWbemClassObject> out;
        EXPECT_EQ(execMethod(c.path, c.method, nullptr, &out), c.expected) << c.path << L" " << c.method;
        EXPECT_FALSE(out);
    }
}

TEST_F(SimCallsTest, aHandlerMayChangeTheModelItRunsOn)
{
    service().onMethod(widget, L"Ping", [this](sim::MethodCall& call) {
        service().setProperty(widget, call.instanceName, L"Active", Value::boolean(false));
        return S_OK;
    });
    ASSERT_EQ(execMethod(widgetPath(secondName), L"Ping", nullptr, nullptr), S_OK);
    EXPECT_EQ(service().property(widget, secondName, L"Active")->asBoolean(), false);
}

TEST_F(SimCallsTest, aSubscriptionHoldsItsSinkUntilCancelled)
{
    CountingSink sink;
    ASSERT_EQ(subscribe(L"SELECT * FROM Sim_Widget WHERE InstanceName = \"PCI\\VEN_1&DEV_2\\3&0\"", &sink),
              S_OK);
    EXPECT_EQ(sink.references, 2U) << "the service keeps its own reference";
    const auto held = service().subscriptions();
    ASSERT_EQ(held.size(), 1U);
    EXPECT_EQ(held[0].className, widget);
    EXPECT_EQ(held[0].instanceName, std::optional<std::wstring>(firstName));

    EXPECT_EQ(services_->CancelAsyncCall(&sink), S_OK);
    EXPECT_EQ(sink.references, 1U);
    EXPECT_TRUE(service().subscriptions().empty());
    EXPECT_EQ(services_->CancelAsyncCall(&sink), WBEM_E_NOT_FOUND);
}

TEST_F(SimCallsTest, onlyTheConnectionThatSubscribedCanCancel)
{
    CountingSink sink;
    ASSERT_EQ(subscribe(L"select * from sim_widget", &sink), S_OK);
    const auto other = connect();
    EXPECT_EQ(other->CancelAsyncCall(&sink), WBEM_E_NOT_FOUND);
    EXPECT_EQ(services_->CancelAsyncCall(&sink), S_OK);
}

TEST_F(SimCallsTest, badQueriesAreRefusedWithoutKeepingTheSink)
{
    const struct {
        const wchar_t* query;
        const wchar_t* language;
        HRESULT expected;
    } cases[] = {
        {L"SELECT * FROM Sim_Gadget", L"WQL", WBEM_E_INVALID_CLASS},
        {L"SELECT Count FROM Sim_Widget", L"WQL", WBEM_E_INVALID_QUERY},
        {L"SELECT * Sim_Widget", L"WQL", WBEM_E_INVALID_QUERY},
        {L"SELECT * FROM Sim_Widget WHERE Count = 1", L"WQL", WBEM_E_INVALID_QUERY},
        {L"SELECT * FROM Sim_Widget WHERE InstanceName = \"open", L"WQL", WBEM_E_INVALID_QUERY},
        {L"SELECT * FROM Sim_Widget trailing", L"WQL", WBEM_E_INVALID_QUERY},
        {L"SELECT * FROM Sim_Widget", L"SQL", WBEM_E_INVALID_QUERY_TYPE},
    };
    for (const auto& c : cases) {
        CountingSink sink;
        EXPECT_EQ(subscribe(c.query, &sink, c.language), c.expected) << c.query;
        EXPECT_EQ(sink.references, 1U) << c.query;
    }
    EXPECT_EQ(subscribe(L"SELECT * FROM Sim_Widget", nullptr), WBEM_E_INVALID_PARAMETER);
    EXPECT_TRUE(service().subscriptions().empty());
}

TEST_F(SimCallsTest, shutdownReleasesEverySinkStillHeld)
{
    CountingSink first;
    CountingSink second;
    ASSERT_EQ(subscribe(L"SELECT * FROM Sim_Widget", &first), S_OK);
    ASSERT_EQ(subscribe(L"SELECT * FROM Sim_Version", &second), S_OK);
    services_.reset();
    EXPECT_EQ(first.references, 2U) << "releasing the connection doesn't cancel, as in WMI";
    service().shutdown();
    EXPECT_EQ(first.references, 1U);
    EXPECT_EQ(second.references, 1U);
    Ref<IWbemLocator> locator;
    EXPECT_EQ(CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                               reinterpret_cast<void**>(locator.put())),
              WBEM_E_SHUTTING_DOWN)
        << "a shut-down service makes no new objects";
}

}  // namespace
}  // namespace simtest
