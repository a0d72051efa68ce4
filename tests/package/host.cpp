// A small host: one function of every library it links.

#include <cstdio>
#include <cstring>

#include <tq4/gridweave.h>

int main()
{
    using namespace tq4;

    if (std::strcmp(gridweave::version(), "4.9.0.0") != 0) return 1;

    unsigned corners[] = {0, 1, 2, 2, 1, 3};
    const auto triangles = dense2D<unsigned>::wrap(corners, 3, 2);
    if (!gridweave::check_IDs(triangles, gridweave::ELEM_TRIA3, 4)) return 2;

    dense1D<unsigned> order;
    dense1D<unsigned> starts;
    if (gridweave::get_sorted_order(triangles.as_vector(), order, starts) != 0 || starts.size != 5) return 3;

    auxkit::histogram degrees;
    for (unsigned node = 0; node < 4; ++node) degrees.process(starts[node + 1] - starts[node]);
    if (degrees.count() != 4 || degrees.mean() != 1.5) return 4;

    symmetric_fixed<double, 3> tensor{3, 0, 1, 0, 0, 2};
    double eigenvalues[3];
    double work[10] = {};
    long info = -1;
    lapack::dspev('N', 'U', 3, tensor.values, eigenvalues, nullptr, 1, work, info);
    if (info != 0 || eigenvalues[0] != 1.0 || eigenvalues[2] != 3.0) return 5;

    std::puts("host: all is well");
    return 0;
}
