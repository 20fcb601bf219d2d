#include "tools/sheet_host/KeyChord.h"

#include <cwctype>
#include <stdexcept>

#include "tools/sheet_host/Text.h"

namespace {

struct NamedKey {
    const wchar_t* name;
    BYTE generic;  // VK_CONTROL, VK_SHIFT, VK_MENU
    BYTE side;  // the left or right one
};

const NamedKey namedKeys[] = {
    {L"ctrl", VK_CONTROL, VK_LCONTROL},  {L"lctrl", VK_CONTROL, VK_LCONTROL},
    {L"rctrl", VK_CONTROL, VK_RCONTROL}, {L"shift", VK_SHIFT, VK_LSHIFT},
    {L"lshift", VK_SHIFT, VK_LSHIFT},    {L"rshift", VK_SHIFT, VK_RSHIFT},
    {L"alt", VK_MENU, VK_LMENU},         {L"lalt", VK_MENU, VK_LMENU},
    {L"ralt", VK_MENU, VK_RMENU},
};

std::vector<BYTE> keysOf(const std::wstring& name)
{
    for (const NamedKey& key : namedKeys) {
        if (name == key.name) {
            return {key.generic, key.side};
        }
    }
    if (name.size() == 1 && std::iswalnum(name[0])) {
        return {static_cast<BYTE>(std::towupper(name[0]))};
    }
    if (name.size() >= 2 && name[0] == L'f') {
        const int number = std::stoi(name.substr(1));
        if (number >= 1 && number <= 12) {
            return {static_cast<BYTE>(VK_F1 + number - 1)};
        }
    }
    throw std::invalid_argument("unknown key: " + narrow(name));
}

}  // namespace

KeyChord::KeyChord(const std::wstring& keys)
{
    std::size_t start = 0;
    while (start <= keys.size()) {
        const std::size_t end = keys.find(L'+', start);
        std::wstring name = keys.substr(start, end == std::wstring::npos ? std::wstring::npos : end - start);
        for (auto& c : name) {
            c = static_cast<wchar_t>(std::towlower(c));
        }
        const std::vector<BYTE> found = keysOf(name);
        keys_.insert(keys_.end(), found.begin(), found.end());
        if (end == std::wstring::npos) {
            break;
        }
        start = end + 1;
    }
    set_(keys_, true);
}

KeyChord::~KeyChord()
{
    set_(keys_, false);
}

void KeyChord::set_(const std::vector<BYTE>& keys, bool down)
{
    BYTE state[256] = {};
    GetKeyboardState(state);
    for (const BYTE key : keys) {
        state[key] = down ? 0x80 : 0;
    }
    SetKeyboardState(state);
}
