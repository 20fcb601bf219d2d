#include "trace/ThreadBody.h"

#include <exception>
#include <new>

#include "trace/Trace.h"

bool runThreadBody(const char* thread, void (*body)(void*), void* context) noexcept
{
    try {
        body(context);
        return true;
    } catch (const std::bad_alloc&) {
        ZT_TRACE(0, "[!] %s: out of memory", thread);
    } catch (const std::exception& error) {
        ZT_TRACE(0, "[!] %s: ended by an exception: %s", thread, error.what());
    } catch (...) {
        ZT_TRACE(0, "[!] %s: ended by an exception", thread);
    }
    return false;
}
