#include "tools/sheet_host/Scenario.h"

#include <algorithm>
#include <cwchar>
#include <fstream>
#include <sstream>

#include "tools/sheet_host/Text.h"

sim::AdapterSettings scenarioAdapter()
{
    sim::AdapterSettings adapter;
    adapter.driver.cableTest = std::chrono::milliseconds(1500);
    adapter.cableTestDropsLink = true;
    adapter.locatorThread = true;  // as a service host registers it
    return adapter;
}

namespace {

// Steps and how many words each takes at least and at most.
struct StepShape {
    const char* name;
    std::size_t least;
    std::size_t most;
};

const StepShape stepShapes[] = {
    {"wait", 1, 1},  // milliseconds, messages pumped
    {"settle", 0, 0},  // until fired events are delivered and their messages handled
    {"dump", 0, 1},  // the page's controls, under a label
    {"screenshot", 1, 1},  // the sheet window, as a BMP file
    {"click-run", 0, 0},  // "Run cable diagnostics"
    {"category", 1, 1},  // a row of the cable category combo box, by its text
    {"unplug", 0, 1},  // the link goes down; "nowait": without waiting for its events
    {"plug", 0, 1},  // the link comes back; "nowait" as for unplug
    {"renegotiate", 1, 1},  // the link goes down and up at this speed, bits per second
    {"disable", 0, 0},  // problem code 22, the adapter leaves
    {"enable", 0, 0},  // problem code 0, the adapter arrives
    {"remove", 0, 0},  // the adapter leaves, the problem code stays
    {"arrive", 0, 0},  // the adapter comes back
    {"heat", 2, 2},  // PHY and MAC temperatures in degrees
    {"chord", 2, 2},  // keys such as ctrl+shift+t, held until the detail line changes, at most ms
    {"await-line", 1, 2},  // a list line containing the text appears, within ms (default 20000)
    {"list-images", 0, 0},  // the results list's images, named by their pixels
    {"select-page", 1, 1},  // a sheet page by index
    {"close", 0, 0},  // OK on the sheet
};

[[noreturn]] void fail(int line, const std::string& message)
{
    throw ScenarioError(line > 0 ? "line " + std::to_string(line) + ": " + message : message);
}

std::uint64_t number(const std::wstring& text, int line, std::uint64_t most)
{
    if (text.empty()) {
        fail(line, "a number is missing");
    }
    wchar_t* end = nullptr;
    const unsigned long long value = std::wcstoull(text.c_str(), &end, 0);
    if (*end != 0 || value > most || text[0] == L'-') {
        fail(line, "not a number in range: " + narrow(text));
    }
    return value;
}

// Degrees with up to two decimals, as hundredths.
std::int32_t hundredths(const std::wstring& text, int line)
{
    wchar_t* end = nullptr;
    const double value = std::wcstod(text.c_str(), &end);
    if (text.empty() || *end != 0 || value < -300.0 || value > 300.0) {
        fail(line, "not a temperature: " + narrow(text));
    }
    return static_cast<std::int32_t>(value * 100.0 + (value < 0 ? -0.5 : 0.5));
}

void expectWords(const std::string& name, const std::vector<std::wstring>& words, std::size_t least,
                 std::size_t most, int line)
{
    if (words.size() < least || words.size() > most) {
        fail(line,
             name + ": " + std::to_string(least) + (least == most ? "" : " to " + std::to_string(most))
                 + " values expected");
    }
}

bool onOff(const std::wstring& word, const wchar_t* on, const wchar_t* off, int line)
{
    if (word == on) {
        return true;
    }
    if (word == off) {
        return false;
    }
    fail(line, "expected " + narrow(on) + " or " + narrow(off) + ", not " + narrow(word));
}

// "S[:D]": a pair word's status and distance.
std::uint32_t pairWord(const std::wstring& word, int line)
{
    const std::size_t colon = word.find(L':');
    const auto status = static_cast<std::uint8_t>(number(word.substr(0, colon), line, 255));
    const auto distance = colon != std::wstring::npos
        ? static_cast<std::uint8_t>(number(word.substr(colon + 1), line, 255))
        : 0;
    return sim::ZtDriver::pairWord(status, static_cast<std::uint8_t>(distance));
}

void applySetting(Scenario& scenario, const std::string& name, const std::vector<std::wstring>& words,
                  int line);

void readFile(Scenario& scenario, const std::wstring& path);

void apply(Scenario& scenario, const std::string& name, const std::vector<std::wstring>& words, int line)
{
    for (const StepShape& shape : stepShapes) {
        if (name == shape.name) {
            expectWords(name, words, shape.least, shape.most, line);
            if ((name == "unplug" || name == "plug") && !words.empty() && words[0] != L"nowait") {
                fail(line, name + ": nowait or nothing expected, not " + narrow(words[0]));
            }
            scenario.steps.push_back({name, words, line});
            return;
        }
    }
    applySetting(scenario, name, words, line);
}

void applySetting(Scenario& scenario, const std::string& name, const std::vector<std::wstring>& words,
                  int line)
{
    const auto one = [&]() -> const std::wstring& {
        expectWords(name, words, 1, 1, line);
        return words[0];
    };
    if (name == "scenario") {
        readFile(scenario, one());
    } else if (name == "dll") {
        scenario.dll = one();
    } else if (name == "hwid") {
        // The first hwid setting replaces the default list; later ones add to it.
        expectWords(name, words, 1, 20, line);
        if (scenario.defaultHardwareIds) {
            scenario.hardwareIds.clear();
            scenario.defaultHardwareIds = false;
        }
        scenario.hardwareIds.insert(scenario.hardwareIds.end(), words.begin(), words.end());
        scenario.hasHardwareIds = true;
    } else if (name == "no-hwids") {
        expectWords(name, words, 0, 0, line);
        scenario.hardwareIds.clear();
        scenario.defaultHardwareIds = false;
        scenario.hasHardwareIds = false;
    } else if (name == "name") {
        scenario.friendlyName = one();
    } else if (name == "problem") {
        scenario.problemCode = static_cast<std::uint32_t>(number(one(), line, 0xFFFFFFFF));
    } else if (name == "pages") {
        scenario.existingPages = static_cast<std::uint32_t>(number(one(), line, 20));
    } else if (name == "dif") {
        scenario.installFunction = static_cast<std::uint32_t>(number(one(), line, 0xFFFFFFFF));
    } else if (name == "link") {
        scenario.adapter.linkUp = onOff(one(), L"up", L"down", line);
    } else if (name == "speed") {
        scenario.adapter.linkSpeed = number(one(), line, UINT64_MAX);
    } else if (name == "firmware") {
        unsigned major = 0;
        unsigned minor = 0;
        unsigned revision = 0;
        if (std::swscanf(one().c_str(), L"%u.%u.%u", &major, &minor, &revision) != 3 || major > 255
            || minor > 255 || revision > 65535) {
            fail(line, "firmware: MAJOR.MINOR.REVISION expected");
        }
        scenario.adapter.driver.firmwareMajor = static_cast<std::uint8_t>(major);
        scenario.adapter.driver.firmwareMinor = static_cast<std::uint8_t>(minor);
        scenario.adapter.driver.firmwareRevision = static_cast<std::uint16_t>(revision);
    } else if (name == "temperatures") {
        expectWords(name, words, 2, 2, line);
        scenario.adapter.driver.phyTemperature = hundredths(words[0], line);
        scenario.adapter.driver.macTemperature = hundredths(words[1], line);
    } else if (name == "thermal-flags") {
        scenario.adapter.driver.thermalFlags = static_cast<std::uint8_t>(number(one(), line, 255));
    } else if (name == "pairs") {
        expectWords(name, words, 0, 8, line);
        scenario.adapter.driver.pairs.clear();
        for (const auto& word : words) {
            scenario.adapter.driver.pairs.push_back(pairWord(word, line));
        }
    } else if (name == "cable-length") {
        scenario.adapter.driver.cableLength = static_cast<std::uint32_t>(number(one(), line, 0xFFFFFFFF));
    } else if (name == "cable-test-ms") {
        scenario.adapter.driver.cableTest = std::chrono::milliseconds(number(one(), line, 600000));
    } else if (name == "no-driver") {
        expectWords(name, words, 0, 0, line);
        scenario.adapter.driverPresent = false;
    } else if (name == "interactive") {
        expectWords(name, words, 0, 0, line);
        scenario.interactive = true;
    } else if (name == "rounds") {
        scenario.rounds = static_cast<std::uint32_t>(number(one(), line, 1000));
        if (scenario.rounds == 0) {
            fail(line, "rounds: at least 1");
        }
    } else if (name == "free-dll") {
        expectWords(name, words, 1, 10, line);
        scenario.freeDll.clear();
        for (const auto& word : words) {
            if (word == L"at-end") {
                scenario.freeDll.push_back(FreeDll::atEnd);
            } else if (word == L"on-sheet-thread") {
                scenario.freeDll.push_back(FreeDll::onSheetThread);
            } else if (word == L"sheet-thread-alive") {
                scenario.freeDll.push_back(FreeDll::sheetThreadAlive);
            } else {
                fail(line, "free-dll: at-end, on-sheet-thread or sheet-thread-alive, not " + narrow(word));
            }
        }
    } else if (name == "time-open") {
        expectWords(name, words, 0, 0, line);
        scenario.timeOpen = true;
    } else if (name == "pooled-deliveries") {
        expectWords(name, words, 0, 0, line);
        scenario.pooledDeliveries = true;
    } else if (name == "linger-detach") {
        scenario.lingerDetachMs = static_cast<std::uint32_t>(number(one(), line, 10000));
    } else {
        fail(line, "unknown setting or step: " + name);
    }
}

// Splits a line into words; "double quotes" keep blanks, \" is a quote.
std::vector<std::wstring> words(const std::wstring& text, int line)
{
    std::vector<std::wstring> result;
    std::size_t at = 0;
    while (at < text.size()) {
        if (text[at] == L' ' || text[at] == L'\t') {
            ++at;
            continue;
        }
        std::wstring word;
        if (text[at] == L'"') {
            ++at;
            while (at < text.size() && text[at] != L'"') {
                if (text[at] == L'\\' && at + 1 < text.size() && text[at + 1] == L'"') {
                    ++at;
                }
                word += text[at++];
            }
            if (at == text.size()) {
                fail(line, "a quote is not closed");
            }
            ++at;
        } else {
            while (at < text.size() && text[at] != L' ' && text[at] != L'\t') {
                word += text[at++];
            }
        }
        result.push_back(word);
    }
    return result;
}

void readFile(Scenario& scenario, const std::wstring& path)
{
    std::ifstream file(narrow(path), std::ios::binary);
    if (!file) {
        throw ScenarioError("cannot read " + narrow(path));
    }
    std::string lineText;
    int line = 0;
    while (std::getline(file, lineText)) {
        ++line;
        if (!lineText.empty() && lineText.back() == '\r') {
            lineText.pop_back();
        }
        std::vector<std::wstring> parts = words(widen(lineText), line);
        if (parts.empty() || parts[0][0] == L'#') {
            continue;
        }
        const std::string name = narrow(parts[0]);
        parts.erase(parts.begin());
        try {
            apply(scenario, name, parts, line);
        } catch (const ScenarioError& error) {
            throw ScenarioError(narrow(path) + ": " + error.what());
        }
    }
}

}  // namespace

