#include "gridweave/connectivity/boundaries.h"

#include <tq4/gridweave/connectivity.h>

#include "gridweave/core/kinds.h"
#include "gridweave/core/storage.h"

namespace tq4::gridweave
{

int get_element_boundaries(const dense2D<unsigned>& connectivity, element_type kind, dense2D<unsigned>& boundaries)
{
    if (connectivity.empty()) return 0;
    kind = narrow(kind, connectivity.rows);
    if (!check_IDs(connectivity, kind, none_index)) return -1;
    const topology shape_of_all = linear_topology(kind);
    if (shape_of_all == topology::none) return -2;
    const unsigned rows = nbr_boundary_nodes(kind);
    if (!boundaries.empty() && boundaries.rows != rows) return -2;
    if (!detach(boundaries, connectivity)) return out_of_memory;

    bool appended = true;
    for_each_element(shape_of_all, connectivity, [&](auto shape, unsigned, const unsigned* nodes) {
        for (unsigned side = 0; side < side_count<decltype(shape)> && appended; ++side)
            appended = append_side<decltype(shape)>(boundaries, rows, side, nodes);
        return appended;
    });
    return appended ? 0 : out_of_memory;
}

int get_mesh_boundaries(const dense2D<unsigned>& connectivity, const dense2D<unsigned>& neighbors, element_type kind,
                        dense2D<unsigned>& boundaries)
{
    if (connectivity.cols == 0) return 0;
    kind = narrow(kind, connectivity.rows);
    if (connectivity.rows != nbr_nodes(kind)) return -1;
    if (neighbors.cols != connectivity.cols || neighbors.rows != nbr_boundaries(kind) || !check_IDs(neighbors, connectivity.cols))
        return -2;
    const unsigned rows = nbr_boundary_nodes(kind);
    if (!boundaries.empty() && boundaries.rows != rows) return -4;
    const topology shape_of_all = linear_topology(kind);
    if (shape_of_all == topology::none) return -3;
    if (!detach(boundaries, connectivity, neighbors)) return out_of_memory;

    bool appended = true;
    for_each_element(shape_of_all, connectivity, [&](auto shape, unsigned element, const unsigned* nodes) {
        const unsigned* const neighbor = neighbors.column(element);
        for (unsigned side = 0; side < side_count<decltype(shape)>; ++side)
            if (neighbor[side] == none_index && !append_side<decltype(shape)>(boundaries, rows, side, nodes)) return appended = false;
        return true;
    });
    return appended ? 0 : out_of_memory;
}

int get_mesh_bounding_elements(const dense2D<unsigned>& connectivity, const dense2D<unsigned>& neighbors, element_type kind,
                               dense1D<unsigned>& ids, unsigned& stride)
{
    stride = 0;
    if (connectivity.empty()) return 0;
    kind = narrow(kind, connectivity.rows);
    if (!check_IDs(connectivity, kind, none_index)) return -1;
    stride = nbr_boundaries(kind);
    const topology shape_of_all = linear_topology(kind);
    if (shape_of_all == topology::none) return -2;
    if (neighbors.cols != connectivity.cols || neighbors.rows != stride) return -2;
    if (!detach(ids, connectivity, neighbors)) return out_of_memory;

    // Ids fit in 32 bits: each is the place of an entry in the neighbour matrix.
    bool appended = true;
    for_each_element(shape_of_all, connectivity, [&](auto shape, unsigned element, const unsigned*) {
        const unsigned* const neighbor = neighbors.column(element);
        for (unsigned side = 0; side < side_count<decltype(shape)>; ++side)
            if (neighbor[side] == none_index && !append_entry(ids, element * stride + side)) return appended = false;
        return true;
    });
    return appended ? 0 : out_of_memory;
}

} // namespace tq4::gridweave
