#include "ztdiag/AtomicFile.h"

namespace {

// Closes the handle of the new file, and deletes the file unless it was kept.
class NewFile {
public:
    explicit NewFile(std::wstring path) : path_(std::move(path))
    {
        handle_ = CreateFileW(path_.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                              nullptr);
    }
    ~NewFile()
    {
        close();
        if (!kept_) {
            DeleteFileW(path_.c_str());
        }
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    bool isOpen() const { return handle_ != INVALID_HANDLE_VALUE; }
    HANDLE handle() const { return handle_; }
    const std::wstring& path() const { return path_; }
    bool close()
    {
        const bool closed = handle_ == INVALID_HANDLE_VALUE || CloseHandle(handle_) != 0;
        handle_ = INVALID_HANDLE_VALUE;
        return closed;
    }
    void keep() { kept_ = true; }

private:
    std::wstring path_;
    HANDLE handle_ = INVALID_HANDLE_VALUE;
    bool kept_ = false;
};

bool failed(FileReplaceError& error, const wchar_t* step)
{
    error = {GetLastError(), step};
    return false;
}

// A reader holding the old file open without sharing its deletion makes the
// rename fail for as long as it reads: a few tries, then the reader wins.
bool renameOver(const std::wstring& from, const std::wstring& to)
{
    constexpr int tries = 10;
    for (int i = 1;; ++i) {
        if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0) {
            return true;
        }
        const DWORD code = GetLastError();
        if (i == tries || (code != ERROR_ACCESS_DENIED && code != ERROR_SHARING_VIOLATION)) {
            SetLastError(code);
            return false;
        }
        Sleep(50);
    }
}

}  // namespace

bool replaceFileContent(const std::wstring& path, const std::string& bytes, FileReplaceError& error)
{
    // Named so that collectors, which read *.prom, pass it by; the process id
    // keeps two writers of one file apart.
    NewFile file(path + L"." + std::to_wstring(GetCurrentProcessId()) + L".tmp");
    if (!file.isOpen()) {
        return failed(error, L"create");
    }
    DWORD written = 0;
    if (WriteFile(file.handle(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) == 0
        || written != bytes.size()) {
        return failed(error, L"write");
    }
    if (FlushFileBuffers(file.handle()) == 0 || !file.close()) {
        return failed(error, L"write");
    }
    if (!renameOver(file.path(), path)) {
        return failed(error, L"replace");
    }
    file.keep();
    return true;
}
