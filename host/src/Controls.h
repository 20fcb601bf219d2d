// Internal: the standard and common control classes the module's dialog uses:
// list view, combo box, static and button. Each answers its class's messages
// under the window system's lock and keeps what a user would see.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "WindowSystem.h"

namespace host {

class Control {
public:
    Control() = default;
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;
    virtual ~Control() = default;
    // Answers a message; sets `known` false for one the class does not have,
    // which then gets the default handling of every window.
    virtual LRESULT handle(Window& window, UINT message, WPARAM wParam, LPARAM lParam, bool& known) = 0;
};

bool sameTextIgnoringCase(const std::wstring& a, const std::wstring& b);
// The control object for a class name (case-insensitive), null for other classes.
std::unique_ptr<Control> makeControl(const std::wstring& className);
// The default handling: window text and the notifications every window accepts.
LRESULT defaultMessage(Window& window, UINT message, WPARAM wParam, LPARAM lParam, bool& known);

class ListViewControl : public Control {
public:
    struct Item {
        std::map<int, std::wstring> texts;  // by subitem
        int image = 0;
        LPARAM param = 0;
    };
    struct Column {
        std::wstring text;
        int width = 0;
        int format = 0;
        int subItem = 0;
    };

    LRESULT handle(Window& window, UINT message, WPARAM wParam, LPARAM lParam, bool& known) override;

    std::vector<Item> items;
    std::vector<Column> columns;
    DWORD extendedStyle = 0;
    std::map<int, HIMAGELIST> imageLists;

private:
    LRESULT insertItem_(const LVITEMW* item);
    LRESULT setItem_(const LVITEMW* item);
    LRESULT getItem_(LVITEMW* item) const;
    LRESULT getItemText_(WPARAM index, LVITEMW* item) const;
    LRESULT insertColumn_(WPARAM index, const LVCOLUMNW* column);
    LRESULT setColumnWidth_(WPARAM index, LPARAM width);
};

class ComboBoxControl : public Control {
public:
    LRESULT handle(Window& window, UINT message, WPARAM wParam, LPARAM lParam, bool& known) override;

    std::vector<std::wstring> rows;
    int selection = -1;

private:
    LRESULT addString_(const Window& window, LPCWSTR text);
};

class StaticControl : public Control {
public:
    LRESULT handle(Window& window, UINT message, WPARAM wParam, LPARAM lParam, bool& known) override;
    // Shows the icon; an SS_ICON static takes the icon's size unless told not to.
    HICON setIcon(Window& window, HICON icon);

    HICON icon = nullptr;
};

class ButtonControl : public Control {
public:
    LRESULT handle(Window& window, UINT message, WPARAM wParam, LPARAM lParam, bool& known) override;
};

}  // namespace host
