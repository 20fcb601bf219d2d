#include "Text.h"

#include <algorithm>
#include <cwctype>

namespace sim {

namespace {

wchar_t fold(wchar_t c)
{
    return static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
}

bool isNameChar(wchar_t c)
{
    return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || (c >= L'0' && c <= L'9') || c == L'_';
}

// A cursor over query or path text.
class Scanner {
public:
    explicit Scanner(std::wstring_view text) : text_(text) { }

    void skipSpace()
    {
        while (pos_ < text_.size() && std::iswspace(static_cast<std::wint_t>(text_[pos_])) != 0) {
            ++pos_;
        }
    }
    bool atEnd() const { return pos_ == text_.size(); }
    bool take(wchar_t c)
    {
        if (pos_ < text_.size() && text_[pos_] == c) {
            ++pos_;
            return true;
        }
        return false;
    }
    std::wstring name()
    {
        const std::size_t start = pos_;
        while (pos_ < text_.size() && isNameChar(text_[pos_])) {
            ++pos_;
        }
        return std::wstring(text_.substr(start, pos_ - start));
    }
    // A keyword must end at a non-name character.
    bool keyword(std::wstring_view word)
    {
        const std::size_t start = pos_;
        if (equalsNoCase(name(), word)) {
            return true;
        }
        pos_ = start;
        return false;
    }
    // "text" or 'text', verbatim.
    std::optional<std::wstring> quoted()
    {
        if (pos_ >= text_.size() || (text_[pos_] != L'"' && text_[pos_] != L'\'')) {
            return std::nullopt;
        }
        const wchar_t quote = text_[pos_];
        const std::size_t close = text_.find(quote, pos_ + 1);
        if (close == std::wstring_view::npos) {
            return std::nullopt;
        }
        std::wstring inside(text_.substr(pos_ + 1, close - pos_ - 1));
        pos_ = close + 1;
        return inside;
    }

private:
    std::wstring_view text_;
    std::size_t pos_ = 0;
};

// `InstanceName = "name"`, spaces allowed around '=' when `spaced`.
std::optional<std::wstring> instanceKey(Scanner& scan, bool spaced)
{
    if (!scan.keyword(L"InstanceName")) {
        return std::nullopt;
    }
    if (spaced) {
        scan.skipSpace();
    }
    if (!scan.take(L'=')) {
        return std::nullopt;
    }
    if (spaced) {
        scan.skipSpace();
    }
    return scan.quoted();
}

}  // namespace

bool equalsNoCase(std::wstring_view a, std::wstring_view b)
{
    return a.size() == b.size()
        && std::equal(a.begin(), a.end(), b.begin(), [](wchar_t x, wchar_t y) { return fold(x) == fold(y); });
}

bool startsWithNoCase(std::wstring_view text, std::wstring_view prefix)
{
    return text.size() >= prefix.size() && equalsNoCase(text.substr(0, prefix.size()), prefix);
}

bool NoCaseLess::operator()(const std::wstring& a, const std::wstring& b) const
{
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [](wchar_t x, wchar_t y) { return fold(x) < fold(y); });
}

std::string narrow(std::wstring_view text)
{
    std::string out;
    out.reserve(text.size());
    for (const wchar_t c : text) {
        out.push_back(c >= 0x20 && c < 0x7f ? static_cast<char>(c) : '?');
    }
    return out;
}

std::optional<ObjectPath> parseObjectPath(std::wstring_view path)
{
    Scanner scan(path);
    ObjectPath parsed;
    parsed.className = scan.name();
    if (parsed.className.empty()) {
        return std::nullopt;
    }
    if (scan.take(L'.')) {
        parsed.instanceName = instanceKey(scan, false);
        if (!parsed.instanceName) {
            return std::nullopt;
        }
    }
    if (!scan.atEnd()) {
        return std::nullopt;
    }
    return parsed;
}

std::wstring instancePath(const std::wstring& className, const std::wstring& instanceName)
{
    return className + L".InstanceName=\"" + instanceName + L"\"";
}

std::optional<EventQuery> parseEventQuery(std::wstring_view query)
{
    Scanner scan(query);
    EventQuery parsed;
    scan.skipSpace();
    if (!scan.keyword(L"SELECT")) {
        return std::nullopt;
    }
    scan.skipSpace();
    if (!scan.take(L'*')) {
        return std::nullopt;
    }
    scan.skipSpace();
    if (!scan.keyword(L"FROM")) {
        return std::nullopt;
    }
    scan.skipSpace();
    parsed.className = scan.name();
    if (parsed.className.empty()) {
        return std::nullopt;
    }
    scan.skipSpace();
    if (scan.keyword(L"WHERE")) {
        scan.skipSpace();
        parsed.instanceName = instanceKey(scan, true);
        if (!parsed.instanceName) {
            return std::nullopt;
        }
        scan.skipSpace();
    }
    if (!scan.atEnd()) {
        return std::nullopt;
    }
    return parsed;
}

}  // namespace sim
