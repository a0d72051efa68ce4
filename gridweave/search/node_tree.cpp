#include "gridweave/search/node_tree.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>

#include "gridweave/core/bits.h"
#include "gridweave/core/distinct.h"

namespace tq4::gridweave
{

// ---- Insertion ------------------------------------------------------------------------------------------------------------------------

namespace
{

/// Fisher-Yates with a fixed seed: the same list gives the same tree everywhere.
void shuffle(dense1D<unsigned>& list)
{
    if (list.size < 2) return;
    std::mt19937 next(1);
    for (unsigned i = 1; i < list.size; ++i)
    {
        const auto j = static_cast<unsigned>(next() % (i + 1));
        if (j != i) std::swap(list[i], list[j]);
    }
}

/// True when all entries are below `upper` and no two are equal. A shortage of memory answers false too.
bool are_distinct(const node_list& nodes, unsigned upper)
{
    if (nodes.are_columns()) return true;
    // More marks than that cost more than what the answer saves.
    if (upper / 64 > nodes.size) return false;
    bit_vector seen;
    if (!seen.reset(upper)) return false;
    for (unsigned i = 0; i < nodes.size; ++i)
        if (nodes[i] >= upper || seen.test_and_set(nodes[i])) return false;
    return true;
}

} // namespace

/// The first records of a large tree, small enough for the cache, and its empty places, to which all later nodes can be sent at once.
template <unsigned D>
class guide_tree
{
public:
    struct empty_place
    {
        unsigned parent;
        unsigned level; ///< depth of what will stand there
        bool is_left;
    };

    /// The number of an empty place, in little room: the places of all nodes are looked up in the order of insertion, that is, at random.
    using place_number = std::uint16_t;

    guide_tree(const double* base, std::size_t step) : base_(base), step_(step) {}

    bool reserve(unsigned count) { return guides_.resize(2 * count + 1) && places_.resize(count + 1); }

    /// Inserts the first `count` nodes of the order one by one. False when they make a long chain.
    bool plant(const node_list& natural, const dense1D<unsigned>& order, unsigned count)
    {
        count_ = count;
        guides_[0] = {coordinates_of(natural[order[0]])[0], {count, count}};
        for (unsigned i = 1; i < count; ++i)
        {
            const double* x = coordinates_of(natural[order[i]]);
            unsigned axis = 0;
            unsigned level = 1;
            unsigned* way = nullptr;
            for (unsigned at = 0; at < count; at = *way)
            {
                way = &guides_[at].next[x[axis] < guides_[at].t];
                axis = axis + 1 == D ? 0 : axis + 1;
                ++level;
            }
            if (level > most_levels) return false;
            *way = i;
            guides_[i] = {x[axis], {count, count}};
            height_ = std::max(height_, level);
        }
        return true;
    }

    /// Numbers the empty places, neighbours close to each other, and calls `link(parent, is_left, child)` for all pairs of records.
    template <class Link>
    void number_places(Link&& link)
    {
        unsigned nbr_places = 0;
        empty_place waiting[most_levels + 1]; // records here, by their parents
        unsigned nbr_waiting = 0;
        const auto go_on_from = [&](unsigned at, unsigned level) {
            for (const bool is_left : {false, true})
            {
                if (guides_[at].next[is_left] != count_)
                {
                    waiting[nbr_waiting++] = {at, level + 1, is_left};
                    continue;
                }
                // An empty place leads to itself, so that nodes that arrived stay while others are still on their way.
                const unsigned own = count_ + nbr_places;
                guides_[own] = {0.0, {own, own}};
                guides_[at].next[is_left] = own;
                places_[nbr_places++] = {at, level, is_left};
            }
        };
        go_on_from(0, 1);
        while (nbr_waiting != 0)
        {
            const empty_place from = waiting[--nbr_waiting];
            const unsigned child = guides_[from.parent].next[from.is_left];
            link(from.parent, from.is_left, child);
            go_on_from(child, from.level);
        }
    }

    /// Finds the place that each node arrives at. In the order of the list, which is mostly the order of memory, and several walks side by
    /// side, which hide each other's latency.
    void send(const node_list& natural, dense1D<place_number>& places) const
    {
        constexpr unsigned lanes = 8;
        unsigned first = 0;
        for (; natural.size - first >= lanes; first += lanes) send_together<lanes>(natural, first, places.data() + first);
        for (; first < natural.size; ++first) send_together<1>(natural, first, places.data() + first);
    }

    const empty_place& place(unsigned p) const { return places_[p]; }
    unsigned height() const { return height_; }

private:
    static constexpr unsigned most_levels = 64;

