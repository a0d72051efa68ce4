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
bool are_distinct(const dense1D<unsigned>& ids, unsigned upper)
{
    // More marks than that cost more than what the answer saves.
    if (upper / 64 > ids.size) return false;
    bit_vector seen;
    if (!seen.reset(upper)) return false;
    return std::all_of(ids.begin(), ids.end(), [&](unsigned id) { return id < upper && !seen.test_and_set(id); });
}

} // namespace

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
        : tree_(grown), base_(grown.coords_->data()), step_(grown.coords_->ld), former_size_(grown.nodes_.size)
    {
    }

    /// `natural` holds distinct valid nodes; `order` their positions in the order of insertion. False when memory runs out; the records
    /// are then to be unlinked again. `refused_last` tells whether the last node was in the tree already.
    bool insert(const dense1D<unsigned>& natural, const dense1D<unsigned>& order, bool& refused_last);

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

    unsigned add_record(unsigned node, unsigned parent, bool is_left);
    unsigned split(const batch& set, unsigned axis, double t);
    void divide(batch& here, batch_stack& waiting, unsigned parent, unsigned axis, double t);
    void build(batch here);
    void build_run(const batch& set);
    void route(bool& refused_last, unsigned last_node);
    bool build_in_buckets(const dense1D<unsigned>& natural, const dense1D<unsigned>& order, bool& done);

    tree& tree_;
    const double* base_;
    std::size_t step_;
    unsigned former_size_;
    unsigned deepest_ = 0;
    dense1D<element> elements_;
    dense1D<element> lefts_; ///< scratch of `split`
    bit_vector met_;         ///< scratch of `route`
};

template <unsigned D>
unsigned tree_growth<D>::add_record(unsigned node, unsigned parent, bool is_left)
{
    const unsigned r = tree_.append(node);
    tree_.way_to_child(parent, is_left) = {r, node};
    return r;
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
    const unsigned root = add_record(e[0].node, set.parent, set.is_left);
    for (unsigned i = 1; i < set.count; ++i) tree_.append(e[i].node);

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
                way = {root + i, e[i].node};
                break;
            }
            at = way.at - root;
        }
        height = std::max(height, level);
    }
    deepest_ = std::max(deepest_, set.level + height);

    // A run of one or two saves nothing.
    if (set.count < 3) return;
    tree_.run_length_[root] = static_cast<char>(set.count);
    tree_.way_to_child(set.parent, set.is_left).at |= tree::run_mark;
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
    tree_.root_.at &= ~tree::run_mark;
    for (;;)
    {
        // The stretch of records that send the whole set right, up to one that divides it or has no right child.
        const unsigned stretch = at;
        unsigned axis = here.level % D;
        double t = 0;
        for (;;)
        {
            met_.set(tree_.nodes_[at]);
            axis = here.level % D;
            t = base_[step_ * tree_.nodes_[at] + axis];
            link& right = tree_.children_[at][tree::right_way];
            if (here.floor[axis] < t || !right.exists()) break;
            right.at &= ~tree::run_mark;
            at = right.at;
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
        for (unsigned r = stretch; r != at; r = tree_.children_[r][tree::right_way].at) met_.clear(tree_.nodes_[r]);
        met_.clear(tree_.nodes_[at]);

        divide(here, waiting, at, axis, t);
        bool arrives = false;
        do {
            if (here.count == 0) continue;
            link& way = tree_.way_to_child(here.parent, here.is_left);
            arrives = way.exists();
            if (arrives)
            {
                way.at &= ~tree::run_mark;
                at = way.at;
            }
            else
                build(here);
        } while (!arrives && waiting.resume(here));
        if (!arrives) return;
    }
}

