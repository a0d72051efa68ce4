// Converting a mesh from one exchange format to another. The extensions choose the formats; what the target cannot hold is told before
// anything is written. Nodes keep their order, also those that no element needs.
//
//   convert in out [--kind name]...
//
//   in    .stl .obj .bdf .nas .dat .neu
//   out   the same, .mesh .vtk .geo
//   name  takes the elements of this kind alone (may be given several times): tria3, quad4, tetra10, ...

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <new>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <tq4/gridweave.h>

using namespace tq4;
using namespace tq4::gridweave;

namespace
{

/// Ends the program with one sentence.
[[noreturn]] void fail(const std::string& sentence)
{
    std::fprintf(stderr, "convert: %s\n", sentence.c_str());
    std::exit(1);
}

void note(const std::string& sentence)
{
    std::printf("  note: %s\n", sentence.c_str());
}

// ---- The formats, and what becomes of each kind in them. ----

enum format_id
{
    stl,
    obj,
    nastran,
    femap,
    medit,
    vtk,
    ensight,
    format_count
};

struct format
{
    const char* name;
    const char* digits;        // how coordinates are written
    const char* property_note; // what is left of a property number; none where the numbers are kept
    const char* malformed;     // what a reader's own code for a malformed file means
};

constexpr format formats[format_count]{
    {"STL", "as 32-bit floating-point numbers", "property numbers are lost", "is no STL file, or ends before its last triangle"},
    {"Wavefront OBJ", "with nine significant digits", "property numbers are lost", "has a malformed record"},
    {"NASTRAN", "with seven significant digits", nullptr, "has a node that cannot be read"},
    {"FEMAP", "with six significant digits", nullptr, "has a record with too few fields, a node numbered 0, or no end"},
    {"MEDIT", "with seven significant digits", nullptr, nullptr},
    {"VTK", "with six digits behind the decimal point", nullptr, nullptr},
    {"EnSight", "with six significant digits", nullptr, nullptr},
};

struct extension
{
    const char* text;
    format_id format;
};
constexpr extension extensions[]{{".stl", stl},   {".obj", obj},    {".bdf", nastran}, {".nas", nastran}, {".dat", nastran},
                                 {".neu", femap}, {".mesh", medit}, {".vtk", vtk},     {".geo", ensight}};

/// A kind and the kind as which each format gets it: the same one, one of fewer nodes (the last nodes of the columns go), triangles that
/// quadrangles are cut into, or none, which leaves the elements out.
struct kind_row
{
    element_type kind;
    const char* name;
    std::array<element_type, format_count> written_as;
};

// Some writers would take more, but not in a way that others can read: EnSight lists 6-node triangles twice, FEMAP shifts their corners.
constexpr element_type none = ELEM_NONE;
constexpr kind_row kind_table[]{
    // clang-format off
    //                           STL         OBJ         NASTRAN       FEMAP         MEDIT        VTK           EnSight
    {ELEM_NODE,    "node",    {none,       none,       none,         ELEM_NODE,    none,        none,         none}},
    {ELEM_BAR2,    "bar2",    {none,       none,       ELEM_BAR2,    ELEM_BAR2,    ELEM_BAR2,   ELEM_BAR2,    ELEM_BAR2}},
    {ELEM_BAR3,    "bar3",    {none,       none,       ELEM_BAR2,    ELEM_BAR3,    ELEM_BAR2,   ELEM_BAR3,    ELEM_BAR3}},
    {ELEM_TRIA3,   "tria3",   {ELEM_TRIA3, ELEM_TRIA3, ELEM_TRIA3,   ELEM_TRIA3,   ELEM_TRIA3,  ELEM_TRIA3,   ELEM_TRIA3}},
    {ELEM_QUAD4,   "quad4",   {ELEM_TRIA3, ELEM_QUAD4, ELEM_QUAD4,   ELEM_QUAD4,   ELEM_QUAD4,  ELEM_QUAD4,   ELEM_QUAD4}},
    {ELEM_TRIA6,   "tria6",   {ELEM_TRIA3, ELEM_TRIA3, ELEM_TRIA6,   ELEM_TRIA3,   ELEM_TRIA3,  ELEM_TRIA6,   ELEM_TRIA3}},
    {ELEM_QUAD8,   "quad8",   {ELEM_TRIA3, ELEM_QUAD4, ELEM_QUAD8,   ELEM_QUAD8,   ELEM_QUAD4,  ELEM_QUAD8,   ELEM_QUAD8}},
    {ELEM_QUAD9,   "quad9",   {ELEM_TRIA3, ELEM_QUAD4, ELEM_QUAD8,   ELEM_QUAD8,   ELEM_QUAD4,  ELEM_QUAD9,   ELEM_QUAD8}},
    {ELEM_TETRA4,  "tetra4",  {none,       none,       ELEM_TETRA4,  ELEM_TETRA4,  ELEM_TETRA4, ELEM_TETRA4,  ELEM_TETRA4}},
    {ELEM_TETRA10, "tetra10", {none,       none,       ELEM_TETRA10, ELEM_TETRA10, ELEM_TETRA4, ELEM_TETRA10, ELEM_TETRA10}},
    {ELEM_PYRA5,   "pyra5",   {none,       none,       ELEM_PYRA5,   none,         ELEM_PYRA5,  ELEM_PYRA5,   none}},
    {ELEM_PYRA13,  "pyra13",  {none,       none,       ELEM_PYRA13,  none,         ELEM_PYRA5,  ELEM_PYRA5,   none}},
    {ELEM_PYRA14,  "pyra14",  {none,       none,       ELEM_PYRA13,  none,         ELEM_PYRA5,  ELEM_PYRA14,  none}},
    {ELEM_PENTA6,  "penta6",  {none,       none,       ELEM_PENTA6,  ELEM_PENTA6,  ELEM_PENTA6, ELEM_PENTA6,  ELEM_PENTA6}},
    {ELEM_PENTA15, "penta15", {none,       none,       ELEM_PENTA15, ELEM_PENTA6,  ELEM_PENTA6, ELEM_PENTA6,  ELEM_PENTA6}},
    {ELEM_PENTA18, "penta18", {none,       none,       ELEM_PENTA15, ELEM_PENTA6,  ELEM_PENTA6, ELEM_PENTA18, ELEM_PENTA6}},
    {ELEM_HEXA8,   "hexa8",   {none,       none,       ELEM_HEXA8,   ELEM_HEXA8,   ELEM_HEXA8,  ELEM_HEXA8,   ELEM_HEXA8}},
    {ELEM_HEXA20,  "hexa20",  {none,       none,       ELEM_HEXA20,  ELEM_HEXA20,  ELEM_HEXA8,  ELEM_HEXA20,  ELEM_HEXA20}},
    {ELEM_HEXA27,  "hexa27",  {none,       none,       ELEM_HEXA20,  ELEM_HEXA20,  ELEM_HEXA8,  ELEM_HEXA27,  ELEM_HEXA20}},
    // clang-format on
};

const kind_row& row_of(element_type kind)
{
    return *std::find_if(std::begin(kind_table), std::end(kind_table), [kind](const kind_row& row) { return row.kind == kind; });
}

format_id format_of(const std::string& file)
{
    std::string end = std::filesystem::path(file).extension().string();
    for (char& letter : end) letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    for (const extension& known : extensions)
        if (end == known.text) return known.format;
    fail("the extension of " + file + " is not known; there are .stl .obj .bdf .nas .dat .neu .mesh .vtk .geo.");
}

// ---- The mesh: a matrix of one kind per part, and a property number (NASTRAN) or colour (FEMAP) for each of its columns. ----

struct part
{
    element_type kind;
    dense2D<unsigned> connect;
    dense1D<unsigned> properties;
};

struct mesh
{
    dense2D<double> pos;
    std::vector<part> parts;
    bool has_properties = false;
};

/// An allocation that fails says so in the size of what was asked for.
dense2D<unsigned> matrix(unsigned rows, unsigned cols)
{
    dense2D<unsigned> m;
    if (!m.resize(rows, cols, none_index)) throw std::bad_alloc();
    return m;
}

dense1D<unsigned> list(unsigned size, unsigned value)
{
    dense1D<unsigned> v;
    if (!v.resize(size, value)) throw std::bad_alloc();
    return v;
}

unsigned count_elements(const mesh& m)
{
    unsigned count = 0;
    for (const part& p : m.parts) count += p.connect.cols;
    return count;
}

std::string describe(const mesh& m)
{
    std::string text = std::to_string(m.pos.cols) + " nodes";
    std::map<element_type, unsigned> counts;
    for (const part& p : m.parts) counts[p.kind] += p.connect.cols;
    for (const auto& [kind, count] : counts) text += ", " + std::to_string(count) + " " + row_of(kind).name;
    return text;
}

void add_part(mesh& m, const dense2D<unsigned>& connect, element_type kind)
{
    if (connect.cols != 0) m.parts.push_back({kind, connect, list(connect.cols, 1)});
}

/// The parts of a table of runs: all columns of one kind, from whichever runs, go to one part, cut to the rows of that kind.
void add_runs(mesh& m, const dense2D<unsigned>& connect, const dense1D<unsigned>& starts, const dense1D<int>& kinds,
              const dense1D<unsigned>& properties)
{
    std::map<int, unsigned> columns;
    for (unsigned run = 0; run < kinds.size; ++run) columns[kinds[run]] += starts[run + 1] - starts[run];

    for (const auto& [value, count] : columns)
    {
        const auto kind = static_cast<element_type>(value);
        part p{kind, matrix(nbr_nodes(kind), count), list(count, 0)};
        unsigned next = 0;
        for (unsigned run = 0; run < kinds.size; ++run)
        {
            if (kinds[run] != value) continue;
            for (unsigned column = starts[run]; column < starts[run + 1]; ++column, ++next)
            {
                std::copy_n(connect.column(column), p.connect.rows, p.connect.column(next));
                p.properties[next] = properties[column];
            }
        }
        m.parts.push_back(p);
    }
    m.has_properties = true;
}

// ---- Reading ----

int read_nastran(const char* file, mesh& m)
{
    dense2D<unsigned> connect;
    dense1D<unsigned> starts, properties;
    dense1D<int> kinds;
    const int code = NASTRAN_input(file, m.pos, connect, starts, kinds, properties);
    if (code == 0 && connect.cols != 0) add_runs(m, connect, starts, kinds, properties);
    return code;
}

int read_femap(const char* file, mesh& m)
{
    dense2D<unsigned> connect;
    dense1D<unsigned> starts, colors;
    dense1D<int> kinds;
    const int code = FEMAP_input(file, m.pos, connect, starts, kinds, colors);
    if (code != 0 || connect.cols == 0) return code;

    // Elements of unknown topologies are not in `connect`, but they break the table of runs: it tells nothing unless all others are alike.
    std::set<int> known(kinds.begin(), kinds.end());
    if (known.erase(ELEM_NONE) != 0)
    {
        if (known.size() != 1) fail(std::string(file) + " has elements of unknown topologies among several known kinds.");
        note("elements of unknown topologies are left out");
        starts = list(2, 0);
        starts[1] = connect.cols;
        kinds.resize(1);
        kinds[0] = *known.begin();
    }
    add_runs(m, connect, starts, kinds, colors);
    return 0;
}

int read(const char* file, format_id from, mesh& m)
{
    dense2D<double> normals, texcoords;
    dense2D<unsigned> tria, quad;
    int code = 0;
    switch (from)
    {
    case stl: code = STL_input(file, m.pos, tria); break;
    case obj: code = WavefrontOBJ_input(file, m.pos, normals, texcoords, tria, quad); break;
    case nastran: return read_nastran(file, m);
    case femap: return read_femap(file, m);
    default: fail(std::string(file) + " cannot be read: " + formats[from].name + " is written only.");
    }
    add_part(m, tria, ELEM_TRIA3);
    add_part(m, quad, ELEM_QUAD4);
    if (normals.cols != 0 || texcoords.cols != 0) note("normals and texture coordinates are not converted");
    return code;
}

mesh read_mesh(const std::string& file, const std::set<element_type>& wanted)
{
    const format_id from = format_of(file);
    if (std::filesystem::is_directory(file)) fail(file + " is a folder.");
    if (!std::ifstream(file)) fail(file + " cannot be opened.");

    mesh m;
    const int code = read(file.c_str(), from, m);
    if (code == out_of_memory) fail("there is not enough memory to read " + file + ".");
    if (code != 0) fail(file + " " + formats[from].malformed + ".");
    if (m.parts.empty()) fail(file + " holds no elements.");

    // The readers do not compare the nodes of elements with those in the file.
    for (const part& p : m.parts)
        if (!check_IDs(p.connect, p.kind, m.pos.cols)) fail("elements of " + file + " name nodes that are not in it.");

    if (wanted.empty()) return m;
    const auto unwanted = [&wanted](const part& p) { return wanted.count(p.kind) == 0; };
    m.parts.erase(std::remove_if(m.parts.begin(), m.parts.end(), unwanted), m.parts.end());
    if (m.parts.empty()) fail(file + " holds no elements of the kind asked for.");
    return m;
}

// ---- Reducing the mesh to what the target holds, with a note for all that goes ----

/// Two triangles for each quadrangle.
part cut_quadrangles(const part& quads)
{
    constexpr unsigned corners[2][3]{{0, 1, 2}, {0, 2, 3}};
    part p{ELEM_TRIA3, matrix(3, 2 * quads.connect.cols), list(2 * quads.connect.cols, 0)};
    for (unsigned column = 0; column < p.connect.cols; ++column)
    {
        for (unsigned row = 0; row < 3; ++row) p.connect(row, column) = quads.connect(corners[column % 2][row], column / 2);
        p.properties[column] = quads.properties[column / 2];
    }
    return p;
}

mesh reduce(const mesh& full, format_id to)
{
    mesh reduced{full.pos, {}, full.has_properties};
    const std::string target = formats[to].name;
    for (const part& p : full.parts)
    {
        const kind_row& row = row_of(p.kind);
        const element_type kind = row.written_as[to];
        const std::string elements = std::to_string(p.connect.cols) + " " + row.name;
        if (kind == ELEM_NONE)
        {
            note(elements + " are left out: " + target + " does not hold them");
            continue;
        }

        const bool cut = nbr_base_nodes(kind) < nbr_base_nodes(p.kind);
        const unsigned rows = cut ? nbr_base_nodes(p.kind) : nbr_nodes(kind);
        if (rows < p.connect.rows)
            note(elements + (rows == nbr_base_nodes(p.kind) ? " are reduced to their corners" : " lose their last nodes") + ": " + target +
                 " takes " + std::to_string(rows) + " of their " + std::to_string(p.connect.rows) + " nodes");
        if (cut) note(elements + " are cut into two triangles each");
        if (to == vtk && nbr_nodes(kind) > nbr_base_nodes(kind))
            note(elements + " show their corners; their other nodes become loose points");
        if (to == medit && (kind == ELEM_PYRA5 || kind == ELEM_PENTA6)) note(elements + " are written as degenerate hexahedra");
        if (to == nastran && kind == ELEM_PENTA15) note(elements + " do not come back in the order of their middle nodes when read again");

        const part shortened{kind, p.connect.sub_matrix(0, 0, rows, p.connect.cols), p.properties};
        reduced.parts.push_back(cut ? cut_quadrangles(shortened) : shortened);
    }
    if (full.has_properties && formats[to].property_note) note(formats[to].property_note);
    note(std::string("coordinates are written ") + formats[to].digits);
    return reduced;
}

// ---- Writing ----

int write_stl(const char* file, const mesh& m)
{
    dense2D<unsigned> all = matrix(3, count_elements(m));
    unsigned next = 0;
    for (const part& p : m.parts)
        for (unsigned column = 0; column < p.connect.cols; ++column) std::copy_n(p.connect.column(column), 3, all.column(next++));
    return STL_output(file, m.pos, all, false);
}

int write_obj(const char* file, const mesh& m)
{
    dense2D<unsigned> tria, quad;
    for (const part& p : m.parts)
    {
        dense2D<unsigned>& all = p.kind == ELEM_TRIA3 ? tria : quad;
        const unsigned before = all.cols;
        if (!all.resize(p.connect.rows, before + p.connect.cols)) return out_of_memory;
        for (unsigned column = 0; column < p.connect.cols; ++column)
            std::copy_n(p.connect.column(column), p.connect.rows, all.column(before + column));
    }
    return WavefrontOBJ_output(file, m.pos, {}, {}, tria, quad);
}

/// NASTRAN and FEMAP: one matrix as high as the largest element, in which every part is a run.
template <class Writer>
int write_runs(const char* file, const mesh& m, Writer&& writer)
{
    unsigned rows = 0;
    for (const part& p : m.parts) rows = std::max(rows, p.connect.rows);
    const auto parts = static_cast<unsigned>(m.parts.size());
    dense2D<unsigned> connect = matrix(rows, count_elements(m));
    dense1D<unsigned> properties = list(connect.cols, 0), starts = list(parts + 1, 0);
    dense1D<int> kinds(parts);
    unsigned next = 0;
    for (unsigned k = 0; k < parts; ++k)
    {
        const part& p = m.parts[k];
        kinds[k] = p.kind;
        for (unsigned column = 0; column < p.connect.cols; ++column, ++next)
        {
            std::copy_n(p.connect.column(column), p.connect.rows, connect.column(next));
            properties[next] = p.properties[column];
        }
        starts[k + 1] = next;
    }
    return writer(file, m.pos, connect, starts, kinds, properties);
}

/// The mesh as a connectivity range with a matrix for each property number. The writers tell the matrices apart by their places in the
/// range, so a place is made to be the property number, less `first_place`, with empty matrices at the places between.
struct grouped_mesh
{
    std::vector<dense2D<unsigned>> range;
    dense1D<int> kinds;
};

std::string name_of(int matrix_kind)
{
    if (matrix_kind == ELEM_SURF_ANY) return "surfaces";
    if (matrix_kind == ELEM_SOLID_ANY) return "solids";
    return row_of(static_cast<element_type>(matrix_kind)).name;
}

/// @param family_of  the kind of the matrix in which elements of a kind go
template <class Family>
grouped_mesh group_by_property(const mesh& m, unsigned first_place, const char* what_places_are, Family&& family_of)
{
    using key = std::pair<unsigned, int>; // property number, kind of the matrix
    std::map<key, unsigned> columns, places;
    for (const part& p : m.parts)
        for (const unsigned property : p.properties) ++columns[{property, family_of(p.kind)}];

    // Property numbers can be places where no two matrices have the same and the range does not become too long.
    constexpr unsigned longest_range = 1000000;
    std::set<unsigned> properties;
    for (const auto& [k, count] : columns) properties.insert(k.first);
    const bool kept = properties.size() == columns.size() && *properties.begin() >= first_place && *properties.rbegin() < longest_range;
    for (const auto& [k, count] : columns)
    {
        const auto next = static_cast<unsigned>(places.size());
        places[k] = kept ? k.first - first_place : next;
        if (!kept && m.has_properties)
            note(std::string(what_places_are) + " " + std::to_string(next + first_place) + " is property " + std::to_string(k.first) +
                 ", " + name_of(k.second));
    }

    grouped_mesh g;
    const unsigned count = places.rbegin()->second + 1;
    g.range.resize(count);
    g.kinds.resize(count, ELEM_TRIA3);
    for (const auto& [k, place] : places)
    {
        g.range[place] = matrix(nbr_nodes(static_cast<element_type>(k.second)), columns[k]);
        g.kinds[place] = k.second;
        columns[k] = 0; // from here on the columns that are filled
    }
    for (const part& p : m.parts)
    {
        for (unsigned column = 0; column < p.connect.cols; ++column)
        {
            const key k{p.properties[column], family_of(p.kind)};
            std::copy_n(p.connect.column(column), p.connect.rows, g.range[places[k]].column(columns[k]++));
        }
    }
    return g;
}

/// The property numbers are the references. Elements of all shapes of one dimension share a matrix of the mixed kind.
grouped_mesh group_for_medit(const mesh& m)
{
    constexpr element_type by_dimension[]{ELEM_NONE, ELEM_BAR2, ELEM_SURF_ANY, ELEM_SOLID_ANY};
    return group_by_property(m, 0, "reference", [&](element_type kind) { return by_dimension[element_dim(kind)]; });
}

/// The property numbers are the numbers of the parts.
grouped_mesh group_for_ensight(const mesh& m)
{
    return group_by_property(m, 1, "part", [](element_type kind) { return kind; });
}

/// The property numbers become cell data behind the mesh. An element with more nodes than corners makes two cells.
int write_vtk(const char* file, const mesh& m)
{
    unsigned count = 0;
    dense1D<unsigned> cells, types;
    for (const part& p : m.parts)
    {
        const int code = vtk_convert(p.connect, p.kind, count, cells, types);
        if (code != 0) return code;
    }

    std::FILE* const stream = std::fopen(file, "w");
    if (!stream) return -1;
    const int code = vtk_output(stream, m.pos, count, cells, types);
    if (m.has_properties)
    {
        std::fprintf(stream, "\nCELL_DATA %u\nSCALARS property unsigned_int 1\nLOOKUP_TABLE default\n", count);
        for (const part& p : m.parts)
        {
            const bool two_cells = nbr_nodes(p.kind) > nbr_base_nodes(p.kind);
            for (const unsigned property : p.properties)
            {
                std::fprintf(stream, "%u\n", property);
                if (two_cells) std::fprintf(stream, "%u\n", property);
            }
        }
    }
    const bool complete = !std::ferror(stream);
    return std::fclose(stream) == 0 && complete ? code : -1;
}

int write(const char* file, format_id to, const mesh& m)
{
    grouped_mesh groups;
    if (to == medit) groups = group_for_medit(m);
    if (to == ensight) groups = group_for_ensight(m);
    std::fflush(stdout); // the notes stand before anything is written

    const dense2D<unsigned>* const first = groups.range.data();
    const dense2D<unsigned>* const last = first + groups.range.size();
    switch (to)
    {
    case stl: return write_stl(file, m);
    case obj: return write_obj(file, m);
    case nastran: return write_runs(file, m, [](const auto&... arguments) { return NASTRAN_output(arguments...); });
    case femap: return write_runs(file, m, [](const auto&... arguments) { return FEMAP_output(arguments...); });
    case medit: return medit_output(file, m.pos, first, last, groups.kinds);
    case vtk: return write_vtk(file, m);
    default: return ensight_output(file, m.pos, first, last, groups.kinds);
    }
}

void convert(const std::string& in, const std::string& out, const std::set<element_type>& wanted)
{
    const format_id to = format_of(out);
    const mesh full = read_mesh(in, wanted);
    std::printf("%s: %s\n", in.c_str(), describe(full).c_str());

    const mesh reduced = reduce(full, to);
    if (reduced.parts.empty()) fail("there is nothing to write: " + std::string(formats[to].name) + " holds no element of " + in + ".");

    const int code = write(out.c_str(), to, reduced);
    if (code == out_of_memory) throw std::bad_alloc();
    if (code != 0) fail(out + " cannot be written (code " + std::to_string(code) + ").");
    std::printf("%s: %s\n", out.c_str(), describe(reduced).c_str());
}

element_type kind_named(const std::string& name)
{
    std::string names;
    for (const kind_row& row : kind_table)
    {
        if (name == row.name) return row.kind;
        names += std::string(" ") + row.name;
    }
    fail("there is no kind " + name + "; there are" + names + ".");
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> files;
    std::set<element_type> wanted;
    for (int k = 1; k < argc; ++k)
    {
        if (std::string(argv[k]) == "--kind" && k + 1 < argc)
            wanted.insert(kind_named(argv[++k]));
        else
            files.push_back(argv[k]);
    }
    if (files.size() != 2)
    {
        std::fprintf(stderr, "usage: convert in out [--kind name]...\n");
        return 2;
    }

    try
    {
        convert(files[0], files[1], wanted);
    }
    catch (const std::bad_alloc&)
    {
        fail("there is not enough memory for " + files[0] + ".");
    }
    return 0;
}
