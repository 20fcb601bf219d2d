#include "ztdiag/MetricsText.h"

#include <array>
#include <charconv>
#include <cmath>

#include "ztdiag/Utf8.h"

namespace {

// Backslash and newline in any text; the double quote too in a label value.
std::string escaped(const std::string& text, bool quote)
{
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        if (c == '\\') {
            out += "\\\\";
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '"' && quote) {
            out += "\\\"";
        } else {
            out += c;
        }
    }
    return out;
}

}  // namespace

std::string metricValue(double value)
{
    if (std::isnan(value)) {
        return "NaN";
    }
    if (std::isinf(value)) {
        return value > 0 ? "+Inf" : "-Inf";
    }
    std::array<char, 32> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    return std::string(buffer.data(), result.ptr);
}

void MetricsText::family(const char* name, const char* type, const char* help)
{
    name_ = name;
    text_ += "# HELP " + name_ + " " + escaped(help, false) + "\n";
    text_ += "# TYPE " + name_ + " " + type + "\n";
}

void MetricsText::sample(const Labels& labels, double value)
{
    text_ += name_;
    if (!labels.empty()) {
        char separator = '{';
        for (const auto& label : labels) {
            text_ += separator;
            text_ += label.first;
            text_ += "=\"" + escaped(toUtf8(label.second), true) + "\"";
            separator = ',';
        }
        text_ += '}';
    }
    text_ += " " + metricValue(value) + "\n";
}
