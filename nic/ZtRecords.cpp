#include "nic/ZtFwVersion.h"
#include "nic/ZtPairInfo.h"
#include "nic/ZtThermalInfo.h"
#include "trace/FormatString.h"
#include "trace/Trace.h"

std::wstring ZtFwVersion::toString() const
{
    return formatString(L"%u.%u.%u", static_cast<unsigned>(major), static_cast<unsigned>(minor),
                        static_cast<unsigned>(revision));
}

ZtThermalInfo::ZtThermalInfo(std::uint8_t flagsValue, std::int32_t phyRaw, std::int32_t macRaw)
    : flags(flagsValue)
{
    if ((flags & phyValid) != 0) {
        phyTemperature = static_cast<double>(phyRaw) / 100.0;
    }
    if ((flags & macValid) != 0) {
        macTemperature = static_cast<double>(macRaw) / 100.0;
    }
    ZT_TRACE(3,
             "got temperature information: PHY %g\xB0"
             "C, MAC %g\xB0"
             "C",
             phyTemperature, macTemperature);
}

ZtPairInfo::ZtPairInfo(std::int32_t index, std::uint32_t word)
    : pairIndex(index),
      status(static_cast<std::uint8_t>(word)),
      distance(static_cast<std::uint8_t>(word >> 8)),
      farthestDistance(static_cast<std::uint8_t>(word >> 16)),
      reserved(static_cast<std::uint8_t>(word >> 24))
{
}

std::wstring ZtPairInfo::pairName() const
{
    static const wchar_t* const pairLetters[] = {L"A", L"B", L"C", L"D"};
    return pairIndex >= 0 && pairIndex < 4 ? pairLetters[pairIndex] : L"<unknown>";
}

const wchar_t* const otherPairLetters[4][4] = {
    {L"A", L"B", L"C", L"D"},
    {L"B", L"C", L"D", L"A"},
    {L"C", L"D", L"A", L"B"},
    {L"D", L"A", L"B", L"C"},
};

std::wstring ZtPairInfo::partnerName() const
{
    const bool crossed = status >= 1 && status <= 3;
    return crossed && pairIndex >= 0 && pairIndex < 4 ? otherPairLetters[pairIndex][status] : L"";
}

std::wstring ZtPairInfo::statusString() const
{
    std::int32_t index = pairIndex;
    if (index < 0 || index > 3) {
        ZT_TRACE(1, "invalid pair index=%d", static_cast<int>(index));
        index = 0;  // the letter then names a pair, even if not the right one
    }
    switch (status) {
    case good:
        return L"OK";
    case 1:
    case 2:
    case 3:
        ZT_TRACE(1, "index %d, status %d", static_cast<int>(index), static_cast<int>(status));
        return formatString(L"connected to another pair (%s)", otherPairLetters[index][status]);
    case shortCircuit:
        return L"short circuit";
    case lowMismatch:
        return L"low mismatch";
    case highMismatch:
        return L"high mismatch";
    case openCircuit:
        return L"open circuit";
    default:
        return L"<unknown>";
    }
}
