// Every writer on meshes that are nearly right; what is written for the formats that are read is read again.

#include <algorithm>
#include <vector>

#include <tq4/gridweave.h>

#include "fuzz/memory_file.h"
#include "fuzz/mesh_source.h"
#include "fuzz/mesh_walk.h"
#include "fuzz/promise.h"
#include "fuzz/run_table.h"

// The linker sends the calls of the library here: streams that are left open on purpose, after a failed test of arguments, would use up
// the descriptors of the process.
namespace
{

std::vector<std::FILE*> open_streams;

} // namespace

extern "C" std::FILE* __real_fopen(const char* name, const char* mode);
extern "C" int __real_fclose(std::FILE* stream);

extern "C" std::FILE* __wrap_fopen(const char* name, const char* mode)
{
    std::FILE* const stream = __real_fopen(name, mode);
    if (stream) open_streams.push_back(stream);
    return stream;
}

extern "C" int __wrap_fclose(std::FILE* stream)
{
    open_streams.erase(std::remove(open_streams.begin(), open_streams.end(), stream), open_streams.end());
    return __real_fclose(stream);
}

namespace tq4::fuzz
{

using namespace gridweave;

namespace
{

/// What becomes of the stream when a test of the arguments fails.
enum class when_refused
{
    closed,
    left_open
};

/// Holds a result against the codes told and against the streams that are open, and closes these.
void promise_written(int code, std::initializer_list<int> told, when_refused refused)
{
    promise_code(code, told);
    promise(code <= 0, "0 or a code");
    const bool may_be_open = code != 0 && refused == when_refused::left_open;
    promise(open_streams.size() <= (may_be_open ? 1u : 0u), "streams are closed");
    while (!open_streams.empty())
    {
        std::FILE* const stream = open_streams.back();
        open_streams.pop_back();
        __real_fclose(stream);
    }
}

struct state
{
    test::mesh mesh;
    dense2D<unsigned> other;
    element_type other_kind = ELEM_NONE;
    const char* file = nullptr;
};

void write_ranges(mesh_source& source, state& s)
{
    const dense2D<unsigned> range[2] = {s.mesh.connectivity, s.other};
    dense1D<int> kinds = source.kinds(2);
    if (!kinds.empty()) kinds[0] = s.mesh.kind;
    const auto& [pos, connect, kind] = s.mesh;
    switch (source.below(9))
    {
    case 0: promise_written(medit_output(s.file, pos, range, range + 2, kinds), {-2, -3, -5, out_of_memory}, when_refused::closed); break;
    case 1:
        promise_written(medit_output(s.file, pos, connect, s.other, kind, s.other_kind), {-2, -3, out_of_memory}, when_refused::closed);
        break;
    case 2: promise_written(medit_output(s.file, pos, connect, kind), {-2, -3, out_of_memory}, when_refused::closed); break;
    case 3:
        promise_written(vtk_output(s.file, pos, range, range + 2, kinds), {-1, -2, -3, -5, out_of_memory}, when_refused::left_open);
        break;
    case 4:
        promise_written(vtk_output(s.file, pos, connect, s.other, kind, s.other_kind), {-1, -2, -3, out_of_memory},
                        when_refused::left_open);
        break;
    case 5: promise_written(vtk_output(s.file, pos, connect, kind), {-1, -2, -3, out_of_memory}, when_refused::left_open); break;
    case 6:
        promise_written(ensight_output(s.file, pos, range, range + 2, kinds), {-2, -3, -5, out_of_memory}, when_refused::left_open);
        break;
    case 7:
        promise_written(ensight_output(s.file, pos, connect, s.other, kind, s.other_kind), {-2, -3, out_of_memory},
                        when_refused::left_open);
        break;
    default: promise_written(ensight_output(s.file, pos, connect, kind), {-2, -3, out_of_memory}, when_refused::left_open);
    }
}

void write_fields(mesh_source& source, state& s)
{
    const dense1D<double> values = source.numbers(s.mesh.pos.cols);
    switch (source.below(4))
    {
    case 0: promise_written(medit_scalar(s.file, source.below(5), values), {}, when_refused::closed); break;
    case 1: promise_written(medit_vector(s.file, source.below(5), s.mesh.pos), {}, when_refused::closed); break;
    case 2: promise_written(medit_tensor(s.file, source.matrix(source.below(8), source.below(8))), {-2}, when_refused::left_open); break;
    default:
    {
        dense1D<unsigned> colors = source.indices(4);
        if (source.flip()) colors.resize(s.mesh.connectivity.cols, 1u);
        promise_written(medit_output(s.file, s.mesh.pos, s.mesh.connectivity, s.mesh.kind, colors), {-2, -3, -5, -6, out_of_memory},
                        when_refused::closed);
    }
    }
}

void write_surface(mesh_source& source, state& s)
{
    const auto& [pos, connect, kind] = s.mesh;
    dense2D<double> points[3];
    dense2D<unsigned> faces[2];
    switch (source.below(5))
    {
    case 0:
    case 1:
    {
        // Two rows of coordinates are read beyond by contract; the block must hold what follows.
        const bool text = source.flip();
        const int code = STL_output(s.file, pos, connect, text);
        promise_written(code, {-2, -3, out_of_memory}, when_refused::left_open);
        if (code == 0) promise_written(STL_input(s.file, points[0], faces[0]), {-2, -3, out_of_memory}, when_refused::closed);
        return;
    }
    case 2:
        promise_written(
            WavefrontOBJ_output(s.file, pos, source.flip() ? pos : points[0], source.flip() ? pos : points[0], connect, s.other),
            {-2, -3, -4, -5, -6, out_of_memory}, when_refused::closed);
        break;
    case 3:
        promise_written(WavefrontOBJ_output(s.file, pos, connect, s.other, kind, s.other_kind), {-2, -3, -4, -5, -6, out_of_memory},
                        when_refused::closed);
        break;
    default: promise_written(WavefrontOBJ_output(s.file, pos, connect, kind), {-2, -3, -4, -5, -6, out_of_memory}, when_refused::closed);
    }
    promise_written(WavefrontOBJ_input(s.file, points[0], points[1], points[2], faces[0], faces[1]), {-2, out_of_memory},
                    when_refused::closed);
}

/// A table of runs over the mesh: mostly one that covers it.
run_table table_of(mesh_source& source, const state& s)
{
    const ample_memory enough;
    run_table table;
    const unsigned cols = s.mesh.connectivity.cols;
    const unsigned middle = source.below(cols + 1);
    table.connect = s.mesh.connectivity;
    table.run_starts = test::ids_of({0, middle, cols});
    if (source.below(8) == 0) table.run_starts = source.indices(cols + 1);
    table.kinds = source.kinds(2);
    if (source.below(8) != 0)
        for (int& kind : table.kinds) kind = s.mesh.kind;
    table.labels = dense1D<unsigned>(source.below(8) == 0 ? source.below(cols + 2) : cols, 5u);
    return table;
}

void write_cards(mesh_source& source, state& s)
{
    const auto& [pos, connect, kind] = s.mesh;
    const run_table table = table_of(source, s);
    const bool is_nastran = source.flip();
    const auto refused = is_nastran ? when_refused::left_open : when_refused::closed;
    int code = 0;
    switch (source.below(3))
    {
    case 0:
        code = is_nastran ? NASTRAN_output(s.file, pos, table.connect, table.run_starts, table.kinds, table.labels)
                          : FEMAP_output(s.file, pos, table.connect, table.run_starts, table.kinds, table.labels);
        break;
    case 1:
        code = is_nastran ? NASTRAN_output(s.file, pos, connect, s.other, kind, s.other_kind)
                          : FEMAP_output(s.file, pos, connect, s.other, kind, s.other_kind);
        break;
    default: code = is_nastran ? NASTRAN_output(s.file, pos, connect, kind) : FEMAP_output(s.file, pos, connect, kind);
    }
    promise_written(code, {-2, -3, -5, -6, out_of_memory}, refused);
    if (code != 0) return;

    dense2D<double> points;
    run_table again;
    if (is_nastran)
        code = NASTRAN_input(s.file, points, again.connect, again.run_starts, again.kinds, again.labels);
    else
        code = FEMAP_input(s.file, points, again.connect, again.run_starts, again.kinds, again.labels);
    promise_written(code, {-1, -102, out_of_memory}, when_refused::closed);
    if (code == 0 && !limited_memory::has_refused()) promise_run_table(again);
}

void call(mesh_source& source, state& s)
{
    switch (source.below(5))
    {
    case 0: write_ranges(source, s); break;
    case 1: write_fields(source, s); break;
    case 2: write_surface(source, s); break;
    case 3: write_cards(source, s); break;
    default: s.other_kind = source.kind(); s.other = source.connectivity(s.other_kind, s.mesh.pos.cols);
    }
}

} // namespace

void run(mesh_source& source)
{
    static memory_file file;
    file.assign(nullptr, 0);
    state s;
    s.mesh = source.mesh();
    s.file = file.name();
    // The buffers of the readers and writers need this much.
    constexpr std::size_t enough = std::size_t{1} << 19;
    const unsigned failing = source.failing_request();
    limited_memory memory(enough, failing);
    for (unsigned k = 0; k < 6 && !source.is_exhausted(); ++k) call(source, s);
}

} // namespace tq4::fuzz
