// COM initialisation of the calling thread (multithreaded apartment), undone
// when the owner ends, and only if it succeeded here. Once per thread.
#pragma once

#include "platform.h"

class co_init {
public:
    co_init();
    co_init(const co_init&) = delete;
    co_init& operator=(const co_init&) = delete;
    ~co_init();

    // S_OK and S_FALSE both count: each owes a CoUninitialize. A thread already
    // in another apartment goes on with the COM state it has.
    bool initialized() const { return initialized_; }

private:
    bool initialized_ = false;
};
