// Rows of `ztdiag watch` on the simulated adapter: how long an event takes
// from its firing to its line, and whether a long watch keeps its heap flat.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <malloc.h>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Rows.h"
#include "ServiceCalls.h"
#include "host/HostPlatform.h"
#include "ztdiag/Ztdiag.h"

namespace {

using Clock = std::chrono::steady_clock;

// Keeps no text: counts the lines and tells when each came.
class LineClock : public Console {
public:
    bool out(const std::wstring& text) override
    {
        const Clock::time_point now = Clock::now();
        const std::lock_guard<std::mutex> guard(lock_);
        lines_ += static_cast<long>(std::count(text.begin(), text.end(), L'\n'));
        last_ = now;
        changed_.notify_all();
        return true;
    }
    void err(const std::wstring&) override { }
    bool isTerminal() const override { return false; }
    void onInterrupt(std::function<void()> handler) override
    {
        const std::lock_guard<std::mutex> guard(lock_);
        interrupt_ = std::move(handler);
        changed_.notify_all();
    }

    // Until the output holds `lines` lines; when the last came.
    Clock::time_point waitForLines(long lines)
    {
        std::unique_lock<std::mutex> guard(lock_);
        changed_.wait(guard, [&] { return lines_ >= lines; });
        return last_;
    }
    std::function<void()> waitForInterruptHandler()
    {
        std::unique_lock<std::mutex> guard(lock_);
        changed_.wait(guard, [&] { return static_cast<bool>(interrupt_); });
        return interrupt_;
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    long lines_ = 0;
    Clock::time_point last_;
    std::function<void()> interrupt_;
};

std::size_t liveHeapBytes()
{
    return mallinfo2().uordblks;
}

std::vector<Row> watchRows()
{
    std::vector<Row> rows;
    sim::SimAdapter adapter(benchAdapter());
    sim::WmiService& service = adapter.service();
    host::addDevice(9, GUID_DEVCLASS_NET, true, L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_E4363C91&REV_02\\9");
    const SP_DEVINFO_DATA device = host::makeDevice(9);
    host::setDeviceStringList(device, DEVPKEY_Device_HardwareIds,
                              {L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_E4363C91&REV_02"});
    host::setDeviceString(device, DEVPKEY_Device_FriendlyName, adapter.name());
    host::setDeviceUint32(device, DEVPKEY_Device_ProblemCode, 0);

    LineClock console;
    std::thread tool([&] { ztdiagMain({L"watch", L"--json"}, console); });
    const std::function<void()> ctrlC = console.waitForInterruptHandler();
    console.waitForLines(1);  // the state
    long lines = 1;

    // Alternately down and up, each line out before the next change; the
    // service's and the provider's own logs are emptied as it goes.
    const auto change = [&](long i) {
        const Clock::time_point fired = Clock::now();
        if (i % 2 == 0) {
            adapter.ndis().disconnect(adapter.name());
        } else {
            adapter.ndis().connect(adapter.name());
        }
        const Clock::time_point out = console.waitForLines(++lines);
        if (i % 100 == 99) {
            service.clearCalls();
            adapter.ndis().clearRequests();
        }
        return std::chrono::duration<double, std::milli>(out - fired).count();
    };
    std::vector<double> latencies;
    latencies.reserve(10000);  // the bench's own, not the watch's, memory
    for (long i = 0; i < 1000; ++i) {
        latencies.push_back(change(i));
    }
    service.drain();
    const std::size_t after1000 = liveHeapBytes();
    for (long i = 1000; i < 10000; ++i) {
        latencies.push_back(change(i));
    }
    service.drain();
    const std::size_t after10000 = liveHeapBytes();
    ctrlC();
    tool.join();

    std::sort(latencies.begin(), latencies.end());
    const double median = latencies[latencies.size() / 2];
    const double p99 = latencies[latencies.size() * 99 / 100];
    const double worst = latencies.back();
    rows.push_back(
        {"watch: an event from its firing to its line (10,000 events)",
         fixed(median, 3) + " ms median, " + fixed(p99, 3) + " ms p99, " + fixed(worst, 3) + " ms max",
         "< 50 ms", verdict(p99 < 50.0),
         "the delivery, its stamp, the speed's query on the service thread (a connection), the "
         "JSON line"});
    const long growth = static_cast<long>(after10000) - static_cast<long>(after1000);
    rows.push_back({"watch: heap in use after 10,000 events vs after 1,000",
                    std::to_string(after10000) + " vs " + std::to_string(after1000) + " bytes ("
                        + std::to_string(growth) + ")",
                    "flat (< 4 KiB)", verdict(growth < 4096),
                    "the process's heap, the simulated service included (its call logs emptied every 100 "
                    "events)"});
    return rows;
}

const RowGroup watchGroup("60 watch", watchRows);

}  // namespace
