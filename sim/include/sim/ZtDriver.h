// The ZT adapter driver's WMI side on a simulated service: the Zt_ classes, one
// set of instances per adapter, the cable test and cable length methods, and bad shapes on demand.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform.h"
#include "sim/Value.h"
#include "sim/WmiService.h"

namespace sim {

// Every value the driver hands out that a test may replace or leave out.
enum class ZtField {
    cableDiagReturnValue,  // ExecCableDiag's out parameters, and "pairs" inside diagRes
    diagRes,
    pairs,
    cableLengthReturnValue,  // GetCableLength's out parameters
    cableLength,
    major,  // Zt_FirmwareVersion
    minor,
    revision,
    thermalInfo,  // Zt_DiagnosticsData, and the three inside thermalInfo
    thermalFlags,
    phyTemperature,
    macTemperature,
};

// What one adapter reports, the driver's defaults first, and how:
//   Zt_NetAdapter: ExecCableDiag -> ReturnValue 0 (VT_I4), diagRes: a
//     Zt_CableDiagResult with pairs, the words (VT_ARRAY|VT_I4);
//     GetCableLength -> ReturnValue 0, cableLength (VT_I4).
//   Zt_FirmwareVersion: major, minor (VT_UI1), revision (VT_I4).
//   Zt_DiagnosticsData: thermalInfo, a Zt_ThermalInfo with flags (VT_UI1: 4
//     PHY and 8 MAC valid), phyTemperature, macTemperature (VT_I4).
// The embedded objects hold exactly these.
struct ZtValues {
    std::uint8_t firmwareMajor = 1;
    std::uint8_t firmwareMinor = 5;
    std::uint16_t firmwareRevision = 66;
    std::int32_t phyTemperature = 4500;  // hundredths of a degree Celsius
    std::int32_t macTemperature = 5000;
    std::uint8_t thermalFlags = 12;
    std::vector<std::uint32_t> pairs{0, 0, 0, 0};  // any number (the hardware gives 4: A, B, C, D)
    std::uint32_t cableLength = 0;  // meters
    std::chrono::milliseconds cableTest{0};  // how long ExecCableDiag takes
};

// One per service; every member is thread-safe. Adapters are named by their
// InstanceName, matched exactly; an unknown name (or adding one twice) throws
// std::invalid_argument.
class ZtDriver {
public:
    static constexpr const wchar_t* adapterClass = L"Zt_NetAdapter";
    static constexpr const wchar_t* firmwareClass = L"Zt_FirmwareVersion";
    static constexpr const wchar_t* diagnosticsClass = L"Zt_DiagnosticsData";
    // A pair word's status (bits 0-7): 0 good, 1-3 connected to pair (index +
    // status) mod 4, 4 short, 5 low and 6 high impedance mismatch, 7 open.
    static constexpr std::uint8_t pairOpen = 7;

    using LinkHook = std::function<void(const std::wstring& instanceName)>;

    // Defines the classes and registers the method handlers on `service`,
    // which must outlive this object.
    explicit ZtDriver(WmiService& service);
    ~ZtDriver();  // shutdown()
    ZtDriver(const ZtDriver&) = delete;
    ZtDriver& operator=(const ZtDriver&) = delete;

    // The driver unloads: cable tests under way end at once with
    // WBEM_E_SHUTTING_DOWN (no link restore), every adapter's instances vanish;
    // returns once no run is inside the driver (hooks included).
    void shutdown();

    // ---- Adapters ---------------------------------------------------------------
    // Instances of Zt_NetAdapter, Zt_FirmwareVersion and Zt_DiagnosticsData.
    void addAdapter(const std::wstring& instanceName, const ZtValues& values = {});
    // The instances vanish (GetObject, ExecMethod: WBEM_E_NOT_FOUND); a cable
    // test under way ends at once with WBEM_E_NOT_FOUND, without link restore.
    void removeAdapter(const std::wstring& instanceName);

    // ---- What the adapter reports from now on -----------------------------------
    void change(const std::wstring& name, const std::function<void(ZtValues&)>& apply);
    void setFirmware(const std::wstring& name, std::uint8_t major, std::uint8_t minor, std::uint16_t revision)
    {
        change(name, [&](ZtValues& v) {
            v.firmwareMajor = major, v.firmwareMinor = minor, v.firmwareRevision = revision;
        });
    }
    void setTemperatures(const std::wstring& name, std::int32_t phy, std::int32_t mac)
    {
        change(name, [&](ZtValues& v) { v.phyTemperature = phy, v.macTemperature = mac; });
    }
    void setThermalFlags(const std::wstring& name, std::uint8_t flags)
    {
        change(name, [&](ZtValues& v) { v.thermalFlags = flags; });
    }
    void setPairs(const std::wstring& name, std::vector<std::uint32_t> words)
    {
        change(name, [&](ZtValues& v) { v.pairs = std::move(words); });
    }
    void setCableLength(const std::wstring& name, std::uint32_t meters)
    {
        change(name, [&](ZtValues& v) { v.cableLength = meters; });
    }
    void setCableTestDuration(const std::wstring& name, std::chrono::milliseconds duration)
    {
        change(name, [&](ZtValues& v) { v.cableTest = duration; });
    }
    static std::uint32_t pairWord(std::uint8_t status, std::uint8_t distance, std::uint8_t farthest = 0)
    {
        return status | (static_cast<std::uint32_t>(distance) << 8U)
            | (static_cast<std::uint32_t>(farthest) << 16U);
    }

    // ---- Bad shapes -------------------------------------------------------------
    // From now on the field is exactly `value` (any shape) whatever the setters
    // say; Value::absent() leaves it out (Get: WBEM_E_NOT_FOUND), but an out
    // parameter, which the method's signature declares, then reads VT_NULL.
    void setField(const std::wstring& name, ZtField field, Value value);
    void removeField(const std::wstring& name, ZtField field) { setField(name, field, Value::absent()); }
    // Back to what the setters say.
    void resetField(const std::wstring& name, ZtField field);

    // ---- The cable test run -----------------------------------------------------
    // ExecCableDiag: onLinkDrop(name), then blocks for the duration (and while
    // held), then answers what the adapter reports at that moment, then
    // onLinkRestore(name), then returns. Hooks run on the calling thread with no
    // lock held; runs on one adapter may overlap.
    void onLinkDrop(LinkHook hook);
    void onLinkRestore(LinkHook hook);
    // Runs on the adapter wait (after their link drop) until released.
    void holdCableTest(const std::wstring& name);
    void releaseCableTest(const std::wstring& name);
    // Until a run on the adapter has dropped the link and waits; false on timeout.
    bool waitUntilCableTestRunning(const std::wstring& name,
                                   std::chrono::milliseconds timeout = std::chrono::seconds(30)) const;
    // ExecCableDiag calls on the adapter that reached the driver (kept across removal).
    int cableTests(const std::wstring& name) const;

private:
    struct Core;  // shared with the handlers the service keeps
    std::shared_ptr<Core> core_;
};

}  // namespace sim
