// Relating two numberings: the entries of one list to those of another, the columns of one matrix to those of another.

#include <algorithm>
#include <cstdint>
#include <utility>

#include <tq4/gridweave/core.h>

#include "gridweave/core/storage.h"

namespace tq4::gridweave
{

namespace
{

/// Sizes the output to `count` entries of none. False when memory runs out; what entries there are hold none then, too.
bool fill_with_none(dense1D<unsigned>& ids, unsigned count)
{
    ids.size = 0;
    if (ids.resize(count, none_index)) return true;
    ids = none_index;
    return false;
}

/// A table by value wins over sorting while it is not much larger than the items, which it is filled and read by. Indices that are spread
/// wider, by intent or by damage, must not decide how much memory is taken.
bool is_worth_a_table(unsigned low, unsigned high, std::uint64_t items)
{
    constexpr std::uint64_t places_per_item = 4;
    return high - low < places_per_item * items;
}

/// Items of `a` and of `b` are sorted in one array, those of `b` numbered on from those of `a`. Within a run of equal items, which are in
/// ascending order, this gives the three ends that both lookups need: `worker(first of a, first of b, end)`. Runs that only one side has
/// are passed over.
template <class Item, class Same, class Place, class Worker>
void for_each_common_run(const dense1D<Item>& sorted, unsigned first_of_b, Same&& same, Place&& place_of, Worker&& worker)
{
    for (const Item* run = sorted.begin(); run != sorted.end();)
    {
        const Item* middle = run;
        while (middle != sorted.end() && place_of(*middle) < first_of_b && same(*run, *middle)) ++middle;
        const Item* last = middle;
        while (last != sorted.end() && same(*run, *last)) ++last;
        if (middle != run && last != middle) worker(run, middle, last);
        run = last;
    }
}

/// The first position in `a` of every value between the smallest and the largest entry of `a`, as a table: the way for numberings without
/// large gaps. False when there is no memory for it.
bool relate_by_table(const dense1D<unsigned>& a, unsigned low, unsigned high, const dense1D<unsigned>& b, dense1D<unsigned>& b_in_a,
                     dense1D<unsigned>& a_in_b)
{
    const unsigned range = high - low + 1;
    dense1D<unsigned> first_in_a;
    if (!first_in_a.resize(range, none_index)) return false;

    // Both lists run backwards, so that the first of equal entries is the one that stays.
    for (unsigned i = a.size; i-- > 0;)
        if (a[i] != none_index) first_in_a[a[i] - low] = i;
    for (unsigned j = b.size; j-- > 0;)
    {
        const unsigned place = b[j] - low;
        if (place >= range || first_in_a[place] == none_index) continue;
        b_in_a[j] = first_in_a[place];
        a_in_b[first_in_a[place]] = j;
    }
    return true;
}

/// An entry in the upper half of a word with its position in the lower half, so that words order by entry first.
constexpr std::uint64_t placed_entry(unsigned entry, unsigned position)
{
    return std::uint64_t{entry} << 32 | position;
}

/// The way for entries spread over any range. Where there is no memory nothing is related.
void relate_by_sorting(const dense1D<unsigned>& a, const dense1D<unsigned>& b, dense1D<unsigned>& b_in_a, dense1D<unsigned>& a_in_b)
{
    dense1D<std::uint64_t> sorted;
    if (b.size > none_index - a.size || !sorted.resize(a.size + b.size)) return;
    std::uint64_t* end = sorted.begin();
    for (unsigned i = 0; i < a.size; ++i)
        if (a[i] != none_index) *end++ = placed_entry(a[i], i);
    for (unsigned j = 0; j < b.size; ++j)
        if (b[j] != none_index) *end++ = placed_entry(b[j], a.size + j);
    sorted.size = static_cast<unsigned>(end - sorted.begin());
    std::sort(sorted.begin(), sorted.end());

    const auto same = [](std::uint64_t left, std::uint64_t right) { return left >> 32 == right >> 32; };
    const auto place_of = [](std::uint64_t word) { return static_cast<unsigned>(word); };
    for_each_common_run(sorted, a.size, same, place_of,
                        [&](const std::uint64_t* in_a, const std::uint64_t* in_b, const std::uint64_t* last) {
                            const unsigned i = place_of(*in_a);
                            a_in_b[i] = place_of(*in_b) - a.size;
                            for (; in_b != last; ++in_b) b_in_a[place_of(*in_b) - a.size] = i;
                        });
}

/// Writes the column as the representative of its cycle: the largest entry (the first of equals) in front, and of the two directions from
/// there the lexicographically smaller one. Two columns are taken as one cycle exactly when their representatives are equal.
void write_cycle(const unsigned* column, unsigned rows, unsigned* cycle)
{
    std::rotate_copy(column, std::max_element(column, column + rows), column + rows, cycle);
    unsigned low = 1;
    unsigned high = rows - 1;
    while (low < high && cycle[low] == cycle[high]) ++low, --high;
    if (low < high && cycle[high] < cycle[low]) std::reverse(cycle + 1, cycle + rows);
}

/// Writes the columns of `b` behind those of `a`, in the form in which equal ones are equal entry for entry.
void gather_columns(const dense2D<unsigned>& a, const dense2D<unsigned>& b, bool exact, dense2D<unsigned>& columns)
{
    unsigned end = 0;
    for (const dense2D<unsigned>* matrix : {&a, &b})
        for (unsigned c = 0; c < matrix->cols; ++c, ++end)
        {
            if (exact)
                std::copy_n(matrix->column(c), a.rows, columns.column(end));
            else
                write_cycle(matrix->column(c), a.rows, columns.column(end));
        }
}

/// A column as it is sorted: its first two entries stand here, so that few comparisons reach for the rest.
struct placed_column
{
    std::uint64_t head;
    unsigned column;
};

/// Lists the columns by their first entries where these lie in a narrow range, otherwise as they stand, and calls `worker(begin, end)` for
/// every stretch that is left to be sorted. In a mesh few columns share an entry, so a stretch is short.
template <class Worker>
void for_each_stretch(const dense2D<unsigned>& columns, dense1D<placed_column>& order, Worker&& worker)
{
    const auto placed = [&](unsigned c) {
        return placed_column{std::uint64_t{columns(0, c)} << 32 | (columns.rows > 1 ? columns(1, c) : 0), c};
    };
    unsigned low = columns(0, 0);
    unsigned high = low;
    for (unsigned c = 1; c < columns.cols; ++c)
    {
        low = std::min(low, columns(0, c));
        high = std::max(high, columns(0, c));
    }

    dense1D<unsigned> ends;
    if (!is_worth_a_table(low, high, columns.cols) || !ends.resize(high - low + 1, 0))
    {
        for (unsigned c = 0; c < columns.cols; ++c) order[c] = placed(c);
        worker(order.begin(), order.end());
        return;
    }

    for (unsigned c = 0; c < columns.cols; ++c) ++ends[columns(0, c) - low];
    unsigned start = 0;
    for (unsigned& end : ends) start += std::exchange(end, start);
    for (unsigned c = 0; c < columns.cols; ++c) order[ends[columns(0, c) - low]++] = placed(c);
    start = 0;
    for (const unsigned end : ends)
    {
        worker(order.begin() + start, order.begin() + end);
        start = end;
    }
}

} // namespace

int get_IDs(const dense1D<unsigned>& a, const dense1D<unsigned>& b, dense1D<unsigned>& b_in_a, dense1D<unsigned>& a_in_b)
{
    const bool apart = detach(b_in_a, a, b) && detach(a_in_b, a, b, b_in_a);
    if (!apart) b_in_a.size = a_in_b.size = 0; // they may still look at the input's entries
    const bool b_filled = apart && fill_with_none(b_in_a, b.size);
    const bool a_filled = apart && fill_with_none(a_in_b, a.size);
    // This form has no code for want of memory: what cannot be related stays none.
    if (a.empty() || b.empty() || !b_filled || !a_filled) return 0;

    unsigned low = none_index;
    unsigned high = 0;
    for (const unsigned id : a)
    {
        low = std::min(low, id);
        if (id != none_index) high = std::max(high, id);
    }
    if (low == none_index) return 0;

    const bool related = is_worth_a_table(low, high, std::uint64_t{a.size} + b.size) && relate_by_table(a, low, high, b, b_in_a, a_in_b);
    if (!related) relate_by_sorting(a, b, b_in_a, a_in_b);
    return 0;
}

int get_IDs(const dense2D<unsigned>& a, const dense2D<unsigned>& b, dense1D<unsigned>& b_in_a, dense1D<unsigned>& a_in_b, bool exact)
{
    const bool apart = detach(b_in_a, a, b) && detach(a_in_b, a, b, b_in_a);
    if (!apart) b_in_a.size = a_in_b.size = 0; // they may still look at the input's entries
    const bool b_filled = apart && fill_with_none(b_in_a, b.cols);
    const bool a_filled = apart && fill_with_none(a_in_b, a.cols);
    if (!b_filled || !a_filled) return out_of_memory;
    if (a.empty() || b.empty()) return 0;
    if (a.rows != b.rows) return -2;

    const unsigned rows = a.rows;
    dense2D<unsigned> columns;
    dense1D<placed_column> order;
    if (b.cols > none_index - a.cols || !columns.resize(rows, a.cols + b.cols) || !order.resize(columns.cols)) return out_of_memory;
    gather_columns(a, b, exact, columns);

    const auto compare_rest = [&](const placed_column& left, const placed_column& right) {
        const unsigned* const l = columns.column(left.column);
        const unsigned* const r = columns.column(right.column);
        for (unsigned row = 2; row < rows; ++row)
            if (l[row] != r[row]) return l[row] < r[row] ? -1 : 1;
        return 0;
    };
    const auto less = [&](const placed_column& left, const placed_column& right) {
        if (left.head != right.head) return left.head < right.head;
        const int rest = compare_rest(left, right);
        return rest != 0 ? rest < 0 : left.column < right.column;
    };
    for_each_stretch(columns, order, [&](placed_column* begin, placed_column* end) { std::sort(begin, end, less); });

    const auto same = [&](const placed_column& left, const placed_column& right) {
        return left.head == right.head && compare_rest(left, right) == 0;
    };
    const auto place_of = [](const placed_column& placed) { return placed.column; };
    for_each_common_run(order, a.cols, same, place_of,
                        [&](const placed_column* in_a, const placed_column* in_b, const placed_column* last) {
                            const unsigned first_in_a = in_a->column;
                            const unsigned first_in_b = in_b->column - a.cols;
                            for (; in_a != in_b; ++in_a) a_in_b[in_a->column] = first_in_b;
                            for (; in_a != last; ++in_a) b_in_a[in_a->column - a.cols] = first_in_a;
                        });
    return 0;
}

} // namespace tq4::gridweave
