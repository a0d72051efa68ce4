#pragma once

// The k-d tree behind the node detector and node merging: one node per record, linked in the order of a fixed shuffle.
//
// The shuffle stands in for balancing (a k-d tree built by random insertion has a depth of about log n: Bentley, "Multidimensional binary
// search trees used for associative searching", 1975). The shape of the tree follows from the insertion order alone, and the order of box
// results and the choice among equally close nodes follow from the shape; where a record stands in memory is free.

#include <algorithm>
#include <array>
#include <cstdint>

#include <tq4/gridweave/core.h>
#include <tq4/numcore/fixed.h>

#include "gridweave/core/prefetch.h"

namespace tq4::gridweave
{

/// Nodes to insert: a view of a list, or all columns of a matrix in their order, which take no memory. An empty list is no columns.
class node_list
{
public:
    node_list(const dense1D<unsigned>& listed) : size(listed.size), listed_(listed.data()) {} // NOLINT(google-explicit-constructor)

    static node_list columns(unsigned count) { return node_list(count); }

    unsigned operator[](unsigned i) const { return listed_ ? listed_[i] : i; }

    bool are_columns() const { return listed_ == nullptr; }

    unsigned largest() const { return listed_ ? *std::max_element(listed_, listed_ + size) : size - 1; }

    unsigned size;

private:
    explicit node_list(unsigned nbr_columns) : size(nbr_columns), listed_(nullptr) {}

    const unsigned* listed_;
};

template <unsigned D>
class node_tree
{
public:
    using point = vector_fixed<double, D>;

    /// An empty tree over the columns of `coords`, which must outlive it and is read through at every call: no coordinate is kept.
    explicit node_tree(const dense2D<double>& coords) : coords_(&coords) {}

    node_tree(const node_tree&) = delete;
    node_tree& operator=(const node_tree&) = delete;

    /// Makes this tree a separate duplicate over the same coordinates. False, with nothing changed, when memory runs out.
    bool copy(const node_tree& other);

    /// Inserts the nodes in the shuffled order; nodes that are there already and indices beyond the columns are passed over. `added` gets
    /// the number of nodes linked: none where the matrix lacks an axis or does not hold the nodes of the tree any more. False, with the
    /// tree as it was, when memory runs out.
    bool insert(const node_list& nodes, unsigned& added);

    const dense2D<double>& coords() const { return *coords_; }

    /// True when the block of the matrix holds D coordinates of the node, which it may not after the matrix changed behind the tree's back.
    bool can_read(unsigned node) const
    {
        if (!coords_->block || !coords_->block->data) return false;
        return coords_->offset + std::uint64_t{node} * coords_->ld + D <= coords_->block->capacity;
    }

    /// Records in use: one per node, and one more while a record taken for a node that was there already awaits its reuse.
    unsigned size() const { return nodes_.size + (spare_ ? 1 : 0); }

    /// The node closest to `p`, passing `excluded` over. Among equals the first in the order of the search wins.
    unsigned closest(const point& p, unsigned excluded) const;

    /// Calls `visit(node)` for the nodes in the closed box: a record, its left subtree, its right subtree.
    template <class Visitor>
    void visit_box(const point& low, const point& high, Visitor&& visit) const;

private:
    template <unsigned>
    friend class tree_growth;

    /// Largest subtree that stands in one piece of memory, in the order of insertion.
    static constexpr unsigned largest_run = 16;

    /// Pending subtrees that a traversal holds in place. Deeper trees note the parent of each record instead.
    static constexpr unsigned stack_depth = 96;

    /// The way to a child: its record, and whether a group begins there. A group is a part of the tree that stands in one piece of memory,
    /// so that all its coordinates can be asked for at once: a run, which is a whole small subtree in the order of insertion, or a cluster,
    /// which is a root above the runs with the records closest to it.
    struct link
    {
        static constexpr unsigned run_mark = 1u << 31;
        static constexpr unsigned group_mark = 1u << 30;

