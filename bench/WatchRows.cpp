// Rows of `ztdiag watch` on the simulated adapter: how long an event takes
// from its firing to its line, and whether a long watch keeps its heap flat.
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <filesystem>
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

struct WatchRun {
    std::vector<double> latencies;  // ms, sorted
    std::size_t after1000 = 0;  // heap bytes in use
    std::size_t after10000 = 0;
};

// 10,000 link events through `ztdiag ARGUMENTS`, each line out before the next change.
WatchRun watchRun(const std::vector<std::wstring>& arguments)
{
    WatchRun run;
    sim::SimAdapter adapter(benchAdapter());
    sim::WmiService& service = adapter.service();
    host::addDevice(9, GUID_DEVCLASS_NET, true, L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_E4363C91&REV_02\\9");
    const SP_DEVINFO_DATA device = host::makeDevice(9);
    host::setDeviceStringList(device, DEVPKEY_Device_HardwareIds,
                              {L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_E4363C91&REV_02"});
    host::setDeviceString(device, DEVPKEY_Device_FriendlyName, adapter.name());
    host::setDeviceUint32(device, DEVPKEY_Device_ProblemCode, 0);

    LineClock console;
    std::thread tool([&] { ztdiagMain(arguments, console); });
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
    run.latencies.reserve(10000);  // the bench's own, not the watch's, memory
    for (long i = 0; i < 1000; ++i) {
        run.latencies.push_back(change(i));
    }
    service.drain();
    run.after1000 = liveHeapBytes();
    for (long i = 1000; i < 10000; ++i) {
        run.latencies.push_back(change(i));
    }
    service.drain();
    run.after10000 = liveHeapBytes();
    ctrlC();
    tool.join();
    host::addDevice(9, GUID_DEVCLASS_NET, false);
    std::sort(run.latencies.begin(), run.latencies.end());
    return run;
}

std::string heapText(const WatchRun& run, long growth)
{
    return std::to_string(run.after10000) + " vs " + std::to_string(run.after1000) + " bytes ("
        + std::to_string(growth) + ")";
}

std::vector<Row> watchRows()
{
    std::vector<Row> rows;
    const WatchRun plain = watchRun({L"watch", L"--json"});
    const double median = plain.latencies[plain.latencies.size() / 2];
    const double p99 = plain.latencies[plain.latencies.size() * 99 / 100];
    const double worst = plain.latencies.back();
    rows.push_back(
        {"watch: an event from its firing to its line (10,000 events)",
         fixed(median, 3) + " ms median, " + fixed(p99, 3) + " ms p99, " + fixed(worst, 3) + " ms max",
         "< 50 ms", verdict(p99 < 50.0),
         "the delivery, its stamp, the speed's query on the service thread (a connection), the "
         "JSON line"});
    const long growth = static_cast<long>(plain.after10000) - static_cast<long>(plain.after1000);
    rows.push_back({"watch: heap in use after 10,000 events vs after 1,000", heapText(plain, growth),
                    "flat (< 4 KiB)", verdict(growth < 4096),
                    "the process's heap, the simulated service included (its call logs emptied every 100 "
                    "events)"});

    // The same with a metrics file, rewritten at each event: 10,000 rewrites.
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / "ztprop-bench-metrics";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    const std::string file = (folder / "ztdiag.prom").string();
    const WatchRun kept
        = watchRun({L"watch", L"--json", L"--metrics", std::wstring(file.begin(), file.end())});
    const long keptGrowth = static_cast<long>(kept.after10000) - static_cast<long>(kept.after1000);
    const auto files = std::distance(std::filesystem::directory_iterator(folder), {});
    const int handles = host::openFileHandles();
    std::filesystem::remove_all(folder);
    rows.push_back({"watch --metrics: heap after 10,000 events and rewrites vs after 1,000",
                    heapText(kept, keptGrowth), "flat (< 4 KiB)", verdict(keptGrowth < 4096),
                    "each event's line and the file rewritten whole, replaced at once"});
    rows.push_back({"watch --metrics: files and handles left after 10,000 rewrites",
                    std::to_string(files) + " file, " + std::to_string(handles) + " open handles",
                    "1 file, 0 handles", verdict(files == 1 && handles == 0),
                    "no temporary file and no handle left behind by a rewrite"});
    return rows;
}

const RowGroup watchGroup("60 watch", watchRows);

}  // namespace
