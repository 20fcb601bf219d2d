// A chord of keys held down on the calling thread's keyboard state, as
// GetKeyState reports it to that thread, for as long as the object lives.
#pragma once

#include <string>
#include <vector>

#include "tools/sheet_host/Win32.h"

class KeyChord {
public:
    // "ctrl+shift+t": ctrl, shift, alt (either side) or lctrl, rctrl, lshift,
    // rshift, lalt, ralt; a letter or digit; f1 to f12. Throws std::invalid_argument.
    explicit KeyChord(const std::wstring& keys);
    ~KeyChord();  // the keys are up again
    KeyChord(const KeyChord&) = delete;
    KeyChord& operator=(const KeyChord&) = delete;

private:
    static void set_(const std::vector<BYTE>& keys, bool down);

    std::vector<BYTE> keys_;
};
