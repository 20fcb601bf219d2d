#include "diag_page/DiagThread.h"

bool DiagThread::start(LPTHREAD_START_ROUTINE body, void* argument)
{
    DWORD id = 0;
    HANDLE handle = CreateThread(nullptr, 0, body, argument, 0, &id);
    if (handle == nullptr) {
        return false;
    }
    handle_ = handle;
    id_ = id;
    return true;
}

void DiagThread::join()
{
    if (handle_ == nullptr) {
        return;
    }
    WaitForSingleObject(handle_, INFINITE);
    CloseHandle(handle_);
    handle_ = nullptr;
    id_ = 0;
}
