#include <gtest/gtest.h>

#include "TraceCapture.h"
#include "host/CountingUnknown.h"
#include "host/HostPlatform.h"
#include "wmi/bstr.h"
#include "wmi/com_ptr.h"

namespace {

TEST(ComPtr, eachWayInAddsOrTakesOneReferenceAndEachOwnerGivesItsOneBack)
{
    host::CountingUnknown object;
    host::CountingUnknown other;
    host::CountingUnknown filled;
    {
        com_ptr<IUnknown> adopted(&object, false);
        EXPECT_EQ(object.refs(), 1U) << "adopting adds nothing";
        com_ptr<IUnknown> shared(&object, true);
        EXPECT_EQ(object.refs(), 2U) << "sharing adds one";
        shared = &object;
        EXPECT_EQ(object.refs(), 2U) << "self-assignment keeps the reference";
        shared = &other;
        EXPECT_EQ(object.refs(), 1U) << "assignment releases the old pointer";
        EXPECT_EQ(other.refs(), 1U) << "and takes the new with no added reference";
        shared.reset();
        EXPECT_EQ(other.refs(), 0U);
        EXPECT_FALSE(shared);
        IUnknown** slot = adopted.put();
        EXPECT_EQ(object.refs(), 0U) << "put releases before handing out the slot";
        EXPECT_EQ(*slot, nullptr);
        *slot = &filled;
        EXPECT_EQ(adopted.get(), &filled);
    }
    EXPECT_EQ(filled.refs(), 0U) << "each owner released its one reference";
}

TEST(ComPtr, moveLeavesTheSourceEmptyAndDetachHandsOverTheReference)
{
    host::CountingUnknown object;
    com_ptr<IUnknown> source(&object, false);
    com_ptr<IUnknown> target(std::move(source));
    EXPECT_FALSE(source);  // NOLINT(bugprone-use-after-move): the moved-from state is the point
    EXPECT_EQ(target.get(), &object);
    com_ptr<IUnknown> assigned;
    assigned = std::move(target);
    EXPECT_EQ(object.refs(), 1U);
    IUnknown* raw = assigned.detach();
    EXPECT_FALSE(assigned);
    EXPECT_EQ(object.refs(), 1U);
    raw->Release();
}

TEST(Bstr, ownsItsStringAndComparesByCodeUnits)
{
    host::reset();
    {
        const bstr text(L"root\\wmi");
        EXPECT_EQ(SysStringLen(text.get()), 8U);
        EXPECT_TRUE(text == L"root\\wmi");
        EXPECT_TRUE(text != L"ROOT\\WMI") << "with case";
        EXPECT_TRUE(text != L"root") << "a prefix is not equal";
        EXPECT_TRUE(text != L"root\\wmi2");
        bstr empty;
        EXPECT_TRUE(empty == L"");
        BSTR* slot = empty.put();
        *slot = SysAllocString(L"filled");
        EXPECT_TRUE(empty == L"filled");
        EXPECT_EQ(host::liveBstrs(), 2);
    }
    EXPECT_EQ(host::liveBstrs(), 0);
}

}  // namespace
