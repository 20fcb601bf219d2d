// The simulated ZT driver as the module's client code sees it through root\wmi:
// value shapes, the cable test run and its link hooks, removal and bad shapes.
#include "sim/ZtDriver.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <future>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>

#include "SimClient.h"

namespace simtest {
namespace {

using sim::Value;
using sim::ZtDriver;
using sim::ZtField;
using sim::ZtMethod;

const wchar_t* const nic = L"ZT 10G Network Adapter #2";

struct MethodResult {
    HRESULT result = E_FAIL;
    Ref<IWbemClassObject> out;
};

HRESULT get(IWbemClassObject* object, const wchar_t* name, Var& value)
{
    return object->Get(name, 0, &value, nullptr, nullptr);
}

Ref<IWbemClassObject> embedded(IWbemClassObject* object, const wchar_t* name)
{
    Var value;
    Ref<IWbemClassObject> inner;
    EXPECT_EQ(get(object, name, value), S_OK) << name;
    EXPECT_EQ(value->vt, VT_UNKNOWN) << name;
    if (value->vt == VT_UNKNOWN) {
        EXPECT_EQ(value->punkVal->QueryInterface(IID_IWbemClassObject, reinterpret_cast<void**>(inner.put())),
                  S_OK);
    }
    return inner;
}

// The words of a VT_ARRAY|VT_I4 as the client copies them out.
std::vector<std::uint32_t> words(const VARIANT& value)
{
    EXPECT_EQ(value.vt, VT_ARRAY | VT_I4);
    EXPECT_EQ(SafeArrayGetElemsize(value.parray), 4U);
    std::vector<std::uint32_t> result(value.parray->rgsabound[0].cElements);
    void* data = nullptr;
    EXPECT_EQ(SafeArrayAccessData(value.parray, &data), S_OK);
    if (!result.empty()) {
        std::memcpy(result.data(), data, result.size() * 4);
    }
    SafeArrayUnaccessData(value.parray);
    return result;
}

class ZtDriverTest : public SimTest {
protected:
    std::optional<ZtDriver> driver_;
    Ref<IWbemServices> services_;
    std::mutex eventsLock_;
    std::vector<std::wstring> events_;  // what the link hooks saw

