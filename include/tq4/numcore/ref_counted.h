#pragma once

#include <atomic>

#include <tq4/export.h>

namespace tq4
{
namespace numcore
{

/// Base of everything held by a `Ptr`: an atomic count of holders, 0 after construction. Objects live on the heap; the holder that takes
/// the count from 1 to 0 deletes the object.
class TQ4_NUMCORE_API ref_counted
{
public:
    ref_counted() noexcept = default;
    virtual ~ref_counted();

    ref_counted(const ref_counted&) = delete;
    ref_counted& operator=(const ref_counted&) = delete;

    void add_reference() const noexcept { count_.fetch_add(1, std::memory_order_relaxed); }

    void drop_reference() const noexcept
    {
        if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) __destroy();
    }

    /// Number of holders at this moment; only 1 is a stable answer (nobody else can add a holder then).
    unsigned references() const noexcept { return count_.load(std::memory_order_acquire); }

private:
    void __destroy() const noexcept;

    mutable std::atomic<unsigned> count_{0};
};

} // namespace numcore

/// Shared ownership of an `X` derived from `numcore::ref_counted`; may be null.
template <class X>
class Ptr
{
public:
    Ptr() noexcept = default;

    explicit Ptr(X* object) noexcept : object_(object)
    {
        if (object_) object_->add_reference();
    }

    Ptr(const Ptr& other) noexcept : Ptr(other.object_) {}
    Ptr(Ptr&& other) noexcept : object_(other.object_) { other.object_ = nullptr; }

    ~Ptr()
    {
        if (object_) object_->drop_reference();
    }

    Ptr& operator=(X* object) noexcept
    {
        // The new reference is taken first: `object` may be what this pointer holds, or be kept alive by it.
        X* const former = object_;
        if (object) object->add_reference();
        object_ = object;
        if (former) former->drop_reference();
        return *this;
    }

    // Self-assignment is safe: the reference is taken before the former one is dropped.
    Ptr& operator=(const Ptr& other) noexcept { return *this = other.object_; } // NOLINT(bugprone-unhandled-self-assignment)

    Ptr& operator=(Ptr&& other) noexcept
    {
        if (this != &other)
        {
            X* const former = object_;
            object_ = other.object_;
            other.object_ = nullptr;
            if (former) former->drop_reference();
        }
        return *this;
    }

    X* get() const noexcept { return object_; }
    X* operator->() const noexcept { return object_; }
    X& operator*() const noexcept { return *object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }

    friend bool operator==(const Ptr& a, const Ptr& b) noexcept { return a.object_ == b.object_; }
    friend bool operator!=(const Ptr& a, const Ptr& b) noexcept { return a.object_ != b.object_; }

private:
    X* object_ = nullptr;
};

} // namespace tq4
