// The one boundary of every thread body the module and the tool start: an
// exception must not leave one (it would end the process, Device Manager's
// for the page), so it stops here with a level-0 line naming the thread.
#pragma once

#include <type_traits>

// Runs `body(context)`; false if it ended by an exception, which is traced as
// "[!] <thread>: out of memory", "[!] <thread>: ended by an exception: <what>"
// or, for one that isn't a std::exception, "[!] <thread>: ended by an exception".
bool runThreadBody(const char* thread, void (*body)(void*), void* context) noexcept;

// Runs `body()` so.
template <typename Body> bool runThreadBody(const char* thread, Body&& body) noexcept
{
    using Callable = std::remove_reference_t<Body>;
    return runThreadBody(
        thread, [](void* callable) { (*static_cast<Callable*>(callable))(); },
        const_cast<void*>(static_cast<const void*>(&body)));
}