/// Builds a large tree: the first nodes make a small tree that stays in the cache, all others are sent through it at once, and what arrives
/// at each of its empty places is built by itself. `done` comes out false when the first nodes make no good tree (a long chain).
template <unsigned D>
bool tree_growth<D>::build_in_buckets(const dense1D<unsigned>& natural, const dense1D<unsigned>& order, bool& done)
{
    constexpr unsigned nodes_per_bucket = 512;
    constexpr unsigned most_buckets = 4096;
    constexpr unsigned too_deep = 64;
    constexpr unsigned lanes = 8; // walks that run side by side to hide each other's latency

    struct guide
    {
        double t;
        unsigned next[2]; ///< right (or equal or not comparable), left
    };
    struct empty_place
    {
        unsigned parent;
        unsigned level;
        bool is_left;
    };

    done = false;
    const unsigned count = natural.size;
    const unsigned top = std::min(count / nodes_per_bucket, most_buckets);
    if (top < 16) return true;

    dense1D<guide> guides;
    dense1D<empty_place> places;
    if (!guides.resize(2 * top + 1) || !places.resize(top + 1)) return false;

    // The top by plain insertion. An empty place is a guide that leads to itself; place p is guide top + p.
    guides[0] = {base_[step_ * natural[order[0]]], {top, top}};
    unsigned height = 1;
    for (unsigned i = 1; i < top; ++i)
    {
        const double* x = base_ + step_ * natural[order[i]];
        unsigned axis = 0;
        unsigned level = 1;
        unsigned at = 0;
        for (;;)
        {
            unsigned& child = guides[at].next[x[axis] < guides[at].t];
            axis = tree::next_axis(axis);
            ++level;
            if (child == top)
            {
                child = i;
                break;
            }
            at = child;
        }
        if (level > too_deep) return true;
        height = std::max(height, level);
        guides[i] = {x[axis], {top, top}};
    }

    // Number the empty places in the order of a search and link the top records.
    for (unsigned i = 0; i < top; ++i) tree_.append(natural[order[i]]);
    tree_.root_ = {0, tree_.nodes_[0]};
    unsigned nbr_places = 0;
    struct visit
    {
        unsigned at;
        unsigned level;
    };
    visit waiting[too_deep + 1];
    unsigned nbr_waiting = 0;
    waiting[nbr_waiting++] = {0, 1};
    while (nbr_waiting != 0)
    {
        const visit v = waiting[--nbr_waiting];
        for (const bool is_left : {false, true})
        {
            unsigned& next = guides[v.at].next[is_left];
            if (next == top)
            {
                places[nbr_places] = {v.at, v.level, is_left};
                next = top + nbr_places++;
                guides[next] = {0.0, {next, next}};
            }
            else
            {
                tree_.way_to_child(v.at, is_left) = {next, tree_.nodes_[next]};
                waiting[nbr_waiting++] = {next, v.level + 1};
            }
        }
    }
    deepest_ = std::max(deepest_, height);

    // Send all nodes down, in the order of the list, which is mostly the order of memory.
    dense1D<unsigned> arrival;
    if (!arrival.resize(count)) return false;
    const guide* const table = guides.data();
    unsigned first = 0;
    for (; first + lanes <= count; first += lanes)
    {
        const double* x[lanes];
        unsigned at[lanes] = {};
        for (unsigned l = 0; l < lanes; ++l) x[l] = base_ + step_ * natural[first + l];
        unsigned lowest = 0;
        for (unsigned axis = 0; lowest < top; axis = tree::next_axis(axis))
        {
            lowest = none_index;
            for (unsigned l = 0; l < lanes; ++l)
            {
                at[l] = table[at[l]].next[x[l][axis] < table[at[l]].t];
                lowest = std::min(lowest, at[l]);
            }
        }
        for (unsigned l = 0; l < lanes; ++l) arrival[first + l] = at[l] - top;
    }
    for (; first < count; ++first)
    {
        const double* x = base_ + step_ * natural[first];
        unsigned at = 0;
        for (unsigned axis = 0; at < top; axis = tree::next_axis(axis)) at = table[at].next[x[axis] < table[at].t];
        arrival[first] = at - top;
    }

    // Gather what arrived at each place, in insertion order.
    dense1D<unsigned> starts;
    dense1D<unsigned> gathered;
    if (!starts.resize(nbr_places + 1, 0) || !gathered.resize(count - top)) return false;
    for (unsigned i = top; i < count; ++i) ++starts[arrival[order[i]] + 1];
    unsigned largest = 0;
    for (unsigned p = 0; p < nbr_places; ++p)
    {
        largest = std::max(largest, starts[p + 1]);
        starts[p + 1] += starts[p];
    }
    for (unsigned i = top; i < count; ++i)
    {
        const unsigned position = order[i];
        gathered[starts[arrival[position]]++] = natural[position];
    }

    if (!elements_.resize(largest) || !lefts_.resize(largest)) return false;
    unsigned begin = 0;
    for (unsigned p = 0; p < nbr_places; ++p)
    {
        batch arrived = everything(starts[p] - begin);
        for (unsigned i = 0; i < arrived.count; ++i) elements_[i] = element_of(gathered[begin + i]);
        begin = starts[p];
        arrived.parent = places[p].parent;
        arrived.is_left = places[p].is_left;
        arrived.level = places[p].level;
        if (arrived.count != 0) build(arrived);
    }
    done = true;
    return true;
}

