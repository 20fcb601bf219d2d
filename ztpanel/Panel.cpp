#include "ztpanel/Panel.h"

#include <exception>
#include <memory>
#include <optional>

#include "installer/DeviceClassSet.h"
#include "nic/AdapterTexts.h"
#include "platform/Threading.h"
#include "trace/FormatString.h"
#include "trace/ThreadBody.h"
#include "trace/Trace.h"
#include "ztdiag/AdapterSelector.h"
#include "ztdiag/CommandLine.h"
#include "ztpanel/AdapterChooser.h"
#include "ztpanel/CoInstallerModule.h"
#include "ztpanel/DevicePages.h"
#include "ztpanel/DeviceSheet.h"

const wchar_t* const panelUsageText
    = L"Usage: ztpanel [ADAPTER]\n\n"
      L"Opens the ZT Diagnostics page of a ZT adapter. ADAPTER names it by its device name, its "
      L"connection's name, its interface index, its MAC address or its device instance id. Without "
      L"it, the only ZT adapter opens, or a choice among several.";

void PanelHooks::tell(const std::wstring& text, UINT icon)
{
    MessageBoxW(nullptr, text.c_str(), L"ZT Diagnostics", MB_OK | MB_SETFOREGROUND | icon);
}

namespace {

// The version in the file's version block, "2.2.3.0"; empty if it has none.
std::wstring fileVersion(const std::wstring& path)
{
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &ignored);
    std::vector<BYTE> block(size);
    VS_FIXEDFILEINFO* info = nullptr;
    UINT length = 0;
    if (size == 0 || !GetFileVersionInfoW(path.c_str(), 0, size, block.data())
        || !VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&info), &length)
        || length < sizeof *info) {
        return {};
    }
    return formatString(L"%u.%u.%u.%u", HIWORD(info->dwFileVersionMS), LOWORD(info->dwFileVersionMS),
                        HIWORD(info->dwFileVersionLS), LOWORD(info->dwFileVersionLS));
}

std::wstring quoted(const std::wstring& text)
{
    return L"'" + text + L"'";
}

class Run {
public:
    Run(const PanelSettings& settings, PanelHooks& hooks) : settings_(settings), hooks_(hooks) { }

    int run()
    {
        const std::vector<std::wstring>& args = settings_.args;
        if (args.size() == 1 && (args[0] == L"/?" || args[0] == L"-h" || args[0] == L"--help")) {
            hooks_.tell(panelUsageText, MB_ICONINFORMATION);
            return panelShown;
        }
        if (args.size() > 1) {
            return fail_(panelUsage, L"One adapter at a time.\n\n" + std::wstring(panelUsageText));
        }
        DWORD error = 0;
        if (!findZtAdapters(adapters_, error)) {
            return fail_(panelCantList,
                         formatString(L"Can't list the network adapters (SetupAPI error %u).",
                                      static_cast<unsigned>(error)));
        }
        connections_ = findAdapterConnections(adapters_);
        const std::optional<std::size_t> chosen = args.empty() ? choose_() : named_(args[0]);
        return chosen ? open_(adapters_[*chosen]) : exitCode_;
    }

private:
    // No adapter: the run ends with `code`.
    std::nullopt_t exitWith_(int code)
    {
        exitCode_ = code;
        return std::nullopt;
    }

    int fail_(int code, const std::wstring& text)
    {
        ZT_TRACE(0, "[!] ztpanel: %S", text.c_str());
        hooks_.tell(text, MB_ICONERROR);
        return code;
    }

    std::wstring adapterList_() const
    {
        return adapters_.empty() ? std::wstring(L"There is no ZT adapter on this computer.")
                                 : L"The ZT adapters are " + adapterNameList(adapters_, connections_) + L".";
    }

    std::optional<std::size_t> named_(const std::wstring& name)
    {
        if (name.empty()) {
            return exitWith_(fail_(panelUsage, L"An empty adapter name names no adapter. " + adapterList_()));
        }
        const std::vector<AdapterMatch> matches = adaptersNamed(adapters_, connections_, name);
        if (matches.empty()) {
            return exitWith_(
                fail_(panelNoAdapter, L"No ZT adapter is named " + quoted(name) + L". " + adapterList_()));
        }
        if (matches.size() > 1) {
            std::wstring ids;
            for (const AdapterMatch& match : matches) {
                ids += (ids.empty() ? L"" : L", ") + quotedInstanceId(adapters_[match.adapter]);
            }
            return exitWith_(fail_(panelUsage,
                                   quoted(name) + L" names " + std::to_wstring(matches.size())
                                       + L" ZT adapters. Give the device instance id of the one to open: "
                                       + ids + L"."));
        }
        return matches.front().adapter;
    }

    std::optional<std::size_t> choose_()
    {
        if (adapters_.empty()) {
            return exitWith_(fail_(panelNoAdapter, adapterList_()));
        }
        if (adapters_.size() == 1) {
            return 0U;
        }
        std::vector<std::wstring> rows;
        for (std::size_t i = 0; i < adapters_.size(); ++i) {
            std::wstring row = adapters_[i].name;
            if (!connections_[i].name.empty()) {
                row += L" (" + connections_[i].name + L")";
            }
            if (adapters_[i].problemCode != 0) {
                row += L": " + deviceStatusText(adapters_[i].problemCode, ProblemCodeNumber::Unsigned);
            }
            rows.push_back(row);
        }
        const AdapterChoice choice = chooseAdapter(settings_.instance, rows);
        if (choice.error != 0) {
            return exitWith_(fail_(panelSheetFailed,
                                   formatString(L"The adapter chooser can't be shown (error %u).",
                                                static_cast<unsigned>(choice.error))));
        }
        if (choice.row < 0) {
            ZT_TRACE(1, "ztpanel: no adapter chosen");
            return exitWith_(panelNoChoice);
        }
        return static_cast<std::size_t>(choice.row);
    }