    void SetUp() override
    {
        SimTest::SetUp();
        driver_.emplace(service());
        driver_->addAdapter(nic);
        driver_->onLinkDrop([this](const std::wstring& name) { record(L"drop " + name); });
        driver_->onLinkRestore([this](const std::wstring& name) { record(L"restore " + name); });
        services_ = connect();
    }
    void TearDown() override
    {
        services_.reset();
        driver_.reset();
        SimTest::TearDown();
    }
    void record(const std::wstring& event)
    {
        const std::lock_guard<std::mutex> guard(eventsLock_);
        events_.push_back(event);
    }
    std::vector<std::wstring> events()
    {
        const std::lock_guard<std::mutex> guard(eventsLock_);
        return events_;
    }
    MethodResult exec(IWbemServices* services, const std::wstring& name, const wchar_t* method)
    {
        const Bstr path(ZtDriver::path(ZtDriver::adapterClass, name));
        const Bstr methodName(method);
        MethodResult r;
        r.result
            = services->ExecMethod(path.get(), methodName.get(), 0, nullptr, nullptr, r.out.put(), nullptr);
        return r;
    }
    // ExecCableDiag on a worker thread with its own connection, as the module runs it.
    std::future<MethodResult> startCableTest(const std::wstring& name)
    {
        return std::async(std::launch::async, [this, name] {
            EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
            MethodResult r;
            {
                const auto services = connect();
                r = exec(services.get(), name, L"ExecCableDiag");
            }
            CoUninitialize();
            return r;
        });
    }
    Ref<IWbemClassObject> instance(const wchar_t* className, const std::wstring& name = nic)
    {
        return getObject(services_.get(), ZtDriver::path(className, name));
    }
};

TEST_F(ZtDriverTest, anAdapterStartsWithTheDriversDefaultsInWmiShapes)
{
    const auto firmware = instance(ZtDriver::firmwareClass);
    const auto thermal = embedded(instance(ZtDriver::diagnosticsClass).get(), L"thermalInfo");
    ASSERT_TRUE(firmware && thermal);
    const struct {
        IWbemClassObject* object;
        const wchar_t* property;
        VARTYPE vt;
        LONG value;
    } cases[] = {
        {firmware.get(), L"major", VT_UI1, 1},           {firmware.get(), L"minor", VT_UI1, 5},
        {firmware.get(), L"revision", VT_I4, 66},        {thermal.get(), L"flags", VT_UI1, 12},
        {thermal.get(), L"phyTemperature", VT_I4, 4500}, {thermal.get(), L"macTemperature", VT_I4, 5000},
    };
    for (const auto& c : cases) {
        Var value;
        ASSERT_EQ(get(c.object, c.property, value), S_OK) << c.property;
        EXPECT_EQ(value->vt, c.vt) << c.property;
        EXPECT_EQ(c.vt == VT_UI1 ? value->bVal : value->lVal, c.value) << c.property;
    }
    EXPECT_TRUE(getObject(services_.get(), ZtDriver::adapterClass)) << "the class object the client keeps";
}

TEST_F(ZtDriverTest, theCableTestAnswersEveryPairWordAsFourByteIntegers)
{
    const std::vector<std::uint32_t> cases[] = {
        {},
        {ZtDriver::pairWord(ZtDriver::pairGood, 0, 0), ZtDriver::pairWord(ZtDriver::pairOpen, 12, 95),
         ZtDriver::pairWord(2, 30, 31), ZtDriver::pairWord(ZtDriver::pairShort, 255, 255, 0xA5)},
        {1, 2, 3, 4, 0xFFFFFFFFU},
    };
    for (const auto& pairs : cases) {
        driver_->setPairs(nic, pairs);
        const MethodResult r = exec(services_.get(), nic, L"ExecCableDiag");
        ASSERT_EQ(r.result, S_OK);
        const auto result = embedded(r.out.get(), L"diagRes");
        Var value;
        ASSERT_EQ(get(result.get(), L"pairs", value), S_OK);
        EXPECT_EQ(words(value.get()), pairs);
    }
    EXPECT_EQ(ZtDriver::pairWord(ZtDriver::pairOpen, 12, 95, 1), 0x015F0C07U)
        << "status, distance, farthest, top";
}

TEST_F(ZtDriverTest, cableLengthAndReturnValuesAreTheScriptedOnes)
{
    driver_->setCableLength(nic, 37);
    driver_->setReturnValue(nic, ZtMethod::getCableLength, 5);
    driver_->setReturnValue(nic, ZtMethod::execCableDiag, 0x80000001U);
    const MethodResult length = exec(services_.get(), nic, L"GetCableLength");
    const MethodResult diag = exec(services_.get(), nic, L"ExecCableDiag");
    ASSERT_EQ(length.result, S_OK);
    ASSERT_EQ(diag.result, S_OK);
    Var meters;
    Var lengthReturn;
    Var diagReturn;
    ASSERT_EQ(get(length.out.get(), L"cableLength", meters), S_OK);
    ASSERT_EQ(get(length.out.get(), L"ReturnValue", lengthReturn), S_OK);
    ASSERT_EQ(get(diag.out.get(), L"ReturnValue", diagReturn), S_OK);
    EXPECT_EQ(meters->vt, VT_I4);
    EXPECT_EQ(meters->lVal, 37);
    EXPECT_EQ(lengthReturn->lVal, 5);
    EXPECT_EQ(diagReturn->vt, VT_I4);
    EXPECT_EQ(static_cast<std::uint32_t>(diagReturn->lVal), 0x80000001U);
    EXPECT_EQ(driver_->runs(nic, ZtMethod::getCableLength), 1);
    EXPECT_EQ(driver_->runs(nic, ZtMethod::execCableDiag), 1);
}

TEST_F(ZtDriverTest, aHeldRunKeepsTheLinkDownAndAnswersWhatTheAdapterReportsWhenReleased)
{
    const std::wstring other = L"ZT 1G Network Adapter";
    driver_->addAdapter(other);
    driver_->holdCableTest(nic);
    auto run = startCableTest(nic);
    ASSERT_TRUE(driver_->waitUntilCableTestRunning(nic));
    const std::wstring first = nic;
    EXPECT_EQ(events(), std::vector<std::wstring>{L"drop " + first});
    EXPECT_EQ(run.wait_for(std::chrono::seconds(0)), std::future_status::timeout);

    // The service and the other adapter go on meanwhile.
    EXPECT_TRUE(instance(ZtDriver::diagnosticsClass));
    EXPECT_EQ(exec(services_.get(), other, L"ExecCableDiag").result, S_OK);
    driver_->setPair(nic, 3, ZtDriver::pairWord(ZtDriver::pairOpen, 7));

    driver_->releaseCableTest(nic);
    const MethodResult r = run.get();
    ASSERT_EQ(r.result, S_OK);
    Var pairs;
    ASSERT_EQ(get(embedded(r.out.get(), L"diagRes").get(), L"pairs", pairs), S_OK);
    EXPECT_EQ(words(pairs.get()), (std::vector<std::uint32_t>{0, 0, 0, 0x0707}));
    EXPECT_EQ(events(),
              (std::vector<std::wstring>{L"drop " + first, L"drop " + other, L"restore " + other,
                                         L"restore " + first}));
    EXPECT_EQ(driver_->runs(nic, ZtMethod::execCableDiag), 1);
    EXPECT_FALSE(driver_->waitUntilCableTestRunning(nic, std::chrono::milliseconds(0)));
}

TEST_F(ZtDriverTest, aRunBlocksForItsDuration)
{
    const auto duration = std::chrono::milliseconds(50);
    driver_->setCableTestDuration(nic, duration);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(exec(services_.get(), nic, L"ExecCableDiag").result, S_OK);
    EXPECT_GE(std::chrono::steady_clock::now() - start, duration);
}

TEST_F(ZtDriverTest, removalAndShutdownEndARunAtOnceAndTheInstancesVanish)
{
    const struct {
        const char* how;
        HRESULT runResult;
    } cases[] = {{"removeAdapter", WBEM_E_NOT_FOUND}, {"shutdown", WBEM_E_SHUTTING_DOWN}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.how);
        driver_.emplace(service());
        driver_->addAdapter(nic);
        driver_->onLinkRestore([this](const std::wstring& name) { record(L"restore " + name); });
        driver_->setCableTestDuration(nic, std::chrono::hours(1));
        auto run = startCableTest(nic);
        ASSERT_TRUE(driver_->waitUntilCableTestRunning(nic));
        if (std::string(c.how) == "removeAdapter") {
            driver_->removeAdapter(nic);
        } else {
            driver_->shutdown();
        }
        const MethodResult r = run.get();
        EXPECT_EQ(r.result, c.runResult);
        EXPECT_FALSE(r.out);
        EXPECT_TRUE(events().empty()) << "no link restore";

        for (const wchar_t* className :
             {ZtDriver::adapterClass, ZtDriver::firmwareClass, ZtDriver::diagnosticsClass}) {
            const Bstr path(ZtDriver::path(className, nic));
            Ref<IWbemClassObject> object;
            EXPECT_EQ(services_->GetObject(path.get(), 0, nullptr, object.put(), nullptr), WBEM_E_NOT_FOUND);
        }
        EXPECT_EQ(exec(services_.get(), nic, L"GetCableLength").result, WBEM_E_NOT_FOUND);
        EXPECT_EQ(driver_->runs(nic, ZtMethod::execCableDiag), 1);
        EXPECT_EQ(driver_->runs(nic, ZtMethod::getCableLength), 0) << "refused before the driver";
    }
}

// Each case on its own adapter: where the client finds the field and what Get gives.
TEST_F(ZtDriverTest, badShapesReachTheClientAsScripted)
{
    enum Where { diagOut, diagRes, lengthOut, firmware, diagnostics, thermal };
    struct Case {
        const char* what = "";
        const wchar_t* property = L"";  // what the client reads, and where
        std::optional<Value> value;  // what the field is set to; nullopt: removed
        ZtField field = ZtField::pairs;
        Where where = diagOut;
        HRESULT get = S_OK;  // what the client's Get answers
        VARTYPE vt = VT_EMPTY;
        ULONG elementSize = 0;  // for arrays
    };
    const Case cases[] = {
        {"2-byte pairs", L"pairs", ZtDriver::arrayOf(VT_I2, {1, 2, 3, 4}), ZtField::pairs, diagRes, S_OK,
         VT_ARRAY | VT_I2, 2},
        {"unsigned 2-byte pairs", L"pairs", ZtDriver::arrayOf(VT_UI2, {1, 2}), ZtField::pairs, diagRes, S_OK,
         VT_ARRAY | VT_UI2, 2},
        {"pairs not an array", L"pairs", Value::uint32(7), ZtField::pairs, diagRes, S_OK, VT_I4},
        {"pairs absent", L"pairs", std::nullopt, ZtField::pairs, diagRes, WBEM_E_NOT_FOUND, VT_EMPTY},
        {"diagRes text", L"diagRes", Value::string(L"x"), ZtField::diagRes, diagOut, S_OK, VT_BSTR},
        {"diagRes integer", L"diagRes", Value::sint32(1), ZtField::diagRes, diagOut, S_OK, VT_I4},
        {"diagRes unset", L"diagRes", std::nullopt, ZtField::diagRes, diagOut, S_OK, VT_NULL},
        {"ReturnValue unset", L"ReturnValue", std::nullopt, ZtField::cableDiagReturnValue, diagOut, S_OK,
         VT_NULL},
        {"cableLength 64-bit", L"cableLength", ZtDriver::scalarOf(VT_UI8, 0x100000025ULL),
         ZtField::cableLength, lengthOut, S_OK, VT_UI8},
        {"cableLength text", L"cableLength", Value::string(L"25"), ZtField::cableLength, lengthOut, S_OK,
         VT_BSTR},
        {"major absent", L"major", std::nullopt, ZtField::major, firmware, WBEM_E_NOT_FOUND, VT_EMPTY},
        {"revision absent", L"revision", std::nullopt, ZtField::revision, firmware, WBEM_E_NOT_FOUND,
         VT_EMPTY},
        {"thermalInfo absent", L"thermalInfo", std::nullopt, ZtField::thermalInfo, diagnostics,
         WBEM_E_NOT_FOUND, VT_EMPTY},
        {"thermalInfo text", L"thermalInfo", Value::string(L"hot"), ZtField::thermalInfo, diagnostics, S_OK,
         VT_BSTR},
        {"phyTemperature 2-byte", L"phyTemperature", ZtDriver::scalarOf(VT_I2, 4500), ZtField::phyTemperature,
         thermal, S_OK, VT_I2},
        {"phyTemperature text", L"phyTemperature", Value::string(L"45"), ZtField::phyTemperature, thermal,
         S_OK, VT_BSTR},
        {"flags 4-byte", L"flags", ZtDriver::scalarOf(VT_I4, 12), ZtField::thermalFlags, thermal, S_OK,
         VT_I4},
        {"macTemperature absent", L"macTemperature", std::nullopt, ZtField::macTemperature, thermal,
         WBEM_E_NOT_FOUND, VT_EMPTY},
    };
    int index = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const std::wstring name = L"Case " + std::to_wstring(++index);
        driver_->addAdapter(name);
        if (c.value) {
            driver_->setField(name, c.field, *c.value);
        } else {
            driver_->removeField(name, c.field);
        }
        MethodResult method;
        Ref<IWbemClassObject> object;
        switch (c.where) {
        case diagOut:
        case diagRes:
            method = exec(services_.get(), name, L"ExecCableDiag");
            object = c.where == diagRes ? embedded(method.out.get(), L"diagRes") : std::move(method.out);
            break;
        case lengthOut:
            object = exec(services_.get(), name, L"GetCableLength").out;
            break;
        case firmware:
            object = instance(ZtDriver::firmwareClass, name);
            break;
        case diagnostics:
        case thermal:
            object = instance(ZtDriver::diagnosticsClass, name);
            if (c.where == thermal) {
                object = embedded(object.get(), L"thermalInfo");
            }
            break;
        }
        ASSERT_TRUE(object);
        Var value;
        EXPECT_EQ(get(object.get(), c.property, value), c.get);
        EXPECT_EQ(value->vt, c.vt);
        if ((value->vt & VT_ARRAY) != 0) {
            EXPECT_EQ(SafeArrayGetElemsize(value->parray), c.elementSize);
        }
    }
}

