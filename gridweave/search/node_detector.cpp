#include <algorithm>
#include <memory>
#include <new>

#include <tq4/gridweave/search.h>

#include "gridweave/core/distinct.h"
#include "gridweave/search/node_tree.h"

namespace tq4::gridweave
{

namespace
{

vector_fixed<double, 2> without_z(const vector_fixed<double, 3>& p)
{
    return {p[0], p[1]};
}

vector_fixed<double, 3> at_z_0(const vector_fixed<double, 2>& p)
{
    return {p[0], p[1], 0.0};
}

template <unsigned D>
unsigned closest_other(const node_tree<D>& tree, unsigned node)
{
    const dense2D<double>& coords = tree.coords();
    if (node >= coords.cols || !tree.can_read(node)) return none_index;
    vector_fixed<double, D> p;
    std::copy_n(coords.column(node), D, p.values);
    return tree.closest(p, node);
}

template <unsigned D>
void append_box(const node_tree<D>& tree, const vector_fixed<double, D>& low, const vector_fixed<double, D>& high, dense1D<unsigned>& found)
{
    tree.visit_box(low, high, [&](unsigned node) { found.push_back(node); });
}

/// A tree of nodes over the matrix, or null where memory runs out.
template <unsigned D>
node_tree<D>* grow(const dense2D<double>& coords, const node_list& nodes)
{
    std::unique_ptr<node_tree<D>> tree(new (std::nothrow) node_tree<D>(coords));
    unsigned added = 0;
    if (!tree || !tree->insert(nodes, added)) return nullptr;
    return tree.release();
}

/// What a `reinit` ends with: the tree for the rows of the matrix in place of two null pointers.
int fill(node_tree<2>*& planar, node_tree<3>*& spatial, const dense2D<double>& coords, const node_list& nodes)
{
    if (coords.rows == 2)
        planar = grow<2>(coords, nodes);
    else
        spatial = grow<3>(coords, nodes);
    return planar || spatial ? 0 : out_of_memory;
}

/// A duplicate of a tree, or null where memory runs out.
template <unsigned D>
node_tree<D>* duplicate(const node_tree<D>& tree)
{
    std::unique_ptr<node_tree<D>> copy(new (std::nothrow) node_tree<D>(tree.coords()));
    if (!copy || !copy->copy(tree)) return nullptr;
    return copy.release();
}

} // namespace

node_detector::node_detector() = default;

node_detector::node_detector(const dense2D<double>& coords)
{
    reinit(coords);
}

node_detector::node_detector(const dense2D<double>& coords, const dense1D<unsigned>& ids)
{
    reinit(coords, ids);
}

node_detector::node_detector(const dense2D<double>& coords, const dense2D<unsigned>& connectivity)
{
    reinit(coords, connectivity);
}

node_detector::node_detector(const dense2D<double>& coords, const dense2D<unsigned>* first, const dense2D<unsigned>* last)
{
    reinit(coords, first, last);
}

node_detector::node_detector(const node_detector& other)
{
    *this = other;
}

node_detector& node_detector::operator=(const node_detector& other)
{
    if (this == &other) return *this;
    clear();
    if (other.planar_) planar_ = duplicate(*other.planar_);
    if (other.spatial_) spatial_ = duplicate(*other.spatial_);
    return *this;
}

node_detector::~node_detector()
{
    clear();
}

void node_detector::clear()
{
    delete planar_;
    delete spatial_;
    planar_ = nullptr;
    spatial_ = nullptr;
}

int node_detector::reinit(const dense2D<double>& coords)
{
    clear();
    if (coords.rows != 2 && coords.rows != 3) return -1;
    return fill(planar_, spatial_, coords, node_list::columns(coords.cols));
}

int node_detector::reinit(const dense2D<double>& coords, const dense1D<unsigned>& ids)
{
    if (coords.rows != 2 && coords.rows != 3) return -1;
    if (!check_IDs(ids, coords.cols)) return -2;

    clear();
    return fill(planar_, spatial_, coords, ids);
}

int node_detector::reinit(const dense2D<double>& coords, const dense2D<unsigned>& connectivity)
{
    return reinit(coords, &connectivity, &connectivity + 1);
}

int node_detector::reinit(const dense2D<double>& coords, const dense2D<unsigned>* first, const dense2D<unsigned>* last)
{
    if (first > last) return -3;
    dense1D<unsigned> ids;
    if (!append_distinct(ids, range_entries{first, last}, {}))
    {
        clear();
        return out_of_memory;
    }
    return reinit(coords, ids);
}

unsigned node_detector::insert(const dense1D<unsigned>& ids)
{
    unsigned added = 0;
    if (planar_) planar_->insert(ids, added);
    if (spatial_) spatial_->insert(ids, added);
    return added;
}

unsigned node_detector::insert(const dense2D<unsigned>& connectivity)
{
    dense1D<unsigned> ids;
    return append_distinct(ids, range_entries{&connectivity, &connectivity + 1}, {}) ? insert(ids) : 0;
}

unsigned node_detector::find_closest(const vector_fixed<double, 2>& p) const
{
    if (planar_) return planar_->closest(p, none_index);
    if (spatial_) return spatial_->closest(at_z_0(p), none_index);
    return none_index;
}

unsigned node_detector::find_closest(const vector_fixed<double, 3>& p) const
{
    if (planar_) return planar_->closest(without_z(p), none_index);
    if (spatial_) return spatial_->closest(p, none_index);
    return none_index;
}

unsigned node_detector::find_closest(unsigned node) const
{
    if (planar_) return closest_other(*planar_, node);
    if (spatial_) return closest_other(*spatial_, node);
    return none_index;
}

void node_detector::find_in_box(const vector_fixed<double, 2>& low, const vector_fixed<double, 2>& high, dense1D<unsigned>& found) const
{
    if (planar_) append_box(*planar_, low, high, found);
    if (spatial_) append_box(*spatial_, at_z_0(low), at_z_0(high), found);
}

void node_detector::find_in_box(const vector_fixed<double, 3>& low, const vector_fixed<double, 3>& high, dense1D<unsigned>& found) const
{
    if (planar_) append_box(*planar_, without_z(low), without_z(high), found);
    if (spatial_) append_box(*spatial_, low, high, found);
}

unsigned node_detector::size() const
{
    if (planar_) return planar_->size();
    if (spatial_) return spatial_->size();
    return 0;
}

} // namespace tq4::gridweave
