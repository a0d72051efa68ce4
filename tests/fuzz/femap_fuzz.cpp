#include <algorithm>

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
    const int written = FEMAP_output(file.name(), pos, table.connect, table.run_starts, table.kinds, table.labels);
    promise_code(written, {-2, -3});
    if (written != 0) return;
    dense2D<double> points;
    run_table again;
    const int code = FEMAP_input(file.name(), points, again.connect, again.run_starts, again.kinds, again.labels);
    promise_code(code, {out_of_memory});
    if (code != 0 || table.connect.empty()) return;
    promise(points.cols == pos.cols, "all nodes come back");
    promise(again.connect.cols <= table.connect.cols, "no element comes from nowhere");
}

} // namespace

void read(const char* file, std::uint32_t choice)
{
    dense2D<double> pos(2, 3, 1.0);
    run_table table = used_run_table();
    const int code = FEMAP_input(file, pos, table.connect, table.run_starts, table.kinds, table.labels);
    promise_code(code, {-102, out_of_memory});
    promise(code <= 0, "0 or a code");
    promise(has_rows_or_nothing(pos, 3), "three rows of coordinates");
    const bool known_kinds = std::find(table.kinds.begin(), table.kinds.end(), int{ELEM_NONE}) == table.kinds.end();
    if (code == 0 && known_kinds) promise_run_table(table);
    promise(table.run_starts.empty() || table.run_starts[table.run_starts.size - 1] == table.labels.size || limited_memory::has_refused(),
            "the elements are counted");
    // An element that the file ends in has its column already.
    promise(table.labels.size == table.connect.cols || (code != 0 && table.labels.size < table.connect.cols), "a colour per element");

    promise_short_forms(file, choice, code, pos, table.connect, run_height::any,
                        [](auto&&... arguments) { return FEMAP_input(arguments...); });
    if (choice % 8 == 1 && code == 0 && known_kinds && !limited_memory::has_refused()) write_and_read(pos, table);
}

} // namespace tq4::fuzz
