// The .res format: a sequence of records, each a RESOURCEHEADER (data size,
// header size, type and name as ordinal or string, DWORD-aligned, then version,
// memory flags, language, version and characteristics) followed by its data,
// DWORD-aligned. Text is UTF-16; the host's WCHAR is wider, so it is converted.
#include "ModuleResources.h"

#include <cstring>
#include <optional>

namespace host {
extern const unsigned char embeddedResources[];
extern const std::size_t embeddedResourcesSize;
}  // namespace host

namespace {

using host::NameOrOrdinal;

class ByteReader {
public:
    ByteReader(const BYTE* data, std::size_t size) : data_(data), size_(size) { }

    bool ok() const { return ok_; }
    std::size_t position() const { return pos_; }
    void seek(std::size_t pos)
    {
        ok_ = ok_ && pos <= size_;
        pos_ = ok_ ? pos : pos_;
    }
    void align(std::size_t to) { seek((pos_ + to - 1) / to * to); }

    template <typename T> T read()
    {
        T value{};
        if (!ok_ || size_ - pos_ < sizeof value) {
            ok_ = false;
            return value;
        }
        std::memcpy(&value, data_ + pos_, sizeof value);
        pos_ += sizeof value;
        return value;
    }
    std::vector<BYTE> bytes(std::size_t count)
    {
        if (!ok_ || size_ - pos_ < count) {
            ok_ = false;
            return {};
        }
        std::vector<BYTE> out(data_ + pos_, data_ + pos_ + count);
        pos_ += count;
        return out;
    }
    // A zero-terminated UTF-16 string.
    std::wstring text()
    {
        std::wstring out;
        for (;;) {
            const auto unit = read<WORD>();
            if (!ok_ || unit == 0) {
                return out;
            }
            if (unit >= 0xD800 && unit < 0xDC00) {
                const auto low = read<WORD>();
                out.push_back(static_cast<wchar_t>(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00)));
            } else {
                out.push_back(static_cast<wchar_t>(unit));
            }
        }
    }
    // 0x0000: none; 0xFFFF then the ordinal; otherwise a string.
    NameOrOrdinal nameOrOrdinal()
    {
        NameOrOrdinal out;
        const std::size_t start = pos_;
        const auto first = read<WORD>();
        if (first == 0xFFFF) {
            out.isOrdinal = true;
            out.ordinal = read<WORD>();
        } else if (first != 0) {
            seek(start);
            out.text = text();
        }
        return out;
    }

private:
    const BYTE* data_;
    std::size_t size_;
    std::size_t pos_ = 0;
    bool ok_ = true;
};

struct Record {
    NameOrOrdinal type;
    NameOrOrdinal name;
    WORD language = 0;
    std::vector<BYTE> data;
};

std::vector<Record> readRecords()
{
    std::vector<Record> records;
    ByteReader reader(host::embeddedResources, host::embeddedResourcesSize);
    while (reader.ok() && reader.position() < host::embeddedResourcesSize) {
        const std::size_t start = reader.position();
        const auto dataSize = reader.read<DWORD>();
        const auto headerSize = reader.read<DWORD>();
        Record record;
        record.type = reader.nameOrOrdinal();
        record.name = reader.nameOrOrdinal();
        reader.align(4);
        reader.read<DWORD>();  // data version
        reader.read<WORD>();  // memory flags
        record.language = reader.read<WORD>();
        reader.seek(start + headerSize);
        record.data = reader.bytes(dataSize);
        reader.align(4);
        // The file opens with an empty record that marks it as 32-bit.
        if (reader.ok() && !(record.type.isOrdinal && record.type.ordinal == 0)) {
            records.push_back(std::move(record));
        }
    }
    return records;
}

const std::vector<Record>& records()
{
    static const std::vector<Record> all = readRecords();
    return all;
}

const std::vector<BYTE>* findResource(WORD type, WORD id)
{
    bool typeSeen = false;
    for (const auto& record : records()) {
        if (!record.type.isOrdinal || record.type.ordinal != type) {
            continue;
        }
        typeSeen = true;
        if (record.name.isOrdinal && record.name.ordinal == id) {
            return &record.data;
        }
    }
    SetLastError(typeSeen ? ERROR_RESOURCE_NAME_NOT_FOUND : ERROR_RESOURCE_TYPE_NOT_FOUND);
    return nullptr;
}