    struct guide
    {
        double t;         ///< coordinate on the axis of the record
        unsigned next[2]; ///< right, left: a record, or count + place
    };

    const double* coordinates_of(unsigned node) const { return base_ + step_ * node; }

    template <unsigned Lanes>
    void send_together(const node_list& natural, unsigned first, place_number* places) const
    {
        const guide* const guides = guides_.data();
        const double* x[Lanes];
        unsigned at[Lanes] = {};
        for (unsigned l = 0; l < Lanes; ++l) x[l] = coordinates_of(natural[first + l]);
        unsigned lowest = 0;
        for (unsigned axis = 0; lowest < count_; axis = axis + 1 == D ? 0 : axis + 1)
        {
            lowest = none_index;
            for (unsigned l = 0; l < Lanes; ++l)
            {
                at[l] = guides[at[l]].next[x[l][axis] < guides[at[l]].t];
                lowest = std::min(lowest, at[l]);
            }
        }
        for (unsigned l = 0; l < Lanes; ++l) places[l] = static_cast<place_number>(at[l] - count_);
    }

    const double* base_;
    std::size_t step_;
    unsigned count_ = 0;
    unsigned height_ = 1;
    dense1D<guide> guides_; ///< records, then empty places
    dense1D<empty_place> places_;
};

/// Inserts a whole list into a tree: same links as one by one, without a walk from the root per node. What arrives at a record, or at an
/// empty place, is a set of nodes in insertion order; the record (or the first of the set, as a new record) splits it in two, stably.
///
/// All members of a set are known to lie at or above `floor` on each axis, or not to be comparable. A record whose coordinate is not above
/// the floor sends all of them right without a look at them, and that is what keeps long chains of coincident nodes linear.
template <unsigned D>
class tree_growth
{
public:
    using tree = node_tree<D>;
    using link = typename tree::link;

    explicit tree_growth(tree& grown)
        : tree_(grown),
          base_(grown.coords_->data()),
          step_(grown.coords_->ld),
          is_first_(grown.nodes_.empty()),
          next_record_(grown.nodes_.size)
    {
    }

    /// `natural` holds distinct valid nodes; `order` their positions in the order of insertion. False when memory runs out; the records
    /// are then to be unlinked again. `refused_last` tells whether the last node was in the tree already.
    bool insert(const node_list& natural, const dense1D<unsigned>& order, bool& refused_last);

    unsigned deepest() const { return deepest_; }

private:
    /// A node with its coordinates, for the time of the insertion.
    struct element
    {
        double x[D];
        unsigned node;
    };

    /// A set of elements on its way: it arrives at the left or right of `parent`.
    struct batch
    {
        unsigned begin;
        unsigned count;
        unsigned parent; ///< none for the root
        bool is_left;
        unsigned level; ///< depth of the place it arrives at
        double floor[D];
    };

    /// Of two parts the larger is put off, so that what waits halves each time.
    class batch_stack
    {
    public:
        /// Leaves the smaller nonempty part in `here`.
        void put_off_larger(batch& here, batch& other)
        {
            if (other.count == 0) return;
            if (here.count != 0)
            {
                if (other.count < here.count) std::swap(here, other);
                held_[count_++] = other;
            }
            else
                here = other;
        }

        bool resume(batch& next)
        {
            if (count_ == 0) return false;
            next = held_[--count_];
            return true;
        }

    private:
        batch held_[32];
        unsigned count_ = 0;
    };

    static batch everything(unsigned count)
    {
        batch all{0, count, none_index, false, 0, {}};
        std::fill_n(all.floor, D, -std::numeric_limits<double>::infinity());
        return all;
    }

    element element_of(unsigned node) const
    {
        element e;
        const double* x = base_ + step_ * node;
        for (unsigned k = 0; k < D; ++k) e.x[k] = x[k];
        e.node = node;
        return e;
    }

    /// Asks memory for the coordinates of some nodes that are built in soon.
    void ask_for_upcoming(unsigned count)
    {
        for (; count != 0 && upcoming_ != end_of_upcoming_; --count) prefetch(base_ + step_ * *upcoming_++);
    }

    void set_record(unsigned r, unsigned node);
    unsigned add_record(unsigned node, unsigned parent, bool is_left);
    unsigned take_run(unsigned count);
    unsigned split(const batch& set, unsigned axis, double t);
    void divide(batch& here, batch_stack& waiting, unsigned parent, unsigned axis, double t);
    bool gather_clusters();
    void build(batch here);
    void build_run(const batch& set);
    void route(bool& refused_last, unsigned last_node);
    bool build_in_buckets(const node_list& natural, const dense1D<unsigned>& order, bool& done);

