#include "tools/page_reader/PageText.h"

#include <cstdint>

#include "resources/resource.h"

namespace {

// The results list's image list, in its order.
const char* const imageNames[] = {"blank", "ok", "error", "warning", "info"};

void appendUtf8(std::string& out, std::uint32_t code)
{
    if (code < 0x80) {
        out += static_cast<char>(code);
        return;
    }
    const int tail = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    const std::uint32_t lead[] = {0, 0xC0, 0xE0, 0xF0};
    out += static_cast<char>(lead[tail] | (code >> (6 * tail)));
    for (int shift = 6 * (tail - 1); shift >= 0; shift -= 6) {
        out += static_cast<char>(0x80 | ((code >> shift) & 0x3F));
    }
}

std::string imageName(int index)
{
    if (index >= 0 && index < static_cast<int>(sizeof imageNames / sizeof imageNames[0])) {
        return imageNames[index];
    }
    return "image" + std::to_string(index);
}

const char* enabled(bool on)
{
    return on ? "enabled" : "disabled";
}

std::string describeLine(const ListLine& line)
{
    return imageName(line.image) + " " + quoted(line.text);
}

}  // namespace

std::string narrow(const std::wstring& text)
{
    using Traits = std::char_traits<wchar_t>;
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        std::uint32_t code = Traits::to_int_type(text[i]);
        // A UTF-16 surrogate pair, where wchar_t has 16 bits.
        if (code >= 0xD800 && code < 0xDC00 && i + 1 < text.size()) {
            const std::uint32_t low = Traits::to_int_type(text[i + 1]);
            if (low >= 0xDC00 && low < 0xE000) {
                code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                ++i;
            }
        }
        appendUtf8(out, code);
    }
    return out;
}

std::string quoted(const std::wstring& text)
{
    static const std::wstring special = L"\\\"\t\r\n";
    static const std::wstring escapes = L"\\\"trn";
    std::wstring escaped = L"\"";
    for (const wchar_t c : text) {
        const auto at = special.find(c);
        if (at == std::wstring::npos) {
            escaped += c;
        } else {
            escaped += L'\\';
            escaped += escapes[at];
        }
    }
    escaped += L'"';
    return narrow(escaped);
}

std::string iconName(int resourceId)
{
    if (resourceId == 0) {
        return "none";
    }
    for (const IconName& icon : moduleIcons()) {
        if (icon.resourceId == resourceId) {
            return icon.name;
        }
    }
    return "other";
}

const std::vector<IconName>& moduleIcons()
{
    static const std::vector<IconName> icons = {
        {IDI_LAMP_OK, "lamp_ok"},        {IDI_LAMP_UNKNOWN, "lamp_unknown"},
        {IDI_LAMP_HIGH, "lamp_high"},    {IDI_BANNER, "banner"},
        {IDI_RESULT_OK, "ok"},           {IDI_RESULT_ERROR, "error"},
        {IDI_RESULT_WARNING, "warning"}, {IDI_RESULT_INFO, "info"},
        {IDI_RESULT_BLANK, "blank"},
    };
    return icons;
}

std::vector<std::string> describePage(const PageScreen& s)
{
    std::vector<std::string> out;
    out.push_back("  link: " + iconName(s.linkIcon) + " " + quoted(s.linkStatus) + " " + quoted(s.speed));
    out.push_back("  health: " + iconName(s.healthIcon) + " " + quoted(s.temperature));
    out.push_back("  detail: " + std::string(s.detailVisible ? "shown " : "hidden ") + quoted(s.detail));
    std::string rows;
    for (const std::wstring& row : s.categoryRows) {
        rows += " " + quoted(row);
    }
    out.push_back("  category: label " + std::string(enabled(s.categoryLabelEnabled)) + ", combo "
                  + enabled(s.categoryEnabled) + "," + rows + ", selected "
                  + (s.category.empty() ? std::string("none") : quoted(s.category)));
    out.push_back(std::string("  run: ") + enabled(s.runEnabled));
    out.push_back("  list: " + std::to_string(s.lines.size()) + " line" + (s.lines.size() == 1 ? "" : "s"));
    for (const ListLine& line : s.lines) {
        out.push_back("    " + describeLine(line));
    }
    return out;
}

std::ostream& operator<<(std::ostream& out, const ListLine& line)
{
    return out << describeLine(line);
}
