// The words that the diagnostics page and the console tool both show for an
// adapter: link state and speed, device state, temperature health, and the
// cable test's verdicts and length. One copy of each; stateless, any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ndis/MediaConnectState.h"
#include "nic/ZtPairInfo.h"
#include "nic/ZtThermalInfo.h"

// "<unknown>": a value that isn't known.
extern const wchar_t* const unknownText;

// "Connected" for a connected link, "Disconnected" for any other state.
const wchar_t* mediaStateText(MediaConnectState state);
// The text of a link speed in bits per second; "<unknown>" for any other value.
const wchar_t* linkSpeedText(std::uint64_t speed);

// How a problem code's number is written: the page writes it signed, as it
// always has, so an unreadable code reads -1; the tool writes it as Windows
// shows it, unsigned (4294967295).
enum class ProblemCodeNumber {
    Signed,
    Unsigned,
};
// Why a device isn't ready, by its problem code: 22 "Device is disabled", 0
// "Unable to query device" (the device works, its driver doesn't answer), any
// other "Device has a problem (code N)".
std::wstring deviceStatusText(std::uint32_t problemCode, ProblemCodeNumber number);

enum class TemperatureHealth {
    Unknown,  // no temperature reported
    Ok,  // a reported temperature is at or below the limit
    High,  // every reported temperature is above it
};
TemperatureHealth temperatureHealth(const ZtThermalInfo& thermal);
// "Temperature <unknown>", "Temperature is ok", "Temperature is high".
const wchar_t* temperatureHealthText(TemperatureHealth health);
// One temperature: "54.25°C" (%g), or "<?>°C" when it isn't reported.
std::wstring temperatureText(bool present, double value);

// True if any pair has a fault; an empty list is a good cable.
bool hasFaultyPair(const std::vector<ZtPairInfo>& pairs);
// "Pair B: open circuit, distance 12 meters"; the distance only for a fault.
std::wstring pairResultText(const ZtPairInfo& pair);
// "Approx cable length: %d meters".
std::wstring cableLengthText(std::uint32_t meters);

extern const wchar_t* const cableGoodText;
extern const wchar_t* const cableLengthUnknownText;
extern const wchar_t* const firmwareUnsupportedText;
