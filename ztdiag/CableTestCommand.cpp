// `ztdiag cable-test`: the driver's cable test on one adapter, as the page's
// worker runs it, then the cable length for the category once the link is back.
#include <algorithm>
#include <functional>
#include <memory>
#include <mutex>

#include "nic/AdapterTexts.h"
#include "nic/ZtNic.h"
#include "platform/Threading.h"
#include "wmi/WbemServices.h"
#include "ztdiag/Commands.h"
#include "ztdiag/JsonOutput.h"
#include "ztdiag/ServiceThread.h"
#include "ztdiag/TextOutput.h"

namespace {

constexpr std::uint64_t speed2500M = 2500000000ULL;
constexpr std::uint64_t speed5G = 5000000000ULL;

struct CableRun {
    enum Outcome {
        Done,
        ServiceDown,
        NotReady,
        Unsupported,
        Failed,
        NoPairs,  // the driver's answer has no pair to judge
        Gone,  // the adapter went away during the test
    };
    Outcome outcome = Done;
    ZtFwVersion firmware;
    CableTestReport report;
};

// What the main thread waits for: the end of the service work, or Ctrl+C.
// Shared with the service thread and the console's handler.
struct CableWait {
    SrwLock lock;
    ConditionVariable changed;
    bool workEnded = false;
    int interrupts = 0;

    void update(const std::function<void(CableWait&)>& change)
    {
        {
            const std::lock_guard<SrwLock> guard(lock);
            change(*this);
        }
        changed.notifyAll();
    }
};

// Ctrl+C goes to `handler` while this lives, then ends the program again.
class InterruptScope {
public:
    InterruptScope(Console& console, std::function<void()> handler) : console_(console)
    {
        console_.onInterrupt(std::move(handler));
    }
    ~InterruptScope() { console_.onInterrupt(nullptr); }
    InterruptScope(const InterruptScope&) = delete;
    InterruptScope& operator=(const InterruptScope&) = delete;

private:
    Console& console_;
};

// Wakes a waiter when the adapter's media state changes.
struct LinkSignal {
    SrwLock lock;
    ConditionVariable changed;
};

// On the service thread.
void cableTest(CableRun& run, const std::wstring& name, const ZtdiagLimits& limits)
{
    if (!threadWbemServices().isConnected()) {
        run.outcome = CableRun::ServiceDown;
        return;
    }
    ZtNic nic(name, true);
    run.firmware = nic.fwVersion();
    if (!nic.isReady()) {
        run.outcome = CableRun::NotReady;
        return;
    }
    if (!nic.isCableDiagSupported()) {
        run.outcome = CableRun::Unsupported;
        return;
    }
    auto signal = std::make_shared<LinkSignal>();
    const std::wstring key = L"ztdiag cable-test";
    nic.nicMediaChanged.add(key, [signal](MediaConnectState) {
        {
            const std::lock_guard<SrwLock> guard(signal->lock);
        }
        signal->changed.notifyAll();
    });
    const bool wasConnected = nic.mediaState() == MediaConnectState::Connected;
    CableTestReport& report = run.report;
    if (!nic.performCableDiag(report.pairs)) {
        nic.nicMediaChanged.remove(key);
        run.outcome = nic.isReady() ? CableRun::Failed : CableRun::Gone;
        return;
    }
    if (report.pairs.empty()) {
        // No pair judged is no verdict; the page would call it a good cable.
        nic.nicMediaChanged.remove(key);
        run.outcome = CableRun::NoPairs;
        return;
    }
    if (wasConnected) {
        // The test takes the link down; the length needs it back.
        std::unique_lock<SrwLock> guard(signal->lock);
        signal->changed.waitFor(guard, limits.linkReturn,
                                [&nic] { return nic.mediaState() == MediaConnectState::Connected; });
    }
    nic.nicMediaChanged.remove(key);
    report.media = nic.mediaState();
    report.linkSpeed = nic.linkSpeed();
    // The length needs the link, and its speed to tell whether it needs correcting.
    if (report.media == MediaConnectState::Connected && report.linkSpeed != 0) {
        report.cableLength = nic.estimateCableLength(report.category);
        report.corrected = report.linkSpeed == speed2500M || report.linkSpeed == speed5G;
    }
}

// The running line, rewritten in place each second; on a terminal only.
class RunningLine {
public:
    RunningLine(Console& console, const std::wstring& adapter, bool shown)
        : console_(console), adapter_(adapter), shown_(shown)
    {
    }
    // Each returns false once the output is closed.
    bool show(long seconds)
    {
        if (shown_ && seconds != seconds_) {
            seconds_ = seconds;
            const std::wstring line
                = L"Running the cable test on " + adapter_ + L"... " + std::to_wstring(seconds) + L" s";
            width_ = line.size();
            return console_.out(L"\r" + line);
        }
        return true;
    }
    bool erase()
    {
        if (shown_ && width_ != 0) {
            const std::size_t width = width_;
            width_ = 0;
            return console_.out(L"\r" + std::wstring(width, L' ') + L"\r");
        }
        return true;
    }

private:
    Console& console_;
    const std::wstring adapter_;
    const bool shown_;
    long seconds_ = -1;
    std::size_t width_ = 0;
};

}  // namespace

