// The page's list of result and status lines: a one-column list view with a
// small image before each line. Owns its image list until attach() hands it
// to the list view; used on the dialog's thread only.
#pragma once

#include <cstdint>
#include <string>

#include "platform.h"

struct ZtPairInfo;

class DiagResultsList {
public:
    // Indices into the image list, in the order the constructor fills it.
    enum Image : int {
        ImageBlank = 0,
        ImageOk = 1,
        ImageError = 2,
        ImageWarning = 3,
        ImageInfo = 4,
    };
    static constexpr int noCableLengthItem = 0x7FFFFFFF;

    DiagResultsList();
    ~DiagResultsList();
    DiagResultsList(const DiagResultsList&) = delete;
    DiagResultsList& operator=(const DiagResultsList&) = delete;

    // Finds the list view in `dialog` and gives it the style, images and column.
    void attach(HWND dialog);
    void addLine(const std::wstring& text, Image image);
    void addPairLine(const ZtPairInfo& pair);
    // Shows the one cable length line, in place if it is there; a length of 0
    // reads "Unable to determine" only when `reportFailure`, else changes nothing.
    void setCableLength(std::uint32_t meters, bool reportFailure);
    void removeCableLength();
    void clear();
    // Makes the column as wide as the list's client area.
    void fitColumn();

    HWND control() const { return list_; }

private:
    int insert_(const std::wstring& text, Image image);

    HWND list_ = nullptr;
    HWND parent_ = nullptr;
    HIMAGELIST images_ = nullptr;
    int cableLengthItem_ = noCableLengthItem;
};
