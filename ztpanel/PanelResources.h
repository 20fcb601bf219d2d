// Ids of ztpanel's resources, shared by ztpanel.rc and the C++ code. Plain #defines only.
#pragma once

#define IDI_PANEL 1
#define IDD_CHOOSER 201
#define IDC_CHOOSER_LIST 1101
