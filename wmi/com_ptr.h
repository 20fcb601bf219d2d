// Owning pointer to a COM interface: one reference, released when it ends.
// Moves leave the source empty; copies are not allowed.
#pragma once

#include <utility>

template <typename T> class com_ptr {
public:
    com_ptr() = default;
    // Takes `p`; adds a reference of its own only if `addRef` is set.
    com_ptr(T* p, bool addRef) : p_(p)
    {
        if (addRef && p_ != nullptr) {
            p_->AddRef();
        }
    }
    com_ptr(com_ptr&& other) noexcept : p_(other.detach()) { }
    com_ptr& operator=(com_ptr&& other) noexcept
    {
        if (this != &other) {
            attach(other.detach());
        }
        return *this;
    }
    // Takes `p` with no added reference, releasing what was held unless it is
    // the same pointer.
    com_ptr& operator=(T* p)
    {
        if (p != p_) {
            attach(p);
        }
        return *this;
    }
    com_ptr(const com_ptr&) = delete;
    com_ptr& operator=(const com_ptr&) = delete;
    ~com_ptr() { reset(); }

    // Releases what was held and takes `p` without adding a reference.
    void attach(T* p)
    {
        T* old = p_;
        p_ = p;
        if (old != nullptr) {
            old->Release();
        }
    }
    // Gives up the pointer without releasing it; the caller owns the reference.
    [[nodiscard]] T* detach() { return std::exchange(p_, nullptr); }
    // Releases what was held and hands out the empty slot for an out parameter.
    T** put()
    {
        reset();
        return &p_;
    }
    void reset() { attach(nullptr); }

    T* get() const { return p_; }
    T* operator->() const { return p_; }
    explicit operator bool() const { return p_ != nullptr; }

private:
    T* p_ = nullptr;
};