    tree& tree_;
    const double* base_;
    std::size_t step_;
    bool is_first_; ///< the tree was empty, so each element becomes a record
    unsigned next_record_;
    unsigned runs_begin_ = 0; ///< of a first list: its runs fill the records from the end, so that all others stand close together
    unsigned deepest_ = 0;
    const unsigned* upcoming_ = nullptr; ///< nodes to ask for
    const unsigned* end_of_upcoming_ = nullptr;
    dense1D<element> elements_;
    dense1D<element> lefts_; ///< scratch of `split`
    bit_vector met_;         ///< scratch of `route`
};

template <unsigned D>
void tree_growth<D>::set_record(unsigned r, unsigned node)
{
    tree_.nodes_[r] = node;
    tree_.children_[r] = {tree::no_child, tree::no_child};
}

template <unsigned D>
unsigned tree_growth<D>::add_record(unsigned node, unsigned parent, bool is_left)
{
    const unsigned r = next_record_++;
    set_record(r, node);
    tree_.way_to_child(parent, is_left) = {r};
    return r;
}

/// Consecutive records. The result is the first of them.
template <unsigned D>
unsigned tree_growth<D>::take_run(unsigned count)
{
    if (is_first_) return runs_begin_ -= count;
    next_record_ += count;
    return next_record_ - count;
}

/// Brings the elements below `t` behind the others, each part in its order. The result is the number of the others.
template <unsigned D>
unsigned tree_growth<D>::split(const batch& set, unsigned axis, double t)
{
    element* const all = elements_.data() + set.begin;
    element* const lefts = lefts_.data();
    unsigned nbr_rights = 0;
    unsigned nbr_lefts = 0;
    for (unsigned i = 0; i < set.count; ++i)
    {
        // Both stores without a branch: which way an element goes is not predictable.
        const element e = all[i];
        const bool is_left = e.x[axis] < t;
        lefts[nbr_lefts] = e;
        all[nbr_rights] = e;
        nbr_lefts += is_left;
        nbr_rights += !is_left;
    }
    std::copy_n(lefts, nbr_lefts, all + nbr_rights);
    return nbr_rights;
}

/// Sends a set on to the children of `parent`, whose coordinate is `t`: one child's part stays in `here`, the other's waits.
template <unsigned D>
void tree_growth<D>::divide(batch& here, batch_stack& waiting, unsigned parent, unsigned axis, double t)
{
    here.parent = parent;
    here.is_left = false;
    ++here.level;
    if (!(here.floor[axis] < t)) return;

    const unsigned nbr_rights = split(here, axis, t);
    batch lefts = here;
    lefts.begin += nbr_rights;
    lefts.count -= nbr_rights;
    lefts.is_left = true;
    here.count = nbr_rights;
    here.floor[axis] = t;
    waiting.put_off_larger(here, lefts);
}

/// Builds the subtree of a set that arrived at an empty place, and all below.
template <unsigned D>
void tree_growth<D>::build(batch here)
{
    batch_stack waiting;
    do {
        while (here.count > tree::largest_run)
        {
            const element& first = elements_[here.begin];
            const unsigned axis = here.level % D;
            const double t = first.x[axis];
            const unsigned r = add_record(first.node, here.parent, here.is_left);
            ++here.begin;
            --here.count;
            ask_for_upcoming(1);
            divide(here, waiting, r, axis, t);
        }
        if (here.count != 0) build_run(here);
    } while (waiting.resume(here));
}

/// Builds a small subtree in one piece by plain insertion.
template <unsigned D>
void tree_growth<D>::build_run(const batch& set)
{
    const element* const e = elements_.data() + set.begin;
    const unsigned root = take_run(set.count);
    ask_for_upcoming(set.count);
    for (unsigned i = 0; i < set.count; ++i) set_record(root + i, e[i].node);
    link& way_to_root = tree_.way_to_child(set.parent, set.is_left);
    way_to_root = {root};

    typename tree::children* const run = tree_.children_.data() + root;
    unsigned height = 1;
    for (unsigned i = 1; i < set.count; ++i)
    {
        unsigned at = 0;
        unsigned axis = set.level % D;
        unsigned level = 1;
        for (;;)
        {
            link& way = run[at][e[i].x[axis] < e[at].x[axis]];
            axis = tree::next_axis(axis);
            ++level;
            if (!way.exists())
            {
                way = {root + i};
                break;
            }
            at = way.record() - root;
        }
        height = std::max(height, level);
    }
    deepest_ = std::max(deepest_, set.level + height);

    // A run of one or two saves nothing.
    if (set.count < 3) return;
    way_to_root.mark_run();
    tree_.nodes_[root + set.count - 1] |= tree::last_mark;
}

/// Sends all elements through the records of a tree that has some, and builds below its empty places. Elements that meet their own record
/// go.
template <unsigned D>
void tree_growth<D>::route(bool& refused_last, unsigned last_node)
{
    batch here = everything(elements_.size);
    batch_stack waiting;
    unsigned at = 0;
    // Something may be linked below what the set passes, which is no run then.
    tree_.root_.unmark_run();
    for (;;)
    {
        // The stretch of records that send the whole set right, up to one that divides it or has no right child.
        const unsigned stretch = at;
        unsigned axis = here.level % D;
        double t = 0;
        for (;;)
        {
            met_.set(tree_.node_at(at));
            axis = here.level % D;
            t = base_[step_ * tree_.node_at(at) + axis];
            link& right = tree_.children_[at][tree::right_way];
            if (here.floor[axis] < t || !right.exists()) break;
            right.unmark_run();
            at = right.record();
            ++here.level;
        }

        // All of the set came past all of the stretch.
        element* const all = elements_.data() + here.begin;
        unsigned kept = 0;
        for (unsigned i = 0; i < here.count; ++i)
        {
            if (met_[all[i].node])
                refused_last |= all[i].node == last_node;
            else
                all[kept++] = all[i];
        }
        here.count = kept;
        for (unsigned r = stretch; r != at; r = tree_.children_[r][tree::right_way].record()) met_.clear(tree_.node_at(r));
        met_.clear(tree_.node_at(at));

        divide(here, waiting, at, axis, t);
        bool arrives = false;
        do {
            if (here.count == 0) continue;
            link& way = tree_.way_to_child(here.parent, here.is_left);
            arrives = way.exists();
            if (arrives)
            {
                way.unmark_run();
                at = way.record();
            }
            else
                build(here);
        } while (!arrives && waiting.resume(here));
        if (!arrives) return;
    }
}

/// Builds a large tree: the first nodes make a small tree that stays in the cache, all others are sent through it, and what arrives at each
/// of its empty places is built by itself. `done` comes out false when the first nodes make no good tree.
template <unsigned D>
bool tree_growth<D>::build_in_buckets(const node_list& natural, const dense1D<unsigned>& order, bool& done)
{
    constexpr unsigned nodes_per_bucket = 512;
    constexpr unsigned most_buckets = 4096;
    static_assert(most_buckets <= std::numeric_limits<typename guide_tree<D>::place_number>::max());

    done = false;
    const unsigned count = natural.size;
    const unsigned top = std::min(count / nodes_per_bucket, most_buckets);
    if (top < 16) return true;

    guide_tree<D> guides(base_, step_);
    if (!guides.reserve(top)) return false;
    if (!guides.plant(natural, order, top)) return true;
    deepest_ = std::max(deepest_, guides.height());

    for (; next_record_ < top; ++next_record_) set_record(next_record_, natural[order[next_record_]]);
    tree_.root_ = {0};
    guides.number_places([&](unsigned parent, bool is_left, unsigned r) { tree_.way_to_child(parent, is_left) = {r}; });

    // What arrives at each place, in the order of insertion. The top is counted, too, where it would have arrived, and taken off again.
    dense1D<typename guide_tree<D>::place_number> places;
    dense1D<unsigned> starts;
    dense1D<unsigned> gathered;
    const unsigned nbr_places = top + 1;
    if (!places.resize(count) || !starts.resize(nbr_places + 1, 0) || !gathered.resize(count - top)) return false;
    guides.send(natural, places);
    for (const unsigned place : places) ++starts[place + 1];
    for (unsigned i = 0; i < top; ++i) --starts[places[order[i]] + 1u];
    const unsigned largest = *std::max_element(starts.begin(), starts.end());
    for (unsigned p = 0; p < nbr_places; ++p) starts[p + 1] += starts[p];
    for (unsigned i = top; i < count; ++i) gathered[starts[places[order[i]]]++] = order[i];
    // A second look-up at random, which the columns in their order do without.
    if (!natural.are_columns())
        for (unsigned& entry : gathered) entry = natural[entry];

    if (!elements_.resize(largest) || !lefts_.resize(largest)) return false;
    upcoming_ = gathered.begin();
    end_of_upcoming_ = gathered.end();
    ask_for_upcoming(std::min(2 * nodes_per_bucket, gathered.size));
    unsigned begin = 0;
    for (unsigned p = 0; p < nbr_places; ++p)
    {
        batch arrived = everything(starts[p] - begin);
        for (unsigned i = 0; i < arrived.count; ++i) elements_[i] = element_of(gathered[begin + i]);
        begin = starts[p];
        arrived.parent = guides.place(p).parent;
        arrived.is_left = guides.place(p).is_left;
        arrived.level = guides.place(p).level;
        if (arrived.count != 0) build(arrived);
    }
    done = true;
    return true;
}

template <unsigned D>
bool tree_growth<D>::insert(const node_list& natural, const dense1D<unsigned>& order, bool& refused_last)
{
    refused_last = false;
    if (!tree_.reserve(natural.size)) return false;

    bool done = false;
    runs_begin_ = natural.size;
    if (is_first_ && !build_in_buckets(natural, order, done)) return false;
    if (!done)
    {
        if (!elements_.resize(natural.size) || !lefts_.resize(natural.size)) return false;
        for (unsigned i = 0; i < natural.size; ++i) elements_[i] = element_of(natural[order[i]]);
        if (is_first_)
            build(everything(natural.size));
        else
        {
            if (!met_.reset(std::max(tree_.coords_->cols, tree_.largest_node_ + 1))) return false;
            route(refused_last, natural[order[natural.size - 1]]);
        }
    }
    if (is_first_ && !gather_clusters()) return false;

    // A first list fills the records from both ends.
    const unsigned size = is_first_ ? natural.size : next_record_;
    tree_.nodes_.size = tree_.children_.size = size;
    return true;
}

/// Brings the records above the runs of a first list into clusters. False when memory runs out.
template <unsigned D>
bool tree_growth<D>::gather_clusters()
{
    constexpr unsigned largest_cluster = 12;

    const unsigned count = next_record_;
    dense1D<unsigned> former;  // records in their new order
    dense1D<unsigned> places;  // of the former records
    dense1D<unsigned> waiting; // roots of clusters to come
    dense1D<unsigned> nodes;
    dense1D<typename tree::children> all_children;
    if (count == 0) return true;
    if (!former.reserve(count, 1) || !places.resize(count) || !waiting.reserve(count, 1)) return false;
    if (!nodes.resize(count) || !all_children.resize(count)) return false;

    waiting.push_back(0);
    while (!waiting.empty())
    {
        const unsigned begin = former.size;
        former.push_back(waiting[--waiting.size]);
        for (unsigned i = begin; i < former.size; ++i)
        {
            places[former[i]] = i;
            nodes[i] = tree_.nodes_[former[i]];
            for (const link& child : tree_.children_[former[i]])
            {
                if (!child.exists() || child.record() >= count) continue;
                dense1D<unsigned>& list = former.size - begin < largest_cluster ? former : waiting;
                list.push_back(child.record());
            }
        }
        nodes[former.size - 1] |= tree::last_mark;
    }

    for (unsigned i = 0; i < count; ++i)
    {
        all_children[i] = tree_.children_[former[i]];
        for (link& child : all_children[i])
        {
            if (!child.exists() || child.record() >= count) continue;
            const unsigned place = places[child.record()];
            child.move_to(place);
            if ((nodes[place - 1] & tree::last_mark) != 0) child.mark_group();
        }
    }
    tree_.root_.mark_group();
    std::copy_n(nodes.data(), count, tree_.nodes_.data());
    std::copy_n(all_children.data(), count, tree_.children_.data());
    return true;
}

template <unsigned D>
bool node_tree<D>::copy(const node_tree& other)
{
    dense1D<unsigned> nodes;
    dense1D<children> copied;
    if (!nodes.copy(other.nodes_) || !copied.copy(other.children_)) return false;
    if (!parents_.copy(other.parents_)) return false;
    nodes_ = std::move(nodes);
    children_ = std::move(copied);
    coords_ = other.coords_;
    root_ = other.root_;
    deepest_ = other.deepest_;
    largest_node_ = other.largest_node_;
    spare_ = other.spare_;
    return true;
}

/// Makes room for `count` more records.
template <unsigned D>
bool node_tree<D>::reserve(unsigned count)
{
    const std::uint64_t wanted = std::uint64_t{nodes_.size} + count;
    if (wanted > most_records) return false;
    const auto size = static_cast<unsigned>(wanted);
    // Exact for a first list, doubling for later ones.
    const unsigned factor = nodes_.empty() ? 1 : 2;
    return nodes_.reserve(size, factor) && children_.reserve(size, factor);
}

/// Takes a record that room was made for. Its place in the tree is the caller's to link.
template <unsigned D>
unsigned node_tree<D>::append(unsigned node)
{
    const unsigned r = nodes_.size++;
    ++children_.size;
    nodes_[r] = node;
    children_[r] = {no_child, no_child};
    return r;
}

/// The link to a child of `parent`; to the root when there is no parent.
template <unsigned D>
typename node_tree<D>::link& node_tree<D>::way_to_child(unsigned parent, bool is_left)
{
    if (parent == none_index) return root_;
    return children_[parent][is_left];
}

/// Makes sure that a tree of `deepest` levels can be traversed.
template <unsigned D>
bool node_tree<D>::note_parents(unsigned deepest)
{
    if (deepest <= stack_depth) return true;
    if (!parents_.reserve(nodes_.size, 2) || !parents_.resize(nodes_.size)) return false;
    for (unsigned r = 0; r < nodes_.size; ++r)
        for (const link& child : children_[r])
            if (child.exists()) parents_[child.record()] = r;
    return true;
}

/// Forgets the records from `former_size` on.
template <unsigned D>
void node_tree<D>::unlink_from(unsigned former_size)
{
    const auto forget = [&](link& way) {
        if (way.exists() && way.record() >= former_size) way = no_child;
    };
    nodes_.size = children_.size = former_size;
    parents_.size = std::min(parents_.size, former_size);
    forget(root_);
    for (children& ways : children_)
    {
        forget(ways[0]);
        forget(ways[1]);
    }
}

template <unsigned D>
bool node_tree<D>::insert_one(unsigned id, unsigned& added)
{
    if (id >= coords_->cols) return true;

    const double* const x = coords_->column(id);
    link* way = &root_;
    link* way_to_run = nullptr;
    unsigned parent = none_index;
    unsigned axis = 0;
    unsigned level = 1;
    while (way->exists())
    {
        const unsigned node = node_at(way->record());
        if (node == id)
        {
            spare_ = true;
            return true;
        }
        if (way->is_run()) way_to_run = way;
        parent = way->record();
        way = &way_to_child(parent, x[axis] < coords_->column(node)[axis]);
        axis = next_axis(axis);
        ++level;
    }

    // Making room moves the links.
    const bool is_left = parent != none_index && way == &children_[parent][left_way];
    if (way_to_run) way_to_run->unmark_run();
    if (!reserve(1)) return false;
    const unsigned r = append(id);
    way_to_child(parent, is_left) = {r};
    if (parents_.size != 0)
    {
        parents_.push_back(parent);
        if (parents_.size != nodes_.size) return false;
    }
    else if (!note_parents(level))
        return false;

    deepest_ = std::max(deepest_, level);
    largest_node_ = std::max(largest_node_, id);
    spare_ = false;
    ++added;
    return true;
}

template <unsigned D>
bool node_tree<D>::insert(const node_list& nodes, unsigned& added)
{
    // Below that the preparations for a set cost more than walks from the root.
    constexpr unsigned few = 32;

    added = 0;
    if (coords_->rows < D) return true;
    if (coords_->cols > last_mark) return false;
    if (!nodes_.empty() && !is_readable()) return true;

    const unsigned former_size = nodes_.size;
    const bool former_spare = spare_;
    const bool done = nodes.size <= few ? insert_each(nodes, added) : insert_all(nodes, added);
    if (!done)
    {
        unlink_from(former_size);
        spare_ = former_spare;
        added = 0;
    }
    return done;
}

template <unsigned D>
bool node_tree<D>::insert_each(const node_list& nodes, unsigned& added)
{
    dense1D<unsigned> shuffled;
    if (!shuffled.resize(nodes.size)) return false;
    for (unsigned i = 0; i < nodes.size; ++i) shuffled[i] = nodes[i];
    shuffle(shuffled);
    return std::all_of(shuffled.begin(), shuffled.end(), [&](unsigned id) { return insert_one(id, added); });
}

template <unsigned D>
bool node_tree<D>::insert_all(const node_list& nodes, unsigned& added)
{
    dense1D<unsigned> order;
    if (!order.resize(nodes.size)) return false;
    std::iota(order.begin(), order.end(), 0u);
    shuffle(order);
    if (are_distinct(nodes, coords_->cols)) return insert_distinct(nodes, order, false, added);

    // The list in the order of insertion, without what is skipped and what comes again.
    dense1D<unsigned> valid;
    dense1D<unsigned> distinct;
    if (!valid.reserve(nodes.size, 1) || !distinct.reserve(nodes.size, 1)) return false;
    for (const unsigned place : order)
        if (nodes[place] < coords_->cols) valid.push_back(nodes[place]);
    if (!visit_distinct(list_entries{valid}, dense1D<unsigned>(), [&](unsigned id) { distinct.push_back(id); })) return false;
    if (valid.empty()) return true;

    const unsigned* const last = valid.end() - 1;
    const bool repeats_last = std::find(static_cast<const unsigned*>(valid.begin()), last, *last) != last;
    order.size = distinct.size;
    std::iota(order.begin(), order.end(), 0u);
    return insert_distinct(distinct, order, repeats_last, added);
}

/// Inserts valid nodes of which no two are equal. `repeats_last` tells that a node of the list came again after all of them.
template <unsigned D>
bool node_tree<D>::insert_distinct(const node_list& nodes, const dense1D<unsigned>& order, bool repeats_last, unsigned& added)
{
    const unsigned former_size = nodes_.size;
    tree_growth<D> growth(*this);
    bool refused_last = false;
    if (!growth.insert(nodes, order, refused_last)) return false;
    const unsigned deepest = std::max(deepest_, growth.deepest());
    if (!note_parents(deepest)) return false;

    deepest_ = deepest;
    largest_node_ = std::max(largest_node_, nodes.largest());
    spare_ = repeats_last || refused_last;
    added = nodes_.size - former_size;
    return true;
}

// ---- The closest node -----------------------------------------------------------------------------------------------------------------

namespace
{

template <unsigned D>
double squared_distance(const double* x, const vector_fixed<double, D>& p)
{
    double sum = (x[0] - p[0]) * (x[0] - p[0]);
    for (unsigned k = 1; k < D; ++k) sum += (x[k] - p[k]) * (x[k] - p[k]);
    return sum;
}

} // namespace

/// One query. The way that an insertion of the point would take gives a bound; the search proper then goes through the whole tree: a
/// record, its right subtree, its left subtree, each subtree only where its half space comes within the best distance.
///
/// Only a strictly closer node replaces the best, so the records on the way, having been seen, change nothing when the search meets them
/// again. What it finds is in the subtrees beside the way: first those on the right of it, from the root down, then those on the left, from
/// the end of the way up.
template <unsigned D>
class node_tree<D>::closest_search
{
public:
    closest_search(const node_tree& tree, const point& p, unsigned excluded) : tree_(tree), reader_(tree.open()), p_(p), excluded_(excluded)
    {
    }

