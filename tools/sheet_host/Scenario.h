// What the sheet host plays: the adapter's state before the sheet opens and the
// steps run on the open sheet, read from scenario lines and command line options.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/SimAdapter.h"

// One step on the open sheet: its name and its words, e.g. {"wait", {"500"}}.
struct Step {
    std::string name;
    std::vector<std::wstring> arguments;
    int line = 0;  // where it was written, for error messages
};

// What the scenario's adapter is unless it says otherwise.
sim::AdapterSettings scenarioAdapter();

// When the DLL is freed, as the installer frees it with its device information set.
enum class FreeDll {
    atEnd,  // on the installer's thread once the sheet's thread has ended
    onSheetThread,  // on the sheet's thread, right after its sheet is destroyed
    sheetThreadAlive,  // on the installer's thread while the sheet's thread still runs; it ends after
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
    // Named friendlyName, there while problemCode is 0; a cable test of 1.5 s
    // takes its link down and back up.
    sim::AdapterSettings adapter = scenarioAdapter();

    // ---- How the host runs ---------------------------------------------------------
    bool interactive = false;  // a person closes the sheet
    // The whole run, from the DLL's load to its unload, again and again in one
    // process; round N frees the DLL as freeDll[(N - 1) % size] says.
    std::uint32_t rounds = 1;
    std::vector<FreeDll> freeDll{FreeDll::atEnd};
    bool timeOpen = false;  // a line with the time from LoadLibraryW to the sheet's opening
    bool pooledDeliveries = false;  // the service's delivery threads end whenever they find no work
    // Loads linger.dll, which holds each thread's end in the process this long.
    std::optional<std::uint32_t> lingerDetachMs;
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
