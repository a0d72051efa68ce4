#pragma once

// The queue of the relaxations: a binary heap of edges, the worst on top.

#include <cfloat>

#include <tq4/numcore/dense1d.h>

namespace tq4::gridweave
{

/// A node to correct because of one of its edges.
struct gradation_record
{
    float key;          ///< measure of the edge
    unsigned stamp;     ///< number of moves that had been made when the edge was measured
    unsigned node;      ///< the node to correct
    unsigned neighbour; ///< the other end of the edge
};

/// The key of an edge of the given measure, which is positive.
inline float gradation_key(double measure)
{
    return static_cast<float>(measure < static_cast<double>(FLT_MAX) ? measure : static_cast<double>(FLT_MAX));
}

/// A binary max-heap on the keys. Which of several records with the largest key comes out first is told by the way of the heap alone, and
/// results depend on it: insertion sifts up past strictly smaller keys; removal sinks a hole from the top to the bottom along the larger
/// children (the right one of equals) and sifts the last record up from there.
class gradation_heap
{
public:
    bool empty() const { return records_.size == 0; }
    unsigned size() const { return records_.size; }

    /// False, with nothing inserted, when memory runs out.
    bool push(const gradation_record& record)
    {
        const unsigned end = records_.size;
        records_.push_back(record);
        if (records_.size == end) return false;
        sift_up(end, record);
        return true;
    }

    /// Takes the record on top out. The heap is not empty.
    gradation_record pop()
    {
        gradation_record* const heap = records_.data();
        const gradation_record top = heap[0];
        const unsigned end = --records_.size;
        if (end == 0) return top;

        const gradation_record last = heap[end];
        unsigned hole = 0;
        for (std::size_t child = 1; child < end; child = 2 * std::size_t{hole} + 1)
        {
            if (child + 1 < end && !(heap[child + 1].key < heap[child].key)) ++child;
            heap[hole] = heap[child];
            hole = static_cast<unsigned>(child);
        }
        sift_up(hole, last);
        return top;
    }

private:
    void sift_up(unsigned hole, const gradation_record& record)
    {
        gradation_record* const heap = records_.data();
        while (hole > 0)
        {
            const unsigned parent = (hole - 1) / 2;
            if (!(heap[parent].key < record.key)) break;
            heap[hole] = heap[parent];
            hole = parent;
        }
        heap[hole] = record;
    }

    dense1D<gradation_record> records_;
};

} // namespace tq4::gridweave
