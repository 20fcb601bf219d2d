// The page's layout, made anew at every WM_SIZE from the measured sizes of a
// few controls: the two upper groups share the width, the list takes the
// height above the run button.
#include <cstdlib>

#include "diag_page/ZethoriaDiagPage.h"
#include "resources/resource.h"
#include "trace/Trace.h"

namespace {

// A control's window rectangle in the dialog's client coordinates.
RECT rectInDialog(HWND dialog, HWND control)
{
    RECT rect{};
    GetWindowRect(control, &rect);
    POINT topLeft{rect.left, rect.top};
    POINT bottomRight{rect.right, rect.bottom};
    ScreenToClient(dialog, &topLeft);
    ScreenToClient(dialog, &bottomRight);
    return {topLeft.x, topLeft.y, bottomRight.x, bottomRight.y};
}

SIZE clientSize(HWND control)
{
    RECT rect{};
    GetClientRect(control, &rect);
    return {rect.right, rect.bottom};
}

}  // namespace

void ZethoriaDiagPage::onSize_(int cx, int cy)
{
    ZT_TRACE(5, "WM_SIZE: cx %d, cy %d", cx, cy);
    const auto item = [this](int id) { return GetDlgItem(hwnd_, id); };
    HDWP positions = BeginDeferWindowPos(1);

    // Every measure is taken before the moves take effect together.
    const RECT banner = rectInDialog(hwnd_, item(IDC_BANNER));
    const int margin = banner.left;
    const int top = banner.bottom;
    const int half = cx / 2;
    const SIZE caption = clientSize(item(IDC_LINK_CAPTION));
    const int captionMid = caption.cy / 2;
    const int healthCaptionW = clientSize(item(IDC_HEALTH_CAPTION)).cx;
    const int rowY = top + 2 * captionMid + 3;
    const SIZE icon = clientSize(item(IDC_LINK_ICON));  // serves for both groups
    const int textY = rowY + std::abs(icon.cy / 2 - captionMid);
    const int speedY = rowY + icon.cy + 3;
    const int diagLineX = rectInDialog(hwnd_, item(IDC_DIAG_LINE)).left;
    const int buttonY = cy - (clientSize(item(IDC_RUN_DIAG)).cy + margin);
    RECT listScreen{};
    GetWindowRect(item(IDC_RESULTS_LIST), &listScreen);
    const int listH = listScreen.bottom - listScreen.top;
    const int listBottom = rectInDialog(hwnd_, item(IDC_RESULTS_LIST)).bottom;

    // Z order (and so tab order) stays as the template has it.
    constexpr UINT keep = SWP_NOZORDER | SWP_NOACTIVATE;
    const struct {
        int id;
        int x, y, width, height;
        UINT flags;
    } moves[] = {
        {IDC_LINK_CAPTION, margin, top, 0, 0, SWP_NOSIZE},
        {IDC_LINK_LINE, caption.cx + margin, top + captionMid, half - 2 * margin - caption.cx, 1, 0},
        {IDC_HEALTH_CAPTION, half, top, 0, 0, SWP_NOSIZE},
        {IDC_HEALTH_LINE, healthCaptionW + half, top + captionMid, cx - margin - healthCaptionW - half, 1, 0},
        {IDC_LINK_ICON, margin, rowY, 0, 0, SWP_NOSIZE},
        {IDC_LINK_STATUS, icon.cx + 3 + margin, textY, 0, 0, SWP_NOSIZE},
        {IDC_HEALTH_ICON, half, rowY, 0, 0, SWP_NOSIZE},
        {IDC_TEMPERATURE, icon.cx + 3 + half, textY, 0, 0, SWP_NOSIZE},
        {IDC_LINK_SPEED, icon.cx + 3 + margin, speedY, 0, 0, SWP_NOSIZE},
        {IDC_TEMPERATURE_DETAIL, icon.cx + 3 + half, speedY, 0, 0, SWP_NOSIZE},
        {IDC_DIAG_LINE, 0, 0, cx - margin - diagLineX, 1, SWP_NOMOVE},
        {IDC_RUN_DIAG, margin, buttonY, 0, 0, SWP_NOSIZE},
        {IDC_RESULTS_LIST, 0, 0, cx - 2 * margin, listH - 5 + (buttonY - listBottom), SWP_NOMOVE},
    };
    for (const auto& move : moves) {
        if (positions != nullptr) {
            positions = DeferWindowPos(positions, item(move.id), nullptr, move.x, move.y, move.width,
                                       move.height, move.flags | keep);
        }
    }
    if (positions != nullptr) {
        EndDeferWindowPos(positions);
    }
    resultsList_.fitColumn();
}