Scenario parseScenario(const std::vector<std::wstring>& arguments)
{
    Scenario scenario;
    std::size_t at = 0;
    while (at < arguments.size()) {
        const std::wstring& option = arguments[at++];
        if (option.size() < 3 || option.compare(0, 2, L"--") != 0) {
            throw ScenarioError("options start with --: " + narrow(option));
        }
        std::vector<std::wstring> values;
        std::wstring name = option.substr(2);
        const std::size_t equals = name.find(L'=');
        if (equals != std::wstring::npos) {
            values.push_back(name.substr(equals + 1));
            name.resize(equals);
        }
        while (at < arguments.size() && arguments[at].compare(0, 2, L"--") != 0) {
            values.push_back(arguments[at++]);
        }
        apply(scenario, narrow(name), values, 0);
    }
    return scenario;
}

const char* scenarioUsage()
{
    return "usage: sheet_host [--scenario=FILE] [--SETTING VALUE...] [--STEP ARGS...]\n"
           "settings: dll hwid no-hwids name problem pages dif link speed firmware temperatures\n"
           "          thermal-flags pairs cable-length cable-test-ms no-driver interactive rounds\n"
           "          free-dll pooled-deliveries linger-detach time-open\n"
           "steps:    wait settle dump screenshot click-run category unplug plug renegotiate disable\n"
           "          enable remove arrive heat chord await-line list-images select-page close\n";
}
