// The driver's methods and data on top of the adapter object: the cable test,
// the cable length and its estimate, the temperatures.
#include <cstring>

#include "nic/ZtNic.h"
#include "trace/Trace.h"

namespace {

// Factor and offset of the length correction; index: category at 5 Gbps,
// 3 + category at 2.5 Gbps.
const double lengthFactors[6] = {1.1, 1.2278, 1.3, 1.7, 1.8044, 1.9};
const double lengthOffsets[6] = {-8.1, -7.2152, -8.3, -25.9, -26.5899, -28.6};

}  // namespace

bool ZtNic::performCableDiag(std::vector<ZtPairInfo>& results)
{
    if (!hasControlObject_()) {
        ZT_TRACE(0, "[!] performCableDiag(): class object is nullptr");
        return false;
    }
    if (!isCableDiagSupported()) {
        ZT_TRACE(0, "[!] performCableDiag(): cable diagnostics is not supported by FW!");
        return false;
    }
    ZT_TRACE(1, "staring cable diagnostics");
    const bool done = cableDiag_(results);
    ZT_TRACE(1, "cable diagnostics %s!", done ? "DONE" : "FAILED");
    return done;
}

bool ZtNic::cableDiag_(std::vector<ZtPairInfo>& results)
{
    WbemClassObject out;
    if (!execMethod_(L"ExecCableDiag", out)) {
        return false;
    }
    const variant& returnValue = out[L"ReturnValue"];
    if (returnValue.vartype() != VT_EMPTY) {
        ZT_TRACE(1, "result type %d", static_cast<int>(returnValue.vartype()));
    }
    const variant& diagRes = out[L"diagRes"];
    WbemClassObject embedded;
    // An object that holds no interface is one with no properties: the parse
    // finds no "pairs" in its empty wrapper.
    if (diagRes.vartype() != VT_UNKNOWN || !embeddedObject(diagRes.get().punkVal, embedded)) {
        ZT_TRACE(0, "[!] 'diagRes' property not found or has invalid type");
        return false;
    }
    return parseDiagResult(embedded, results);
}

bool parseDiagResult(const WbemClassObject& diagRes, std::vector<ZtPairInfo>& results)
{
    const variant& pairs = diagRes[L"pairs"];
    if (pairs.vartype() == VT_EMPTY) {
        ZT_TRACE(0, "[!] 'pairs' property not found");
        return false;
    }
    SAFEARRAY* array = (pairs.vartype() & VT_ARRAY) != 0 && !pairs.isByRef() ? pairs.get().parray : nullptr;
    if (array == nullptr || SafeArrayGetDim(array) != 1 || SafeArrayGetElemsize(array) != 4) {
        ZT_TRACE(2, "/!\\ field 'pairs' has unexpected type");
        return false;
    }
    // The count is the first dimension's; the bounds give no index of their own.
    const ULONG count = array->rgsabound[0].cElements;
    void* data = nullptr;
    if (FAILED(SafeArrayAccessData(array, &data))) {
        ZT_TRACE(2, "/!\\ field 'pairs' has unexpected type");
        return false;
    }
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (ULONG i = 0; i < count; ++i) {
        std::uint32_t word = 0;
        std::memcpy(&word, bytes + 4 * static_cast<std::size_t>(i), sizeof word);
        const ZtPairInfo& pair = results.emplace_back(static_cast<std::int32_t>(i), word);
        ZT_TRACE(1, "got pair %S result: status %u, distance %u, farthest distance %u",
                 pair.pairName().c_str(), static_cast<unsigned>(pair.status),
                 static_cast<unsigned>(pair.distance), static_cast<unsigned>(pair.farthestDistance));
    }
    SafeArrayUnaccessData(array);
    return true;
}

std::uint32_t ZtNic::getCableLength()
{
    if (!hasControlObject_()) {
        ZT_TRACE(0, "[!] getCableLength(): class object is nullptr");
        return 0;
    }
    if (!isCableDiagSupported()) {
        ZT_TRACE(0, "[!] getCableLength(): cable diagnostics is not supported by FW!");
        return 0;
    }
    WbemClassObject out;
    if (!execMethod_(L"GetCableLength", out)) {
        return 0;
    }
    const variant& length = out[L"cableLength"];
    if (length.vartype() <= VT_NULL) {
        return 0;
    }
    // The low 32 bits, whatever integer type the driver chose.
    return static_cast<std::uint32_t>(length.get().ullVal & 0xFFFFFFFFU);
}

std::uint32_t ZtNic::estimateCableLength(int category)
{
    const std::uint32_t raw = getCableLength();
    if (raw == 0) {
        ZT_TRACE(4, "estimateCableLength(): cable length is zero");
        return 0;
    }
    const std::uint64_t speed = linkSpeed_;
    if (speed != 5000000000ULL && speed != 2500000000ULL) {
        ZT_TRACE(4, "estimateCableLength(): don't need cable length estimation");
        return raw;
    }
    if (static_cast<unsigned>(category) > 2) {
        ZT_TRACE(2, "/!\\ estimateCableLength(): invalid cable category %d", category);
        return raw;
    }
    const int index = category + (speed == 2500000000ULL ? 3 : 0);
    double estimate = static_cast<double>(raw) * lengthFactors[index];
    estimate = estimate + lengthOffsets[index];
    ZT_TRACE(1, "estimateCableLength(): estimated cable length %g meters (raw %d meters)", estimate,
             static_cast<int>(raw));
    if (estimate < 0) {
        ZT_TRACE(4, "estimateCableLength(): estimated cable length less zero. Set to zero");
        return 0;
    }
    return static_cast<std::uint32_t>(estimate);
}

ZtThermalInfo ZtNic::getThermalInfo()
{
    const WbemClassObject diagnostics = getObject_(L"Zt_DiagnosticsData");
    if (diagnostics.isEmpty()) {
        ZT_TRACE(0, "[!] Faild to create DiagDataObject");
        return {};
    }
    IUnknown* thermalUnknown = nullptr;
    WbemClassObject thermal;
    // No interface is an object with no properties: the reads below say so.
    if (!diagnostics.getObjectProperty(L"thermalInfo", &thermalUnknown)
        || !embeddedObject(thermalUnknown, thermal)) {
        ZT_TRACE(0, "[!] Couldn't get thermalInfo object");
        return {};
    }
    std::uint8_t flags = 0;
    std::int32_t phy = 0;
    std::int32_t mac = 0;
    if (!thermal.getByteProperty(L"flags", flags) || !thermal.getIntProperty(L"phyTemperature", phy)
        || !thermal.getIntProperty(L"macTemperature", mac)) {
        return {};
    }
    return {flags, phy, mac};
}
