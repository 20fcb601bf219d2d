#include <gtest/gtest.h>

#include "TraceCapture.h"
#include "host/CountingUnknown.h"
#include "host/HostPlatform.h"
#include "wmi/bstr.h"
#include "wmi/com_ptr.h"

namespace {

TEST(ComPtr, referenceRulesOfEachWayIn)
{
    host::CountingUnknown object;
    {
        com_ptr<IUnknown> adopted(&object, false);
        EXPECT_EQ(object.refs(), 1U) << "adopting adds nothing";
        com_ptr<IUnknown> shared(&object, true);
        EXPECT_EQ(object.refs(), 2U) << "sharing adds one";
    }
    EXPECT_EQ(object.refs(), 0U) << "each owner released its one reference";
}

TEST(ComPtr, assigningAPointerReleasesTheOldOneUnlessItIsTheSame)
{
    host::CountingUnknown first;
    host::CountingUnknown second;
    com_ptr<IUnknown> p(&first, false);
    p = &first;
    EXPECT_EQ(first.refs(), 1U) << "self-assignment keeps the reference";
    p = &second;
    EXPECT_EQ(first.refs(), 0U);
    EXPECT_EQ(second.refs(), 1U) << "taken with no added reference";
    p.reset();
    EXPECT_EQ(second.refs(), 0U);
    EXPECT_FALSE(p);
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

TEST(ComPtr, putReleasesBeforeHandingOutTheSlot)
{
    host::CountingUnknown old;
    host::CountingUnknown filled;
    com_ptr<IUnknown> p(&old, false);
    IUnknown** slot = p.put();
    EXPECT_EQ(old.refs(), 0U);
    EXPECT_EQ(*slot, nullptr);
    *slot = &filled;
    EXPECT_EQ(p.get(), &filled);
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
