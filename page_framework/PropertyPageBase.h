// Base of a property sheet page: creates the sheet page, runs the dialog
// procedure, turns messages into virtual operations, subscribes the page to the
// adapter object and brings its notifications onto the dialog's thread. Once
// its page handle has gone to the installer the sheet page owns the object and
// PSPCB_RELEASE deletes it. Everything but the constructor runs on the sheet's
// thread.
#pragma once

#include <memory>
#include <string>

#include "ndis/MediaConnectState.h"
#include "platform.h"

class ZtNic;

// Posted by the subscriptions: wParam 1 arrived / 0 removed; the media state.
constexpr UINT WM_PPB_NIC_CHANGED = WM_USER + 100;
constexpr UINT WM_PPB_NIC_MEDIA_CHANGED = WM_USER + 101;

class PropertyPageBase {
public:
    PropertyPageBase();
    PropertyPageBase(const PropertyPageBase&) = delete;
    PropertyPageBase& operator=(const PropertyPageBase&) = delete;
    virtual ~PropertyPageBase();

    // The sheet page, or null if it could not be created.
    HPROPSHEETPAGE pageHandle() const { return pageHandle_; }
    // The adapter object this page shows; set once the sheet builds the page.
    void setNic(std::shared_ptr<ZtNic> nic) { nic_ = std::move(nic); }

    // Lets no exception out: one ends the message with FALSE and a trace line.
    static INT_PTR CALLBACK dialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

protected:
    virtual void onSize_(int width, int height) = 0;
    virtual void onCommand_(WPARAM wParam);
    virtual void onTimer_(UINT_PTR id);
    virtual void onCommandClicked_(WPARAM wParam) = 0;
    virtual INT_PTR onUserMessage_(UINT message, WPARAM wParam, LPARAM lParam) = 0;
    virtual void onInitDialog_() = 0;
    virtual void onCommandNotify_(WPARAM wParam) = 0;
    virtual void onNicChanged_(bool added);
    virtual void onNicMediaStateChanged_(MediaConnectState state);

    HWND hwnd_ = nullptr;
    std::shared_ptr<ZtNic> nic_;

private:
    static INT_PTR dispatch_(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    void onInit_(HWND window);

    HPROPSHEETPAGE pageHandle_ = nullptr;
    std::wstring nicChangedKey_;
    std::wstring nicMediaChangedKey_;
};