int runCableTest(const CommandContext& context, const ZtAdapterDevice& adapter)
{
    if (adapter.problemCode != 0) {
        return context.fail(exitNotTestable,
                            adapter.name + L": "
                                + deviceStatusText(adapter.problemCode, ProblemCodeNumber::Unsigned));
    }
    auto run = std::make_shared<CableRun>();
    run->report.adapter = adapter.name;
    run->report.category = context.command.category;
    const ZtdiagLimits limits = context.limits;
    auto wait = std::make_shared<CableWait>();
    // Ctrl+C can't stop the driver's test, which has taken the link down: the
    // first one waits for its end, so that the user sees whether the link came back.
    const InterruptScope interrupts(context.console,
                                    [wait] { wait->update([](CableWait& w) { ++w.interrupts; }); });
    ServiceThread thread([run, wait, name = adapter.name, limits] {
        struct Ended {
            std::shared_ptr<CableWait> wait;
            ~Ended()
            {
                wait->update([](CableWait& w) { w.workEnded = true; });
            }
        } ended{wait};
        cableTest(*run, name, limits);
    });

    RunningLine running(context.console, adapter.name, context.console.isTerminal() && !context.command.json);
    const auto start = std::chrono::steady_clock::now();
    bool interrupted = false;
    for (;;) {
        const auto elapsed
            = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
        if (elapsed >= limits.cableTest) {
            running.erase();
            return context.timedOut(limits.cableTest);
        }
        if (!interrupted && !running.show(static_cast<long>(elapsed.count() / 1000))) {
            return context.outputClosed();
        }
        const auto slice = std::min(limits.cableTest - elapsed, std::chrono::milliseconds(200));
        int pressed = 0;
        bool workEnded = false;
        {
            std::unique_lock<SrwLock> guard(wait->lock);
            wait->changed.waitFor(guard, slice, [&wait, interrupted] {
                return wait->workEnded || wait->interrupts > (interrupted ? 1 : 0);
            });
            pressed = wait->interrupts;
            workEnded = wait->workEnded;
        }
        // Each Ctrl+C is told in turn, however close together they came.
        if (pressed >= 1 && !interrupted) {
            interrupted = true;
            running.erase();
            context.console.err(L"ztdiag: the cable test is still running on " + adapter.name
                                + L": waiting for it to end and for the link to come back"
                                  L" (Ctrl+C again to leave at once)\n");
        }
        if (pressed >= 2) {
            return context.fail(exitInterrupted,
                                L"the cable test on " + adapter.name
                                    + L" was interrupted before its end; the link may still be down");
        }
        if (workEnded) {
            break;
        }
    }
    // The work has returned; its thread ends its use of the service next.
    const auto elapsed
        = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    if (!thread.waitFor(std::max(limits.cableTest - elapsed, std::chrono::milliseconds(0)))) {
        running.erase();
        return context.timedOut(limits.cableTest);
    }
    if (interrupted) {
        std::wstring message = L"the cable test on " + adapter.name + L" was interrupted";
        if (thread.succeeded() && run->outcome == CableRun::Done) {
            message += L"; link after the test: " + linkText(run->report.media, run->report.linkSpeed);
        }
        return context.fail(exitInterrupted, message);
    }
    if (!running.erase()) {
        return context.outputClosed();
    }
    if (!thread.succeeded()) {
        return context.fail(exitServiceFailed, L"out of memory");
    }
    switch (run->outcome) {
    case CableRun::ServiceDown:
        return context.fail(exitServiceFailed, L"can't connect to the management service (root\\wmi)");
    case CableRun::NotReady:
        return context.fail(exitNotTestable,
                            adapter.name + L": " + deviceStatusText(0, ProblemCodeNumber::Unsigned));
    case CableRun::Unsupported:
        return context.fail(exitNotTestable,
                            adapter.name + L": " + firmwareUnsupportedText + L" (firmware "
                                + run->firmware.toString() + L", cable tests need 1.5.66)");
    case CableRun::Failed:
        return context.fail(exitServiceFailed, adapter.name + L": the driver's cable test failed");
    case CableRun::NoPairs:
        return context.fail(exitServiceFailed,
                            adapter.name + L": the driver's cable test gave no result for any wire pair");
    case CableRun::Gone:
        return context.fail(exitNotTestable, adapter.name + L": the adapter went away during the cable test");
    case CableRun::Done:
        break;
    }
    const std::wstring text = context.command.json ? cableTestJson(run->report) : cableTestText(run->report);
    if (!context.console.out(text)) {
        return context.outputClosed();
    }
    return hasFaultyPair(run->report.pairs) ? exitCableFault : exitOk;
}