TEST_F(ZtDriverTest, oddValuesKeepTheLowBitsAndResetBringsBackTheDriversOwn)
{
    driver_->setField(nic, ZtField::cableLength, ZtDriver::scalarOf(VT_UI8, 0x100000025ULL));
    Var wide;
    ASSERT_EQ(get(exec(services_.get(), nic, L"GetCableLength").out.get(), L"cableLength", wide), S_OK);
    EXPECT_EQ(wide->ullVal, 0x100000025ULL);

    driver_->setField(nic, ZtField::pairs, ZtDriver::arrayOf(VT_UI2, {0x12345678U}));
    Var narrow;
    ASSERT_EQ(get(embedded(exec(services_.get(), nic, L"ExecCableDiag").out.get(), L"diagRes").get(),
                  L"pairs", narrow),
              S_OK);
    void* data = nullptr;
    ASSERT_EQ(SafeArrayAccessData(narrow->parray, &data), S_OK);
    EXPECT_EQ(*static_cast<USHORT*>(data), 0x5678);
    SafeArrayUnaccessData(narrow->parray);

    driver_->removeField(nic, ZtField::minor);
    driver_->setFirmware(nic, 2, 0, 7);
    driver_->resetField(nic, ZtField::minor);
    Var minor;
    ASSERT_EQ(get(instance(ZtDriver::firmwareClass).get(), L"minor", minor), S_OK);
    EXPECT_EQ(minor->vt, VT_UI1);
    EXPECT_EQ(minor->bVal, 0);
}

