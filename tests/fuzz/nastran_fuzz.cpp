#include <tq4/gridweave.h>

#include "fuzz/promise.h"
#include "fuzz/reader.h"
#include "fuzz/run_table.h"

namespace tq4::fuzz
{

using namespace gridweave;

namespace
{

void write_and_read(const dense2D<double>& pos, const run_table& table)
{
    static memory_file file;
    // Nothing is written without elements, and a refused run would leave the file open.
    if (table.connect.empty() || !has_writable_runs(table)) return;
    const int written = NASTRAN_output(file.name(), pos, table.connect, table.run_starts, table.kinds, table.labels);
    promise_code(written, {-2});
    if (written != 0) return;
    dense2D<double> points;
    run_table again;
    const int code = NASTRAN_input(file.name(), points, again.connect, again.run_starts, again.kinds, again.labels);
    promise_code(code, {out_of_memory});
    if (code == 0) promise(points.cols == pos.cols, "all nodes come back");
}

} // namespace

void read(const char* file, std::uint32_t choice)
{
    dense2D<double> pos(2, 3, 1.0);
    run_table table = used_run_table();
    const int code = NASTRAN_input(file, pos, table.connect, table.run_starts, table.kinds, table.labels);
    promise_code(code, {-1, out_of_memory});
    promise(code <= 0, "0 or a code");
    promise(has_rows_or_nothing(pos, 3), "three rows of coordinates");
    if (!limited_memory::has_refused())
    {
        promise_run_table(table);
        promise(table.connect.empty() || table.connect.rows >= 2, "the rows of the largest element");
    }

    promise_short_forms(file, choice, code, pos, table.connect, run_height::of_its_kind,
                        [](auto&&... arguments) { return NASTRAN_input(arguments...); });
    if (choice % 8 == 1 && code == 0 && !limited_memory::has_refused()) write_and_read(pos, table);
}

} // namespace tq4::fuzz
