#include "diag_page/DiagResultsList.h"

#include "installer/ModuleRecord.h"
#include "nic/AdapterTexts.h"
#include "nic/ZtPairInfo.h"
#include "page_framework/CommonControls.h"
#include "resources/resource.h"

namespace {

constexpr int imageSize = 18;
// Icon resources in image-index order.
constexpr WORD imageIcons[]
    = {IDI_RESULT_BLANK, IDI_RESULT_OK, IDI_RESULT_ERROR, IDI_RESULT_WARNING, IDI_RESULT_INFO};

LVITEMW lineItem(int index, const std::wstring& text, DiagResultsList::Image image)
{
    LVITEMW item{};
    item.mask = LVIF_TEXT | LVIF_IMAGE;
    item.iItem = index;
    item.pszText = const_cast<LPWSTR>(text.c_str());  // read, never written, by the control
    item.iImage = image;
    return item;
}

}  // namespace

DiagResultsList::DiagResultsList()
{
    CommonControls& controls = commonControls();
    // The mask keeps the blank image transparent: an icon whose alpha is all zero
    // counts as having no alpha, and without a mask would draw as a black square.
    images_ = controls.imageListCreate(imageSize, imageSize, ILC_COLOR32 | ILC_MASK, 5, 0);
    for (const WORD icon : imageIcons) {
        controls.imageListReplaceIcon(images_, -1,
                                      LoadIconW(moduleRecord.moduleInstance, MAKEINTRESOURCEW(icon)));
    }
}

DiagResultsList::~DiagResultsList()
{
    if (images_ != nullptr && list_ == nullptr) {
        commonControls().imageListDestroy(images_);
    }
}

void DiagResultsList::attach(HWND dialog)
{
    parent_ = dialog;
    list_ = GetDlgItem(dialog, IDC_RESULTS_LIST);
    SendMessageW(list_, LVM_SETEXTENDEDLISTVIEWSTYLE, 0, LVS_EX_FULLROWSELECT | LVS_EX_DOUBLEBUFFER);
    // The list view has no LVS_SHAREIMAGELISTS: from here it owns the image list
    // and destroys it with itself.
    SendMessageW(list_, LVM_SETIMAGELIST, LVSIL_SMALL, reinterpret_cast<LPARAM>(images_));
    // No header is shown; the first layout gives the width.
    wchar_t title[] = L"Property";
    LVCOLUMNW column{};
    column.mask = LVCF_WIDTH | LVCF_TEXT | LVCF_SUBITEM;
    column.cx = 0;
    column.pszText = title;
    column.iSubItem = 0;
    SendMessageW(list_, LVM_INSERTCOLUMNW, 0, reinterpret_cast<LPARAM>(&column));
}

int DiagResultsList::insert_(const std::wstring& text, Image image)
{
    LVITEMW item = lineItem(noCableLengthItem, text, image);  // past the end: appended
    const auto index
        = static_cast<int>(SendMessageW(list_, LVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&item)));
    // The line that brings the vertical scroll bar narrows the client area: the
    // column follows, so that no horizontal scroll bar comes up.
    fitColumn();
    return index;
}

void DiagResultsList::addLine(const std::wstring& text, Image image)
{
    insert_(text, image);
}

void DiagResultsList::addPairLine(const ZtPairInfo& pair)
{
    addLine(pairResultText(pair), pair.status == ZtPairInfo::good ? ImageOk : ImageError);
}

void DiagResultsList::setCableLength(std::uint32_t meters, bool reportFailure)
{
    std::wstring text;
    Image image = ImageOk;
    if (meters != 0) {
        text = cableLengthText(meters);
    } else if (reportFailure) {
        text = cableLengthUnknownText;
        image = ImageWarning;
    } else {
        return;
    }
    if (cableLengthItem_ == noCableLengthItem) {
        const int index = insert_(text, image);
        cableLengthItem_ = index >= 0 ? index : noCableLengthItem;  // a failed insert leaves no line
        return;
    }
    LVITEMW item = lineItem(cableLengthItem_, text, image);
    if (SendMessageW(list_, LVM_SETITEMW, 0, reinterpret_cast<LPARAM>(&item)) == 0) {
        cableLengthItem_ = noCableLengthItem;
    }
}

void DiagResultsList::removeCableLength()
{
    if (cableLengthItem_ != noCableLengthItem) {
        SendMessageW(list_, LVM_DELETEITEM, static_cast<WPARAM>(cableLengthItem_), 0);
        cableLengthItem_ = noCableLengthItem;
    }
}

void DiagResultsList::clear()
{
    SendMessageW(list_, LVM_DELETEALLITEMS, 0, 0);
    cableLengthItem_ = noCableLengthItem;
}

void DiagResultsList::fitColumn()
{
    RECT client{};
    GetClientRect(list_, &client);
    const auto width = static_cast<WORD>(client.right - 3);
    SendMessageW(list_, LVM_SETCOLUMNWIDTH, 0, MAKELPARAM(width, 0));
}
