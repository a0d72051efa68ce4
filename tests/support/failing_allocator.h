#pragma once

// An allocator for numeric storage that tests can make fail. The test programs define `__vector_num_alloc` and `__vector_num_free` of their
// own, which take the place of the library's pair at link time; no production code knows of it.

namespace tq4::test
{

/// While it lives, the n-th allocation of numeric storage on this thread fails (n = 1 is the next one), and so do all later ones unless
/// `only_once` is given.
class failing_allocation
{
public:
    explicit failing_allocation(unsigned n, bool only_once = false);
    ~failing_allocation();

    failing_allocation(const failing_allocation&) = delete;
    failing_allocation& operator=(const failing_allocation&) = delete;

    /// True when an allocation was refused.
    bool has_failed() const;
};

/// Counts an allocation of another kind with those of numeric storage, and tells whether it is to fail: for programs that replace more than
/// the two functions.
bool refuse_allocation();

/// While it lives, numeric storage allocated on this thread starts `bytes` (1 to 15) behind an aligned address.
class misaligned_allocation
{
public:
    explicit misaligned_allocation(unsigned bytes);
    ~misaligned_allocation();

    misaligned_allocation(const misaligned_allocation&) = delete;
    misaligned_allocation& operator=(const misaligned_allocation&) = delete;
};

/// Allocations of numeric storage made by this thread so far.
unsigned long allocation_count();

/// Blocks of numeric storage that are alive in this thread's account.
long live_allocations();

} // namespace tq4::test
