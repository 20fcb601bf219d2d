#include "wmi/WbemSinkBase.h"

#include <gtest/gtest.h>

#include "TraceCapture.h"

namespace {

TEST(WbemSinkBase, countsItsReferencesAndEndsAtTheLast)
{
    TraceAll capture;
    auto* sink = new WbemSinkBase();
    EXPECT_EQ(sink->AddRef(), 2U);
    EXPECT_EQ(sink->AddRef(), 3U);
    EXPECT_EQ(sink->Release(), 2U);
    EXPECT_EQ(sink->Release(), 1U);
    EXPECT_TRUE(tracedMessages().empty());
    EXPECT_EQ(sink->Release(), 0U);  // ASan reports it if the object isn't freed here
    EXPECT_EQ(tracedMessages(), std::vector<std::string>{"Delete WbemSinkBase now, ref count == 0"});
}

TEST(WbemSinkBase, answersForTheSinkAndIUnknownOnly)
{
    auto* sink = new WbemSinkBase();
    struct Case {
        const IID* iid;
        HRESULT result;
    };
    const Case cases[] = {
        {&IID_IWbemObjectSink, S_OK},
        {&IID_IUnknown, S_OK},
        {&IID_IWbemServices, E_NOINTERFACE},
        {&IID_IWbemClassObject, E_NOINTERFACE},
    };
    ULONG expected = 1;
    for (const auto& c : cases) {
        void* out = reinterpret_cast<void*>(1);
        EXPECT_EQ(sink->QueryInterface(*c.iid, &out), c.result);
        if (c.result == S_OK) {
            ++expected;
            EXPECT_EQ(out, static_cast<IWbemObjectSink*>(sink));
        } else {
            EXPECT_EQ(out, nullptr);
        }
        EXPECT_EQ(sink->AddRef() - 1, expected);
        sink->Release();
    }
    EXPECT_EQ(sink->SetStatus(WBEM_STATUS_COMPLETE, S_OK, nullptr, nullptr), WBEM_S_NO_ERROR);
    EXPECT_EQ(sink->Indicate(0, nullptr), WBEM_S_NO_ERROR);
    while (expected-- > 0) {
        sink->Release();
    }
}

}  // namespace