template <unsigned D>
bool tree_growth<D>::insert(const dense1D<unsigned>& natural, const dense1D<unsigned>& order, bool& refused_last)
{
    refused_last = false;
    if (!tree_.reserve(natural.size)) return false;

    if (former_size_ == 0)
    {
        bool done = false;
        if (!build_in_buckets(natural, order, done)) return false;
        if (done) return true;
    }

    if (!elements_.resize(natural.size) || !lefts_.resize(natural.size)) return false;
    for (unsigned i = 0; i < natural.size; ++i) elements_[i] = element_of(natural[order[i]]);
    if (former_size_ == 0)
        build(everything(natural.size));
    else
    {
        if (!met_.reset(std::max(tree_.coords_->cols, tree_.largest_node_ + 1))) return false;
        route(refused_last, natural[order[natural.size - 1]]);
    }
    return true;
}

template <unsigned D>
bool node_tree<D>::copy(const node_tree& other)
{
    dense1D<unsigned> nodes;
    dense1D<children> copied;
    dense1D<char> run_length;
    if (!nodes.copy(other.nodes_) || !copied.copy(other.children_) || !run_length.copy(other.run_length_)) return false;
    if (!parents_.copy(other.parents_)) return false;
    nodes_ = std::move(nodes);
    children_ = std::move(copied);
    run_length_ = std::move(run_length);
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
    return nodes_.reserve(size, factor) && children_.reserve(size, factor) && run_length_.reserve(size, factor);
}

/// Takes a record that room was made for. Its place in the tree is the caller's to link.
template <unsigned D>
unsigned node_tree<D>::append(unsigned node)
{
    const unsigned r = nodes_.size++;
    ++children_.size;
    ++run_length_.size;
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
    nodes_.size = children_.size = run_length_.size = former_size;
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
        if (way->node == id)
        {
            spare_ = true;
            return true;
        }
        if (way->is_run()) way_to_run = way;
        parent = way->record();
        way = &way_to_child(parent, x[axis] < coords_->column(way->node)[axis]);
        axis = next_axis(axis);
        ++level;
    }

    // Making room moves the links.
    const bool is_left = parent != none_index && way == &children_[parent][left_way];
    if (way_to_run) way_to_run->at &= ~run_mark;
    if (!reserve(1)) return false;
    const unsigned r = append(id);
    way_to_child(parent, is_left) = {r, id};
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
bool node_tree<D>::insert(const dense1D<unsigned>& ids, unsigned& added)
{
    // Below that the preparations for a set cost more than walks from the root.
    constexpr unsigned few = 32;

    added = 0;
    if (coords_->rows < D) return true;
    if (!nodes_.empty() && !is_readable()) return true;

    const unsigned former_size = nodes_.size;
    const bool former_spare = spare_;
    const bool done = ids.size <= few ? insert_each(ids, added) : insert_all(ids, added);
    if (!done)
    {
        unlink_from(former_size);
        spare_ = former_spare;
        added = 0;
    }
    return done;
}

