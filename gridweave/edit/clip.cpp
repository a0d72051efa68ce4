#include <algorithm>

#include <tq4/gridweave/edit.h>

#include "gridweave/core/append.h"
#include "gridweave/core/points.h"
#include "gridweave/core/vector_math.h"

namespace tq4::gridweave
{

namespace
{

/// Which side of the plane the nodes lie on. A node is held against the plane when it is first asked for and remembered, since an interior
/// node belongs to many elements.
class plane_sides
{
public:
    plane_sides(const dense2D<double>& pos, const vector_fixed<double, 3>& point, const vector_fixed<double, 3>& normal)
        : nodes_(pos), point_(point), normal_(normal)
    {
        // Coordinates that the mesh does not have make no difference to the plane's point.
        for (unsigned k = pos.rows; k < 3; ++k) point_[k] = 0;
    }

    /// Makes room for `count` nodes. False when memory runs out.
    bool reset(unsigned count) { return sides_.resize(count, unknown); }

    bool in_front(unsigned node)
    {
        char& side = sides_[node];
        // A node on the plane is not in front, and neither is one with NaN.
        if (side == unknown) side = dot(subtract(nodes_[node], point_), normal_) > 0 ? front : rejected;
        return side == front;
    }

private:
    static constexpr char unknown = 0, front = 1, rejected = 2;

    point_reader<3> nodes_;
    vector_fixed<double, 3> point_;
    vector_fixed<double, 3> normal_;
    dense1D<char> sides_;
};

/// True when no node of the column is rejected; padding ends the column.
bool is_kept(const unsigned* nodes, unsigned rows, plane_sides& sides)
{
    for (unsigned row = 0; row < rows && nodes[row] != none_index; ++row)
        if (!sides.in_front(nodes[row])) return false;
    return true;
}

} // namespace

int clip(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, const vector_fixed<double, 3>& point,
         const vector_fixed<double, 3>& normal, dense2D<unsigned>& kept)
{
    if (connectivity.empty()) return 0;
    if (!check_IDs(connectivity, pos.cols)) return -2;
    if (norm(normal) < 1e-12) return -4;
    if (!kept.empty() && kept.rows != connectivity.rows) return -5;

    plane_sides sides(pos, point, normal);
    dense1D<unsigned> stay;
    if (!sides.reset(pos.cols) || !stay.resize(connectivity.cols)) return out_of_memory;

    unsigned count = 0;
    for (unsigned element = 0; element < connectivity.cols; ++element)
        if (is_kept(connectivity.column(element), connectivity.rows, sides)) stay[count++] = element;

    const unsigned first = kept.cols;
    if (!append_columns(kept, connectivity.rows, count, none_index)) return out_of_memory;
    for (unsigned k = 0; k < count; ++k)
    {
        // Looked up for each column: `kept` may be the connectivity itself, in a block that has just grown.
        const unsigned* const from = connectivity.column(stay[k]);
        unsigned* const to = kept.column(first + k);
        std::fill(std::copy_n(from, connectivity.rows, to), to + kept.rows, none_index);
    }
    return 0;
}

} // namespace tq4::gridweave
