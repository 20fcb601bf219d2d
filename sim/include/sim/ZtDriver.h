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

// The driver's two methods on Zt_NetAdapter.
enum class ZtMethod {
    execCableDiag,
    getCableLength,
};

// Every value the driver hands out that a test may replace or leave out.
enum class ZtField {
    // ExecCableDiag out parameters, and "pairs" inside diagRes
    cableDiagReturnValue,
    diagRes,
    pairs,
    // GetCableLength out parameters
    cableLengthReturnValue,
    cableLength,
    // Zt_FirmwareVersion
    major,
    minor,
    revision,
    // Zt_DiagnosticsData, and the three inside thermalInfo
    thermalInfo,
    thermalFlags,
    phyTemperature,
    macTemperature,
};

// One per service; every member is thread-safe. Adapters are named by their
// InstanceName, matched exactly; an unknown name (or adding one twice) throws
// std::invalid_argument. What an adapter gives by default, as the driver does:
//   Zt_NetAdapter: ExecCableDiag -> ReturnValue 0 (VT_I4), diagRes: a
//     Zt_CableDiagResult with pairs = 4 words 0 (VT_ARRAY|VT_I4, 4-byte elements);
//     GetCableLength -> ReturnValue 0, cableLength 0 (VT_I4).
//   Zt_FirmwareVersion: major 1, minor 5 (VT_UI1), revision 66 (VT_I4).
//   Zt_DiagnosticsData: thermalInfo, a Zt_ThermalInfo with flags 12 (VT_UI1),
//     phyTemperature 4500, macTemperature 5000 (VT_I4, hundredths of a degree C).
class ZtDriver {
public:
    static constexpr const wchar_t* adapterClass = L"Zt_NetAdapter";
    static constexpr const wchar_t* firmwareClass = L"Zt_FirmwareVersion";
    static constexpr const wchar_t* diagnosticsClass = L"Zt_DiagnosticsData";
    static constexpr const wchar_t* diagResultClass = L"Zt_CableDiagResult";
    static constexpr const wchar_t* thermalClass = L"Zt_ThermalInfo";

    // Pair word status (bits 0-7); 1-3: connected to pair (index + status) mod 4.
    static constexpr std::uint8_t pairGood = 0;
    static constexpr std::uint8_t pairShort = 4;
    static constexpr std::uint8_t pairLowMismatch = 5;
    static constexpr std::uint8_t pairHighMismatch = 6;
    static constexpr std::uint8_t pairOpen = 7;
    // thermalInfo flags: which temperature is valid.
    static constexpr std::uint8_t phyTemperatureValid = 4;
    static constexpr std::uint8_t macTemperatureValid = 8;

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
    // Instances of Zt_NetAdapter, Zt_FirmwareVersion and Zt_DiagnosticsData with the defaults.
    void addAdapter(const std::wstring& instanceName);
    // The instances vanish (GetObject: WBEM_E_NOT_FOUND, ExecMethod: WBEM_E_NOT_FOUND);
    // a cable test under way ends at once with WBEM_E_NOT_FOUND, without link restore.
    void removeAdapter(const std::wstring& instanceName);
    // `Class.InstanceName="name"`, as a client spells the path.
    static std::wstring path(const std::wstring& className, const std::wstring& instanceName);

    // ---- What the adapter reports -----------------------------------------------
    void setFirmware(const std::wstring& name, std::uint8_t major, std::uint8_t minor,
                     std::uint16_t revision);
    // Hundredths of a degree Celsius.
    void setTemperatures(const std::wstring& name, std::int32_t phy, std::int32_t mac);
    void setThermalFlags(const std::wstring& name, std::uint8_t flags);
    // Any number of words (the hardware gives 4: pairs A, B, C, D).
    void setPairs(const std::wstring& name, std::vector<std::uint32_t> words);
    // One word of the current list; std::out_of_range past its end.
    void setPair(const std::wstring& name, std::size_t index, std::uint32_t word);
    static std::uint32_t pairWord(std::uint8_t status, std::uint8_t distance, std::uint8_t farthest = 0,
                                  std::uint8_t top = 0);
    void setCableLength(const std::wstring& name, std::uint32_t meters);
    void setReturnValue(const std::wstring& name, ZtMethod method, std::uint32_t value);

    // ---- Bad shapes -------------------------------------------------------------
    // From now on the field is exactly `value` (any shape: Value::raw,
    // arrayOf, scalarOf, Value::string, ...) whatever the setters say.
    void setField(const std::wstring& name, ZtField field, Value value);
    // From now on the field is left out: Get of it answers WBEM_E_NOT_FOUND,
    // except for out parameters, which the method's signature declares: those
    // read VT_NULL, as an unset out parameter does in WMI.
    void removeField(const std::wstring& name, ZtField field);
    // Back to what the setters say.
    void resetField(const std::wstring& name, ZtField field);
    // VT_ARRAY|elementType holding each word's low bits (e.g. VT_I2 or VT_UI2: 2-byte elements).
    static Value arrayOf(VARTYPE elementType, const std::vector<std::uint32_t>& words);
    // An integer VARIANT of type vt (VT_I1 ... VT_UI8, VT_INT, VT_UINT) holding `bits`' low bits.
    static Value scalarOf(VARTYPE vt, std::uint64_t bits);

    // ---- The cable test run -----------------------------------------------------
    // ExecCableDiag: onLinkDrop(name), then blocks for the duration (and while
    // held), then answers what the adapter reports at that moment, then
    // onLinkRestore(name), then returns. Hooks run on the calling thread with no
    // lock held; runs on one adapter may overlap.
    void setCableTestDuration(const std::wstring& name, std::chrono::milliseconds duration);
    void onLinkDrop(LinkHook hook);
    void onLinkRestore(LinkHook hook);
    // Runs on the adapter wait (after their link drop) until released; also
    // those already waiting out their duration.
    void holdCableTest(const std::wstring& name);
    void releaseCableTest(const std::wstring& name);
    // Until a run on the adapter has dropped the link and waits; false on timeout.
    bool waitUntilCableTestRunning(const std::wstring& name,
                                   std::chrono::milliseconds timeout = std::chrono::seconds(30)) const;

    // ---- Observation ------------------------------------------------------------
    // Calls of the method on the adapter that reached the driver, since the
    // driver was made (kept across removal).
    int runs(const std::wstring& name, ZtMethod method) const;

private:
    struct Core;  // shared with the handlers the service keeps
    std::shared_ptr<Core> core_;
};

}  // namespace sim
