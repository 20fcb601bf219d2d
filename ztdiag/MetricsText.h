// The Prometheus text exposition format (version 0.0.4), as the textfile
// collectors read it: each family once, its HELP and TYPE lines first, then its
// samples; label values and help texts escaped; UTF-8; no timestamps.
#pragma once

#include <string>
#include <utility>
#include <vector>

class MetricsText {
public:
    using Labels = std::vector<std::pair<const char*, std::wstring>>;

    // Starts a family: `type` is "gauge" or "counter".
    void family(const char* name, const char* type, const char* help);
    // A sample of the family last started.
    void sample(const Labels& labels, double value);

    // The whole text, ending with a newline.
    const std::string& text() const { return text_; }

private:
    std::string text_;
    std::string name_;
};

// A sample value as the format writes it: the shortest decimal that reads back
// as the same double; "+Inf", "-Inf" and "NaN" as the format spells them.
std::string metricValue(double value);
