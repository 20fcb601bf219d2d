// The cable test's result for one wire pair, as the driver packs it in one
// 32-bit word: status, distance, farthest distance, reserved (lowest first).
#pragma once

#include <cstdint>
#include <string>

// Letter of the pair that status s (1 to 3) of pair i names: pair (i + s) mod 4.
extern const wchar_t* const otherPairLetters[4][4];

struct ZtPairInfo {
    // Status values; 1 to 3 mean "connected to the pair status places on".
    static constexpr std::uint8_t good = 0;
    static constexpr std::uint8_t shortCircuit = 4;
    static constexpr std::uint8_t lowMismatch = 5;
    static constexpr std::uint8_t highMismatch = 6;
    static constexpr std::uint8_t openCircuit = 7;

    ZtPairInfo(std::int32_t index, std::uint32_t word);

    // "A" to "D" for pairs 0 to 3, else "<unknown>".
    std::wstring pairName() const;
    // The status in words, e.g. "open circuit" or "connected to another pair (B)".
    std::wstring statusString() const;
    // The letter of the pair this one is connected to (status 1 to 3 on pairs
    // A to D); empty for any other status or pair.
    std::wstring partnerName() const;

    std::int32_t pairIndex;
    std::uint8_t status;
    std::uint8_t distance;
    std::uint8_t farthestDistance;
    std::uint8_t reserved;
};