    unsigned run()
    {
        if (tree_.deepest_ > stack_depth)
        {
            descend<false>();
            if (best_squared_ != 0.0) search_by_climbing();
            return best_;
        }
        descend<true>();
        if (best_squared_ != 0.0) search_beside_the_way();
        return best_;
    }

private:
    /// A subtree and how far its half space is from the point, along the axis of its parent; negative or NaN for one that is entered
    /// anyway.
    struct subtree
    {
        link to;
        unsigned axis;
        double gap;
    };

    bool take_if_closer(unsigned node, const double* x)
    {
        const double squared = squared_distance<D>(x, p_);
        if (!(squared < best_squared_) || node == excluded_) return false;
        best_ = node;
        best_squared_ = squared;
        return true;
    }

    /// Goes the way of an insertion. With `Notes` it keeps the subtrees beside the way, and where the search ends: before a run, which is
    /// searched as a whole, and behind a record with a NaN coordinate, which hides its right subtree from the search and with it the rest
    /// of the way.
    template <bool Notes>
    void descend()
    {
        bool notes = Notes;
        unsigned axis = 0;
        link to = tree_.root_;
        do {
            if (notes && to.is_run())
            {
                end_ = {to, axis, 0.0};
                notes = false;
            }
            reader_.ask_for_group(to);
            const children& ways = reader_.ways_from(to);
            reader_.ask_for(ways);
            const unsigned node = reader_.node_at(to.record());
            const double* x = reader_.coordinates_of(node);
            if (take_if_closer(node, x) && best_squared_ == 0.0) return;

            const double e = x[axis] - p_[axis];
            const bool goes_left = p_[axis] < x[axis];
            axis = next_axis(axis);
            if (notes)
            {
                const link other = ways[1 - goes_left];
                rights_[nbr_rights_] = {other, axis, e};
                lefts_[nbr_lefts_] = {other, axis, -e};
                nbr_rights_ += unsigned{goes_left} & unsigned{other.exists()};
                nbr_lefts_ += unsigned{!goes_left} & unsigned{other.exists()};
                notes = !std::isnan(e);
            }
            to = ways[goes_left];
        } while (to.exists());
        if (best_ != none_index) best_distance_ = std::sqrt(best_squared_);
    }

