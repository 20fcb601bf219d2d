#include "FuzzInput.h"

std::vector<std::uint8_t> FuzzInput::bytes(std::size_t max)
{
    const std::size_t count = max == 0 ? 0 : byte() % (max + 1);
    std::vector<std::uint8_t> out;
    out.reserve(count);
    for (std::size_t i = 0; i < count && !empty(); ++i) {
        out.push_back(byte());
    }
    return out;
}

std::wstring FuzzInput::wideText(std::size_t max, bool keepZeros)
{
    const std::size_t count = max == 0 ? 0 : byte() % (max + 1);
    std::wstring out;
    for (std::size_t i = 0; i < count && !empty(); ++i) {
        const std::uint8_t first = byte();
        const wchar_t unit = first < 0xF0 ? static_cast<wchar_t>(first) : static_cast<wchar_t>(u16());
        if (unit != 0 || keepZeros) {
            out.push_back(unit);
        }
    }
    return out;
}

std::string FuzzInput::narrowText(std::size_t max)
{
    const std::size_t count = max == 0 ? 0 : byte() % (max + 1);
    std::string out;
    for (std::size_t i = 0; i < count && !empty(); ++i) {
        const auto c = static_cast<char>(byte());
        if (c != '\0') {
            out.push_back(c);
        }
    }
    return out;
}

std::vector<std::uint8_t> FuzzInput::rest()
{
    std::vector<std::uint8_t> out(data_ + at_, data_ + size_);
    at_ = size_;
    return out;
}
