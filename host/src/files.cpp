// Files of the host's own file system behind kernel32's file functions: the
// path's wide text as UTF-8, errno as the platform's error codes, and failures
// that tests script by function.
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "WindowSystem.h"
#include "host/HostPlatform.h"

namespace {

struct Files {
    std::mutex lock;
    std::map<HANDLE, int> open;  // handle to descriptor
    std::uintptr_t next = 1;
    struct Script {
        DWORD error;
        int times;
    };
    std::map<std::string, Script> scripts;
};

Files& files()
{
    static Files instance;
    return instance;
}

// Handles from this address on, never dereferenced, apart from the threads' handles.
char fileTokens[1];

std::string narrow(LPCWSTR text)
{
    std::string out;
    for (; *text != 0; ++text) {
        const auto c = static_cast<char32_t>(*text);
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

DWORD errorOf(int error)
{
    switch (error) {
    case ENOENT:
        return ERROR_FILE_NOT_FOUND;
    case ENOTDIR:
        return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
        return ERROR_ACCESS_DENIED;
    case ENOSPC:
        return ERROR_DISK_FULL;
    default:
        return ERROR_WRITE_FAULT;
    }
}

// True, with the error set, when a test scripted `function` to fail now.
bool scriptedFailure(const char* function)
{
    auto& f = files();
    const std::lock_guard<std::mutex> guard(f.lock);
    const auto found = f.scripts.find(function);
    if (found == f.scripts.end() || found->second.times == 0) {
        return false;
    }
    if (found->second.times > 0) {
        --found->second.times;
    }
    SetLastError(found->second.error);
    return true;
}

BOOL failWith(int error)
{
    SetLastError(errorOf(error));
    return FALSE;
}

int descriptorOf(HANDLE handle)
{
    auto& f = files();
    const std::lock_guard<std::mutex> guard(f.lock);
    const auto found = f.open.find(handle);
    return found == f.open.end() ? -1 : found->second;
}

}  // namespace

HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                   DWORD attributes, HANDLE templateFile)
{
    static_cast<void>(share);
    static_cast<void>(security);
    static_cast<void>(attributes);
    if (name == nullptr || access != GENERIC_WRITE || disposition != CREATE_ALWAYS
        || templateFile != nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    if (scriptedFailure("CreateFileW")) {
        return INVALID_HANDLE_VALUE;
    }
    const int descriptor = open(narrow(name).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (descriptor < 0) {
        failWith(errno);
        return INVALID_HANDLE_VALUE;
    }
    auto& f = files();
    const std::lock_guard<std::mutex> guard(f.lock);
    const auto handle = static_cast<HANDLE>(fileTokens + f.next++);
    f.open[handle] = descriptor;
    return handle;
}

BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD size, LPDWORD written, OVERLAPPED* overlapped)
{
    const int descriptor = descriptorOf(file);
    if (descriptor < 0 || overlapped != nullptr || written == nullptr) {
        SetLastError(descriptor < 0 ? ERROR_INVALID_HANDLE : ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    *written = 0;
    if (scriptedFailure("WriteFile")) {
        return FALSE;
    }
    const auto* bytes = static_cast<const char*>(buffer);
    while (*written < size) {
        const ssize_t n = write(descriptor, bytes + *written, size - *written);
        if (n < 0) {
            return failWith(errno);
        }
        *written += static_cast<DWORD>(n);
    }
    return TRUE;
}

BOOL FlushFileBuffers(HANDLE file)
{
    const int descriptor = descriptorOf(file);
    if (descriptor < 0) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (scriptedFailure("FlushFileBuffers")) {
        return FALSE;
    }
    return fsync(descriptor) == 0 ? TRUE : failWith(errno);
}

BOOL MoveFileExW(LPCWSTR existing, LPCWSTR replacement, DWORD flags)
{
    if (existing == nullptr || replacement == nullptr
        || (flags & ~(MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    if (scriptedFailure("MoveFileExW")) {
        return FALSE;
    }
    const std::string to = narrow(replacement);
    struct stat target { };
    if ((flags & MOVEFILE_REPLACE_EXISTING) == 0 && stat(to.c_str(), &target) == 0) {
        SetLastError(ERROR_ALREADY_EXISTS);
        return FALSE;
    }
    return std::rename(narrow(existing).c_str(), to.c_str()) == 0 ? TRUE : failWith(errno);
}

BOOL DeleteFileW(LPCWSTR name)
{
    if (name == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return unlink(narrow(name).c_str()) == 0 ? TRUE : failWith(errno);
}

DWORD GetCurrentProcessId()
{
    return static_cast<DWORD>(getpid());
}

namespace host {

bool closeFileHandle(HANDLE handle)
{
    auto& f = files();
    const std::lock_guard<std::mutex> guard(f.lock);
    const auto found = f.open.find(handle);
    if (found == f.open.end()) {
        return false;
    }
    close(found->second);
    f.open.erase(found);
    return true;
}

void resetFiles()
{
    auto& f = files();
    const std::lock_guard<std::mutex> guard(f.lock);
    f.scripts.clear();
}

void failFileFunction(const std::string& function, DWORD error, int times)
{
    auto& f = files();
    const std::lock_guard<std::mutex> guard(f.lock);
    f.scripts[function] = {error, times};
}

int openFileHandles()
{
    auto& f = files();
    const std::lock_guard<std::mutex> guard(f.lock);
    return static_cast<int>(f.open.size());
}

}  // namespace host
