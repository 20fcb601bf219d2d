#include "wmi/co_init.h"

#include "trace/Trace.h"

co_init::co_init()
{
    const HRESULT hr = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (FAILED(hr)) {
        ZT_TRACE(2, "/!\\ CoInitializeEx() failed w/status %#x", static_cast<unsigned>(hr));
    }
    initialized_ = SUCCEEDED(hr);
}

co_init::~co_init()
{
    if (initialized_) {
        CoUninitialize();
    } else {
        ZT_TRACE(5, "Don't uninitialize COM since we didn't initialize it");
    }
}
