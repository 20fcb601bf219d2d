#include "ztpanel/AdapterChooser.h"

#include "ztpanel/PanelResources.h"

namespace {

INT_PTR CALLBACK chooserProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam)
{
    switch (message) {
    case WM_INITDIALOG: {
        HWND list = GetDlgItem(dialog, IDC_CHOOSER_LIST);
        for (const std::wstring& row : *reinterpret_cast<const std::vector<std::wstring>*>(lParam)) {
            SendMessageW(list, LB_ADDSTRING, 0, reinterpret_cast<LPARAM>(row.c_str()));
        }
        SendMessageW(list, LB_SETCURSEL, 0, 0);
        return TRUE;
    }
    case WM_COMMAND: {
        const bool open
            = LOWORD(wParam) == IDOK || (LOWORD(wParam) == IDC_CHOOSER_LIST && HIWORD(wParam) == LBN_DBLCLK);
        if (open) {
            const LRESULT row = SendDlgItemMessageW(dialog, IDC_CHOOSER_LIST, LB_GETCURSEL, 0, 0);
            EndDialog(dialog, row == LB_ERR ? -2 : row);
            return TRUE;
        }
        if (LOWORD(wParam) == IDCANCEL) {
            EndDialog(dialog, -2);
            return TRUE;
        }
        return FALSE;
    }
    default:
        return FALSE;
    }
}

}  // namespace

AdapterChoice chooseAdapter(HINSTANCE instance, const std::vector<std::wstring>& rows)
{
    AdapterChoice choice;
    // -1 is DialogBoxParamW's own failure; the dialog ends with -2 for no choice.
    const INT_PTR result = DialogBoxParamW(instance, MAKEINTRESOURCEW(IDD_CHOOSER), nullptr, chooserProc,
                                           reinterpret_cast<LPARAM>(&rows));
    if (result == -1) {
        choice.error = GetLastError();
    } else if (result >= 0) {
        choice.row = static_cast<int>(result);
    }
    return choice;
}
