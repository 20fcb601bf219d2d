// The NDIS provider: the header checks of WmiQueryLinkState, answers per
// addressed adapter, what it records of a request, and the adapter events.
#include <gtest/gtest.h>

#include <functional>

#include "RecordingSink.h"
#include "SimClient.h"
#include "sim/Ndis.h"

namespace simtest {
namespace {

using namespace std::chrono_literals;
using sim::LinkState;

const HRESULT invalidParameter = static_cast<HRESULT>(WBEM_E_INVALID_PARAMETER);
const HRESULT invalidMethodParameters = static_cast<HRESULT>(WBEM_E_INVALID_METHOD_PARAMETERS);
const HRESULT notFound = static_cast<HRESULT>(WBEM_E_NOT_FOUND);

// Names with blanks, '#', a quote and backslashes, compared exactly.
const wchar_t* const first = L"Zt Ethernet #2 'lab' PCI\\VEN_8086&DEV_1533\\3&11583659&0&C8";
const wchar_t* const second = L"Zt Ethernet";

// How a test changes the records the client sends, as the module builds them.
struct Records {
    IWbemClassObject* objectHeader;  // MSNdis_ObjectHeader
    IWbemClassObject* methodHeader;  // MSNdis_WmiMethodHeader
    IWbemClassObject* in;  // WmiQueryLinkState's in-parameters
    IWbemClassObject* other;  // an MSNdis_LinkStateData: a record of the wrong class
};
using Change = std::function<void(Records&)>;

class SimNdisTest : public SimTest {
protected:
    void SetUp() override
    {
        SimTest::SetUp();
        ndis_.emplace(service());
        services_ = connect();
    }
    void TearDown() override
    {
        EXPECT_TRUE(service().drain(10s));
        services_.reset();
        service().shutdown();
        EXPECT_EQ(sink_.references.load(), 1U);
        ndis_.reset();
        SimTest::TearDown();
    }

    Ref<IWbemClassObject> spawn(const wchar_t* className)
    {
        const auto classObject = getObject(services_.get(), className);
        Ref<IWbemClassObject> instance;
        EXPECT_EQ(classObject->SpawnInstance(0, instance.put()), S_OK);
        return instance;
    }
    static void put(IWbemClassObject* object, const wchar_t* name, VARIANT value)
    {
        EXPECT_EQ(object->Put(name, 0, &value, 0), S_OK) << "Put " << name;
    }
    static VARIANT i4(LONG value)
    {
        VARIANT v{};
        v.vt = VT_I4;
        v.lVal = value;
        return v;
    }
    static VARIANT null()
    {
        VARIANT v{};
        v.vt = VT_NULL;
        return v;
    }
    static VARIANT ui1(BYTE value)
    {
        VARIANT v{};
        v.vt = VT_UI1;
        v.bVal = value;
        return v;
    }
    static VARIANT unknown(IUnknown* object)
    {
        VARIANT v{};
        v.vt = VT_UNKNOWN;
        v.punkVal = object;  // Put copies: the caller keeps its reference
        return v;
    }