std::optional<host::DialogTemplate> parseDialog(const std::vector<BYTE>& data)
{
    ByteReader reader(data.data(), data.size());
    host::DialogTemplate dialog;
    const auto version = reader.read<WORD>();
    const auto signature = reader.read<WORD>();
    if (version != 1 || signature != 0xFFFF) {
        return std::nullopt;  // only extended templates
    }
    dialog.helpId = reader.read<DWORD>();
    dialog.exStyle = reader.read<DWORD>();
    dialog.style = reader.read<DWORD>();
    const auto count = reader.read<WORD>();
    dialog.x = reader.read<short>();
    dialog.y = reader.read<short>();
    dialog.cx = reader.read<short>();
    dialog.cy = reader.read<short>();
    dialog.menu = reader.nameOrOrdinal();
    dialog.windowClass = reader.nameOrOrdinal();
    dialog.title = reader.text();
    if ((dialog.style & DS_SETFONT) != 0) {
        dialog.pointSize = reader.read<WORD>();
        dialog.weight = reader.read<WORD>();
        dialog.italic = reader.read<BYTE>();
        dialog.charset = reader.read<BYTE>();
        dialog.typeface = reader.text();
    }
    for (WORD i = 0; i < count && reader.ok(); ++i) {
        reader.align(4);
        host::DialogItemTemplate item;
        item.helpId = reader.read<DWORD>();
        item.exStyle = reader.read<DWORD>();
        item.style = reader.read<DWORD>();
        item.x = reader.read<short>();
        item.y = reader.read<short>();
        item.cx = reader.read<short>();
        item.cy = reader.read<short>();
        item.id = reader.read<DWORD>();
        item.windowClass = reader.nameOrOrdinal();
        item.title = reader.nameOrOrdinal();
        const auto extraCount = reader.read<WORD>();
        item.extra = reader.bytes(extraCount);
        dialog.items.push_back(std::move(item));
    }
    if (!reader.ok()) {
        return std::nullopt;
    }
    return dialog;
}

}  // namespace

namespace host {

bool findDialogTemplate(WORD id, DialogTemplate& dialog)
{
    const auto* data = findResource(rtDialog, id);
    if (data == nullptr) {
        return false;
    }
    auto parsed = parseDialog(*data);
    if (!parsed) {
        SetLastError(ERROR_RESOURCE_DATA_NOT_FOUND);
        return false;
    }
    dialog = std::move(*parsed);
    return true;
}

bool findIconGroup(WORD id, std::vector<IconImageEntry>& images)
{
    const auto* data = findResource(rtGroupIcon, id);
    if (data == nullptr) {
        return false;
    }
    // GRPICONDIR: reserved, type, count; then 14-byte GRPICONDIRENTRYs.
    ByteReader reader(data->data(), data->size());
    reader.read<WORD>();
    reader.read<WORD>();
    const auto count = reader.read<WORD>();
    std::vector<IconImageEntry> found;
    for (WORD i = 0; i < count && reader.ok(); ++i) {
        IconImageEntry entry;
        const auto width = reader.read<BYTE>();
        const auto height = reader.read<BYTE>();
        reader.read<BYTE>();  // colour count
        reader.read<BYTE>();  // reserved
        reader.read<WORD>();  // planes
        entry.bitCount = reader.read<WORD>();
        reader.read<DWORD>();  // bytes in resource
        entry.iconId = reader.read<WORD>();
        if (reader.ok() && findResource(rtIcon, entry.iconId) == nullptr) {
            SetLastError(ERROR_RESOURCE_DATA_NOT_FOUND);
            return false;  // a group that names an image the module lacks
        }
        entry.width = width == 0 ? 256 : width;
        entry.height = height == 0 ? 256 : height;
        found.push_back(entry);
    }
    if (!reader.ok() || found.empty()) {
        SetLastError(ERROR_RESOURCE_DATA_NOT_FOUND);
        return false;
    }
    images = std::move(found);
    return true;
}

}  // namespace host
