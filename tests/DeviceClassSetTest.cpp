#include "installer/DeviceClassSet.h"

#include <gtest/gtest.h>

#include <optional>
#include <tuple>

#include "TraceCapture.h"
#include "host/HostPlatform.h"

namespace {

const wchar_t* const listedId = L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_0B217E5C&REV_02";
const GUID displayClass = {0x4d36e968, 0xe325, 0x11ce, {0xbf, 0xc1, 0x08, 0x00, 0x2b, 0xe1, 0x03, 0x18}};

// class, hardware ids, friendly name and description (null: absent), devInst, problem code, present
using DeviceSetting = std::tuple<const GUID&, std::vector<std::wstring>, const wchar_t*, const wchar_t*,
                                 DWORD, std::optional<DWORD>, bool>;

void addDevice(const DeviceSetting& setting)
{
    const auto& [classGuid, hardwareIds, friendlyName, description, devInst, problemCode, present] = setting;
    host::addDevice(devInst, classGuid, present);
    const SP_DEVINFO_DATA device = host::makeDevice(devInst);
    host::setDeviceStringList(device, DEVPKEY_Device_HardwareIds, hardwareIds);
    if (friendlyName != nullptr) {
        host::setDeviceString(device, DEVPKEY_Device_FriendlyName, friendlyName);
    }
    if (description != nullptr) {
        host::setDeviceString(device, DEVPKEY_Device_DeviceDesc, description);
    }
    if (problemCode) {
        host::setDeviceUint32(device, DEVPKEY_Device_ProblemCode, *problemCode);
    }
}

TEST(DeviceClassSet, findsThePresentListedNetworkAdaptersInTheDeviceManagersOrder)
{
    const TraceAll capture;
    const DeviceSetting devices[] = {
        {GUID_DEVCLASS_NET, {L"PCI\\VEN_1234&DEV_0001", listedId}, L"Uplink", L"ZT", 7, 0, true},
        {GUID_DEVCLASS_NET, {L"PCI\\VEN_5B2D&DEV_0A41"}, L"Onboard", nullptr, 2, 0, true},
        {GUID_DEVCLASS_NET, {listedId}, L"Unplugged ZT", nullptr, 3, 0, false},
        {displayClass, {listedId}, L"Not a network device", nullptr, 4, 0, true},
        {GUID_DEVCLASS_NET, {listedId}, nullptr, L"ZT 10G Adapter", 5, 22, true},
        {GUID_DEVCLASS_NET, {listedId}, L"No code", nullptr, 1, std::nullopt, true},
    };
    for (const DeviceSetting& device : devices) {
        addDevice(device);
    }
    const std::wstring uplinkId = L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_0B217E5C&REV_02\\4&1A2B3C4D&0&00E0";
    host::addDevice(7, GUID_DEVCLASS_NET, true, uplinkId);

    std::vector<ZtAdapterDevice> found;
    DWORD error = 1;
    ASSERT_TRUE(findZtAdapters(found, error));
    EXPECT_EQ(error, 0U);
    ASSERT_EQ(found.size(), 3U);
    EXPECT_EQ(found[0].name, L"Uplink");
    EXPECT_EQ(found[0].problemCode, 0U);
    EXPECT_EQ(found[0].instanceId, uplinkId);
    EXPECT_EQ(found[1].instanceId, L"ROOT\\NET\\0005") << "the host's own form";
    EXPECT_EQ(found[1].name, L"ZT 10G Adapter") << "named by its description without a friendly name";
    EXPECT_EQ(found[1].problemCode, 22U);
    EXPECT_EQ(found[2].name, L"No code");
    EXPECT_EQ(found[2].problemCode, 0xFFFFFFFFU) << "an unreadable code";
    EXPECT_EQ(host::liveDeviceInfoSets(), 0) << "the set is destroyed";

    DeviceClassSet network(GUID_DEVCLASS_NET);
    EXPECT_EQ(network.size(), 4U) << "present network devices, listed or not";

    // An instance id that can't be read leaves the adapter listed without one.
    host::failGetDeviceInstanceId(ERROR_INVALID_HANDLE);
    std::vector<ZtAdapterDevice> withoutIds;
    ASSERT_TRUE(findZtAdapters(withoutIds, error));
    EXPECT_EQ(error, 0U);
    ASSERT_EQ(withoutIds.size(), 3U);
    EXPECT_EQ(withoutIds[0].name, L"Uplink");
    EXPECT_EQ(withoutIds[0].instanceId, L"");
}

TEST(DeviceClassSet, aSetThatCantBeMadeIsAFailureWithItsCode)
{
    const TraceAll capture;
    host::failGetClassDevs(ERROR_NOT_ENOUGH_MEMORY);
    std::vector<ZtAdapterDevice> found;
    DWORD error = 0;
    EXPECT_FALSE(findZtAdapters(found, error));
    EXPECT_EQ(error, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_TRUE(found.empty());
    EXPECT_EQ(tracedMessages(), Messages{"[!] SetupDiGetClassDevs() failed, code 8"});

    host::failGetClassDevs(0);
    EXPECT_TRUE(findZtAdapters(found, error)) << "no network device at all is no failure";
    EXPECT_TRUE(found.empty());
    EXPECT_EQ(host::liveDeviceInfoSets(), 0);
}

}  // namespace
