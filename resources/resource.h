// Ids of the module's resources and of the page's controls, shared by ztprop.rc and the C++ code.
// Plain #defines only, so that the resource compiler reads this file as well.
#pragma once

// The version block's version, for ztprop.rc, ztdiag.rc and ztdiag --version.
#define ZTPROP_VERSION_NUMBERS 2, 2, 3, 0
#define ZTPROP_VERSION_TEXT "2.2.3.0"
#define ZTPROP_COMPANY "Norvalis Corporation"
#define ZTPROP_PRODUCT "Norvalis Kestrune Network Adapter"

// Icons.
#define IDI_RESULT_OK 102
#define IDI_RESULT_ERROR 104
#define IDI_RESULT_WARNING 105
#define IDI_RESULT_INFO 106
#define IDI_BANNER 109
#define IDI_LAMP_OK 110
#define IDI_LAMP_UNKNOWN 111
#define IDI_RESULT_BLANK 112
#define IDI_LAMP_HIGH 113

// Dialog templates: the diagnostics page, and a firmware template that nothing shows.
#define IDD_DIAGNOSTICS 107
#define IDD_FIRMWARE 108

// The manifest's id for a DLL (ISOLATIONAWARE_MANIFEST_RESOURCE_ID).
#define IDR_MANIFEST 2

// Controls of the diagnostics page.
#define IDC_RESULTS_LIST 1002
#define IDC_RUN_DIAG 1003
#define IDC_DIAG_LINE 1004
#define IDC_DIAG_CAPTION 1005
#define IDC_LINK_STATUS 1006
#define IDC_CABLE_CATEGORY 1007
#define IDC_CABLE_CATEGORY_LABEL 1008
#define IDC_LINK_CAPTION 1009
#define IDC_LINK_LINE 1010
#define IDC_BANNER 1011
#define IDC_LINK_SPEED 1012
#define IDC_LINK_ICON 1013
#define IDC_TEMPERATURE 1014
#define IDC_HEALTH_ICON 1015
#define IDC_HEALTH_CAPTION 1018
#define IDC_HEALTH_LINE 1019
#define IDC_TEMPERATURE_DETAIL 1020
