// A walk through the library in small steps; docs/guide.md explains each of them. Prints what the comments say.
//
//   tour

#include <cstdio>
#include <vector>

#include <tq4/gridweave.h>

using namespace tq4;
using namespace tq4::gridweave;

namespace
{

// A mesh is two matrices and a kind: coordinates with one column per node, elements with one column of node indices each.
void two_matrices()
{
    dense2D<double> pos(2, 4);
    const double corners[4][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    for (unsigned node = 0; node < 4; ++node)
    {
        pos(0, node) = corners[node][0];
        pos(1, node) = corners[node][1];
    }
    dense2D<unsigned> triangles(3, 2);
    const unsigned nodes[2][3] = {{0, 1, 2}, {0, 2, 3}};
    for (unsigned element = 0; element < 2; ++element)
        for (unsigned row = 0; row < 3; ++row) triangles(row, element) = nodes[element][row];

    std::printf("valid: %d\n", check_IDs(triangles, ELEM_TRIA3, pos.cols)); // valid: 1
}

// A mixed matrix has the rows of its largest member and pads the others.
void mixed_matrix()
{
    dense2D<unsigned> faces(4, 2, none_index);
    for (unsigned row = 0; row < 4; ++row) faces(row, 0) = row; // a quadrangle
    for (unsigned row = 0; row < 3; ++row) faces(row, 1) = row; // a triangle, with none_index in row 3

    std::printf("valid: %d\n", check_IDs(faces, ELEM_SURF_ANY, 4)); // valid: 1
}

// A view shares its elements with its copies; only copy() makes new ones.
void sharing()
{
    dense1D<double> sizes(3, 0.5);
    dense1D<double> view = sizes;
    dense1D<double> separate;
    separate.copy(sizes);
    sizes[0] = 2;
    std::printf("%g %g\n", view[0], separate[0]); // 2 0.5

    dense2D<unsigned> connectivity(3, 10, 0);
    dense2D<unsigned> part = connectivity.sub_matrix(0, 4, 3, 2); // columns 4 and 5
    part(0, 0) = 7;
    std::printf("%u\n", connectivity(0, 4)); // 7
}

// Arrays of the host are wrapped, not copied.
void wrapping()
{
    std::vector<double> mine{0, 0, 0, 1, 0, 0};
    auto pos = dense2D<double>::wrap(mine.data(), 3, 2);
    translate(pos, vector_fixed<double, 3>{0, 0, 5});
    std::printf("%g %g\n", mine[2], mine[5]); // 5 5
}

// A negative answer is a failure, any other a success or a count.
void answers()
{
    dense2D<double> pos(3, 4, 0.0);
    dense1D<unsigned> ids;
    for (const unsigned id : {3u, 3u, 7u}) ids.push_back(id);
    const int moves = translate(pos, vector_fixed<double, 3>{1, 0, 0}, ids);
    std::printf("%d moves\n", moves); // 2 moves: node 3 stands there twice, and there is no node 7

    vector_fixed<double, 2> low{1e300, 1e300}, high{-1e300, -1e300};
    std::printf("%d\n", inc_bounding_box(pos, low, high)); // -1: a box of the plane over a mesh in space
}

/// A unit square of n × n squares of two triangles.
void make_square(unsigned n, dense2D<double>& pos, dense2D<unsigned>& triangles)
{
    pos.resize(2, (n + 1) * (n + 1));
    triangles.resize(3, 2 * n * n);
    for (unsigned j = 0; j <= n; ++j)
        for (unsigned i = 0; i <= n; ++i)
        {
            double* const x = pos.column(j * (n + 1) + i);
            x[0] = double(i) / n;
            x[1] = double(j) / n;
        }
    unsigned* node = triangles.data();
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i < n; ++i)
        {
            const unsigned a = j * (n + 1) + i, b = a + 1, c = b + n + 1, d = c - 1;
            for (const unsigned corner : {a, b, c, a, c, d}) *node++ = corner;
        }
}

// Two squares side by side become one mesh.
void assembling()
{
    dense2D<double> pos;
    dense2D<unsigned> left;
    make_square(10, pos, left);

    dense2D<unsigned> right;
    copy_sym_mesh(pos, right, vector_fixed<double, 2>{1, 0}, vector_fixed<double, 2>{1, 0}, left);
    for (unsigned element = 0; element < right.cols; ++element)
    {
        unsigned* const column = right.column(element);
        const unsigned second = column[1];
        column[1] = column[2];
        column[2] = second;
    }

    const int merged = merge(pos, left, right, 1e-9, 0);
    const int dropped = simplify(pos, left, right, 0);
    std::printf("%d merged, %d dropped, %u left\n", merged, dropped, pos.cols); // 11 merged, 11 dropped, 231 left
}

// Neighbours are found once and handed to whatever needs them.
void connectivity()
{
    dense2D<double> pos;
    dense2D<unsigned> triangles;
    make_square(10, pos, triangles);

    dense2D<unsigned> neighbors, free_edges;
    get_neighbors(triangles, ELEM_TRIA3, false, neighbors);
    get_mesh_boundaries(triangles, neighbors, ELEM_TRIA3, free_edges);
    dense1D<unsigned> order, offsets;
    get_subdomains(neighbors, order, offsets);
    std::printf("%u free edges, %u pieces\n", free_edges.cols, offsets.size - 1); // 40 free edges, 1 pieces
}

// The detector reads the coordinates of its matrix at every query.
void searching()
{
    dense2D<double> pos;
    dense2D<unsigned> triangles;
    make_square(10, pos, triangles);

    const node_detector detector(pos);
    std::printf("%u\n", detector.find_closest(vector_fixed<double, 2>{0.31, 0.02})); // 3
    dense1D<unsigned> found;
    detector.find_in_box(vector_fixed<double, 2>{0.25, 0.25}, vector_fixed<double, 2>{0.45, 0.45}, found);
    std::printf("%u nodes\n", found.size); // 4 nodes
}

// Sizes from a mesh, one place refined, and the field made smooth again.
void sizes()
{
    dense2D<double> pos;
    dense2D<unsigned> triangles;
    make_square(10, pos, triangles);

    dense1D<double> size;
    metrics_gen_iso(pos, triangles, ELEM_TRIA3, size, 1.0);
    size[60] = 0.001; // the middle of the square

    const dense1D<unsigned> nothing_frozen;
    const int moved = bound_metric_gradations(pos, triangles, ELEM_TRIA3, nothing_frozen, true, -1, 0.3, size);
    std::printf("%d nodes moved\n", moved);
}

} // namespace

int main()
{
    two_matrices();
    mixed_matrix();
    sharing();
    wrapping();
    answers();
    assembling();
    connectivity();
    searching();
    sizes();
    return 0;
}
