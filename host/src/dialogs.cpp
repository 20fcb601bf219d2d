// Dialogs from the module's templates, and the property sheet that shows pages.
// Dialog units become pixels with fixed base units (HostWindows.h).
#include "Controls.h"
#include "ModuleResources.h"
#include "WindowSystem.h"
#include "host/HostPlatform.h"

namespace {

constexpr int baseUnitX = 6;  // pixels per 4 horizontal dialog units
constexpr int baseUnitY = 13;  // pixels per 8 vertical dialog units

// MulDiv: the exact quotient rounded half away from zero.
int mulDiv(int number, int numerator, int denominator)
{
    const long long product = static_cast<long long>(number) * numerator;
    const long long half = denominator / 2;
    return static_cast<int>((product >= 0 ? product + half : product - half) / denominator);
}

RECT toPixels(short x, short y, short cx, short cy)
{
    const int left = mulDiv(x, baseUnitX, 4);
    const int top = mulDiv(y, baseUnitY, 8);
    return {left, top, left + mulDiv(cx, baseUnitX, 4), top + mulDiv(cy, baseUnitY, 8)};
}

// The registered spelling of a class a template names, as GetClassNameW gives
// it: the resource compiler may write a predefined class by ordinal or in capitals.
std::wstring className(const host::NameOrOrdinal& name)
{
    if (!name.isOrdinal) {
        for (const wchar_t* known :
             {L"Button", L"Edit", L"Static", L"ListBox", L"ScrollBar", L"ComboBox", L"SysListView32"}) {
            if (host::sameTextIgnoringCase(name.text, known)) {
                return known;
            }
        }
        return name.text;
    }
    switch (name.ordinal) {
    case 0x80:
        return L"Button";
    case 0x81:
        return L"Edit";
    case 0x82:
        return L"Static";
    case 0x83:
        return L"ListBox";
    case 0x84:
        return L"ScrollBar";
    case 0x85:
        return L"ComboBox";
    default:
        return L"#" + std::to_wstring(name.ordinal);
    }
}

// Sheet geometry: the frame on the screen and the page inside its client area.
constexpr RECT sheetFrame{100, 100, 500, 560};
constexpr POINT pageOrigin{7, 27};

}  // namespace

