#include "fuzz/mesh_source.h"

#include <algorithm>
#include <cfloat>
#include <iterator>
#include <limits>
#include <vector>

namespace tq4::fuzz
{

using namespace gridweave;

namespace
{

constexpr double limits[] = {0.0,
                             -0.0,
                             std::numeric_limits<double>::quiet_NaN(),
                             std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity(),
                             std::numeric_limits<double>::denorm_min(),
                             DBL_MIN,
                             DBL_MAX,
                             -DBL_MAX,
                             DBL_EPSILON,
                             1 + DBL_EPSILON,
                             1e-160,
                             1e-12,
                             1e12,
                             1e150,
                             1e160,
                             1e300};

constexpr unsigned most_nodes = 24;
constexpr unsigned most_elements = 24;
constexpr unsigned most_rows = 28; // one more than the largest element has

template <class T>
dense2D<T> duplicate(const dense2D<T>& m)
{
    dense2D<T> copy;
    copy.copy(m);
    return copy;
}

/// The grids that damaged meshes are made from.
const std::vector<test::mesh>& grids()
{
    static const std::vector<test::mesh> all = [] {
        std::vector<test::mesh> meshes = test::all_linear_meshes(1);
        for (test::mesh& each : test::all_linear_meshes(2)) meshes.push_back(each);
        return meshes;
    }();
    return all;
}

} // namespace

double mesh_source::number()
{
    switch (below(8))
    {
    case 0: return limits[below(static_cast<unsigned>(std::size(limits)))];
    case 1: return data_.ConsumeFloatingPoint<double>();
    case 2: return below(65536) / 4096.0 - 8.0;
    default: return below(16) / 4.0 - 1.0;
    }
}

element_type mesh_source::kind()
{
    if (below(32) == 0) return static_cast<element_type>(data_.ConsumeIntegral<int>());
    return static_cast<element_type>(below(23));
}

unsigned mesh_source::index(unsigned limit)
{
    switch (limit ? below(16) : 0)
    {
    case 0: return below(2) ? none_index : data_.ConsumeIntegral<unsigned>();
    case 1: return below(limit + 2);
    default: return below(limit);
    }
}

dense1D<unsigned> mesh_source::indices(unsigned limit)
{
    const ample_memory enough;
    dense1D<unsigned> list(below(12));
    for (unsigned& each : list) each = index(limit);
    return list;
}

dense1D<int> mesh_source::kinds(unsigned count)
{
    const ample_memory enough;
    dense1D<int> list(below(8) == 0 ? below(count + 2) : count);
    for (int& each : list) each = kind();
    return list;
}

dense1D<double> mesh_source::numbers(unsigned count)
{
    const ample_memory enough;
    dense1D<double> list(below(8) == 0 ? below(count + 3) : count);
    for (double& each : list) each = number();
    return list;
}

dense2D<double> mesh_source::matrix(unsigned rows, unsigned cols)
{
    const ample_memory enough;
    dense2D<double> m(rows, cols);
    for (unsigned c = 0; c < m.cols; ++c)
        for (unsigned r = 0; r < m.rows; ++r) m(r, c) = number();
    return placed(m);
}

dense2D<unsigned> mesh_source::connectivity(element_type kind, unsigned nodes)
{
    const ample_memory enough;
    const unsigned rows = below(8) == 0 ? below(most_rows) : nbr_nodes(kind);
    dense2D<unsigned> elements(rows, below(most_elements));
    const bool is_mixed = kind == ELEM_SURF_ANY || kind == ELEM_SOLID_ANY;
    for (unsigned c = 0; c < elements.cols; ++c)
    {
        const unsigned own_nodes = is_mixed ? rows - std::min(rows, below(6)) : rows;
        for (unsigned r = 0; r < rows; ++r) elements(r, c) = r < own_nodes && nodes ? below(nodes) : none_index;
    }
    damage(elements, nodes);
    return placed(elements);
}

test::mesh mesh_source::mesh()
{
    const ample_memory enough;
    if (flip())
    {
        const unsigned nodes = below(most_nodes);
        const element_type its_kind = kind();
        const unsigned rows = below(8) == 0 ? below(5) : 2 + below(2);
        const dense2D<double> pos = matrix(rows, nodes);
        return {pos, connectivity(its_kind, nodes), its_kind};
    }
    const test::mesh& grid = grids()[below(static_cast<unsigned>(grids().size()))];
    test::mesh damaged{duplicate(grid.pos), duplicate(grid.connectivity), grid.kind};
    damage(damaged.pos);
    damage(damaged.connectivity, damaged.pos.cols);
    if (below(16) == 0) damaged.kind = kind();
    return {placed(damaged.pos), placed(damaged.connectivity), damaged.kind};
}

void mesh_source::damage(dense2D<unsigned>& matrix, unsigned limit)
{
    if (matrix.empty()) return;
    for (unsigned k = below(6); k > 0; --k) matrix(below(matrix.rows), below(matrix.cols)) = index(limit);
}

void mesh_source::damage(dense2D<double>& matrix)
{
    if (matrix.empty()) return;
    for (unsigned k = below(6); k > 0; --k) matrix(below(matrix.rows), below(matrix.cols)) = number();
}

} // namespace tq4::fuzz