    void search_beside_the_way()
    {
        // All that is out of reach now stays so. No branch: which ones are is not predictable. The last on the stack comes first.
        unsigned waiting = 0;
        for (unsigned i = 0; i < nbr_lefts_; ++i)
        {
            stack_[waiting] = lefts_[i];
            waiting += !(lefts_[i].gap > best_distance_);
        }
        if (end_.to.exists()) stack_[waiting++] = end_;
        for (unsigned i = nbr_rights_; i-- > 0;)
        {
            stack_[waiting] = rights_[i];
            waiting += rights_[i].gap <= best_distance_;
        }
        for (unsigned i = waiting; i-- > 0;) reader_.ask_for_group(stack_[i].to);
        search(waiting);
    }

    /// True when a member of a run is closer than the best, whatever the planes between them say.
    bool has_closer(unsigned run) const
    {
        unsigned nbr_closer = 0;
        for (const unsigned* member = reader_.nodes + run;; ++member)
        {
            const unsigned node = without_mark(*member);
            nbr_closer += unsigned{squared_distance<D>(reader_.coordinates_of(node), p_) < best_squared_} & unsigned{node != excluded_};
            if (*member != node) return nbr_closer != 0;
        }
    }

    /// Searches the subtrees on the stack.
    void search(unsigned waiting)
    {
        while (waiting != 0)
        {
            subtree here = stack_[--waiting];
            if (here.gap > best_distance_) continue;
            if (here.to.is_run())
            {
                // A run without a closer member changes nothing, so there is no need to walk it. One that has some is walked: the planes
                // decide which of its members are met.
                if (!has_closer(here.to.record())) continue;
            }

            const unsigned node = reader_.node_at(here.to.record());
            const double* x = reader_.coordinates_of(node);
            if (take_if_closer(node, x))
            {
                best_distance_ = std::sqrt(best_squared_);
                if (best_squared_ == 0.0) return;
            }
            const double e = x[here.axis] - p_[here.axis];
            const unsigned axis = next_axis(here.axis);
            const children& ways = reader_.ways_from(here.to);
            if (ways[left_way].exists() && !(-e > best_distance_))
            {
                stack_[waiting++] = {ways[left_way], axis, -e};
                reader_.ask_for_group(ways[left_way]);
            }
            if (ways[right_way].exists() && e <= best_distance_)
            {
                stack_[waiting++] = {ways[right_way], axis, e};
                reader_.ask_for_group(ways[right_way]);
            }
        }
    }