        unsigned marked_record; ///< none where there is no child

        bool exists() const { return marked_record != none_index; }
        bool is_run() const { return (marked_record & run_mark) != 0; }
        bool is_group() const { return (marked_record & group_mark) != 0; }
        unsigned record() const { return marked_record & ~(run_mark | group_mark); }

        void mark_run() { marked_record |= run_mark | group_mark; }
        void mark_group() { marked_record |= group_mark; }

        /// Something will be linked below. The records stay together.
        void unmark_run() { marked_record &= ~run_mark; }

        /// Goes to another record with the same marks.
        void move_to(unsigned record) { marked_record = (marked_record & (run_mark | group_mark)) | record; }
    };

    static constexpr unsigned most_records = link::group_mark - 1;

    // No initialisers here: traversals hold arrays of these that must cost nothing.
    static constexpr link no_child{none_index};

    /// A node of `nodes_`, which is marked where it is the last of a group.
    static constexpr unsigned last_mark = 1u << 31;
    static constexpr unsigned without_mark(unsigned node) { return node & ~last_mark; }

    /// An array rather than two names, so that a comparison can choose the way without a branch.
    using children = std::array<link, 2>;
    static constexpr unsigned right_way = 0; ///< equal, above, or not comparable on the axis of the record
    static constexpr unsigned left_way = 1;  ///< strictly below

    /// A subtree to visit, and the coordinate of its parent on the parent's axis.
    struct position
    {
        link to;
        unsigned axis;
        double parent_coordinate;
    };

    /// Subtrees put off by a traversal, latest first.
    class pending_stack
    {
    public:
        pending_stack() {} // NOLINT(modernize-use-equals-default): a defaulted one would zero the array on `pending_stack()`

        void put_off(const position& subtree) { held_[count_++] = subtree; }

        bool resume(position& here)
        {
            if (count_ == 0) return false;
            here = held_[--count_];
            return true;
        }

    private:
        position held_[stack_depth];
        unsigned count_ = 0;
    };

    /// The same without any store, for trees of any depth: goes up from where the traversal stands to the next record that was left by
    /// its `first` child and has the other one. It offers subtrees that were never put off too; the traversals test again on return.
    class climber
    {
    public:
        climber(const node_tree& tree, unsigned first) : tree_(tree), first_(first) {}

        void put_off(const position&) {}

        bool resume(position& here) const
        {
            unsigned at = here.to.record();
            while (at != 0)
            {
                const unsigned above = tree_.parents_[at];
                const children& ways = tree_.children_[above];
                const unsigned axis = previous_axis(here.axis);
                if (ways[first_].exists() && ways[first_].record() == at && ways[1 - first_].exists())
                {
                    here.to = ways[1 - first_];
                    here.parent_coordinate = tree_.coords_->column(tree_.node_at(above))[axis];
                    return true;
                }
                at = above;
                here.axis = axis;
            }
            return false;
        }

    private:
        const node_tree& tree_;
        unsigned first_;
    };

    static constexpr unsigned next_axis(unsigned axis) { return axis + 1 == D ? 0 : axis + 1; }
    static constexpr unsigned previous_axis(unsigned axis) { return axis == 0 ? D - 1 : axis - 1; }

    /// What a traversal reads from.
    struct reader
    {
        const unsigned* nodes;
        const children* all_children;
        const double* base;
        std::size_t step;

        unsigned node_at(unsigned record) const { return without_mark(nodes[record]); }
        const double* coordinates_of(unsigned node) const { return base + step * node; }
        const children& ways_from(const link& to) const { return all_children[to.record()]; }

        /// Asks memory for the records that a group of children begins with.
        void ask_for(const link& to) const
        {
            if (!to.exists() || !to.is_group()) return; // other children stand beside their parents
            prefetch(nodes + to.record());
            if (!to.is_run()) prefetch(all_children + to.record());
        }

        void ask_for(const children& ways) const
        {
            ask_for(ways[0]);
            ask_for(ways[1]);
        }

