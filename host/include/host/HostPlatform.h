// Test-side control of the host platform layer: script what the stand-in
// Win32 functions answer, and observe what the module asked of them. All state
// is process-wide; call host::reset() between tests.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform.h"

namespace host {

// Clears every store, hook, failure and capture below.
void reset();

// ---- Debugger output --------------------------------------------------------
// Every string handed to OutputDebugStringA, in order.
std::vector<std::string> debugOutput();
void clearDebugOutput();

// Calls of the C runtime's counted wide formatter since the process started.
long wideFormatterCalls();

// ---- Devices and their properties (SetupDiGetClassDevsW, SetupDiGetDeviceInstanceIdW,
//      SetupDiGetDevicePropertyW) ----
// The device information set the installer hands a co-installer. The other
// valid sets are those SetupDiGetClassDevsW made and nobody destroyed; any
// other handle is answered with ERROR_INVALID_HANDLE.
HDEVINFO deviceInfoSet();
SP_DEVINFO_DATA makeDevice(DWORD devInst);

// A device of a setup class, listed by SetupDiGetClassDevsW in the order of
// adding (adding it again changes its class, presence and id, not its place).
// Without an instance id it gets "ROOT\NET\" and its devInst in four digits,
// as do devices never added. Its properties are set below, by its devInst, as
// for any device.
void addDevice(DWORD devInst, const GUID& classGuid, bool present = true,
               const std::wstring& instanceId = {});
// A non-zero error makes every later SetupDiGetClassDevsW fail with it.
void failGetClassDevs(DWORD error);
// A non-zero error makes every later SetupDiGetDeviceInstanceIdW fail with it.
void failGetDeviceInstanceId(DWORD error);
// Sets SetupDiGetClassDevsW made and SetupDiDestroyDeviceInfoList didn't end.
int liveDeviceInfoSets();

void setDeviceProperty(const SP_DEVINFO_DATA& device, const DEVPROPKEY& key, DEVPROPTYPE type,
                       std::vector<BYTE> bytes);
void setDeviceString(const SP_DEVINFO_DATA& device, const DEVPROPKEY& key, const std::wstring& text);
void setDeviceStringList(const SP_DEVINFO_DATA& device, const DEVPROPKEY& key,
                         const std::vector<std::wstring>& strings);
void setDeviceUint32(const SP_DEVINFO_DATA& device, const DEVPROPKEY& key, DWORD value);
void removeDeviceProperty(const SP_DEVINFO_DATA& device, const DEVPROPKEY& key);

// Called after each SetupDiGetDevicePropertyW has answered (call number from 1),
// so a test can change a property between the size query and the read.
void onDevicePropertyRead(std::function<void(const DEVPROPKEY& key, int call)> hook);
int devicePropertyCalls();

// ---- Class install parameters (SetupDi{Get,Set}ClassInstallParamsW) ------------
void setAddPropertyPageData(const SP_DEVINFO_DATA& device, const SP_ADDPROPERTYPAGE_DATA& data);
// What the last successful SetupDiSetClassInstallParamsW stored for the device.
SP_ADDPROPERTYPAGE_DATA addPropertyPageData(const SP_DEVINFO_DATA& device);
// A non-zero error makes the next and all later calls fail with it.
void failGetClassInstallParams(DWORD error);
void failSetClassInstallParams(DWORD error);
int getClassInstallParamsCalls();
int setClassInstallParamsCalls();

// ---- Network connections (GetAdaptersAddresses) --------------------------------
// One entry of IP Helper's adapter list.
struct NetConnection {
    std::wstring description;  // the NDIS interface description
    std::wstring friendlyName;  // the connection's name ("Ethernet 2")
    DWORD ifIndex = 0;  // 0: IPv4 isn't bound
    DWORD ipv6IfIndex = 0;
    std::vector<BYTE> physicalAddress;  // up to MAX_ADAPTER_ADDRESS_LENGTH bytes
    std::string adapterName;  // the interface's GUID
};
// What GetAdaptersAddresses lists, in this order; none until set.
void setNetConnections(std::vector<NetConnection> connections);
// A non-zero error makes every later GetAdaptersAddresses fail with it.
void failGetAdaptersAddresses(ULONG error);
// Called after each GetAdaptersAddresses has answered (call number from 1),
// so a test can change the list between the size query and the read.
void onGetAdaptersAddresses(std::function<void(int call)> hook);
int getAdaptersAddressesCalls();

// ---- Common controls and sheet pages ------------------------------------------
std::vector<INITCOMMONCONTROLSEX> initCommonControlsCalls();
// Sheet pages created and not yet destroyed.
int livePropertySheetPages();
// A non-zero error makes CreatePropertySheetPageW fail with it until reset.
void failCreatePropertySheetPage(DWORD error);
// The sheet's own copy of a page's description, as its callback receives it.
PROPSHEETPAGEW* pageDescription(HPROPSHEETPAGE page);
// Releases every live page the way a closing sheet does.
void destroyAllPropertySheetPages();

// ---- COM (CoInitializeEx, CoCreateInstance, security) ------------------------
// CoInitializeEx keeps real per-thread bookkeeping: S_OK first, S_FALSE when the
// thread is already in the asked apartment, RPC_E_CHANGED_MODE when it is in the
// other one. A scripted failure overrides that on every thread until reset (a
// success value given to any fail* below clears its script). reset() also
// leaves every thread uninitialised and revokes every registered class object.
// Class object registrations are process-wide and, unlike on the platform, need
// no CoInitializeEx on the registering thread, so tests register fakes anywhere.
void failCoInitializeEx(HRESULT result);
void failCoSetProxyBlanket(HRESULT result);
// Called inside each CoUninitialize that balances a successful CoInitializeEx,
// before the thread's COM state is dropped: tests check what is still alive.
void onCoUninitialize(std::function<void()> hook);
// Successful CoInitializeEx calls not yet balanced, on the calling thread.
int comInitDepth();
// Calls of each COM runtime function since reset, all threads together.
int coInitializeExCalls();
int coUninitializeCalls();
int coCreateInstanceCalls();
int coSetProxyBlanketCalls();

// ---- Files ------------------------------------------------------------------
// Files are the host's own. A scripted error makes the named function
// ("CreateFileW", "WriteFile", "FlushFileBuffers", "MoveFileExW") fail with it,
// `times` times, or until reset with -1.
void failFileFunction(const std::string& function, DWORD error, int times = -1);
// Handles of CreateFileW not yet closed.
int openFileHandles();

// ---- Automation memory --------------------------------------------------------
// BSTRs and SAFEARRAYs allocated and not yet freed: a leak check. These are
// facts about the heap, so reset() does not change them.
long liveBstrs();
long liveSafeArrays();

}  // namespace host
