// sheet_host: shows ztprop.dll's pages for a simulated adapter in a real
// property sheet and reads them back. See tools/sheet_host/README.md.
#include <cstdio>
#include <string>
#include <vector>

#include "tools/sheet_host/Scenario.h"
#include "tools/sheet_host/SheetHost.h"
#include "tools/sheet_host/Win32.h"

int wmain(int argc, wchar_t** argv)
{
    std::vector<std::wstring> arguments(argv + 1, argv + argc);
    if (!arguments.empty() && (arguments[0] == L"--help" || arguments[0] == L"-h")) {
        std::fputs(scenarioUsage(), stdout);
        return 0;
    }
    Scenario scenario;
    try {
        scenario = parseScenario(arguments);
    } catch (const ScenarioError& error) {
        std::fprintf(stderr, "sheet_host: %s\n%s", error.what(), scenarioUsage());
        return 2;
    }
    SheetHost host(std::move(scenario));
    return host.run();
}