    /// The same from the root, for trees of any depth.
    void search_by_climbing()
    {
        climber later(tree_, right_way);
        position here{tree_.root_, 0, 0.0};
        for (;;)
        {
            const children& ways = reader_.ways_from(here.to);
            const unsigned node = reader_.node_at(here.to.record());
            const double* x = reader_.coordinates_of(node);
            if (take_if_closer(node, x))
            {
                best_distance_ = std::sqrt(best_squared_);
                if (best_squared_ == 0.0) return;
            }
            const double e = x[here.axis] - p_[here.axis];
            const bool goes_right = ways[right_way].exists() && e <= best_distance_;
            if (goes_right || (ways[left_way].exists() && !(-e > best_distance_)))
            {
                here.to = ways[goes_right ? right_way : left_way];
                here.axis = next_axis(here.axis);
                continue;
            }
            do
                if (!later.resume(here)) return;
            while (p_[previous_axis(here.axis)] - here.parent_coordinate > best_distance_);
        }
    }

    const node_tree& tree_;
    const reader reader_;
    const point p_;
    const unsigned excluded_;

    unsigned best_ = none_index;
    double best_squared_ = std::numeric_limits<double>::max();
    double best_distance_ = std::numeric_limits<double>::max();

    unsigned nbr_rights_ = 0;
    unsigned nbr_lefts_ = 0;
    subtree end_{no_child, 0, 0.0}; ///< the run that the way ends in
    // One more than the depth: writing comes before it is known whether the entry counts.
    subtree rights_[stack_depth + 1]; ///< beside the way, on its right
    subtree lefts_[stack_depth + 1];
    subtree stack_[2 * stack_depth + 2];
};

template <unsigned D>
unsigned node_tree<D>::closest(const point& p, unsigned excluded) const
{
    return is_readable() ? closest_search(*this, p, excluded).run() : none_index;
}

template class node_tree<2>;
template class node_tree<3>;

} // namespace tq4::gridweave
