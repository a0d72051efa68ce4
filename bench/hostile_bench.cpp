// How cost grows on input that invites quadratic algorithms: nodes at one place or in line, one node or one side in every element, node
// numbers that hashes and tables do not like, sizes of every magnitude. Each call is timed at two sizes; the exponent of its growth is 1
// for linear cost, some 1.1 for n log n and 2 for quadratic cost. Caches add up to 0.4.
//
//   hostile_bench [part of a name]
//
// The figures stand in milliseconds of processor time.

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <tq4/gridweave.h>

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

/// What is timed, with its input around it.
using job = std::function<int()>;

struct hostile_case
{
    const char* name;
    unsigned size; ///< the smaller of the two; the larger one is four times it
    std::function<job(unsigned n)> prepare;
};

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

// ---- Nodes ------------------------------------------------------------------------------------------------------------------------------

template <class Place>
dense2D<double> nodes_at(unsigned n, Place place)
{
    dense2D<double> pos(3, n);
    for (unsigned c = 0; c < n; ++c)
        for (unsigned k = 0; k < 3; ++k) pos(k, c) = place(c, k);
    return pos;
}

dense2D<double> at_one_place(unsigned n)
{
    return nodes_at(n, [](unsigned, unsigned) { return 1.0; });
}

dense2D<double> in_line(unsigned n)
{
    return nodes_at(n, [](unsigned c, unsigned k) { return k == 0 ? c : 0.0; });
}

dense2D<double> in_reverse(unsigned n)
{
    return nodes_at(n, [n](unsigned c, unsigned k) { return k == 1 ? n - c : 0.5; });
}

dense2D<double> not_numbers(unsigned n)
{
    return nodes_at(n, [](unsigned c, unsigned k) { return c % 3 == k ? nan : 1.0; });
}

dense2D<double> denormal(unsigned n)
{
    return nodes_at(n, [](unsigned c, unsigned k) { return k == c % 3 ? c * 5e-324 : 0.0; });
}

dense2D<double> huge(unsigned n)
{
    return nodes_at(n, [](unsigned c, unsigned k) { return k == c % 3 ? 1e140 * c : 0.0; });
}

dense2D<double> far_and_near(unsigned n)
{
    return nodes_at(n, [](unsigned c, unsigned k) {
        return c % 2 ? 1e-8 * (c / 4) : k == 0 ? std::ldexp(1.0, static_cast<int>(c % 40)) : 0.0;
    });
}

dense2D<double> on_a_circle(unsigned n)
{
    return nodes_at(n, [n](unsigned c, unsigned k) {
        const double angle = 6.283185307179586 * c / n;
        return k == 0 ? std::cos(angle) : k == 1 ? std::sin(angle) : 0.0;
    });
}

// ---- Elements ---------------------------------------------------------------------------------------------------------------------------

/// Triangles around one node, n + 1 nodes.
dense2D<unsigned> star(unsigned n)
{
    dense2D<unsigned> connectivity(3, n);
    for (unsigned c = 0; c < n; ++c)
    {
        unsigned* const nodes = connectivity.column(c);
        nodes[0] = 0;
        nodes[1] = 1 + c;
        nodes[2] = 1 + (c + 1) % n;
    }
    return connectivity;
}

/// Triangles on one side, n + 2 nodes.
dense2D<unsigned> book(unsigned n)
{
    dense2D<unsigned> connectivity(3, n);
    for (unsigned c = 0; c < n; ++c)
    {
        unsigned* const nodes = connectivity.column(c);
        nodes[0] = 0;
        nodes[1] = 1;
        nodes[2] = 2 + c;
    }
    return connectivity;
}

/// The same triangle n times.
dense2D<unsigned> pile(unsigned n)
{
    dense2D<unsigned> connectivity(3, n);
    for (unsigned c = 0; c < n; ++c)
        for (unsigned r = 0; r < 3; ++r) connectivity(r, c) = r;
    return connectivity;
}