    // The query as the module sends it (Revision 1, Type 2, Size 65535, zeros,
    // Timeout 5), after `change`; ExecMethod on `path`.
    HRESULT query(const std::wstring& path, const Change& change, Ref<IWbemClassObject>& out)
    {
        auto objectHeader = spawn(L"MSNdis_ObjectHeader");
        put(objectHeader.get(), L"Revision", ui1(1));
        put(objectHeader.get(), L"Type", ui1(2));
        put(objectHeader.get(), L"Size", i4(0xFFFF));
        auto methodHeader = spawn(L"MSNdis_WmiMethodHeader");
        put(methodHeader.get(), L"Header", unknown(objectHeader.get()));
        for (const wchar_t* name : {L"NetLuid", L"Padding", L"PortNumber", L"RequestId"}) {
            put(methodHeader.get(), name, i4(0));
        }
        put(methodHeader.get(), L"Timeout", i4(5));
        const auto linkStateClass = getObject(services_.get(), L"MSNdis_LinkState");
        Ref<IWbemClassObject> signature;
        EXPECT_EQ(linkStateClass->GetMethod(L"WmiQueryLinkState", 0, signature.put(), nullptr), S_OK);
        Ref<IWbemClassObject> in;
        EXPECT_EQ(signature->SpawnInstance(0, in.put()), S_OK);
        put(in.get(), L"Header", unknown(methodHeader.get()));
        auto other = spawn(L"MSNdis_LinkStateData");
        Records records{objectHeader.get(), methodHeader.get(), in.get(), other.get()};
        if (change) {
            change(records);
        }
        const Bstr pathText(path);
        const Bstr method(L"WmiQueryLinkState");
        return services_->ExecMethod(pathText.get(), method.get(), 0, nullptr, in.get(), out.put(), nullptr);
    }
    HRESULT query(const std::wstring& instanceName, const Change& change = {})
    {
        Ref<IWbemClassObject> out;
        return query(linkStatePath(instanceName), change, out);
    }
    static std::wstring linkStatePath(const std::wstring& instanceName)
    {
        return L"MSNdis_LinkState.InstanceName=\"" + instanceName + L"\"";
    }
    // The LinkState answer's property `name`, as text (integers and decimal text).
    std::wstring answered(const std::wstring& instanceName, const wchar_t* name, VARTYPE* type = nullptr)
    {
        Ref<IWbemClassObject> out;
        EXPECT_EQ(query(linkStatePath(instanceName), {}, out), S_OK);
        if (!out) {
            return L"";
        }
        Var linkState;
        EXPECT_EQ(out->Get(L"LinkState", 0, &linkState, nullptr, nullptr), S_OK);
        if (linkState->vt != VT_UNKNOWN) {
            ADD_FAILURE() << "LinkState is not an object";
            return L"";
        }
        Ref<IWbemClassObject> data;
        EXPECT_EQ(
            linkState->punkVal->QueryInterface(IID_IWbemClassObject, reinterpret_cast<void**>(data.put())),
            S_OK);
        Var value;
        EXPECT_EQ(data->Get(name, 0, &value, nullptr, nullptr), S_OK);
        if (type != nullptr) {
            *type = value->vt;
        }
        return value->vt == VT_BSTR ? bstrText(value->bstrVal) : std::to_wstring(value->lVal);
    }
    HRESULT subscribe(const std::wstring& query)
    {
        const Bstr language(L"WQL");
        const Bstr text(query);
        return services_->ExecNotificationQueryAsync(language.get(), text.get(), 0, nullptr, &sink_);
    }

