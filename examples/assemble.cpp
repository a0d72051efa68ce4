// Building a part out of one cell: a sector of a wheel is generated, turned round the axis into a ring of copies and mirrored in the middle
// plane. The coincident nodes are merged and the unused ones dropped, the wheel is cut open, its skin is extracted and found again on the
// volume, and the result is checked and written for viewers.
//
//   assemble output_folder [sectors]

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>

#include <tq4/gridweave.h>

using namespace tq4;
using namespace tq4::gridweave;

namespace
{

/// Ends the program with one sentence.
[[noreturn]] void fail(const std::string& sentence)
{
    std::fprintf(stderr, "assemble: %s\n", sentence.c_str());
    std::exit(1);
}

/// Every call answers with a number; a negative one is a failure.
int done(int code, const char* what)
{
    if (code == out_of_memory) fail(std::string("there is not enough memory to ") + what + ".");
    if (code < 0) fail(std::string("it was not possible to ") + what + " (code " + std::to_string(code) + ").");
    return code;
}

void line(const char* what, const std::string& value)
{
    std::printf("  %-30s %s\n", what, value.c_str());
}

void line(const char* what, unsigned value)
{
    line(what, std::to_string(value));
}

std::string number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

// ---- The cell: the upper half of one sector, in millimetres. Hub and rim are thick, the web between them is thin and has a hole. ----

constexpr double pi = 3.14159265358979323846;

struct profile_point
{
    double radius, half_thickness;
};
constexpr profile_point profile[]{{0, 15}, {20, 15}, {28, 6}, {58, 6}, {64, 12}, {75, 12}};

constexpr unsigned around = 6;    // elements across a sector
constexpr unsigned outwards = 30; // elements from the axis to the rim
constexpr unsigned upwards = 3;   // elements across half the thickness

double radius_of(unsigned i)
{
    return profile[5].radius * i / outwards;
}

double half_thickness_at(double radius)
{
    unsigned k = 1;
    while (k < 5 && radius > profile[k].radius) ++k;
    const profile_point &a = profile[k - 1], &b = profile[k];
    return a.half_thickness + (radius - a.radius) / (b.radius - a.radius) * (b.half_thickness - a.half_thickness);
}

bool in_hole(unsigned i, unsigned j)
{
    return radius_of(i) >= 35 && radius_of(i + 1) <= 52.5 && (j == 2 || j == 3);
}

/// Hexahedra, and wedges round the axis, in one matrix of 8 rows in which the wedges are padded with `none_index`.
void make_sector(double angle, dense2D<double>& pos, dense2D<unsigned>& cell)
{
    const auto node = [](unsigned i, unsigned j, unsigned k) { return (k * (around + 1) + j) * (outwards + 1) + i; };

    if (!pos.resize(3, (outwards + 1) * (around + 1) * (upwards + 1))) fail("there is not enough memory for the sector.");
    for (unsigned k = 0; k <= upwards; ++k)
        for (unsigned j = 0; j <= around; ++j)
            for (unsigned i = 0; i <= outwards; ++i)
            {
                double* const x = pos.column(node(i, j, k));
                const double radius = radius_of(i);
                x[0] = radius * std::cos(angle * j / around);
                x[1] = radius * std::sin(angle * j / around);
                x[2] = half_thickness_at(radius) * k / upwards;
            }

    if (!cell.resize(8, outwards * around * upwards, none_index)) fail("there is not enough memory for the sector.");
    unsigned count = 0;
    for (unsigned k = 0; k < upwards; ++k)
        for (unsigned j = 0; j < around; ++j)
            for (unsigned i = 0; i < outwards; ++i)
            {
                if (in_hole(i, j)) continue;
                unsigned* column = cell.column(count++);
                for (const unsigned layer : {k, k + 1})
                {
                    // All nodes of the axis at one height are one place; the wedges use the first.
                    *column++ = node(i, i == 0 ? 0 : j, layer);
                    *column++ = node(i + 1, j, layer);
                    *column++ = node(i + 1, j + 1, layer);
                    if (i != 0) *column++ = node(i, j + 1, layer);
                }
            }
    cell.resize(8, count);
}

/// Turns an element inside out: a hexahedron and a wedge alike by exchanging their two ends.
void turn_round(unsigned* column)
{
    const unsigned half = column[6] == none_index ? 3 : 4;
    for (unsigned k = 0; k < half; ++k) std::swap(column[k], column[k + half]);
}

unsigned count_inverted(const dense1D<double>& values)
{
    unsigned count = 0;
    for (const double value : values) count += value <= 0;
    return count;
}

} // namespace