/// A strip of triangles, n + 2 nodes.
dense2D<unsigned> strip(unsigned n)
{
    dense2D<unsigned> connectivity(3, n);
    for (unsigned c = 0; c < n; ++c)
        for (unsigned r = 0; r < 3; ++r) connectivity(r, c) = c + r;
    return connectivity;
}

/// A strip with node numbers that are multiples of a power of two, up to the largest there are.
dense2D<unsigned> hostile_numbers(unsigned n)
{
    auto connectivity = strip(n);
    for (unsigned c = 0; c < n; ++c)
        for (unsigned r = 0; r < 3; ++r) connectivity(r, c) = none_index - 1 - connectivity(r, c) * (c % 2 ? 4096u : 65536u);
    return connectivity;
}

using mesh_of = dense2D<unsigned> (*)(unsigned);
using nodes_of = dense2D<double> (*)(unsigned);

dense1D<double> sizes_of(unsigned n, double (*size)(unsigned))
{
    dense1D<double> sizes(n);
    for (unsigned k = 0; k < n; ++k) sizes[k] = size(k);
    return sizes;
}

double jumping(unsigned k)
{
    return std::pow(10.0, (k * 2654435761u >> 20) % 1000 * 0.003);
}

// ---- Calls ------------------------------------------------------------------------------------------------------------------------------

job merging(const dense2D<double>& pos, double tol)
{
    return [pos, tol] {
        dense2D<double> mine;
        mine.copy(pos);
        return merge(mine, tol);
    };
}

job searching(const dense2D<double>& pos, unsigned queries = 1000)
{
    return [pos, queries] {
        const node_detector detector(pos);
        unsigned found = 0;
        for (unsigned node = 0; node < queries; ++node) found += detector.find_closest(node) != none_index;
        return static_cast<int>(found);
    };
}

job finding_neighbors(const dense2D<unsigned>& mesh)
{
    return [mesh] {
        dense2D<unsigned> neighbors;
        return get_neighbors(mesh, ELEM_TRIA3, true, neighbors);
    };
}

/// All of connectivity behind the neighbours.
job walking(const dense2D<unsigned>& mesh)
{
    dense2D<unsigned> neighbors;
    get_neighbors(mesh, ELEM_TRIA3, true, neighbors);
    return [mesh, neighbors] {
        dense2D<unsigned> boundaries;
        dense1D<unsigned> ancestors, ids, indices, offsets;
        unsigned stride = 0;
        get_element_boundaries(mesh, ELEM_TRIA3, boundaries);
        get_ancestors(mesh, ancestors);
        get_subdomains(neighbors, indices, offsets);
        return get_elements_on_boundaries(boundaries, mesh, neighbors, ancestors, ELEM_TRIA3, ids, stride);
    };
}

job graphing(const dense2D<unsigned>& mesh)
{
    return [mesh] {
        dense1D<unsigned> first, list;
        return get_node_graph(mesh, first, list);
    };
}

job listing_edges(const dense2D<unsigned>& mesh)
{
    return [mesh] {
        dense2D<unsigned> edges;
        copy_edges(mesh, ELEM_TRIA3, edges);
        return static_cast<int>(edges.cols);
    };
}

job compacting(const dense2D<unsigned>& mesh)
{
    return [mesh] {
        dense2D<unsigned> mine;
        mine.copy(mesh);
        dense1D<unsigned> unique;
        unique_indices(unique, mine, dense1D<unsigned>());
        return count_unique_indices(mine) + remove_degenerated(mine, true);
    };
}

job looking_up(const dense2D<unsigned>& mesh)
{
    return [mesh] {
        dense1D<unsigned> b_in_a, a_in_b;
        get_IDs(mesh.as_vector(), mesh.as_vector(), b_in_a, a_in_b);
        return get_IDs(mesh, mesh, b_in_a, a_in_b, false);
    };
}

job collapsing(const dense2D<unsigned>& mesh, const dense2D<double>& pos, unsigned mode)
{
    return [mesh, pos, mode] {
        dense2D<unsigned> mine;
        mine.copy(mesh);
        return merge(pos, mine, 1e-3, mode);
    };
}