namespace host {

HWND createDialog(WORD templateId, HWND parent, DLGPROC dialogProc, LPARAM initParam, DWORD removeStyles,
                  DWORD addStyles, const POINT* position)
{
    DialogTemplate dialog;
    if (!findDialogTemplate(templateId, dialog)) {
        return nullptr;
    }
    auto& s = windowSystem();
    HWND handle = nullptr;
    {
        const std::lock_guard<std::mutex> guard(s.lock);
        Window* parentRecord = nullptr;
        if (parent != nullptr && (parentRecord = findWindow(s, parent)) == nullptr) {
            return nullptr;
        }
        Window& window = addWindow(s);
        window.className = L"#32770";
        window.text = dialog.title;
        window.style = (dialog.style & ~removeStyles) | addStyles;
        window.exStyle = dialog.exStyle;
        window.rect = toPixels(dialog.x, dialog.y, dialog.cx, dialog.cy);
        if (position != nullptr) {
            window.rect = {position->x, position->y, position->x + window.rect.right - window.rect.left,
                           position->y + window.rect.bottom - window.rect.top};
        }
        window.parent = parent;
        window.dialog = true;
        window.dialogProc = dialogProc;
        window.slots[DWLP_DLGPROC] = reinterpret_cast<LONG_PTR>(dialogProc);
        if (parentRecord != nullptr) {
            parentRecord->children.push_back(window.handle);
        }
        handle = window.handle;
    }
    // As on the platform, the procedure hears of the size before the controls exist.
    {
        RECT client{};
        GetClientRect(handle, &client);
        deliver(handle, WM_SIZE, SIZE_RESTORED,
                MAKELPARAM(static_cast<WORD>(client.right), static_cast<WORD>(client.bottom)));
    }
    HWND focus = nullptr;
    {
        const std::lock_guard<std::mutex> guard(s.lock);
        Window* dialogRecord = findWindow(s, handle);
        if (dialogRecord == nullptr) {
            return nullptr;
        }
        for (const auto& item : dialog.items) {
            Window& control = addWindow(s);
            control.className = className(item.windowClass);
            control.style = item.style;
            control.exStyle = item.exStyle;
            control.id = static_cast<int>(item.id);
            control.rect = toPixels(item.x, item.y, item.cx, item.cy);
            control.parent = handle;
            control.control = makeControl(control.className);
            if (!item.title.isOrdinal) {
                control.text = item.title.text;
            }
            auto* picture = dynamic_cast<StaticControl*>(control.control.get());
            if (picture != nullptr && item.title.isOrdinal && (item.style & SS_TYPEMASK) == SS_ICON) {
                // SS_REALSIZEIMAGE: the icon at its own size, else at the system's.
                const UINT flags = LR_SHARED | ((item.style & SS_REALSIZEIMAGE) != 0 ? 0 : LR_DEFAULTSIZE);
                picture->setIcon(control,
                                 static_cast<HICON>(LoadImageW(nullptr, MAKEINTRESOURCEW(item.title.ordinal),
                                                               IMAGE_ICON, 0, 0, flags)));
            }
            const DWORD focusable = WS_TABSTOP | WS_VISIBLE;
            if (focus == nullptr && (item.style & (focusable | WS_DISABLED)) == focusable) {
                focus = control.handle;
            }
            dialogRecord->children.push_back(control.handle);
        }
    }
    deliver(handle, WM_INITDIALOG, reinterpret_cast<WPARAM>(focus), initParam);
    return IsWindow(handle) ? handle : nullptr;
}

PropertySheet::PropertySheet(std::vector<HPROPSHEETPAGE> pages) : pages_(std::move(pages))
{
    auto& s = windowSystem();
    {
        const std::lock_guard<std::mutex> guard(s.lock);
        Window& frame = addWindow(s);
        frame.className = L"#32770";
        frame.style = WS_POPUP | WS_VISIBLE | WS_CAPTION;
        frame.rect = sheetFrame;
        frame_ = frame.handle;
    }
    // A sheet page is a child without caption, frame or the disabled state of its template.
    const DWORD remove = WS_POPUP | WS_CAPTION | WS_SYSMENU | WS_THICKFRAME | WS_DISABLED | WS_VISIBLE;
    const DWORD add = WS_CHILD | WS_TABSTOP | DS_CONTROL;
    bool firstShown = false;
    for (HPROPSHEETPAGE page : pages_) {
        PROPSHEETPAGEW* description = pageDescription(page);
        HWND dialog = nullptr;
        UINT create = 1;
        if (description != nullptr && (description->dwFlags & PSP_USECALLBACK) != 0
            && description->pfnCallback != nullptr) {
            create = description->pfnCallback(nullptr, PSPCB_CREATE, description);
        }
        if (description != nullptr && create != 0 && (description->dwFlags & PSP_DLGINDIRECT) == 0
            && IS_INTRESOURCE(description->pszTemplate)) {
            const auto id = static_cast<WORD>(reinterpret_cast<ULONG_PTR>(description->pszTemplate));
            dialog = createDialog(id, frame_, description->pfnDlgProc, reinterpret_cast<LPARAM>(description),
                                  remove, add, &pageOrigin);
        }
        if (dialog != nullptr) {
            const bool ownTitle
                = (description->dwFlags & PSP_USETITLE) != 0 && !IS_INTRESOURCE(description->pszTitle);
            tabs_.push_back(ownTitle ? description->pszTitle : windowText(dialog));
            if (!firstShown) {
                ShowWindow(dialog, SW_SHOW);
                firstShown = true;
            }
        }
        dialogs_.push_back(dialog);
    }
}

PropertySheet::~PropertySheet()
{
    close();
}

HWND PropertySheet::page(std::size_t index) const
{
    return !closed_ && index < dialogs_.size() ? dialogs_[index] : nullptr;
}

void PropertySheet::close()
{
    if (closed_) {
        return;
    }
    closed_ = true;
    for (HWND dialog : dialogs_) {
        if (dialog != nullptr && IsWindow(dialog)) {
            DestroyWindow(dialog);
        }
    }
    for (HPROPSHEETPAGE page : pages_) {
        DestroyPropertySheetPage(page);
    }
    DestroyWindow(frame_);
}

}  // namespace host

HWND CreateDialogParamW(HINSTANCE /*instance*/, LPCWSTR templateName, HWND parent, DLGPROC dialogProc,
                        LPARAM initParam)
{
    if (!IS_INTRESOURCE(templateName)) {
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);  // the module's templates have numbers
        return nullptr;
    }
    const auto id = static_cast<WORD>(reinterpret_cast<ULONG_PTR>(templateName));
    return host::createDialog(id, parent, dialogProc, initParam, 0, 0, nullptr);
}