int main(int argc, char** argv)
{
    const int asked = argc == 3 ? std::atoi(argv[2]) : 12;
    if (argc < 2 || argc > 3 || asked < 3 || asked > 10000)
    {
        std::fprintf(stderr, "usage: assemble output_folder [sectors, 3 to 10000]\n");
        return 2;
    }
    const auto sectors = static_cast<unsigned>(asked);
    const std::filesystem::path folder = argv[1];
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) fail("the folder " + folder.string() + " cannot be made.");

    std::printf("wheel of %u sectors\n", sectors);
    const element_type kind = ELEM_SOLID_ANY;
    const double angle = 2 * pi / sectors;

    // The cell.
    dense2D<double> pos;
    dense2D<unsigned> cell;
    make_sector(angle, pos, cell);
    line("elements of a sector", cell.cols);

    // The pattern. Copies are appended to what the matrix holds, here the first sector itself; `copy` makes a separate matrix where an
    // assignment would share storage with `cell`.
    dense2D<unsigned> upper;
    if (!upper.copy(cell)) done(out_of_memory, "copy the sector");
    const vector_fixed<double, 3> origin{0, 0, 0};
    done(copy_mesh(pos, upper, vector_fixed<double, 3>{0, 0, 0}, origin, vector_fixed<double, 3>{0, 0, angle}, sectors - 1, cell),
         "copy the sector");
    line("elements of the upper half", upper.cols);

    // The mirror image. Its elements are inside out, which their Jacobians show.
    dense2D<unsigned> lower;
    done(copy_sym_mesh(pos, lower, origin, vector_fixed<double, 3>{0, 0, 1}, upper), "mirror the upper half");
    dense1D<double> values;
    done(jacobians(pos, lower, kind, values), "measure the Jacobians");
    for (unsigned element = 0; element < lower.cols; ++element)
        if (values[element] < 0) turn_round(lower.column(element));
    line("mirrored elements turned round", count_inverted(values));

    // Merging: nodes closer than a millionth of the part's size are one.
    vector_fixed<double, 3> low{1e300, 1e300, 1e300}, high{-1e300, -1e300, -1e300};
    done(inc_bounding_box(pos, low, high), "measure the part");
    const double tolerance = 1e-6 * (high[0] - low[0]);
    line("nodes before merging", pos.cols);
    line("nodes merged", static_cast<unsigned>(done(merge(pos, upper, lower, tolerance, 0), "merge the nodes")));
    line("unused nodes dropped", static_cast<unsigned>(done(simplify(pos, upper, lower, 0), "drop unused nodes")));
    line("nodes of the wheel", pos.cols);
    line("elements of the wheel", upper.cols + lower.cols);

    // Cutting it open. Both halves go to one matrix, since kept elements are appended. The plane stands a little behind the axis: an
    // element that only touches it goes.
    dense2D<unsigned> half;
    const vector_fixed<double, 3> point{-tolerance, 0, 0}, normal{1, 0, 0};
    done(clip(pos, upper, point, normal, half), "cut the wheel");
    done(clip(pos, lower, point, normal, half), "cut the wheel");
    if (half.cols == 0) fail("nothing lies in front of the cut.");
    done(simplify(pos, half, 0), "drop unused nodes");
    line("elements in front of the cut", half.cols);

    // The skin: sides without a neighbour. It is closed when none of its own edges is free.
    dense2D<unsigned> neighbors, skin, skin_neighbors, open_edges;
    done(get_neighbors(half, kind, false, neighbors), "find the neighbours");
    done(get_mesh_boundaries(half, neighbors, kind, skin), "extract the skin");
    done(get_neighbors(skin, ELEM_SURF_ANY, true, skin_neighbors), "find the neighbours in the skin");
    done(get_mesh_boundaries(skin, skin_neighbors, ELEM_SURF_ANY, open_edges), "list the open edges of the skin");
    line("faces of the skin", skin.cols);
    line("open edges of the skin", open_edges.cols);

    // The way back: on which side of which element does each face of the skin lie?
    dense1D<unsigned> ancestors, sides;
    unsigned stride = 0;
    done(get_ancestors(half, ancestors), "find an element for each node");
    done(get_elements_on_boundaries(skin, half, neighbors, ancestors, kind, sides, stride), "locate the skin on the volume");
    unsigned found = 0;
    for (const unsigned side : sides) found += side != none_index;
    line("faces located on the volume", std::to_string(found) + " of " + std::to_string(skin.cols));
    if (found != skin.cols) fail("some faces of the skin were not found on the volume.");

    // The checks: orientation, then shape, of which 1 is the best.
    done(jacobians(pos, half, kind, values), "measure the Jacobians");
    line("inverted elements", count_inverted(values));
    dense1D<double> quality;
    done(shape_qualities(pos, half, kind, quality), "measure the quality");
    auxkit::histogram spread(0.0, 1.0, 10);
    for (const double value : quality) spread.process(value);
    double worst = 1;
    unsigned worst_element = none_index;
    done(min_quality(pos, half, kind, worst, worst_element), "find the worst element");
    line("worst quality", number(worst) + " (element " + std::to_string(worst_element) + ")");
    line("mean quality", number(spread.mean()));

    // The files. A face of the skin carries the quality of the element under it, in tenths, as its reference.
    dense1D<unsigned> tenths(skin.cols);
    for (unsigned face = 0; face < skin.cols; ++face)
    {
        const double value = quality[sides[face] / stride];
        tenths[face] = value > 0 ? static_cast<unsigned>(10 * value) : 0;
    }
    const auto path_of = [&](const char* name) { return (folder / name).string(); };
    const std::string volume_vtk = path_of("wheel.vtk"), volume_medit = path_of("wheel.mesh"), skin_medit = path_of("wheel_skin.mesh");
    if (vtk_output(volume_vtk.c_str(), pos, half, kind) != 0) fail(volume_vtk + " cannot be written.");
    line("written", volume_vtk);
    if (medit_output(volume_medit.c_str(), pos, half, kind) != 0) fail(volume_medit + " cannot be written.");
    line("written", volume_medit);
    if (medit_output(skin_medit.c_str(), pos, skin, ELEM_SURF_ANY, tenths) != 0) fail(skin_medit + " cannot be written.");
    line("written", skin_medit);

    std::printf("\n  quality of the elements\n%s", spread.render(40).c_str());
    return 0;
}