    int open_(const ZtAdapterDevice& adapter)
    {
        const std::wstring& path = settings_.dllPath;
        CoInstallerModule module(path);
        if (module.handle() == nullptr) {
            return fail_(panelDllUnusable,
                         formatString(L"%s can't be loaded (error %u). It belongs beside ztpanel.exe.",
                                      path.c_str(), static_cast<unsigned>(module.error())));
        }
        if (module.entry() == nullptr) {
            return fail_(
                panelDllUnusable,
                formatString(L"%s has no CoDeviceInstall export (error %u): it isn't the ZT co-installer.",
                             path.c_str(), static_cast<unsigned>(module.error())));
        }
        hooks_.loaded(module.handle());
        const int code = showPages_(adapter, module);
        hooks_.unloading(module.handle());
        return code;
    }

    int showPages_(const ZtAdapterDevice& adapter, CoInstallerModule& module)
    {
        const std::wstring& path = settings_.dllPath;
        // Device Manager's way: the device in a set of its own class, kept for the sheet's life (the
        // page reads the device's state through it).
        DeviceClassSet devices(GUID_DEVCLASS_NET);
        if (!devices.isValid()) {
            return fail_(panelCantList,
                         formatString(L"Can't list the network adapters (SetupAPI error %u).",
                                      static_cast<unsigned>(devices.error())));
        }
        std::size_t index = 0;
        while (index < devices.size()
               && !sameIgnoringCase(devices.reader(index).getInstanceId(), adapter.instanceId)) {
            ++index;
        }
        if (index == devices.size()) {
            return fail_(panelSheetFailed, quoted(adapter.name) + L" is no longer present.");
        }
        const std::wstring dll = path.substr(path.find_last_of(L"\\/") + 1);
        DevicePages asked = askForPages(module.entry(), devices.set(), devices.device(index));
        if (asked.setupError != 0) {
            return fail_(panelNoPage,
                         formatString(L"The adapter's installation parameters can't be handed to %s "
                                      L"(SetupAPI error %u).",
                                      dll.c_str(), static_cast<unsigned>(asked.setupError)));
        }
        if (asked.result != NO_ERROR) {
            destroyPages_(asked.pages);
            return fail_(panelNoPage,
                         formatString(L"%s failed to add its page for '%s' (error %u). Its trace "
                                      L"lines tell where.",
                                      dll.c_str(), adapter.name.c_str(),
                                      static_cast<unsigned>(asked.result)));
        }
        if (asked.pages.empty()) {
            const std::wstring version = fileVersion(path);
            return fail_(panelNoPage,
                         dll + (version.empty() ? L"" : L" " + version) + L" added no page for "
                             + quoted(adapter.name) + L": it doesn't list the adapter's hardware id "
                             + quoted(adapter.hardwareId)
                             + L". The ztprop.dll of the adapter's driver package does.");
        }
        DWORD sheetError = 0;
        // Device Manager runs each sheet on a thread of its own; the page's
        // thread ends its COM use at its last page's release, before this one ends.
        Thread sheetThread([&] {
            runThreadBody("ztpanel sheet", [&] {
                DeviceSheet sheet(adapter.name, std::move(asked.pages), 0);
                if (sheet.window() == nullptr) {
                    sheetError = sheet.error() != 0 ? sheet.error() : ERROR_GEN_FAILURE;
                    return;
                }
                hooks_.sheetOpened(sheet.window());
                sheet.runUntilClosed();
            });
        });
        sheetThread.join();
        if (sheetError != 0) {
            return fail_(panelSheetFailed,
                         formatString(L"The property sheet can't be opened (error %u).",
                                      static_cast<unsigned>(sheetError)));
        }
        ZT_TRACE(1, "ztpanel: the sheet of %S closed", adapter.name.c_str());
        return panelShown;
    }

    static void destroyPages_(const std::vector<HPROPSHEETPAGE>& pages)
    {
        for (HPROPSHEETPAGE page : pages) {
            DestroyPropertySheetPage(page);
        }
    }

    const PanelSettings& settings_;
    PanelHooks& hooks_;
    std::vector<ZtAdapterDevice> adapters_;
    std::vector<AdapterConnection> connections_;
    int exitCode_ = panelShown;
};

}  // namespace

int runPanel(const PanelSettings& settings, PanelHooks& hooks) noexcept
{
    int code = panelSheetFailed;
    if (!runThreadBody("ztpanel", [&] { code = Run(settings, hooks).run(); })) {
        hooks.tell(L"ztpanel stopped on an unexpected error; its trace lines tell where.", MB_ICONERROR);
    }
    return code;
}

std::wstring besideProgram(const std::wstring& name)
{
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size()) {
            path.resize(length);
            break;
        }
        path.resize(path.size() * 2);  // a long path: truncated, try a larger buffer
    }
    return path.substr(0, path.find_last_of(L"\\/") + 1) + name;
}
