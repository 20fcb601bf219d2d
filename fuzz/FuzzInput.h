// Reads a fuzzer's bytes as the values a target needs. Reading past the end
// gives zeros, so every input, however short, describes one whole case.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class FuzzInput {
public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) { }

    bool empty() const { return at_ >= size_; }
    std::size_t left() const { return empty() ? 0 : size_ - at_; }

    std::uint8_t byte() { return empty() ? 0 : data_[at_++]; }
    std::uint16_t u16() { return static_cast<std::uint16_t>(byte() | byte() << 8); }
    std::uint32_t u32() { return u16() | static_cast<std::uint32_t>(u16()) << 16; }
    std::uint64_t u64() { return u32() | static_cast<std::uint64_t>(u32()) << 32; }
    bool flag() { return (byte() & 1) != 0; }
    // A number below `bound` (which is not 0).
    std::size_t below(std::size_t bound) { return (bound <= 256 ? byte() : u32()) % bound; }

    // A length from one byte, at most `max`, then that many bytes.
    std::vector<std::uint8_t> bytes(std::size_t max);
    // Up to `max` code units: a byte below 0xF0 is that unit; above, the next
    // two bytes give any 16-bit unit. Zero units stay if `keepZeros`.
    std::wstring wideText(std::size_t max, bool keepZeros = false);
    // Up to `max` bytes as narrow text, without zeros.
    std::string narrowText(std::size_t max);
    // Everything not read yet.
    std::vector<std::uint8_t> rest();

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t at_ = 0;
};