job limiting(const dense2D<unsigned>& mesh, const dense2D<double>& pos, const dense1D<double>& sizes, int direction)
{
    return [=] {
        dense1D<double> mine;
        mine.copy(sizes);
        const dense1D<unsigned> none;
        const int moved = bound_metric_gradations(pos, mesh, ELEM_TRIA3, none, true, direction, 0.2, mine);
        return moved + bound_metric_variations(pos, mesh, ELEM_TRIA3, none, true, direction, 0.2, mine);
    };
}

job limiting_tensors(const dense2D<unsigned>& mesh, const dense2D<double>& pos, const dense1D<double>& sizes)
{
    return [=] {
        dense2D<double> metrics(6, sizes.size);
        metrics_iso_to_aniso3d(sizes, metrics);
        return bound_metric_gradations(pos, mesh, ELEM_TRIA3, dense1D<unsigned>(), true, -1, 0.2, metrics);
    };
}

/// The hub may not move, or half of the rim.
job limiting_beside_frozen(const dense2D<unsigned>& mesh, const dense2D<double>& pos, const dense1D<double>& sizes, bool rim)
{
    dense1D<unsigned> frozen(1, 0u);
    for (unsigned node = 2; rim && node < pos.cols; node += 2) frozen.push_back(node);
    if (rim) frozen[0] = 1;
    return [=] {
        dense1D<double> mine;
        mine.copy(sizes);
        return bound_metric_gradations(pos, mesh, ELEM_TRIA3, frozen, true, -1, 0.2, mine);
    };
}

job measuring(const dense2D<unsigned>& mesh, const dense2D<double>& pos, const dense1D<double>& sizes)
{
    return [=] {
        dense2D<unsigned> edges;
        copy_edges(mesh, ELEM_TRIA3, edges);
        auxkit::histogram lengths(0.0, 2.0, 100);
        dense1D<double> values;
        edge_qualities(pos, mesh, ELEM_TRIA3, sizes, lengths, edges);
        edge_qualities(pos, mesh, ELEM_TRIA3, sizes, lengths, dense2D<unsigned>());
        H_shock(pos, edges, sizes, values);
        shape_qualities(pos, mesh, ELEM_TRIA3, values);
        metrics_gen_iso(pos, mesh, ELEM_TRIA3, values, 2.0);
        return jacobians(pos, mesh, ELEM_TRIA3, values);
    };
}

/// A file that goes with its job.
std::string scratch_file()
{
    return "/dev/shm/hostile_bench.tmp";
}

job welding(const dense2D<unsigned>& mesh, const dense2D<double>& pos)
{
    STL_output(scratch_file().c_str(), pos, mesh, false);
    return [] {
        dense2D<double> read_pos;
        dense2D<unsigned> read_mesh;
        return STL_input(scratch_file().c_str(), read_pos, read_mesh);
    };
}

/// A file of `n` lines.
template <class Line>
void write_lines(unsigned n, const char* head, Line line, const char* tail)
{
    std::FILE* const file = std::fopen(scratch_file().c_str(), "wb");
    std::fputs(head, file);
    for (unsigned k = 0; k < n; ++k) line(file, k);
    std::fputs(tail, file);
    std::fclose(file);
}

job reading_nastran()
{
    return [] {
        dense2D<double> pos;
        dense2D<unsigned> mesh;
        dense1D<unsigned> starts, properties;
        dense1D<int> kinds;
        return NASTRAN_input(scratch_file().c_str(), pos, mesh, starts, kinds, properties);
    };
}

job reading_femap()
{
    return [] {
        dense2D<double> pos;
        dense2D<unsigned> mesh;
        dense1D<unsigned> starts, colors;
        dense1D<int> kinds;
        return FEMAP_input(scratch_file().c_str(), pos, mesh, starts, kinds, colors);
    };
}

