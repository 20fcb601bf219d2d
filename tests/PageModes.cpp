#include "PageModes.h"

#include <algorithm>

#include "diag_page/DiagResultsList.h"

bool temperatureTimerRunning(HWND page)
{
    const auto timers = host::liveTimers(page);
    return std::any_of(timers.begin(), timers.end(),
                       [](const host::TimerInfo& timer) { return timer.id == 1101 && timer.period == 1500; });
}

std::string modeViolation(const PageScreen& s, bool timerRunning)
{
    if (s.categoryEnabled != s.categoryLabelEnabled) {
        return "the category label and box disagree";
    }
    if (s.categoryEnabled && !s.runEnabled) {
        return "the category is offered while the run button is disabled";
    }
    if (s.lines.empty()) {
        return {};  // Idle, or a device or firmware mode whose line a second media event removed
    }
    const ListLine& first = s.lines.front();
    const auto only = [&](bool run, bool timer, const char* mode) -> std::string {
        std::string wrong;
        if (s.lines.size() != 1) {
            wrong = "more than its one line, last " + quoted(s.lines.back().text);
        } else if (s.runEnabled != run) {
            wrong = std::string("run button ") + (s.runEnabled ? "enabled" : "disabled");
        } else if (s.categoryEnabled) {
            wrong = "category offered";
        } else if (timerRunning != timer) {
            wrong = std::string("timer ") + (timerRunning ? "running" : "stopped");
        }
        return wrong.empty() ? wrong : mode + (": " + wrong);
    };
    const bool deviceLine = first.text == L"Device is disabled" || first.text == L"Unable to query device"
        || first.text.rfind(L"Device has a problem (code ", 0) == 0;
    if (deviceLine && first.image == DiagResultsList::ImageWarning) {
        return only(false, false, "device mode");
    }
    if (first.text == L"Current version of firmware doesn't support cable diagnostics") {
        return only(false, true, "old firmware");
    }
    if (first.text == L"Cable diagnostics started (can take up to 8 seconds)...") {
        return only(false, true, "running");
    }
    // Idle or Results shown: the button is back, the timer runs.
    if (!s.runEnabled) {
        return quoted(first.text) + " shown with the run button disabled";
    }
    if (!timerRunning) {
        return quoted(first.text) + " shown without the timer";
    }
    if (first.text == L"Failed to start cable diagnostics") {
        return s.lines.size() == 1 ? std::string() : "lines after the failed start";
    }
    // The results' lines, then at most the length line.
    const auto results = std::find_if_not(s.lines.begin(), s.lines.end(), [](const ListLine& line) {
        return line.text == L"The overall status of cable is good"
            || line.text == L"Diagnostics results by pairs:" || line.text == L"An error occurred"
            || line.text.rfind(L"Pair ", 0) == 0;
    });
    if (results == s.lines.end()) {
        return {};
    }
    const ListLine& next = *results;
    const bool length
        = (next.text.rfind(L"Approx cable length: ", 0) == 0 && next.image == DiagResultsList::ImageOk)
        || (next.text == L"Unable to determine cable length" && next.image == DiagResultsList::ImageWarning);
    return results + 1 == s.lines.end() && length ? std::string() : "unexpected line " + quoted(next.text);
}
