// What the sheet host plays: the adapter's state before the sheet opens and the
// steps run on the open sheet, read from scenario lines and command line options.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

// A pair word's parts, as the driver reports them.
struct PairSetting {
    std::uint8_t status = 0;
    std::uint8_t distance = 0;
};

// One step on the open sheet: its name and its words, e.g. {"wait", {"500"}}.
struct Step {
    std::string name;
    std::vector<std::wstring> arguments;
    int line = 0;  // where it was written, for error messages
};

struct Scenario {
    // ---- The device as the installer knows it -------------------------------------
    std::wstring dll;  // empty: ztprop.dll beside the host
    std::vector<std::wstring> hardwareIds{L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_0B217E5C&REV_02"};
    bool hasHardwareIds = true;  // false: the property is absent
    bool defaultHardwareIds = true;  // the first hwid setting replaces the list, later ones add
    std::wstring friendlyName = L"ZT Ethernet Adapter #2";
    std::uint32_t problemCode = 0;
    std::uint32_t existingPages = 0;  // other installers' pages already in the record
    std::uint32_t installFunction = 0x23;  // DIF_ADDPROPERTYPAGE_ADVANCED

    // ---- The adapter behind WMI ---------------------------------------------------
    bool linkUp = true;
    std::uint64_t linkSpeed = 1000000000;
    std::uint8_t firmwareMajor = 1;
    std::uint8_t firmwareMinor = 5;
    std::uint16_t firmwareRevision = 66;
    std::int32_t phyTemperature = 4500;  // hundredths of a degree
    std::int32_t macTemperature = 5000;
    std::uint8_t thermalFlags = 12;
    std::vector<PairSetting> pairs{{}, {}, {}, {}};
    std::uint32_t cableLength = 0;
    std::uint32_t cableTestMs = 1500;
    bool driverPresent = true;  // false: no Zt_ instances at all

    // ---- How the host runs ---------------------------------------------------------
    bool interactive = false;  // a person closes the sheet
    std::vector<Step> steps;
};

// A scenario line or option that can't be understood.
class ScenarioError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Reads `arguments` (the command line without the program name): "--name=value",
// "--name value..." up to the next option, "--scenario=FILE" for a file of
// lines "name value..." ('#' starts a comment). Later settings win; steps keep
// their order. Throws ScenarioError.
Scenario parseScenario(const std::vector<std::wstring>& arguments);

// The text for the usage message.
const char* scenarioUsage();
