#include <algorithm>

#include "gridweave/core/kinds.h"
#include "gridweave/core/rows.h"
#include "gridweave/core/storage.h"

namespace tq4::gridweave
{

namespace
{

bool all_below(const unsigned* entries, std::size_t count, unsigned upper)
{
    // Without an early exit within a column the loop runs on whole registers.
    bool good = true;
    for (std::size_t k = 0; k < count; ++k) good &= entries[k] < upper;
    return good;
}

bool all_below_or_none(const unsigned* entries, std::size_t count, unsigned upper)
{
    bool good = true;
    for (std::size_t k = 0; k < count; ++k) good &= entries[k] < upper || entries[k] == none_index;
    return good;
}

bool is_surface_column(const unsigned* column, unsigned upper)
{
    return all_below(column, 3, upper) && (column[3] == none_index || column[3] < upper);
}

bool is_solid_column(const unsigned* column, unsigned upper)
{
    if (!all_below(column, 4, upper)) return false;
    // A none in row 4, 5 or 6 makes a tetrahedron, a pyramid or a prism; a lone none in row 7 makes nothing.
    for (unsigned row = 4; row < 7; ++row)
    {
        if (column[row] == none_index) return std::all_of(column + row + 1, column + 8, [](unsigned entry) { return entry == none_index; });
        if (column[row] >= upper) return false;
    }
    return column[7] < upper;
}

template <class Test>
bool all_columns(const dense2D<unsigned>& ids, Test&& test)
{
    const unsigned* column = ids.data();
    for (unsigned c = 0; c < ids.cols; ++c, column += ids.ld)
        if (!test(column)) return false;
    return true;
}

void renumber(unsigned* entries, std::size_t count, const dense1D<unsigned>& new_ids)
{
    const unsigned* map = new_ids.data();
    const unsigned known = new_ids.size;
    for (std::size_t k = 0; k < count; ++k)
        if (entries[k] < known) entries[k] = map[entries[k]];
}

void shift_all(unsigned* entries, std::size_t count, unsigned shift)
{
    for (std::size_t k = 0; k < count; ++k) entries[k] += shift;
}

void shift_all_but_none(unsigned* entries, std::size_t count, unsigned shift)
{
    for (std::size_t k = 0; k < count; ++k) entries[k] = entries[k] == none_index ? none_index : entries[k] + shift;
}

unsigned largest(const unsigned* entries, std::size_t count, unsigned start)
{
    // none + 1 wraps to 0, so one maximum over entry + 1 passes none over.
    unsigned above = start + 1;
    for (std::size_t k = 0; k < count; ++k) above = std::max(above, entries[k] + 1);
    return above - 1;
}

template <class T>
int permute(dense1D<T>& v, const dense1D<unsigned>& p)
{
    if (v.empty()) return 0;
    dense1D<T> moved;
    if (!moved.copy(v)) return out_of_memory;

    // `v` is written last: it may be the list of places, too.
    const unsigned count = std::min(v.size, p.size);
    for (unsigned i = 0; i < count; ++i)
        if (p[i] < v.size && p[i] != i) moved[p[i]] = v[i];
    std::copy(moved.begin(), moved.end(), v.begin());
    return 0;
}

} // namespace

void change_indices(dense1D<unsigned>& ids, const dense1D<unsigned>& new_ids)
{
    renumber(ids.data(), ids.size, new_ids);
}

void change_indices(dense2D<unsigned>& ids, const dense1D<unsigned>& new_ids)
{
    for_each_run(ids.data(), ids.rows, ids.cols, ids.ld, [&](unsigned* run, std::size_t length) {
        renumber(run, length, new_ids);
        return true;
    });
}

bool check_IDs(const dense1D<unsigned>& ids, unsigned upper)
{
    if (ids.empty() || upper == none_index) return true;
    return all_below_or_none(ids.data(), ids.size, upper);
}

bool check_IDs(const dense2D<unsigned>& ids, unsigned upper)
{
    if (ids.empty() || upper == none_index) return true;
    return for_each_run(ids.data(), ids.rows, ids.cols, ids.ld,
                        [&](const unsigned* run, std::size_t length) { return all_below_or_none(run, length, upper); });
}

bool check_IDs(const dense2D<unsigned>& ids, element_type kind, unsigned upper)
{
    if (ids.empty()) return true;
    kind = narrow(kind, ids.rows);
    if (ids.rows != nbr_nodes(kind)) return false;
    if (kind == ELEM_SURF_ANY) return all_columns(ids, [&](const unsigned* column) { return is_surface_column(column, upper); });
    if (kind == ELEM_SOLID_ANY) return all_columns(ids, [&](const unsigned* column) { return is_solid_column(column, upper); });
    return for_each_run(ids.data(), ids.rows, ids.cols, ids.ld,
                        [&](const unsigned* run, std::size_t length) { return all_below(run, length, upper); });
}

int get_sorted_order(const dense1D<unsigned>& ids, dense1D<unsigned>& order, dense1D<unsigned>& starts)
{
    if (!detach(order, ids) || !detach(starts, ids, order))
    {
        order.clear_hard();
        starts.clear_hard();
        return out_of_memory;
    }
    order.size = 0;
    starts.size = 0;
    if (ids.empty()) return starts.resize(1, 0) ? 0 : out_of_memory;

    const unsigned last = max_ID(ids);
    // Values close to the index limit would wrap the count of starts: that many do not fit either.
    if (last > none_index - 4 || !order.resize(ids.size) || !starts.resize(last + 4, 0))
    {
        order.clear_hard();
        starts.clear_hard();
        return out_of_memory;
    }

    // Counts go two places up and are summed there, so that the fill below moves each start on to the place where it belongs.
    for (const unsigned value : ids)
        if (value != none_index) ++starts[value + 2];
    for (unsigned value = 2; value < last + 3; ++value) starts[value + 1] += starts[value];
    for (unsigned position = 0; position < ids.size; ++position)
        if (ids[position] != none_index) order[starts[ids[position] + 1]++] = position;

    starts.size -= 2;
    order.size = starts[last + 1];
    return 0;
}

unsigned max_ID(const dense1D<unsigned>& ids)
{
    return ids.empty() ? none_index : largest(ids.data(), ids.size, 0);
}

unsigned max_ID(const dense2D<unsigned>& ids)
{
    if (ids.empty()) return ids.ld == ids.rows ? none_index : 0;
    unsigned answer = 0;
    for_each_run(ids.data(), ids.rows, ids.cols, ids.ld, [&](const unsigned* run, std::size_t length) {
        answer = largest(run, length, answer);
        return true;
    });
    return answer;
}

int permutation(dense1D<unsigned>& v, const dense1D<unsigned>& p)
{
    return permute(v, p);
}

int permutation(dense1D<double>& v, const dense1D<unsigned>& p)
{
    return permute(v, p);
}

int shift_indices(dense1D<unsigned>& ids, int shift)
{
    if (shift != 0) shift_all_but_none(ids.data(), ids.size, static_cast<unsigned>(shift));
    return 0;
}

int shift_indices(dense2D<unsigned>& ids, int shift, element_type kind)
{
    if (shift == 0) return 0;
    const bool padded = kind == ELEM_SURF_ANY || kind == ELEM_SOLID_ANY;
    for_each_run(ids.data(), ids.rows, ids.cols, ids.ld, [&](unsigned* run, std::size_t length) {
        padded ? shift_all_but_none(run, length, static_cast<unsigned>(shift)) : shift_all(run, length, static_cast<unsigned>(shift));
        return true;
    });
    return 0;
}

const char* version()
{
    return "4.9.0.0";
}

} // namespace tq4::gridweave