    std::optional<sim::NdisProvider> ndis_;
    Ref<IWbemServices> services_;
    RecordingSink sink_;
};

TEST_F(SimNdisTest, theHeaderIsCheckedAsAProviderWould)
{
    ndis_->addAdapter(first);
    const struct {
        const char* name;
        Change change;
        HRESULT expected;
    } cases[] = {
        {"as the module sends it", {}, S_OK},
        {"smallest size", [](Records& r) { put(r.objectHeader, L"Size", i4(32)); }, S_OK},
        {"size one short", [](Records& r) { put(r.objectHeader, L"Size", i4(31)); }, invalidParameter},
        {"size unset", [](Records& r) { put(r.objectHeader, L"Size", null()); }, invalidParameter},
        {"revision 0", [](Records& r) { put(r.objectHeader, L"Revision", ui1(0)); }, invalidParameter},
        {"revision 2", [](Records& r) { put(r.objectHeader, L"Revision", ui1(2)); }, invalidParameter},
        {"type 0x80", [](Records& r) { put(r.objectHeader, L"Type", ui1(0x80)); }, invalidParameter},
        {"type 1", [](Records& r) { put(r.objectHeader, L"Type", ui1(1)); }, invalidParameter},
        {"timeout unset", [](Records& r) { put(r.methodHeader, L"Timeout", null()); }, invalidParameter},
        {"no object header", [](Records& r) { put(r.methodHeader, L"Header", null()); }, invalidParameter},
        {"object header in place of the method header",
         [](Records& r) { put(r.in, L"Header", unknown(r.objectHeader)); }, invalidParameter},
        {"another record in place of the object header",
         [](Records& r) { put(r.methodHeader, L"Header", unknown(r.other)); }, invalidParameter},
        {"no header", [](Records& r) { put(r.in, L"Header", null()); }, invalidMethodParameters},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ndis_->clearRequests();
        Ref<IWbemClassObject> out;
        EXPECT_EQ(query(linkStatePath(first), c.change, out), c.expected);
        EXPECT_EQ(static_cast<bool>(out), c.expected == S_OK) << "a failed call hands out nothing";
        const auto requests = ndis_->requests();
        ASSERT_EQ(requests.size(), 1U);
        EXPECT_EQ(requests[0].result, c.expected);
    }
}

TEST_F(SimNdisTest, recordsTheHeaderValuesAndTypesTheClientSent)
{
    ndis_->addAdapter(first);
    ASSERT_EQ(query(first), S_OK);

    const auto requests = ndis_->requests();
    ASSERT_EQ(requests.size(), 1U);
    const sim::LinkStateRequest& r = requests[0];
    EXPECT_EQ(r.instanceName, first);
    EXPECT_EQ(r.result, S_OK);
    EXPECT_EQ(r.header.type, VT_UNKNOWN);
    EXPECT_EQ(r.header.className, L"MSNdis_WmiMethodHeader");
    EXPECT_EQ(r.objectHeader.type, VT_UNKNOWN);
    EXPECT_EQ(r.objectHeader.className, L"MSNdis_ObjectHeader");
    const struct {
        const char* name;
        const sim::ReceivedValue& value;
        VARTYPE type;
        std::int64_t number;
    } fields[] = {
        {"Revision", r.revision, VT_UI1, 1},  {"Type", r.type, VT_UI1, 2},
        {"Size", r.size, VT_I4, 65535},       {"NetLuid", r.netLuid, VT_BSTR, 0},
        {"Padding", r.padding, VT_I4, 0},     {"PortNumber", r.portNumber, VT_I4, 0},
        {"RequestId", r.requestId, VT_I4, 0}, {"Timeout", r.timeout, VT_I4, 5},
    };
    for (const auto& f : fields) {
        SCOPED_TRACE(f.name);
        EXPECT_TRUE(f.value.present);
        EXPECT_EQ(f.value.type, f.type);
        EXPECT_EQ(f.value.number, f.number);
    }
}

TEST_F(SimNdisTest, answersForTheAddressedAdapterOnly)
{
    LinkState slow;
    slow.mediaConnectState = sim::ndis::mediaDisconnected;
    slow.xmitLinkSpeed = 100000000;
    slow.rcvLinkSpeed = 10000000;
    slow.mediaDuplexState = sim::ndis::duplexHalf;
    LinkState fast;
    fast.xmitLinkSpeed = 10000000000ULL;
    ndis_->addAdapter(first, slow);
    ndis_->addAdapter(second, fast);

    VARTYPE type = VT_EMPTY;
    EXPECT_EQ(answered(first, L"XmitLinkSpeed", &type), L"100000000");
    EXPECT_EQ(type, VT_BSTR);
    EXPECT_EQ(answered(first, L"RcvLinkSpeed"), L"10000000");
    EXPECT_EQ(answered(first, L"MediaConnectState", &type), L"2");
    EXPECT_EQ(type, VT_I4);
    EXPECT_EQ(answered(first, L"MediaDuplexState"), L"1");
    EXPECT_EQ(answered(second, L"XmitLinkSpeed"), L"10000000000");
    EXPECT_EQ(answered(second, L"MediaConnectState"), L"1");

    EXPECT_EQ(query(L"zt ethernet"), notFound) << "names are compared exactly";
    EXPECT_EQ(query(std::wstring(second) + L" "), notFound);
    Ref<IWbemClassObject> out;
    EXPECT_EQ(query(L"MSNdis_LinkState", {}, out), static_cast<HRESULT>(WBEM_E_INVALID_OBJECT_PATH));
}

TEST_F(SimNdisTest, mediaEventsChangeTheAnswerAndReachTheAdaptersSubscription)
{
    ndis_->addAdapter(first);
    ndis_->addAdapter(second);
    ASSERT_EQ(subscribe(L"SELECT * FROM MSNdis_StatusMediaDisconnect WHERE InstanceName=\""
                        + std::wstring(first) + L"\""),
              S_OK);
    ASSERT_EQ(subscribe(L"SELECT * FROM MSNdis_StatusMediaConnect WHERE InstanceName=\"" + std::wstring(first)
                        + L"\""),
              S_OK);

    EXPECT_EQ(ndis_->disconnect(second).get().subscriptions, 0);
    EXPECT_EQ(answered(first, L"MediaConnectState"), L"1");
    EXPECT_EQ(answered(second, L"MediaConnectState"), L"2");

    EXPECT_EQ(ndis_->disconnect(first).get().indicated, 1);
    EXPECT_EQ(answered(first, L"MediaConnectState"), L"2");
    EXPECT_EQ(ndis_->connect(first).get().indicated, 1);
    EXPECT_EQ(answered(first, L"MediaConnectState"), L"1");

    const auto seen = sink_.indicates();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0].objects.at(0).className, L"MSNdis_StatusMediaDisconnect");
    EXPECT_EQ(seen[1].objects.at(0).className, L"MSNdis_StatusMediaConnect");
    EXPECT_EQ(seen[1].objects.at(0).instanceName, first);
}

TEST_F(SimNdisTest, removalEndsTheQueriesAndArrivalBringsThemBack)
{
    ndis_->addAdapter(first);
    ASSERT_EQ(subscribe(L"SELECT * FROM MSNdis_NotifyAdapterRemoval"), S_OK);
    ASSERT_EQ(subscribe(L"SELECT * FROM MSNdis_NotifyAdapterArrival"), S_OK);

    EXPECT_EQ(ndis_->remove(first).get().indicated, 1);
    EXPECT_EQ(query(first), notFound);
    EXPECT_FALSE(ndis_->hasAdapter(first));
    EXPECT_THROW(ndis_->disconnect(first), std::invalid_argument);

    LinkState back;
    back.xmitLinkSpeed = 2500000000ULL;
    EXPECT_EQ(ndis_->arrive(first, back).get().indicated, 1);
    EXPECT_EQ(answered(first, L"XmitLinkSpeed"), L"2500000000");
    const auto seen = sink_.indicates();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0].objects.at(0).className, L"MSNdis_NotifyAdapterRemoval");
    EXPECT_EQ(seen[1].objects.at(0).className, L"MSNdis_NotifyAdapterArrival");
    EXPECT_EQ(seen[1].objects.at(0).instanceName, first);
}

