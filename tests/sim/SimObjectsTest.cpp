// Connecting, reading objects and their values, Put and the method signatures,
// as a client of root\wmi sees them.
#include <gtest/gtest.h>

#include <algorithm>

#include "SimClient.h"

namespace simtest {
namespace {

using Names = std::vector<std::wstring>;

class SimObjectsTest : public SimTest { };

TEST_F(SimObjectsTest, onlyRootWmiAcceptsConnections)
{
    Ref<IWbemLocator> locator;
    ASSERT_EQ(CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                               reinterpret_cast<void**>(locator.put())),
              S_OK);
    const struct {
        const wchar_t* ns;
        HRESULT expected;
    } cases[] = {
        {L"root\\wmi", S_OK},
        {L"ROOT\\WMI", S_OK},
        {L"\\\\.\\root\\wmi", S_OK},
        {L"root\\cimv2", WBEM_E_INVALID_NAMESPACE},
        {L"root", WBEM_E_INVALID_NAMESPACE},
        {L"", WBEM_E_INVALID_NAMESPACE},
    };
    for (const auto& c : cases) {
        const Bstr ns(c.ns);
        Ref<IWbemServices> services;
        EXPECT_EQ(
            locator->ConnectServer(ns.get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr, services.put()),
            c.expected)
            << bstrText(ns.get());
        EXPECT_EQ(static_cast<bool>(services), c.expected == S_OK);
    }
}

TEST_F(SimObjectsTest, eachConnectionIsItsOwnObjectAndTakesAProxyBlanket)
{
    const auto first = connect();
    const auto second = connect();
    ASSERT_TRUE(first && second);
    EXPECT_NE(first.get(), second.get());
    EXPECT_EQ(CoSetProxyBlanket(first.get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                                RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE),
              S_OK);
}

TEST_F(SimObjectsTest, nonSystemEnumerationFollowsTheDeclarationOrder)
{
    const auto services = connect();
    const auto instance = getObject(services.get(), widgetPath(firstName));
    EXPECT_EQ(enumerate(instance.get(), WBEM_FLAG_NONSYSTEM_ONLY),
              (Names{L"InstanceName", L"Active", L"Count", L"Small", L"Tiny", L"Octet", L"Short", L"Big",
                     L"Signed", L"Ratio", L"Version", L"Mac", L"Names", L"Unset"}));
    const Names all = enumerate(instance.get(), 0);
    ASSERT_EQ(all.size(), 14U + 10U);
    EXPECT_EQ(Names(all.begin(), all.begin() + 3), (Names{L"__GENUS", L"__CLASS", L"__SUPERCLASS"}));
    EXPECT_EQ(enumerate(instance.get(), WBEM_FLAG_SYSTEM_ONLY), Names(all.begin(), all.begin() + 10));
}

TEST_F(SimObjectsTest, nextOutsideAnEnumerationIsRefused)
{
    const auto services = connect();
    const auto instance = getObject(services.get(), widgetPath(secondName));
    BSTR name = nullptr;
    EXPECT_EQ(instance->Next(0, &name, nullptr, nullptr, nullptr), static_cast<HRESULT>(0x8004101D));
    EXPECT_EQ(instance->BeginEnumeration(WBEM_FLAG_KEYS_ONLY), WBEM_E_INVALID_PARAMETER);
}

// The VARIANT shape of every CIM type, as real WMI delivers it.
TEST_F(SimObjectsTest, valuesComeInWmiShapes)
{
    const auto services = connect();
    const auto instance = getObject(services.get(), widgetPath(firstName));
    const struct {
        const wchar_t* property;
        VARTYPE vt;
        CIMTYPE cimType;
    } cases[] = {
        {L"InstanceName", VT_BSTR, CIM_STRING},
        {L"Active", VT_BOOL, CIM_BOOLEAN},
        {L"Count", VT_I4, CIM_UINT32},
        {L"Small", VT_I4, CIM_UINT16},
        {L"Tiny", VT_I2, CIM_SINT8},
        {L"Octet", VT_UI1, CIM_UINT8},
        {L"Short", VT_I2, CIM_SINT16},
        {L"Big", VT_BSTR, CIM_UINT64},
        {L"Signed", VT_BSTR, CIM_SINT64},
        {L"Ratio", VT_R8, CIM_REAL64},
        {L"Version", VT_UNKNOWN, CIM_OBJECT},
        {L"Mac", VT_ARRAY | VT_UI1, CIM_UINT8 | CIM_FLAG_ARRAY},
        {L"Names", VT_ARRAY | VT_BSTR, CIM_STRING | CIM_FLAG_ARRAY},
        {L"Unset", VT_NULL, CIM_STRING},
        {L"__GENUS", VT_I4, CIM_SINT32},
        {L"__PATH", VT_BSTR, CIM_STRING},
    };
    for (const auto& c : cases) {
        Var value;
        CIMTYPE type = CIM_ILLEGAL;
        EXPECT_EQ(instance->Get(c.property, 0, &value, &type, nullptr), S_OK) << c.property;
        EXPECT_EQ(value->vt, c.vt) << c.property;
        EXPECT_EQ(type, c.cimType) << c.property;
    }

    Var count;
    Var small;
    Var tiny;
    Var big;
    Var key;
    ASSERT_EQ(instance->Get(L"Count", 0, &count, nullptr, nullptr), S_OK);
    ASSERT_EQ(instance->Get(L"Small", 0, &small, nullptr, nullptr), S_OK);
    ASSERT_EQ(instance->Get(L"Tiny", 0, &tiny, nullptr, nullptr), S_OK);
    ASSERT_EQ(instance->Get(L"Big", 0, &big, nullptr, nullptr), S_OK);
    ASSERT_EQ(instance->Get(L"InstanceName", 0, &key, nullptr, nullptr), S_OK);
    EXPECT_EQ(count->lVal, -1) << "uint32 0xFFFFFFFF is the VT_I4 bit pattern";
    EXPECT_EQ(small->lVal, 65535);
    EXPECT_EQ(tiny->iVal, -5);
    EXPECT_EQ(bstrText(big->bstrVal), L"18446744073709551615");
    EXPECT_EQ(bstrText(key->bstrVal), firstName) << "InstanceName is the instance's name";
}

TEST_F(SimObjectsTest, anEmbeddedObjectIsAnInstanceOfItsClass)
{
    const auto services = connect();
    const auto instance = getObject(services.get(), widgetPath(firstName));
    Var version;
    ASSERT_EQ(instance->Get(L"Version", 0, &version, nullptr, nullptr), S_OK);
    Ref<IWbemClassObject> embedded;
    ASSERT_EQ(
        version->punkVal->QueryInterface(IID_IWbemClassObject, reinterpret_cast<void**>(embedded.put())),
        S_OK);
    Var major;
    Var minor;
    Var genus;
    ASSERT_EQ(embedded->Get(L"Major", 0, &major, nullptr, nullptr), S_OK);
    ASSERT_EQ(embedded->Get(L"Minor", 0, &minor, nullptr, nullptr), S_OK);
    ASSERT_EQ(embedded->Get(L"__GENUS", 0, &genus, nullptr, nullptr), S_OK);
    EXPECT_EQ(major->lVal, 3);
    EXPECT_EQ(minor->lVal, 9) << "the class default";
    EXPECT_EQ(genus->lVal, 2);
}

TEST_F(SimObjectsTest, rawValuesAndMissingPropertiesGiveMalformedShapes)
{
    Var text;
    (&text)->vt = VT_BSTR;
    (&text)->bstrVal = SysAllocString(L"not an object");
    service().setProperty(widget, secondName, L"Version", sim::Value::raw(text.get()));
    service().setProperty(widget, secondName, L"Mac",
                          sim::Value::array(CIM_SINT16, {sim::Value::sint16(1), sim::Value::sint16(2)}));
    service().removeProperty(widget, secondName, L"Count");

    const auto services = connect();
    const auto instance = getObject(services.get(), widgetPath(secondName));
    Var version;
    CIMTYPE type = CIM_ILLEGAL;
    ASSERT_EQ(instance->Get(L"Version", 0, &version, &type, nullptr), S_OK);
    EXPECT_EQ(version->vt, VT_BSTR);
    EXPECT_EQ(type, CIM_OBJECT) << "the declared type stays";
    Var mac;
    ASSERT_EQ(instance->Get(L"Mac", 0, &mac, nullptr, nullptr), S_OK);
    EXPECT_EQ(mac->vt, VT_ARRAY | VT_I2);
    EXPECT_EQ(SafeArrayGetElemsize(mac->parray), 2U);
    Var count;
    EXPECT_EQ(instance->Get(L"Count", 0, &count, nullptr, nullptr), WBEM_E_NOT_FOUND);
    const Names names = enumerate(instance.get(), WBEM_FLAG_NONSYSTEM_ONLY);
    EXPECT_EQ(std::count(names.begin(), names.end(), L"Count"), 0);
}

TEST_F(SimObjectsTest, namesIgnoreCaseAndUnknownOnesAreNotFound)
{
    const auto services = connect();
    const auto instance = getObject(services.get(), L"sim_widget.InstanceName=\"Second\"");
    Var className;
    Var count;
    Var missing;
    ASSERT_EQ(instance->Get(L"__Class", 0, &className, nullptr, nullptr), S_OK);
    EXPECT_EQ(bstrText(className->bstrVal), widget) << "the class's own spelling";
    EXPECT_EQ(instance->Get(L"count", 0, &count, nullptr, nullptr), S_OK);
    EXPECT_EQ(instance->Get(L"NoSuch", 0, &missing, nullptr, nullptr), WBEM_E_NOT_FOUND);
    EXPECT_EQ(missing->vt, VT_EMPTY) << "a failed Get leaves the VARIANT alone";
}

TEST_F(SimObjectsTest, pathsNameAClassOrAnInstanceVerbatim)
{
    const auto services = connect();
    const struct {
        std::wstring path;
        HRESULT expected;
        LONG genus;
    } cases[] = {
        {widget, S_OK, 1},
        {widgetPath(firstName), S_OK, 2},
        {L"Sim_Widget.InstanceName='Second'", S_OK, 2},
        {widgetPath(L"second"), WBEM_E_NOT_FOUND, 0},
        {widgetPath(L"PCI\\\\VEN_1&DEV_2\\\\3&0"), WBEM_E_NOT_FOUND, 0},
        {L"Sim_Gadget", WBEM_E_INVALID_CLASS, 0},
        {L"Sim_Gadget.InstanceName=\"x\"", WBEM_E_INVALID_CLASS, 0},
        {L"Sim_Widget.Name=\"x\"", WBEM_E_INVALID_OBJECT_PATH, 0},
        {L"Sim_Widget.InstanceName=\"x", WBEM_E_INVALID_OBJECT_PATH, 0},
        {L"", WBEM_E_INVALID_OBJECT_PATH, 0},
    };
    for (const auto& c : cases) {
        const Bstr path(c.path);
        Ref<IWbemClassObject> object;
        EXPECT_EQ(services->GetObject(path.get(), 0, nullptr, object.put(), nullptr), c.expected) << c.path;
        if (c.expected != S_OK) {
            EXPECT_FALSE(object) << c.path;
            continue;
        }
        Var genus;
        ASSERT_EQ(object->Get(L"__GENUS", 0, &genus, nullptr, nullptr), S_OK);
        EXPECT_EQ(genus->lVal, c.genus) << c.path;
    }
}

TEST_F(SimObjectsTest, anInstanceKnowsItsPath)
{
    const auto services = connect();
    const auto instance = getObject(services.get(), widgetPath(firstName));
    Var relPath;
    Var path;
    ASSERT_EQ(instance->Get(L"__RELPATH", 0, &relPath, nullptr, nullptr), S_OK);
    ASSERT_EQ(instance->Get(L"__PATH", 0, &path, nullptr, nullptr), S_OK);
    EXPECT_EQ(bstrText(relPath->bstrVal), widgetPath(firstName));
    EXPECT_EQ(bstrText(path->bstrVal), L"\\\\SIMHOST\\root\\wmi:" + widgetPath(firstName));
}

TEST_F(SimObjectsTest, everyGetObjectIsASnapshot)
{
    const auto services = connect();
    const auto before = getObject(services.get(), widgetPath(secondName));
    service().setProperty(widget, secondName, L"Count", sim::Value::uint32(42));
    const auto after = getObject(services.get(), widgetPath(secondName));
    EXPECT_NE(before.get(), after.get());
    Var old;
    Var fresh;
    ASSERT_EQ(before->Get(L"Count", 0, &old, nullptr, nullptr), S_OK);
    ASSERT_EQ(after->Get(L"Count", 0, &fresh, nullptr, nullptr), S_OK);
    EXPECT_EQ(old->lVal, 7);
    EXPECT_EQ(fresh->lVal, 42);

    Var changed;
    (&changed)->vt = VT_I4;
    (&changed)->lVal = 5;
    ASSERT_EQ(after->Put(L"Count", 0, &changed, 0), S_OK);
    EXPECT_EQ(service().property(widget, secondName, L"Count")->asInteger(), 42)
        << "Put changes the copy only";
}

VARIANT variantOf(VARTYPE vt, LONGLONG bits)
{
    VARIANT v{};
    VariantInit(&v);
    v.vt = vt;
    v.llVal = bits;
    return v;
}

TEST_F(SimObjectsTest, putChecksTypesAsWmiDoes)
{
    const auto services = connect();
    const auto classObject = getObject(services.get(), widget);
    Ref<IWbemClassObject> instance;
    ASSERT_EQ(classObject->SpawnInstance(0, instance.put()), S_OK);
    const Bstr digits(L"12345678901");
    const Bstr letters(L"12x");
    VARIANT text = variantOf(VT_BSTR, 0);
    const struct {
        const wchar_t* property;
        VARIANT value;
        HRESULT expected;
        VARTYPE stored;
    } cases[] = {
        {L"Count", variantOf(VT_I4, -1), S_OK, VT_I4},
        {L"Count", variantOf(VT_UI1, 3), S_OK, VT_I4},
        {L"Small", variantOf(VT_I4, 70000), WBEM_E_TYPE_MISMATCH, VT_NULL},
        {L"Tiny", variantOf(VT_I4, 100), S_OK, VT_I2},
        {L"Tiny", variantOf(VT_I4, 300), WBEM_E_TYPE_MISMATCH, VT_I2},
        {L"Octet", variantOf(VT_I4, -1), WBEM_E_TYPE_MISMATCH, VT_NULL},
        {L"Big", variantOf(VT_I4, 5), S_OK, VT_BSTR},
        {L"Active", variantOf(VT_I4, 1), WBEM_E_TYPE_MISMATCH, VT_BOOL},
        {L"Active", variantOf(VT_NULL, 0), S_OK, VT_NULL},
        {L"Ratio", variantOf(VT_I4, 2), S_OK, VT_R8},
        {L"Names", variantOf(VT_I4, 2), WBEM_E_TYPE_MISMATCH, VT_NULL},
        {L"InstanceName", variantOf(VT_I4, 2), WBEM_E_TYPE_MISMATCH, VT_NULL},
        {L"Version", variantOf(VT_I4, 2), WBEM_E_TYPE_MISMATCH, VT_NULL},
        {L"NoSuch", variantOf(VT_I4, 2), WBEM_E_NOT_FOUND, VT_EMPTY},
        {L"__CLASS", variantOf(VT_I4, 2), static_cast<HRESULT>(0x80041023), VT_BSTR},
    };
    for (const auto& c : cases) {
        VARIANT value = c.value;
        EXPECT_EQ(instance->Put(c.property, 0, &value, 0), c.expected) << c.property;
        Var stored;
        instance->Get(c.property, 0, &stored, nullptr, nullptr);
        EXPECT_EQ(stored->vt, c.stored) << c.property;
    }

    text.bstrVal = digits.get();
    ASSERT_EQ(instance->Put(L"Big", 0, &text, 0), S_OK) << "64-bit integers are decimal text";
    text.bstrVal = letters.get();
    EXPECT_EQ(instance->Put(L"Big", 0, &text, 0), WBEM_E_TYPE_MISMATCH);
    Var big;
    ASSERT_EQ(instance->Get(L"Big", 0, &big, nullptr, nullptr), S_OK);
    EXPECT_EQ(bstrText(big->bstrVal), L"12345678901");
    VARIANT count = variantOf(VT_I4, 1);
    EXPECT_EQ(instance->Put(L"Count", 0, &count, CIM_STRING), WBEM_E_TYPE_MISMATCH)
        << "a type other than declared";
}

TEST_F(SimObjectsTest, aSpawnedInstanceStartsFromTheDefaultsWithoutAPath)
{
    const auto services = connect();
    const auto classObject = getObject(services.get(), widget);
    Ref<IWbemClassObject> instance;
    ASSERT_EQ(classObject->SpawnInstance(0, instance.put()), S_OK);
    Var count;
    Var path;
    Var genus;
    ASSERT_EQ(instance->Get(L"Count", 0, &count, nullptr, nullptr), S_OK);
    ASSERT_EQ(instance->Get(L"__PATH", 0, &path, nullptr, nullptr), S_OK);
    ASSERT_EQ(instance->Get(L"__GENUS", 0, &genus, nullptr, nullptr), S_OK);
    EXPECT_EQ(count->lVal, 7);
    EXPECT_EQ(path->vt, VT_NULL);
    EXPECT_EQ(genus->lVal, 2);
}

TEST_F(SimObjectsTest, getMethodGivesTheInSignature)
{
    const auto services = connect();
    const auto classObject = getObject(services.get(), widget);
    Ref<IWbemClassObject> in;
    Ref<IWbemClassObject> out;
    ASSERT_EQ(classObject->GetMethod(L"reset", 0, in.put(), out.put()), S_OK);
    ASSERT_TRUE(in && out);
    EXPECT_EQ(enumerate(in.get(), WBEM_FLAG_NONSYSTEM_ONLY), (Names{L"Mode", L"Note"}));
    EXPECT_EQ(enumerate(out.get(), WBEM_FLAG_NONSYSTEM_ONLY), (Names{L"Status", L"ReturnValue"}));
    Var className;
    ASSERT_EQ(in->Get(L"__CLASS", 0, &className, nullptr, nullptr), S_OK);
    EXPECT_EQ(bstrText(className->bstrVal), L"__PARAMETERS");

    Ref<IWbemClassObject> none;
    EXPECT_EQ(classObject->GetMethod(L"Ping", 0, none.put(), nullptr), S_OK);
    EXPECT_FALSE(none) << "no in-parameters, no signature";
    Ref<IWbemClassObject> unknown;
    EXPECT_EQ(classObject->GetMethod(L"Explode", 0, unknown.put(), nullptr), WBEM_E_NOT_FOUND);
    EXPECT_FALSE(unknown);
}

}  // namespace
}  // namespace simtest