        /// Asks memory for the coordinates of a whole group, if one begins here: they come from many places, but all at the same time.
        void ask_for_group(const link& to) const
        {
            if (!to.is_group()) return;
            for (const unsigned* member = nodes + to.record();; ++member)
            {
                prefetch(coordinates_of(without_mark(*member)));
                if ((*member & last_mark) != 0) return;
            }
        }
    };

    reader open() const { return {nodes_.data(), children_.data(), coords_->data(), coords_->ld}; }

    /// False while the matrix does not hold the nodes of the tree (it shrank behind the tree's back), so that nothing is read beyond it.
    bool is_readable() const { return !nodes_.empty() && can_read(largest_node_); }

    class closest_search;

    template <class Visitor, class Pending>
    void walk_box(const point& low, const point& high, Visitor& visit, Pending&& later) const;

    bool insert_each(const node_list& nodes, unsigned& added);
    bool insert_all(const node_list& nodes, unsigned& added);
    bool insert_distinct(const node_list& nodes, const dense1D<unsigned>& order, bool repeats_last, unsigned& added);
    bool insert_one(unsigned id, unsigned& added);
    bool reserve(unsigned count);
    unsigned append(unsigned node);
    unsigned node_at(unsigned record) const { return without_mark(nodes_[record]); }
    link& way_to_child(unsigned parent, bool is_left);
    bool note_parents(unsigned deepest);
    void unlink_from(unsigned former_size);

    const dense2D<double>* coords_;
    link root_ = no_child;
    dense1D<unsigned> nodes_;    ///< of each record; the axis of a record is its depth modulo D
    dense1D<children> children_; ///< of each record
    dense1D<unsigned> parents_;  ///< of each record, in trees deeper than `stack_depth`; else empty
    unsigned deepest_ = 0;       ///< records on the longest path
    unsigned largest_node_ = 0;
    bool spare_ = false; ///< the last insertion found its node in the tree, so its record is free for the next one
};

template <unsigned D>
bool is_inside(const double* x, const vector_fixed<double, D>& low, const vector_fixed<double, D>& high)
{
    for (unsigned k = 0; k < D; ++k)
        if (!(x[k] >= low[k] && x[k] <= high[k])) return false;
    return true;
}

template <unsigned D>
template <class Visitor>
void node_tree<D>::visit_box(const point& low, const point& high, Visitor&& visit) const
{
    if (!is_readable()) return;
    if (deepest_ <= stack_depth)
        walk_box(low, high, visit, pending_stack());
    else
        walk_box(low, high, visit, climber(*this, left_way));
}

template <unsigned D>
template <class Visitor, class Pending>
void node_tree<D>::walk_box(const point& low, const point& high, Visitor& visit, Pending&& later) const
{
    const reader tree = open();
    position here{root_, 0, 0.0};
    for (;;)
    {
        const unsigned node = tree.node_at(here.to.record());
        const children& ways = tree.ways_from(here.to);
        tree.ask_for_group(here.to);
        tree.ask_for(ways);
        const double* x = tree.coordinates_of(node);
        const double t = x[here.axis];
        const bool reaches_left = t >= low[here.axis];
        const bool reaches_right = t <= high[here.axis];
        if (reaches_left && reaches_right && is_inside(x, low, high)) visit(node);

        const bool right = reaches_right && ways[right_way].exists();
        if (reaches_left && ways[left_way].exists())
        {
            here.axis = next_axis(here.axis);
            if (right)
            {
                later.put_off({ways[right_way], here.axis, t});
                tree.ask_for_group(ways[right_way]);
            }
            here.to = ways[left_way];
        }
        else if (right)
        {
            here.axis = next_axis(here.axis);
            here.to = ways[right_way];
        }
        else
        {
            do
                if (!later.resume(here)) return;
            while (!(here.parent_coordinate <= high[previous_axis(here.axis)]));
        }
    }
}

} // namespace tq4::gridweave