// An event sink that reads the payload of the speed and operational status events.
class PayloadSink final : public IWbemObjectSink {
public:
    PayloadSink() = default;
    virtual ~PayloadSink() = default;
    PayloadSink(const PayloadSink&) = delete;
    PayloadSink& operator=(const PayloadSink&) = delete;
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override
    {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++references; }
    ULONG STDMETHODCALLTYPE Release() override { return --references; }
    HRESULT STDMETHODCALLTYPE SetStatus(LONG, HRESULT, BSTR, IWbemClassObject*) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE Indicate(LONG count, IWbemClassObject** objects) override
    {
        for (LONG i = 0; i < count; ++i) {
            Var speeds;
            if (SUCCEEDED(objects[i]->Get(L"NdisStatusLinkSpeedChange", 0, &speeds, nullptr, nullptr))) {
                EXPECT_EQ(speeds->vt, VT_ARRAY | VT_UNKNOWN);
                LONG upper = -1;
                SafeArrayGetUBound(speeds->parray, 1, &upper);
                EXPECT_EQ(upper, 0);
                void* data = nullptr;
                SafeArrayAccessData(speeds->parray, &data);
                Ref<IWbemClassObject> speed;
                static_cast<IUnknown**>(data)[0]->QueryInterface(IID_IWbemClassObject,
                                                                 reinterpret_cast<void**>(speed.put()));
                SafeArrayUnaccessData(speeds->parray);
                Var outbound;
                speed->Get(L"Outbound", 0, &outbound, nullptr, nullptr);
                Var inbound;
                speed->Get(L"Inbound", 0, &inbound, nullptr, nullptr);
                const std::lock_guard<std::mutex> guard(lock);
                seen.push_back(bstrText(outbound->bstrVal) + L"/" + bstrText(inbound->bstrVal));
            }
            Var status;
            if (SUCCEEDED(objects[i]->Get(L"NdisOperationalStatusStatusIndication", 0, &status, nullptr,
                                          nullptr))) {
                EXPECT_EQ(status->vt, VT_ARRAY | VT_UI1);
                LONG upper = -1;
                SafeArrayGetUBound(status->parray, 1, &upper);
                std::wstring bytes;
                void* data = nullptr;
                SafeArrayAccessData(status->parray, &data);
                for (LONG index = 0; index <= upper; ++index) {
                    bytes += std::to_wstring(static_cast<const BYTE*>(data)[index]) + L" ";
                }
                SafeArrayUnaccessData(status->parray);
                const std::lock_guard<std::mutex> guard(lock);
                seen.push_back(bytes);
            }
        }
        return S_OK;
    }

    std::atomic<ULONG> references{1};
    std::mutex lock;
    std::vector<std::wstring> seen;
};

TEST_F(SimNdisTest, speedAndOperationalStatusEventsCarryTheirPayload)
{
    ndis_->addAdapter(second);
    PayloadSink payload;
    for (const wchar_t* query :
         {L"SELECT * FROM MSNdis_StatusLinkSpeedChange", L"SELECT * FROM MSNdis_StatusOperationalStatus"}) {
        const Bstr language(L"WQL");
        const Bstr text(query);
        ASSERT_EQ(services_->ExecNotificationQueryAsync(language.get(), text.get(), 0, nullptr, &payload),
                  S_OK);
    }

    EXPECT_EQ(ndis_->changeLinkSpeed(second, 100000000, 10000000).get().indicated, 1);
    EXPECT_EQ(ndis_->changeOperationalStatus(second, 2, 0x101).get().indicated, 1);

    EXPECT_EQ(answered(second, L"XmitLinkSpeed"), L"100000000");
    EXPECT_EQ(answered(second, L"RcvLinkSpeed"), L"10000000");
    {
        const std::lock_guard<std::mutex> guard(payload.lock);
        ASSERT_EQ(payload.seen.size(), 2U);
        EXPECT_EQ(payload.seen[0], L"100000000/10000000");
        EXPECT_EQ(payload.seen[1], L"128 1 12 0 2 0 0 0 1 1 0 0 ");
    }
    EXPECT_EQ(services_->CancelAsyncCall(&payload), S_OK);
    EXPECT_EQ(payload.references.load(), 1U);
}

}  // namespace
}  // namespace simtest