template <unsigned D>
bool node_tree<D>::insert_each(const dense1D<unsigned>& ids, unsigned& added)
{
    dense1D<unsigned> shuffled;
    if (!shuffled.copy(ids)) return false;
    shuffle(shuffled);
    return std::all_of(shuffled.begin(), shuffled.end(), [&](unsigned id) { return insert_one(id, added); });
}

template <unsigned D>
bool node_tree<D>::insert_all(const dense1D<unsigned>& ids, unsigned& added)
{
    dense1D<unsigned> order;
    if (!order.resize(ids.size)) return false;
    std::iota(order.begin(), order.end(), 0u);
    shuffle(order);
    if (are_distinct(ids, coords_->cols)) return insert_distinct(ids, order, false, added);

    // The list in the order of insertion, without what is skipped and what comes again.
    dense1D<unsigned> valid;
    dense1D<unsigned> distinct;
    if (!valid.reserve(ids.size, 1) || !distinct.reserve(ids.size, 1)) return false;
    for (const unsigned place : order)
        if (ids[place] < coords_->cols) valid.push_back(ids[place]);
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
bool node_tree<D>::insert_distinct(const dense1D<unsigned>& ids, const dense1D<unsigned>& order, bool repeats_last, unsigned& added)
{
    const unsigned former_size = nodes_.size;
    tree_growth<D> growth(*this);
    bool refused_last = false;
    if (!growth.insert(ids, order, refused_last)) return false;
    const unsigned deepest = std::max(deepest_, growth.deepest());
    if (!note_parents(deepest)) return false;

    deepest_ = deepest;
    largest_node_ = std::max(largest_node_, max_ID(ids));
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

template <unsigned D>
struct node_tree<D>::candidate
{
    unsigned node = none_index;
    double squared = std::numeric_limits<double>::max();
    double distance = std::numeric_limits<double>::max();
};

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
    closest_search(const node_tree& tree, const point& p, unsigned excluded)
        : tree_(tree),
          all_children_(tree.children_.data()),
          base_(tree.coords_->data()),
          step_(tree.coords_->ld),
          p_(p),
          excluded_(excluded)
    {
    }

    unsigned run()
    {
        if (tree_.deepest_ > stack_depth)
        {
            descend<false>();
            if (best_.squared != 0.0) search({tree_.root_, 0, 0.0}, climber(tree_, right_way));
            return best_.node;
        }
        descend<true>();
        if (best_.squared != 0.0) search_beside_the_way();
        return best_.node;
    }

private:
    /// A record on the way: the child that the way does not take, and the coordinate less that of the point.
    struct fork
    {
        link other;
        bool went_left;
        double e;
    };

    const double* coordinates_of(unsigned node) const { return base_ + step_ * node; }

    void ask_for(const link& to) const
    {
        if (!to.exists()) return;
        __builtin_prefetch(all_children_ + to.record());
        __builtin_prefetch(coordinates_of(to.node));
    }

    void take_if_closer(unsigned node, const double* x)
    {
        if (node == excluded_) return;
        const double squared = squared_distance<D>(x, p_);
        if (!(squared < best_.squared)) return;
        best_.node = node;
        best_.squared = squared;
    }

    /// Goes the way of an insertion. With `Notes` it keeps the forks and where the search ends: before a run, which is searched as a whole,
    /// and behind a record with a NaN coordinate, which hides its right subtree from the search and with it the rest of the way.
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
            const children& ways = all_children_[to.record()];
            ask_for(ways[0]);
            ask_for(ways[1]);
            const double* x = coordinates_of(to.node);
            take_if_closer(to.node, x);
            if (best_.squared == 0.0) return;

            const double e = x[axis] - p_[axis];
            const bool goes_left = p_[axis] < x[axis];
            if (notes)
            {
                forks_[nbr_forks_++] = {ways[1 - goes_left], goes_left, e};
                notes = !std::isnan(e);
            }
            to = ways[goes_left];
            axis = next_axis(axis);
        } while (to.exists());
        if (best_.node != none_index) best_.distance = std::sqrt(best_.squared);
    }

    /// Whether the half space of the child that the way does not take comes within the best distance.
    bool is_within_reach(const fork& f) const { return f.went_left ? f.e <= best_.distance : !(-f.e > best_.distance); }

    void search_beside_the_way()
    {
        // What is out of reach now stays so. Without a branch: most forks are, at no predictable place.
        unsigned char reached[stack_depth] = {};
        unsigned nbr_reached = 0;
        for (unsigned i = 0; i < nbr_forks_; ++i)
        {
            const fork& f = forks_[i];
            reached[nbr_reached] = static_cast<unsigned char>(i);
            nbr_reached += static_cast<unsigned>(is_within_reach(f)) & static_cast<unsigned>(f.other.exists());
        }

        for (unsigned k = 0; k < nbr_reached; ++k)
        {
            const fork& f = forks_[reached[k]];
            if (f.went_left && is_within_reach(f) && !search({f.other, (reached[k] + 1u) % D, 0.0}, pending_stack())) return;
        }
        if (end_.to.exists() && !search(end_, pending_stack())) return;
        for (unsigned k = nbr_reached; k-- > 0;)
        {
            const fork& f = forks_[reached[k]];
            if (!f.went_left && is_within_reach(f) && !search({f.other, (reached[k] + 1u) % D, 0.0}, pending_stack())) return;
        }
    }

    /// True when a member of a run is closer than the best, whatever the planes between them say.
    bool has_closer(unsigned run) const
    {
        const unsigned* const nodes = tree_.nodes_.data() + run;
        const unsigned length = static_cast<unsigned char>(tree_.run_length_[run]);
        unsigned nbr_closer = 0;
        for (unsigned i = 0; i < length; ++i) nbr_closer += squared_distance<D>(coordinates_of(nodes[i]), p_) < best_.squared;
        return nbr_closer != 0;
    }

    /// Searches a subtree. False when there is nothing left to improve.
    template <class Pending>
    bool search(position here, Pending&& later)
    {
        const auto go_on_later = [&] {
            do
                if (!later.resume(here)) return false;
            while (p_[previous_axis(here.axis)] - here.parent_coordinate > best_.distance);
            return true;
        };

        for (;;)
        {
            // A run without a closer member changes nothing, so there is no need to walk it. One that has some is walked: the planes
            // decide which of its members are met.
            if (here.to.is_run())
            {
                here.to.at = here.to.record();
                if (!has_closer(here.to.at))
                {
                    if (!go_on_later()) return true;
                    continue;
                }
            }

            const children& ways = all_children_[here.to.at];
            const double* x = coordinates_of(here.to.node);
            const double former = best_.squared;
            take_if_closer(here.to.node, x);
            if (best_.squared < former)
            {
                best_.distance = std::sqrt(best_.squared);
                if (best_.squared == 0.0) return false;
            }

            const double t = x[here.axis];
            const double e = t - p_[here.axis];
            if (ways[right_way].exists() && e <= best_.distance)
            {
                here.axis = next_axis(here.axis);
                if (ways[left_way].exists()) later.put_off({ways[left_way], here.axis, t});
                here.to = ways[right_way];
            }
            else if (ways[left_way].exists() && !(-e > best_.distance))
            {
                here.axis = next_axis(here.axis);
                here.to = ways[left_way];
            }
            else if (!go_on_later())
                return true;
        }
    }

    const node_tree& tree_;
    const children* const all_children_;
    const double* const base_;
    const std::size_t step_;
    const point& p_;
    const unsigned excluded_;
    candidate best_;
    fork forks_[stack_depth];
    unsigned nbr_forks_ = 0;
    position end_{no_child, 0, 0.0}; ///< the run that the way ends in
};

template <unsigned D>
unsigned node_tree<D>::closest(const point& p, unsigned excluded) const
{
    return is_readable() ? closest_search(*this, p, excluded).run() : none_index;
}

template class node_tree<2>;
template class node_tree<3>;

} // namespace tq4::gridweave
