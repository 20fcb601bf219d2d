#include "wmi/WbemSinkBase.h"

#include <gtest/gtest.h>

#include "TraceCapture.h"

namespace {

TEST(WbemSinkBase, answersForTheSinkAndIUnknownOnlyAndEndsAtTheLastRelease)
{
    TraceAll capture;
    auto* sink = new WbemSinkBase();
    IWbemObjectSink* const asSink = sink;
    const std::pair<const IID*, bool> cases[]
        = {{&IID_IWbemObjectSink, true}, {&IID_IUnknown, true}, {&IID_IWbemServices, false}};
    for (const auto& [iid, found] : cases) {
        void* out = reinterpret_cast<void*>(1);
        EXPECT_EQ(sink->QueryInterface(*iid, &out), found ? S_OK : E_NOINTERFACE);
        EXPECT_EQ(out, found ? static_cast<void*>(asSink) : nullptr);
        EXPECT_EQ(sink->AddRef(), found ? 3U : 2U) << "a reference for what it hands out only";
        EXPECT_EQ(sink->Release(), found ? 2U : 1U);
        if (found) {
            EXPECT_EQ(sink->Release(), 1U);
        }
    }
    EXPECT_EQ(sink->SetStatus(WBEM_STATUS_COMPLETE, S_OK, nullptr, nullptr), WBEM_S_NO_ERROR);
    EXPECT_EQ(sink->Indicate(0, nullptr), WBEM_S_NO_ERROR);
    EXPECT_TRUE(tracedMessages().empty());
    EXPECT_EQ(sink->Release(), 0U);  // ASan reports it if the object isn't freed here
    EXPECT_EQ(tracedMessages(), Messages{"Delete WbemSinkBase now, ref count == 0"});
}

}  // namespace
