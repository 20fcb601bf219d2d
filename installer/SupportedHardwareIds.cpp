#include "installer/SupportedHardwareIds.h"

#include <cstddef>

namespace {

const wchar_t* const supportedHardwareIds[] = {
    L"PCI\\VEN_7E5C&DEV_0B21&SUBSYS_0B217E5C&REV_02", L"PCI\\VEN_7E5C&DEV_C3E2&SUBSYS_0B217E5C&REV_02",
    L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_0B217E5C&REV_02", L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_E41A3C91&REV_02",
    L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_E42D3C91&REV_02", L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_E4363C91&REV_02",
    L"PCI\\VEN_7E5C&DEV_C3E2&SUBSYS_E43B3C91&REV_02", L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_5A103C91&REV_02",
    L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_5A613C91&REV_02", L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_5A923C91&REV_02",
    L"PCI\\VEN_7E5C&DEV_C3E2&SUBSYS_C3E26AD2&REV_02", L"PCI\\VEN_7E5C&DEV_C3E1&SUBSYS_C3E16AD2&REV_02",
    L"PCI\\VEN_7E5C&DEV_11F4&SUBSYS_0B217E5C&REV_02", L"PCI\\VEN_7E5C&DEV_12F4&SUBSYS_0B217E5C&REV_02",
    L"PCI\\VEN_7E5C&DEV_13F4&SUBSYS_0B217E5C&REV_02", L"PCI\\VEN_7E5C&DEV_91F4&SUBSYS_0B217E5C&REV_02",
    L"PCI\\VEN_7E5C&DEV_92F4&SUBSYS_0B217E5C&REV_02", L"PCI\\VEN_7E5C&DEV_93F4&SUBSYS_0B217E5C&REV_02",
};
static_assert(sizeof(supportedHardwareIds) / sizeof(supportedHardwareIds[0]) == 18, "the allow list");

}  // namespace

bool isSupportedHardwareId(const std::vector<std::wstring>& hardwareIds)
{
    for (const auto& id : hardwareIds) {
        for (const wchar_t* row : supportedHardwareIds) {
            if (id == row) {  // whole-string compare: a prefix is no match
                return true;
            }
        }
    }
    return false;
}
