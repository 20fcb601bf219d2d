#include "installer/DevPropertiesReader.h"

#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "TraceCapture.h"
#include "host/HostPlatform.h"

namespace {

using Strings = std::vector<std::wstring>;

class DevPropertiesReaderTest : public ::testing::Test {
protected:
    TraceAll capture_;
    SP_DEVINFO_DATA device_ = host::makeDevice(7);
    DevPropertiesReader reader_{host::deviceInfoSet(), &device_};
    const std::string missing_
        = "[!] SetupDiGetDeviceProperty(1) failed, code " + std::to_string(ERROR_NOT_FOUND);

    static std::vector<BYTE> units(const std::wstring& text)
    {
        const auto* first = reinterpret_cast<const BYTE*>(text.data());
        return {first, first + text.size() * sizeof(WCHAR)};
    }
};

TEST_F(DevPropertiesReaderTest, hardwareIdsFollowTheListUpToItsEmptyString)
{
    const std::wstring nul(1, L'\0');
    // what, the units, an odd tail of bytes that is not a whole unit, the ids
    const std::tuple<const char*, std::wstring, std::size_t, Strings> cases[] = {
        {"one id", L"A" + nul + nul, 0, {L"A"}},
        {"three ids in order",
         L"PCI\\X" + nul + L"PCI\\Y" + nul + L"Z" + nul + nul,
         0,
         {L"PCI\\X", L"PCI\\Y", L"Z"}},
        {"only the closing zero", nul, 0, {}},
        {"no closing zeros at all", L"AB" + nul + L"CD", 0, {L"AB", L"CD"}},
        {"one closing zero only", L"AB" + nul, 0, {L"AB"}},
        {"partial unit at the end", L"AB" + nul + nul, 1, {L"AB"}},
        {"a lone partial unit", L"", 1, {}},
        {"empty string ends the list early", L"A" + nul + nul + L"B" + nul + nul, 0, {L"A"}},
    };
    for (const auto& [what, text, extraBytes, expected] : cases) {
        auto bytes = units(text);
        bytes.resize(bytes.size() + extraBytes, 0x41);
        host::setDeviceProperty(device_, DEVPKEY_Device_HardwareIds, DEVPROP_TYPE_STRING_LIST, bytes);
        EXPECT_EQ(reader_.getHardwareIds(), expected) << what;
    }
}

// Neither an absent value nor one of another type is read past the size query.
TEST_F(DevPropertiesReaderTest, missingOrMistypedPropertyReadsAsNothing)
{
    for (const bool mistyped : {false, true}) {
        host::reset();
        if (mistyped) {
            host::setDeviceString(device_, DEVPKEY_Device_HardwareIds, L"PCI\\X");
            host::setDeviceStringList(device_, DEVPKEY_Device_FriendlyName, {L"Name"});
            host::setDeviceString(device_, DEVPKEY_Device_ProblemCode, L"0");
        }
        EXPECT_EQ(reader_.getHardwareIds(), Strings{});
        EXPECT_EQ(reader_.getStringProperty(DEVPKEY_Device_FriendlyName), L"");
        EXPECT_EQ(reader_.getProblemCode(), 0xFFFFFFFFU);
        EXPECT_EQ(host::devicePropertyCalls(), 3);
        const Messages mismatches{"[!] getProperty_() types missmatch: wanted 8210, got 18",
                                  "[!] getProperty_() types missmatch: wanted 18, got 8210",
                                  "[!] getProperty_() types missmatch: wanted 7, got 18"};
        EXPECT_EQ(tracedMessages(), (mistyped ? mismatches : Messages{missing_, missing_, missing_}));
        EXPECT_EQ(tracedLines()[0].function, "DevPropertiesReader::getProperty_");
    }
}

// Another program may change the property between the size query and the read.
TEST_F(DevPropertiesReaderTest, propertyThatChangesBetweenTheTwoCalls)
{
    const Messages grew{"[!] SetupDiGetDeviceProperty(2) failed, code "
                        + std::to_string(ERROR_INSUFFICIENT_BUFFER)};
    const auto atTheSizeQuery = [](const std::function<void()>& change) {
        host::onDevicePropertyRead([change](const DEVPROPKEY&, int call) {
            if (call == 1) {
                change();
            }
        });
    };
    for (const bool longer : {true, false}) {
        host::reset();
        const wchar_t* const after = longer ? L"A much longer name" : L"Short";
        host::setDeviceString(device_, DEVPKEY_Device_FriendlyName,
                              longer ? L"Short" : L"A much longer name");
        atTheSizeQuery([&] { host::setDeviceString(device_, DEVPKEY_Device_FriendlyName, after); });
        EXPECT_EQ(reader_.getStringProperty(DEVPKEY_Device_FriendlyName), longer ? L"" : after);
        EXPECT_EQ(tracedMessages(), longer ? grew : Messages{});
    }
    // A value that grew is not read at all: nothing of it is taken for a code.
    host::reset();
    host::setDeviceUint32(device_, DEVPKEY_Device_ProblemCode, 22);
    atTheSizeQuery([&] {
        host::setDeviceProperty(device_, DEVPKEY_Device_ProblemCode, DEVPROP_TYPE_UINT32,
                                std::vector<BYTE>(8));
    });
    EXPECT_EQ(reader_.getProblemCode(), 0xFFFFFFFFU);
    EXPECT_EQ(tracedMessages(), grew);
}

TEST_F(DevPropertiesReaderTest, valuesEndAtTheirFirstZeroOrTheBufferEnd)
{
    host::setDeviceProperty(device_, DEVPKEY_Device_FriendlyName, DEVPROP_TYPE_STRING,
                            units(std::wstring(L"Zt NIC\0tail", 11)));
    EXPECT_EQ(reader_.getStringProperty(DEVPKEY_Device_FriendlyName), L"Zt NIC");
    host::setDeviceProperty(device_, DEVPKEY_Device_FriendlyName, DEVPROP_TYPE_STRING,
                            units(L"Unterminated"));
    EXPECT_EQ(reader_.getStringProperty(DEVPKEY_Device_FriendlyName), L"Unterminated");
    // Problem code 0 is not the unreadable value.
    for (const DWORD code : {0U, 22U, 0xFFFFFFFEU}) {
        host::setDeviceUint32(device_, DEVPKEY_Device_ProblemCode, code);
        EXPECT_EQ(reader_.getProblemCode(), code);
    }
    host::setDeviceProperty(device_, DEVPKEY_Device_ProblemCode, DEVPROP_TYPE_UINT32, {1, 0});
    EXPECT_EQ(reader_.getProblemCode(), 0xFFFFFFFFU) << "a short value is not read past its end";
}

TEST_F(DevPropertiesReaderTest, adapterNameIsTheFriendlyNameElseTheDescription)
{
    // what, the friendly name and the description (null: absent), the name, the lines traced
    const std::tuple<const char*, const wchar_t*, const wchar_t*, std::wstring, Messages> cases[] = {
        {"both", L"Office uplink", L"ZT 10G Adapter", L"Office uplink", {}},
        {"description only", nullptr, L"ZT 10G Adapter", L"ZT 10G Adapter", {missing_}},
        {"empty friendly name", L"", L"ZT 10G Adapter", L"ZT 10G Adapter", {}},
        {"neither", nullptr, nullptr, L"", {missing_, missing_}},
    };
    for (const auto& [what, friendlyName, description, expected, lines] : cases) {
        host::reset();
        if (friendlyName != nullptr) {
            host::setDeviceString(device_, DEVPKEY_Device_FriendlyName, friendlyName);
        }
        if (description != nullptr) {
            host::setDeviceString(device_, DEVPKEY_Device_DeviceDesc, description);
        }
        EXPECT_EQ(reader_.getAdapterName(), expected) << what;
        EXPECT_EQ(tracedMessages(), lines) << what;
    }
}

}  // namespace