// Readers, a cable test worker and the scripting side at once; each read is one whole value.
TEST_F(ZtDriverTest, concurrentRunsReadsAndChangesStayConsistent)
{
    auto runs = std::async(std::launch::async, [this] {
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        {
            const auto services = connect();
            for (int i = 0; i < 20; ++i) {
                EXPECT_EQ(exec(services.get(), nic, L"ExecCableDiag").result, S_OK);
            }
        }
        CoUninitialize();
    });
    auto changes = std::async(std::launch::async, [this] {
        for (int i = 0; i < 20; ++i) {
            driver_->setTemperatures(nic, i % 2 == 0 ? 100 : 200, 300);
            driver_->setPairs(nic, std::vector<std::uint32_t>(4, i));
        }
    });
    for (int i = 0; i < 20; ++i) {
        Var phy;
        ASSERT_EQ(get(embedded(instance(ZtDriver::diagnosticsClass).get(), L"thermalInfo").get(),
                      L"phyTemperature", phy),
                  S_OK);
        EXPECT_TRUE(phy->lVal == 4500 || phy->lVal == 100 || phy->lVal == 200) << phy->lVal;
    }
    runs.get();
    changes.get();
    EXPECT_EQ(driver_->runs(nic, ZtMethod::execCableDiag), 20);
    EXPECT_EQ(events().size(), 40U);
}

TEST_F(ZtDriverTest, scriptingErrorsThrow)
{
    EXPECT_THROW(driver_->addAdapter(nic), std::invalid_argument);
    EXPECT_THROW(driver_->setCableLength(L"zt 10g network adapter #2", 1), std::invalid_argument)
        << "names are exact";
    EXPECT_THROW(driver_->setPair(nic, 4, 0), std::out_of_range);
    EXPECT_THROW(ZtDriver::scalarOf(VT_BSTR, 0), std::invalid_argument);
    EXPECT_EQ(driver_->runs(L"never added", ZtMethod::execCableDiag), 0);
}

}  // namespace
}  // namespace simtest