job reading_obj()
{
    return [] {
        dense2D<double> pos, normals, texcoords;
        dense2D<unsigned> triangles, quadrangles;
        return WavefrontOBJ_input(scratch_file().c_str(), pos, normals, texcoords, triangles, quadrangles);
    };
}

job writing_colors(unsigned n)
{
    const auto mesh = strip(n);
    const auto pos = in_line(n + 2);
    dense1D<unsigned> colors(n);
    for (unsigned c = 0; c < n; ++c) colors[c] = n - c;
    return [=] { return medit_output(scratch_file().c_str(), pos, mesh, ELEM_TRIA3, colors); };
}

std::vector<hostile_case> cases()
{
    std::vector<hostile_case> all;
    const auto add = [&](const char* name, unsigned size, std::function<job(unsigned)> prepare) {
        all.push_back({name, size, std::move(prepare)});
    };
    constexpr unsigned million = 250000; // which becomes a million
    constexpr unsigned spokes = 25000;   // which become a hundred thousand

    add("merge, one place, 0", million, [](unsigned n) { return merging(at_one_place(n), 0.0); });
    add("merge, one place, 0.5", million, [](unsigned n) { return merging(at_one_place(n), 0.5); });
    add("merge, line, 0.5", million, [](unsigned n) { return merging(in_line(n), 0.5); });
    add("merge, line, 1", million, [](unsigned n) { return merging(in_line(n), 1.0); });
    add("merge, reverse, 1", million, [](unsigned n) { return merging(in_reverse(n), 1.0); });
    add("merge, NaN, 0.5", million, [](unsigned n) { return merging(not_numbers(n), 0.5); });
    add("merge, denormal, 0", million, [](unsigned n) { return merging(denormal(n), 0.0); });
    add("merge, denormal, 1e-323", million, [](unsigned n) { return merging(denormal(n), 1e-323); });
    add("merge, huge, 0", million, [](unsigned n) { return merging(huge(n), 0.0); });
    add("merge, huge, 1e139", million, [](unsigned n) { return merging(huge(n), 1e139); });
    add("merge, a stray node, 1e-9", million, [](unsigned n) {
        auto pos = on_a_circle(n);
        pos(2, n / 2) = 1e30;
        return merging(pos, 1e-9);
    });
    for (const unsigned mode : {1u, 2u})
    {
        add(mode == 1 ? "merge within a star" : "merge within a star, repeated", spokes,
            [mode](unsigned n) { return collapsing(star(n), on_a_circle(n + 1), mode); });
        add(mode == 1 ? "merge within a strip" : "merge within a strip, repeated", million, [mode](unsigned n) {
            return collapsing(strip(n), nodes_at(n + 2, [](unsigned c, unsigned k) { return k == 0 ? 1e-4 * c : 0.0; }), mode);
        });
        add(mode == 1 ? "merge within a pile" : "merge within a pile, repeated", million,
            [mode](unsigned n) { return collapsing(pile(n), at_one_place(3), mode); });
    }

    add("search, line", million, [](unsigned n) { return searching(in_line(n)); });
    add("search, reverse", million, [](unsigned n) { return searching(in_reverse(n)); });
    add("search, NaN", million, [](unsigned n) { return searching(not_numbers(n), 4); });
    add("search, denormal", million, [](unsigned n) { return searching(denormal(n)); });
    add("search, huge", million, [](unsigned n) { return searching(huge(n)); });
    add("search, far and near", million, [](unsigned n) { return searching(far_and_near(n)); });
    add("search, circle", million, [](unsigned n) { return searching(on_a_circle(n)); });

    struct named_mesh
    {
        const char* name;
        unsigned size;
        mesh_of make;
    };
    static std::vector<std::string> names;
    names.reserve(1000);
    const auto named = [&](std::string name) {
        names.push_back(std::move(name));
        return names.back().c_str();
    };
    for (const auto& [name, size, make] : {named_mesh{"star", spokes, star},
                                           {"book", spokes, book},
                                           {"pile", spokes, pile},
                                           {"strip", million, strip},
                                           {"hostile numbers", million, hostile_numbers}})
    {
        const std::string of = name;
        const mesh_of mesh = make;
        add(named("get_neighbors, " + of), size, [mesh](unsigned n) { return finding_neighbors(mesh(n)); });
        add(named("copy_edges, " + of), size, [mesh](unsigned n) { return listing_edges(mesh(n)); });
        add(named("unique_indices and company, " + of), size, [mesh](unsigned n) { return compacting(mesh(n)); });
        add(named("get_IDs, " + of), size, [mesh](unsigned n) { return looking_up(mesh(n)); });
        if (mesh == hostile_numbers) continue; // tables by node number are what these are
        add(named("elements on boundaries and company, " + of), size, [mesh](unsigned n) { return walking(mesh(n)); });
        add(named("get_node_graph, " + of), size, [mesh](unsigned n) { return graphing(mesh(n)); });
        add(named("quality, " + of), size, [mesh](unsigned n) { return measuring(mesh(n), on_a_circle(n + 2), sizes_of(n + 2, jumping)); });
        for (const int direction : {-1, 0, 1})
            add(named("gradation and variation, jumping sizes, " + of + ", direction " + std::to_string(direction)), size,
                [mesh, direction](unsigned n) { return limiting(mesh(n), on_a_circle(n + 2), sizes_of(n + 2, jumping), direction); });
        add(named("gradation, tensors, " + of), size,
            [mesh](unsigned n) { return limiting_tensors(mesh(n), on_a_circle(n + 2), sizes_of(n + 2, jumping)); });
        add(named("gradation beside a frozen hub, " + of), size,
            [mesh](unsigned n) { return limiting_beside_frozen(mesh(n), on_a_circle(n + 2), sizes_of(n + 2, jumping), false); });
        add(named("gradation beside a frozen rim, " + of), size,
            [mesh](unsigned n) { return limiting_beside_frozen(mesh(n), on_a_circle(n + 2), sizes_of(n + 2, jumping), true); });
    }
    struct named_size
    {
        const char* name;
        double (*size)(unsigned);
    };
    for (const auto& [name, size] :
         {named_size{"equal sizes", [](unsigned) { return 1.0; }},
          {"denormal sizes", [](unsigned k) { return 5e-324 * (1 + k % 1000); }},
          {"huge sizes", [](unsigned k) { return 1e300 * (1 + k % 1000); }},
          {"sizes of all magnitudes", [](unsigned k) { return std::ldexp(1.0, static_cast<int>(k * 37 % 2000) - 1000); }},
          {"NaN sizes", [](unsigned k) { return k % 3 ? 1.0 : nan; }}})
    {
        const auto of = size;
        add(named(std::string("gradation and variation, ") + name), million,
            [of](unsigned n) { return limiting(strip(n), on_a_circle(n + 2), sizes_of(n + 2, of), -1); });
        add(named(std::string("gradation and variation at one place, ") + name), million,
            [of](unsigned n) { return limiting(strip(n), at_one_place(n + 2), sizes_of(n + 2, of), -1); });
        add(named(std::string("gradation, tensors, ") + name), million,
            [of](unsigned n) { return limiting_tensors(strip(n), on_a_circle(n + 2), sizes_of(n + 2, of)); });
    }

    add("STL_input, one triangle", million, [](unsigned n) { return welding(pile(n), on_a_circle(3)); });
    add("STL_input, one place", million, [](unsigned n) { return welding(strip(n), at_one_place(n + 2)); });
    add("STL_input, line", million, [](unsigned n) { return welding(strip(n), in_line(n + 2)); });
    add("STL_input, NaN", million, [](unsigned n) { return welding(strip(n), not_numbers(n + 2)); });
    add("STL_input, star", million, [](unsigned n) { return welding(star(n), on_a_circle(n + 1)); });
    add("NASTRAN_input, one node number", million, [](unsigned n) {
        write_lines(
            n, "", [](std::FILE* f, unsigned k) { std::fprintf(f, "GRID,1,,%u.,0.,0.\n", k); }, "ENDDATA\n");
        return reading_nastran();
    });
    add("NASTRAN_input, falling node numbers", million, [](unsigned n) {
        write_lines(
            n, "", [n](std::FILE* f, unsigned k) { std::fprintf(f, "GRID,%u,,%u.,0.,0.\n", n - k, k); }, "ENDDATA\n");
        return reading_nastran();
    });
    add("NASTRAN_input, a run per element", million, [](unsigned n) {
        write_lines(
            n, "", [](std::FILE* f, unsigned k) { std::fputs(k % 2 ? "CTRIA3,1,1,1,2,3\n" : "CQUAD4,1,1,1,2,3,4\n", f); }, "ENDDATA\n");
        return reading_nastran();
    });
    add("NASTRAN_input, growing elements", million, [](unsigned n) {
        write_lines(
            n, "", [](std::FILE* f, unsigned k) { std::fputs(k < 4 ? "CTRIA3,1,1,1,2,3\n" : "CHEXA,1,1,1,2,3,4,5,6,+\n+,7,8\n", f); },
            "ENDDATA\n");
        return reading_nastran();
    });
    add("NASTRAN_input, one card", million, [](unsigned n) {
        write_lines(
            n, "CHEXA,1,1,1,2,3,4,5,6\n", [](std::FILE* f, unsigned) { std::fputs("+,1,2,3,4,5,6,7,8\n", f); }, "ENDDATA\n");
        return reading_nastran();
    });
    add("NASTRAN_input, one line", 4 * million, [](unsigned n) {
        write_lines(
            n, "GRID", [](std::FILE* f, unsigned) { std::fputs(",1", f); }, "\n");
        return reading_nastran();
    });
    add("FEMAP_input, a run per element", million, [](unsigned n) {
        write_lines(
            n, "   -1\n   404\n",
            [](std::FILE* f, unsigned k) {
                std::fprintf(f, "%u,1,1,%d,%d,1,0,0,0\n1,2,3,4,0,0,0,0,0,0\n0,0,0,0,0,0,0,0,0,0\n0,0,0\n0,0,0\n0,0,0\n0,0,0,0,0,0,0,0,0\n",
                             k + 1, k % 2 ? 17 : 18, k % 2 ? 2 : 4);
            },
            "   -1\n");
        return reading_femap();
    });
    add("WavefrontOBJ_input, one face", 4 * million, [](unsigned n) {
        write_lines(
            n, "v 0 0 0\nf", [](std::FILE* f, unsigned) { std::fputs(" 1/1/1", f); }, "\n");
        return reading_obj();
    });
    add("WavefrontOBJ_input, faces of a star", million, [](unsigned n) {
        write_lines(
            n, "v 0 0 0\n", [](std::FILE* f, unsigned k) { std::fprintf(f, "f 1 %u %u\n", k, k + 1); }, "");
        return reading_obj();
    });
    add("medit_output, a color per element", million, writing_colors);
    return all;
}

double processor_time()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

/// The better of two.
double time_of(const job& timed, int& result)
{
    double best = DBL_MAX;
    for (int repetition = 0; repetition < 2 && (repetition == 0 || best < 2000); ++repetition)
    {
        const double start = processor_time();
        result = timed();
        best = std::min(best, processor_time() - start);
    }
    return best;
}

} // namespace

int main(int argc, char** argv)
{
    const char* const part = argc > 1 ? argv[1] : "";
    std::printf("%-78s %9s %11s %9s %11s %9s\n", "", "n", "ms", "4 n", "ms", "exponent");
    for (const auto& one : cases())
    {
        if (!std::strstr(one.name, part)) continue;
        int result = 0;
        const double small = time_of(one.prepare(one.size), result);
        const double large = time_of(one.prepare(4 * one.size), result);
        std::printf("%-78s %9u %11.2f %9u %11.2f %9.2f  (%d)\n", one.name, one.size, small, 4 * one.size, large,
                    std::log(large / small) / std::log(4.0), result);
        std::fflush(stdout);
    }
    std::remove(scratch_file().c_str());
}
