#pragma once

// Packed marks, one bit per node or element.

#include <tq4/numcore/dense1d.h>

namespace tq4::gridweave
{

/// A vector of bits, all clear after `reset`.
class bit_vector
{
public:
    /// Makes room for `count` bits and clears them. False when memory runs out.
    bool reset(unsigned count)
    {
        storage_.size = 0;
        const bool done = storage_.resize(count / 32 + (count % 32 != 0), 0);
        words_ = storage_.data();
        return done;
    }

    bool operator[](unsigned i) const { return (words_[i / 32] >> (i % 32)) & 1u; }
    void set(unsigned i) { words_[i / 32] |= 1u << (i % 32); }
    void clear(unsigned i) { words_[i / 32] &= ~(1u << (i % 32)); }

    /// Sets the bit and tells whether it was set before.
    bool test_and_set(unsigned i)
    {
        const bool was = (*this)[i];
        set(i);
        return was;
    }

private:
    dense1D<unsigned> storage_;
    unsigned* words_ = nullptr; // the compiler keeps it in a register across writes to other vectors, as it can't a view's offset
};

} // namespace tq4::gridweave
