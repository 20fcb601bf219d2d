// Any bytes as a device's hardware id property, read through the host
// layer's scripted SetupAPI: getHardwareIds must stay inside the buffer and
// give the strings the bytes hold, whatever their size and terminators.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Check.h"
#include "FuzzInput.h"
#include "host/HostPlatform.h"
#include "installer/CoDeviceInstall.h"
#include "installer/DevPropertiesReader.h"
#include "installer/SupportedHardwareIds.h"
#include "trace/Trace.h"

namespace {

// The list as the property's bytes describe it, walked independently.
std::vector<std::wstring> expectedIds(const std::vector<std::uint8_t>& bytes)
{
    std::vector<WCHAR> units(bytes.size() / sizeof(WCHAR));
    if (!units.empty()) {
        std::memcpy(units.data(), bytes.data(), units.size() * sizeof(WCHAR));
    }
    std::vector<std::wstring> ids;
    std::wstring current;
    for (std::size_t i = 0; i < units.size(); ++i) {
        if (units[i] != 0) {
            current.push_back(units[i]);
            continue;
        }
        if (current.empty()) {
            return ids;
        }
        ids.push_back(current);
        current.clear();
    }
    if (!current.empty()) {
        ids.push_back(current);
    }
    return ids;
}

std::unique_ptr<PropertyPageBase> noPage()
{
    return nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput in(data, size);
    host::reset();
    const std::uint8_t mode = in.byte();
    traceLevel = (mode & 0x80) != 0 ? 5 : 0;
    SP_DEVINFO_DATA device = host::makeDevice(7);
    // Mostly the list type; sometimes the plain string type or anything.
    const DEVPROPTYPE type = (mode & 0x0F) == 1 ? DEVPROP_TYPE_STRING
        : (mode & 0x0F) == 2                    ? in.u32()
                                                : DEVPROP_TYPE_STRING_LIST;
    const bool present = (mode & 0x10) == 0;
    const std::vector<std::uint8_t> bytes = in.rest();
    if (present) {
        host::setDeviceProperty(device, DEVPKEY_Device_HardwareIds, type, bytes);
        // The same bytes as the other properties the reader knows.
        host::setDeviceProperty(device, DEVPKEY_Device_FriendlyName, DEVPROP_TYPE_STRING, bytes);
        host::setDeviceProperty(device, DEVPKEY_Device_ProblemCode, DEVPROP_TYPE_UINT32, bytes);
    }

    const DevPropertiesReader reader(host::deviceInfoSet(), &device);
    const std::vector<std::wstring> ids = reader.getHardwareIds();
    const bool readable = present && type == DEVPROP_TYPE_STRING_LIST && !bytes.empty();
    const std::vector<std::wstring> expected = readable ? expectedIds(bytes) : std::vector<std::wstring>{};
    fuzzCheck(ids == expected, "getHardwareIds gives the strings of the property");
    const bool supported = isSupportedHardwareId(ids);
    fuzzCheck(supported == isSupportedHardwareId(expected), "the allow list decides on the ids alone");

    const DWORD problem = reader.getProblemCode();
    if (present && bytes.size() >= sizeof(DWORD)) {
        DWORD first = 0;
        std::memcpy(&first, bytes.data(), sizeof first);
        fuzzCheck(problem == first, "the problem code is the first four bytes");
    } else {
        fuzzCheck(problem == 0xFFFFFFFF, "an unreadable problem code is 0xFFFFFFFF");
    }
    const std::wstring name = reader.getAdapterName();
    fuzzCheck(name.find(L'\0') == std::wstring::npos, "a name ends at its first zero");

    // The request as the installer makes it: the ids are traced one by one.
    if ((mode & 0x20) != 0) {
        SP_ADDPROPERTYPAGE_DATA pages{};
        pages.ClassInstallHeader.cbSize = sizeof(SP_CLASSINSTALL_HEADER);
        pages.ClassInstallHeader.InstallFunction = DIF_ADDPROPERTYPAGE_ADVANCED;
        host::setAddPropertyPageData(device, pages);
        const DWORD result = addPropertyPageAdvanced(host::deviceInfoSet(), &device, noPage);
        fuzzCheck(result == (supported ? 14U : 0U), "a listed device without a page object gives 14");
    }
    host::clearDebugOutput();
    return 0;
}
