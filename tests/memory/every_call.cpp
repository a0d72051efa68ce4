#include "memory/every_call.h"

#include <algorithm>
#include <cfloat>
#include <cstdio>
#include <cstring>
#include <type_traits>
#include <utility>

namespace tq4::test
{

using namespace gridweave;

namespace
{

// ---- Duplicates and comparisons of all that a call may change ---------------------------------------------------------------------------

template <class T>
void set_duplicate(dense1D<T>& to, const dense1D<T>& from)
{
    to.copy(from);
}

template <class T>
void set_duplicate(dense2D<T>& to, const dense2D<T>& from)
{
    to.copy(from);
}

template <class T>
void set_duplicate(T& to, const T& from)
{
    to = from;
}

template <class T>
bool same(const dense1D<T>& a, const dense1D<T>& b)
{
    return a.size == b.size && (a.empty() || std::memcmp(a.data(), b.data(), a.size * sizeof(T)) == 0);
}

template <class T>
bool same(const dense2D<T>& a, const dense2D<T>& b)
{
    if (a.rows != b.rows || a.cols != b.cols) return false;
    for (unsigned c = 0; c < a.cols; ++c)
        if (a.rows && std::memcmp(a.column(c), b.column(c), a.rows * sizeof(T)) != 0) return false;
    return true;
}

bool same(const auxkit::histogram& a, const auxkit::histogram& b)
{
    if (a.bins() != b.bins() || a.count() != b.count() || a.nan_count() != b.nan_count() || a.underflow() != b.underflow() ||
        a.overflow() != b.overflow())
        return false;
    if (a.count() && (a.min() != b.min() || a.max() != b.max() || a.mean() != b.mean())) return false;
    for (unsigned i = 0; i < a.bins(); ++i)
        if (a.bin_count(i) != b.bin_count(i) || a.bin_low(i) != b.bin_low(i)) return false;
    return true;
}

dense1D<unsigned> nodes_of(const node_detector& detector)
{
    dense1D<unsigned> nodes;
    detector.find_in_box(vector_fixed<double, 3>{-DBL_MAX, -DBL_MAX, -DBL_MAX}, vector_fixed<double, 3>{DBL_MAX, DBL_MAX, DBL_MAX}, nodes);
    return nodes;
}

bool same(const node_detector& a, const node_detector& b)
{
    return a.size() == b.size() && same(nodes_of(a), nodes_of(b));
}

template <class T>
bool same(const T& a, const T& b)
{
    return a == b;
}

template <class Tuple, std::size_t... I>
void duplicate_fields(Tuple to, Tuple from, std::index_sequence<I...>)
{
    (set_duplicate(std::get<I>(to), std::as_const(std::get<I>(from))), ...);
}

/// Duplicates what differs from `changed`; the rest of `to` stays as it is.
template <class Tuple, std::size_t... I>
void duplicate_changed_fields(Tuple to, Tuple from, Tuple changed, std::index_sequence<I...>)
{
    ((same(std::as_const(std::get<I>(from)), std::as_const(std::get<I>(changed)))
          ? void()
          : set_duplicate(std::get<I>(to), std::as_const(std::get<I>(from)))),
     ...);
}

template <class Tuple, std::size_t... I>
bool same_fields(Tuple a, Tuple b, std::index_sequence<I...>)
{
    return (same(std::as_const(std::get<I>(a)), std::as_const(std::get<I>(b))) && ...);
}

using all_fields = std::make_index_sequence<std::tuple_size_v<decltype(std::declval<arguments&>().fields())>>;

// ---- Promises about one field -----------------------------------------------------------------------------------------------------------

template <class Field, class Check>
field_promise promise(Field arguments::*field, bool is_replaced, Check check)
{
    return {[field, check](const arguments& after, const arguments& before, const arguments& success) {
                return check(after.*field, before.*field, success.*field);
            },
            [field](arguments& after, const arguments& before) { set_duplicate(after.*field, before.*field); }, is_replaced};
}

/// The field is replaced, and empty after a failure.
template <class Field>
field_promise emptied(Field arguments::*field)
{
    return promise(field, true, [](const Field& after, const Field&, const Field&) { return after.size == 0; });
}

template <class T>
field_promise emptied(dense2D<T> arguments::*field)
{
    return promise(field, true, [](const dense2D<T>& after, const dense2D<T>&, const dense2D<T>&) { return after.empty(); });
}

/// The field is replaced; nothing is promised after a failure.
template <class Field>
field_promise replaced(Field arguments::*field)
{
    return promise(field, true, [](const Field&, const Field&, const Field&) { return true; });
}

/// The field is changed in place; nothing is promised after a failure.
template <class Field>
field_promise changed(Field arguments::*field)
{
    return promise(field, false, [](const Field&, const Field&, const Field&) { return true; });
}

/// The field is changed in place to what it is after a success.
template <class Field>
field_promise done(Field arguments::*field)
{
    return promise(field, false, [](const Field& after, const Field&, const Field& success) { return same(after, success); });
}

/// The field is changed in place wholly or not at all.
template <class Field>
field_promise done_or_kept(Field arguments::*field)
{
    return promise(field, false, [](const Field& after, const Field& before, const Field& success) {
        return same(after, before) || same(after, success);
    });
}

/// The field is changed in place and keeps its size.
template <class T>
field_promise of_its_size(dense1D<T> arguments::*field)
{
    return promise(field, false,
                   [](const dense1D<T>& after, const dense1D<T>& before, const dense1D<T>&) { return after.size == before.size; });
}

/// Columns or entries are appended one after the other, as far as memory goes.
template <class T>
field_promise so_far(dense1D<T> arguments::*field, bool is_replaced = false)
{
    return promise(field, is_replaced, [](const dense1D<T>& after, const dense1D<T>&, const dense1D<T>& success) {
        return after.size <= success.size && same(after, success.sub_vector(0, after.size));
    });
}

template <class T>
field_promise so_far(dense2D<T> arguments::*field, bool is_replaced = false)
{
    return promise(field, is_replaced, [](const dense2D<T>& after, const dense2D<T>& before, const dense2D<T>& success) {
        return after.empty() || same(after, before) ||
               (after.cols <= success.cols && same(after, success.sub_matrix(0, 0, success.rows, after.cols)));
    });
}

/// Entries for which there was no memory are missing.
field_promise fewer(dense1D<unsigned> arguments::*field)
{
    return promise(field, false, [](const dense1D<unsigned>& after, const dense1D<unsigned>&, const dense1D<unsigned>& success) {
        const unsigned* at = success.begin();
        for (const unsigned entry : after)
        {
            at = std::find(at, success.end(), entry);
            if (at == success.end()) return false;
            ++at;
        }
        return true;
    });
}

field_promise without_nodes(node_detector arguments::*field)
{
    return promise(field, true, [](const node_detector& after, const node_detector&, const node_detector&) { return after.size() == 0; });
}

field_promise without_bins(auxkit::histogram arguments::*field)
{
    return promise(field, true,
                   [](const auxkit::histogram& after, const auxkit::histogram&, const auxkit::histogram&) { return after.bins() == 0; });
}

// ---- The calls --------------------------------------------------------------------------------------------------------------------------

using args = arguments;

bool has_triangles(const args& a)
{
    return a.kind == ELEM_TRIA3;
}

bool is_planar(const args& a)
{
    return a.pos.rows == 2;
}

bool is_spatial(const args& a)
{
    return a.pos.rows == 3;
}

/// The file to be written as a stream.
auto stream_of(const args& a)
{
    return std::unique_ptr<std::FILE, int (*)(std::FILE*)>(std::fopen(a.file->name(), "w"), std::fclose);
}

template <class Call>
std::function<int(args&)> with_int_result(Call call)
{
    return [call](args& a) {
        if constexpr (std::is_void_v<decltype(call(a))>)
        {
            call(a);
            return 0;
        }
        else
            return static_cast<int>(call(a));
    };
}

/// A call that allocates nothing.
template <class Call>
exported_call quiet(const char* name, Call call)
{
    return {name, with_int_result(call), 0, {}};
}

/// A call that returns `out_of_memory`.
template <class Call, class... Promises>
exported_call fails(const char* name, Call call, Promises... promises)
{
    return {name, with_int_result(call), out_of_memory, {promises...}};
}

/// A call that does what it can without telling.
template <class Call, class... Promises>
exported_call does_less(const char* name, Call call, Promises... promises)
{
    return {name, with_int_result(call), not_reported, {promises...}};
}

constexpr vector_fixed<double, 2> x2{0.5, 0.25};
constexpr vector_fixed<double, 3> x3{0.5, 0.25, 0.125};
constexpr symmetric_fixed<double, 2> M2{4, 1, 2};
constexpr symmetric_fixed<double, 2> N2{1, 0.5, 3};
constexpr symmetric_fixed<double, 3> M3{4, 1, 2, 0.5, 0.25, 3};
constexpr symmetric_fixed<double, 3> N3{1, 0.5, 3, 0, 0.25, 5};
constexpr matrix_fixed<double, 3, 2> basis{1, 0, 0, 0, 1, 0};

std::vector<exported_call> core_calls()
{
    return {
        quiet("version", [](args&) { return std::strlen(version()); }),
        quiet("element_dim", [](args& a) { return element_dim(a.kind); }),
        quiet("nbr_nodes", [](args& a) { return nbr_nodes(a.kind); }),
        quiet("nbr_base_nodes", [](args& a) { return nbr_base_nodes(a.kind); }),
        quiet("nbr_boundaries", [](args& a) { return nbr_boundaries(a.kind); }),
        quiet("change_indices, list", [](args& a) { change_indices(a.ids, a.targets); }),
        quiet("change_indices, matrix", [](args& a) { change_indices(a.connectivity, a.targets); }),
        quiet("check_IDs, list", [](args& a) { return check_IDs(a.ids, a.pos.cols); }),
        quiet("check_IDs, matrix", [](args& a) { return check_IDs(a.connectivity, a.pos.cols); }),
        quiet("check_IDs, kind", [](args& a) { return check_IDs(a.connectivity, a.kind, a.pos.cols); }),
        does_less(
            "get_IDs, lists", [](args& a) { return get_IDs(a.ids, a.targets, a.list, a.second_list); }, replaced(&args::list),
            replaced(&args::second_list)),
        fails(
            "get_IDs, cycles", [](args& a) { return get_IDs(a.connectivity, a.other, a.list, a.second_list, false); },
            replaced(&args::list), replaced(&args::second_list)),
        fails(
            "get_IDs, columns", [](args& a) { return get_IDs(a.boundaries, a.boundaries, a.list, a.second_list, true); },
            replaced(&args::list), replaced(&args::second_list)),
        fails(
            "get_sorted_order", [](args& a) { return get_sorted_order(a.ids, a.list, a.second_list); }, emptied(&args::list),
            emptied(&args::second_list)),
        quiet("max_ID, list", [](args& a) { return max_ID(a.ids); }),
        quiet("max_ID, matrix", [](args& a) { return max_ID(a.connectivity); }),
        fails("permutation, indices", [](args& a) { return permutation(a.ids, a.targets); }),
        fails("permutation, numbers", [](args& a) { return permutation(a.sizes, a.targets); }),
        quiet("shift_indices, list", [](args& a) { return shift_indices(a.ids, 3); }),
        quiet("shift_indices, matrix", [](args& a) { return shift_indices(a.connectivity, 3, a.kind); }),
    };
}

std::vector<exported_call> edit_calls()
{
    return {
        quiet("translate, plane, all", [](args& a) { return translate(a.pos, x2); }),
        quiet("translate, plane, listed", [](args& a) { return translate(a.pos, x2, a.ids); }),
        does_less("translate, plane, raised", [](args& a) { return translate(a.line, x2); }),
        does_less(
            "translate, plane, of elements", [](args& a) { return translate(a.pos, x2, a.connectivity); }, changed(&args::pos)),
        does_less("translate, space, all", [](args& a) { return translate(a.pos, x3); }),
        does_less("translate, space, listed", [](args& a) { return translate(a.pos, x3, a.ids); }),
        does_less(
            "translate, space, of elements", [](args& a) { return translate(a.pos, x3, a.connectivity); }, changed(&args::pos)),
        quiet("rotate, plane, all", [](args& a) { return rotate(a.pos, x2, 0.5); }),
        quiet("rotate, plane, listed", [](args& a) { return rotate(a.pos, x2, 0.5, a.ids); }),
        does_less("rotate, plane, raised", [](args& a) { return rotate(a.line, x2, 0.5); }),
        does_less(
            "rotate, plane, of elements", [](args& a) { return rotate(a.pos, x2, 0.5, a.connectivity); }, changed(&args::pos)),
        does_less("rotate, space, all", [](args& a) { return rotate(a.pos, x3, x3); }),
        does_less("rotate, space, listed", [](args& a) { return rotate(a.pos, x3, x3, a.ids); }),
        does_less(
            "rotate, space, of elements", [](args& a) { return rotate(a.pos, x3, x3, a.connectivity); }, changed(&args::pos)),
        quiet("zoom, plane, all", [](args& a) { return zoom(a.pos, x2, 2.0); }),
        quiet("zoom, plane, listed", [](args& a) { return zoom(a.pos, x2, 2.0, a.ids); }),
        does_less("zoom, plane, raised", [](args& a) { return zoom(a.line, x2, 2.0); }),
        does_less(
            "zoom, plane, of elements", [](args& a) { return zoom(a.pos, x2, 2.0, a.connectivity); }, changed(&args::pos)),
        does_less("zoom, space, all", [](args& a) { return zoom(a.pos, x3, 2.0); }),
        does_less("zoom, space, listed", [](args& a) { return zoom(a.pos, x3, 2.0, a.ids); }),
        does_less(
            "zoom, space, of elements", [](args& a) { return zoom(a.pos, x3, 2.0, a.connectivity); }, changed(&args::pos)),
        quiet("inc_bounding_box, plane, all", [](args& a) { return inc_bounding_box(a.pos, a.low2, a.high2); }).when(is_planar),
        quiet("inc_bounding_box, plane, listed", [](args& a) { return inc_bounding_box(a.pos, a.ids, a.low2, a.high2); }).when(is_planar),
        quiet("inc_bounding_box, plane, of elements", [](args& a) { return inc_bounding_box(a.pos, a.connectivity, a.low2, a.high2); })
            .when(is_planar),
        quiet("inc_bounding_box, space, all", [](args& a) { return inc_bounding_box(a.pos, a.low3, a.high3); }).when(is_spatial),
        quiet("inc_bounding_box, space, listed", [](args& a) { return inc_bounding_box(a.pos, a.ids, a.low3, a.high3); }).when(is_spatial),
        quiet("inc_bounding_box, space, of elements", [](args& a) { return inc_bounding_box(a.pos, a.connectivity, a.low3, a.high3); })
            .when(is_spatial),
        fails("copy_mesh", [](args& a) { return copy_mesh(a.pos, a.elements, a.connectivity); }),
        fails(
            "copy_mesh, plane", [](args& a) { return copy_mesh(a.pos, a.elements, x2, x2, 0.5, 3, a.connectivity); }, so_far(&args::pos),
            so_far(&args::elements)),
        fails(
            "copy_mesh, space", [](args& a) { return copy_mesh(a.pos, a.elements, x3, x3, x3, 3, a.connectivity); }, so_far(&args::pos),
            so_far(&args::elements)),
        fails("copy_sym_mesh, plane", [](args& a) { return copy_sym_mesh(a.pos, a.elements, x2, x2, a.connectivity); }),
        fails("copy_sym_mesh, space", [](args& a) { return copy_sym_mesh(a.pos, a.elements, x3, x3, a.connectivity); }),
        does_less(
            "unique_indices, list", [](args& a) { return unique_indices(a.list, a.ids, a.nothing); }, fewer(&args::list)),
        does_less(
            "unique_indices, matrix", [](args& a) { return unique_indices(a.list, a.connectivity, a.ids); }, fewer(&args::list)),
        does_less(
            "unique_indices, range", [](args& a) { return unique_indices(a.list, a.first(), a.last(), a.ids); }, fewer(&args::list)),
        fails("count_unique_indices, matrix", [](args& a) { return count_unique_indices(a.connectivity); }),
        fails("count_unique_indices, range", [](args& a) { return count_unique_indices(a.first(), a.last()); }),
        fails(
            "remove_degenerated, list", [](args& a) { return remove_degenerated(a.connectivity, a.list, true); }, emptied(&args::list)),
        quiet("remove_degenerated", [](args& a) { return remove_degenerated(a.connectivity, true); }),
        fails("remove_degenerated, tall", [](args& a) { return remove_degenerated(a.tall, true); }),
        fails(
            "simplify, range", [](args& a) { return simplify(a.pos, a.first(), a.last() - 1, a.list, 1); }, emptied(&args::list))
            .in_place(),
        fails(
            "simplify, matrix, list", [](args& a) { return simplify(a.pos, a.connectivity, a.list, 0); }, emptied(&args::list))
            .in_place(),
        fails("simplify, matrix", [](args& a) { return simplify(a.pos, a.connectivity, 0); }).in_place(),
        fails("simplify, two matrices", [](args& a) { return simplify(a.pos, a.connectivity, a.boundaries, 0); }).in_place(),
        fails(
            "merge, all, list", [](args& a) { return merge(a.pos, a.list, 0.0); }, replaced(&args::list))
            .in_place(),
        fails("merge, all", [](args& a) { return merge(a.pos, 0.3); }).in_place(),
        fails(
            "merge, two lists", [](args& a) { return merge(a.pos, a.ids, a.targets, a.list, 0.6); }, replaced(&args::list))
            .in_place(),
        fails(
            "merge, one list", [](args& a) { return merge(a.pos, a.ids, a.list, 0.6); }, replaced(&args::list))
            .in_place(),
        fails(
            "merge, range, list", [](args& a) { return merge(a.pos, a.first(), a.last(), a.list, 1e-9, 0); }, replaced(&args::list))
            .in_place(),
        fails("merge, range", [](args& a) { return merge(a.pos, a.first(), a.last(), 0.6, 1); }).in_place(),
        fails(
            "merge, matrix, list", [](args& a) { return merge(a.pos, a.connectivity, a.list, 0.6, 1); }, replaced(&args::list))
            .in_place(),
        fails("merge, matrix", [](args& a) { return merge(a.pos, a.connectivity, 0.6, 0); }).in_place(),
        fails(
            "merge, matrix, in passes", [](args& a) { return merge(a.pos, a.connectivity, a.list, 0.6, 2); }, replaced(&args::list),
            changed(&args::connectivity))
            .in_place(),
        fails(
            "merge, two matrices, list", [](args& a) { return merge(a.pos, a.connectivity, a.other, a.list, 0.0, 0); },
            replaced(&args::list))
            .in_place(),
        fails("merge, two matrices", [](args& a) { return merge(a.pos, a.connectivity, a.other, 0.6, 1); }).in_place(),
        fails("clip",
              [](args& a) {
                  return clip(a.pos, a.connectivity, {0.4, 0.0, 0.0}, x3, a.elements);
              }),
    };
}

std::vector<exported_call> search_calls()
{
    return {
        quiet("node_detector", [](args& a) { a.number = node_detector().size(); }),
        does_less(
            "node_detector, all", [](args& a) { a.number = node_detector(*a.coords).size(); }, replaced(&args::number)),
        does_less(
            "node_detector, listed", [](args& a) { a.number = node_detector(*a.coords, a.ids).size(); }, replaced(&args::number)),
        does_less(
            "node_detector, of elements", [](args& a) { a.number = node_detector(*a.coords, a.connectivity).size(); },
            replaced(&args::number)),
        does_less(
            "node_detector, of a range", [](args& a) { a.number = node_detector(*a.coords, a.first(), a.last()).size(); },
            replaced(&args::number)),
        does_less(
            "node_detector, copied", [](args& a) { a.number = node_detector(a.detector).size(); }, replaced(&args::number)),
        does_less(
            "node_detector, assigned", [](args& a) { a.other_detector = a.detector; }, without_nodes(&args::other_detector)),
        fails(
            "reinit, all", [](args& a) { return a.detector.reinit(*a.coords); }, without_nodes(&args::detector)),
        fails(
            "reinit, listed", [](args& a) { return a.detector.reinit(*a.coords, a.ids); }, without_nodes(&args::detector)),
        fails(
            "reinit, of elements", [](args& a) { return a.detector.reinit(*a.coords, a.connectivity); }, without_nodes(&args::detector)),
        fails(
            "reinit, of a range", [](args& a) { return a.detector.reinit(*a.coords, a.first(), a.last()); },
            without_nodes(&args::detector)),
        does_less("insert, listed", [](args& a) { return a.detector.insert(a.targets); }),
        does_less("insert, of elements", [](args& a) { return a.detector.insert(a.other); }),
        quiet("find_closest, plane", [](args& a) { return a.detector.find_closest(x2); }),
        quiet("find_closest, space", [](args& a) { return a.detector.find_closest(x3); }),
        quiet("find_closest, node", [](args& a) { return a.detector.find_closest(1); }),
        does_less(
            "find_in_box, plane", [](args& a) { a.detector.find_in_box(a.low2, a.high2, a.list); }, fewer(&args::list)),
        does_less(
            "find_in_box, space", [](args& a) { a.detector.find_in_box(a.low3, a.high3, a.list); }, fewer(&args::list)),
        quiet("size", [](args& a) { return a.detector.size(); }),
        quiet("clear", [](args& a) { a.detector.clear(); }),
    };
}

std::vector<exported_call> connectivity_calls()
{
    return {
        fails(
            "get_connected_elements", [](args& a) { return get_connected_elements(a.connectivity, a.list, a.second_list); },
            emptied(&args::list), emptied(&args::second_list)),
        fails(
            "get_node_graph", [](args& a) { return get_node_graph(a.connectivity, a.list, a.second_list); }, emptied(&args::list),
            emptied(&args::second_list)),
        fails(
            "get_neighbors", [](args& a) { return get_neighbors(a.connectivity, a.kind, true, a.elements); }, replaced(&args::elements)),
        fails(
            "get_element_boundaries", [](args& a) { return get_element_boundaries(a.connectivity, a.kind, a.elements); },
            so_far(&args::elements)),
        fails(
            "get_mesh_boundaries", [](args& a) { return get_mesh_boundaries(a.connectivity, a.neighbors, a.kind, a.elements); },
            so_far(&args::elements)),
        fails(
            "get_mesh_bounding_elements",
            [](args& a) { return get_mesh_bounding_elements(a.connectivity, a.neighbors, a.kind, a.list, a.number); }, so_far(&args::list),
            done(&args::number)),
        fails(
            "get_elements_on_boundaries",
            [](args& a) {
                return get_elements_on_boundaries(a.boundaries, a.connectivity, a.neighbors, a.ancestors, a.kind, a.list, a.number);
            },
            emptied(&args::list), replaced(&args::number)),
        fails(
            "get_subdomains", [](args& a) { return get_subdomains(a.neighbors, a.list, a.second_list); }, so_far(&args::list, true),
            fewer(&args::second_list))
            .or_code(0),
        fails(
            "get_subdomains, sorted", [](args& a) { return get_subdomains(a.connectivity, a.neighbors, a.list); },
            done_or_kept(&args::connectivity), done_or_kept(&args::neighbors), replaced(&args::list))
            .or_code(0),
        fails(
            "get_colors_boundaries",
            [](args& a) { return get_colors_boundaries(a.connectivity, a.neighbors, a.colors, a.kind, true, a.elements); },
            so_far(&args::elements)),
        does_less(
            "sort_elfes, neighbors", [](args& a) { return sort_elfes(a.connectivity, a.neighbors, a.list, a.second_list, a.third_list); },
            emptied(&args::list), emptied(&args::second_list), emptied(&args::third_list))
            .in_place(),
        does_less(
            "sort_elfes", [](args& a) { return sort_elfes(a.connectivity, a.list, a.second_list, a.third_list); }, emptied(&args::list),
            emptied(&args::second_list), emptied(&args::third_list))
            .in_place(),
        fails("get_ancestors", [](args& a) { return get_ancestors(a.connectivity, a.nothing); }),
        does_less("copy_edges", [](args& a) { return copy_edges(a.connectivity, a.kind, a.elements); }).or_code(out_of_memory),
        does_less("copy_edges, range", [](args& a) { return copy_edges(a.first(), a.last(), a.kinds, a.elements); }).or_code(out_of_memory),
    };
}

std::vector<exported_call> metrics_calls()
{
    return {
        quiet("is_valid_metric, plane", [](args&) { return is_valid_metric(M2); }),
        quiet("is_valid_metric, space", [](args&) { return is_valid_metric(M3); }),
        quiet("first_invalid_metric, sizes", [](args& a) { return first_invalid_metric(a.sizes); }),
        quiet("first_invalid_metric, tensors", [](args& a) { return first_invalid_metric(a.metrics); }),
        quiet("first_invalid_metric, listed sizes", [](args& a) { return first_invalid_metric(a.ids, a.sizes); }),
        quiet("first_invalid_metric, listed tensors", [](args& a) { return first_invalid_metric(a.ids, a.metrics); }),
        quiet("are_valid_metrics, sizes", [](args& a) { return are_valid_metrics(a.sizes); }),
        quiet("are_valid_metrics, tensors", [](args& a) { return are_valid_metrics(a.metrics); }),
        quiet("are_valid_metrics, listed sizes", [](args& a) { return are_valid_metrics(a.ids, a.sizes); }),
        quiet("are_valid_metrics, listed tensors", [](args& a) { return are_valid_metrics(a.ids, a.metrics); }),
        does_less(
            "valid_metrics", [](args& a) { valid_metrics(a.metrics, a.list); }, fewer(&args::list)),
        quiet("overwrite_invalid_metrics, sizes", [](args& a) { return overwrite_invalid_metrics(a.sizes, a.sizes); }),
        quiet("overwrite_invalid_metrics, tensors", [](args& a) { return overwrite_invalid_metrics(a.metrics, a.metrics); }),
        quiet("overwrite_invalid_metrics, tensors by sizes", [](args& a) { return overwrite_invalid_metrics(a.metrics, a.sizes); }),
        quiet("eigen_pairs, plane", [](args& a) { return eigen_pairs(M2, a.low2, a.vectors2); }),
        quiet("eigen_pairs, space", [](args& a) { return eigen_pairs(M3, a.low3, a.vectors3); }),
        quiet("eigen_pairs, two in the plane", [](args& a) { return eigen_pairs(M2, N2, a.low2, a.vectors2); }),
        quiet("eigen_pairs, two in space", [](args& a) { return eigen_pairs(M3, N3, a.low3, a.vectors3); }),
        quiet("bound_metric, plane", [](args& a) { return bound_metric(a.planar_metric, 0.6, 0.7); }),
        quiet("bound_metric, space", [](args& a) { return bound_metric(a.spatial_metric, 0.6, 0.7); }),
        quiet("bound_metrics, sizes", [](args& a) { return bound_metrics(a.sizes, 0.6, 0.7); }),
        does_less(
            "bound_metrics, sizes, list", [](args& a) { return bound_metrics(a.sizes, 0.6, 0.7, a.list); }, done(&args::sizes),
            fewer(&args::list)),
        quiet("bound_metrics, tensors", [](args& a) { return bound_metrics(a.metrics, 0.6, 0.7); }),
        does_less(
            "bound_metrics, tensors, list", [](args& a) { return bound_metrics(a.metrics, 0.6, 0.7, a.list); }, done(&args::metrics),
            fewer(&args::list)),
        quiet("minimum_metric, plane", [](args& a) { return minimum_metric(M2, N2, a.planar_metric); }),
        quiet("minimum_metric, space", [](args& a) { return minimum_metric(M3, N3, a.spatial_metric); }),
        quiet("maximum_metric, plane", [](args& a) { return maximum_metric(M2, N2, a.planar_metric); }),
        quiet("maximum_metric, space", [](args& a) { return maximum_metric(M3, N3, a.spatial_metric); }),
        quiet("metric_iso_to_aniso, plane", [](args& a) { metric_iso_to_aniso(0.5, a.planar_metric); }),
        quiet("metric_iso_to_aniso, space", [](args& a) { metric_iso_to_aniso(0.5, a.spatial_metric); }),
        quiet("metric_iso_to_aniso2d", [](args& a) { metric_iso_to_aniso2d(0.5, basis, a.planar_metric); }),
        quiet("metric_aniso3d_to_aniso2d", [](args& a) { metric_aniso3d_to_aniso2d(M3, basis, a.planar_metric); }),
        quiet("metrics_iso_to_aniso2d", [](args& a) { return metrics_iso_to_aniso2d(a.sizes, a.planar_metrics); }).in_place(),
        quiet("metrics_iso_to_aniso3d", [](args& a) { return metrics_iso_to_aniso3d(a.sizes, a.spatial_metrics); }).in_place(),
        quiet("metrics_iso_to_aniso2d, bases", [](args& a) { return metrics_iso_to_aniso2d(a.sizes, a.bases, a.planar_metrics); })
            .in_place(),
        quiet("metrics_aniso3d_to_aniso2d",
              [](args& a) { return metrics_aniso3d_to_aniso2d(a.spatial_metrics, a.bases, a.planar_metrics); })
            .in_place(),
        fails(
            "metrics_gen_iso", [](args& a) { return metrics_gen_iso(a.pos, a.connectivity, a.kind, a.values, 2.0); },
            changed(&args::values)),
        fails(
            "bound_metric_gradations, tensors",
            [](args& a) { return bound_metric_gradations(a.pos, a.connectivity, a.kind, a.nothing, true, 0, 0.1, a.metrics); },
            changed(&args::metrics)),
        fails(
            "bound_metric_gradations, tensors, frozen",
            [](args& a) { return bound_metric_gradations(a.pos, a.connectivity, a.kind, a.edge_of_mesh, true, -1, 0.1, a.metrics); },
            changed(&args::metrics)),
        fails(
            "bound_metric_gradations, sizes",
            [](args& a) { return bound_metric_gradations(a.pos, a.connectivity, a.kind, a.nothing, true, 1, 0.1, a.sizes); },
            changed(&args::sizes)),
        fails(
            "bound_metric_gradations, sizes, listed",
            [](args& a) { return bound_metric_gradations(a.pos, a.connectivity, a.kind, a.edge_of_mesh, false, -1, 0.1, a.sizes); },
            changed(&args::sizes)),
        fails(
            "bound_metric_variations, tensors",
            [](args& a) { return bound_metric_variations(a.pos, a.connectivity, a.kind, a.nothing, true, 0, 0.1, a.metrics); },
            changed(&args::metrics)),
        fails(
            "bound_metric_variations, tensors, frozen",
            [](args& a) { return bound_metric_variations(a.pos, a.connectivity, a.kind, a.edge_of_mesh, true, -1, 0.1, a.metrics); },
            changed(&args::metrics)),
        fails(
            "bound_metric_variations, sizes",
            [](args& a) { return bound_metric_variations(a.pos, a.connectivity, a.kind, a.nothing, true, 1, 0.1, a.sizes); },
            changed(&args::sizes)),
        fails(
            "bound_metric_variations, sizes, listed",
            [](args& a) { return bound_metric_variations(a.pos, a.connectivity, a.kind, a.edge_of_mesh, false, -1, 0.1, a.sizes); },
            changed(&args::sizes)),
    };
}

std::vector<exported_call> quality_calls()
{
    return {
        quiet("edge_quality", [](args& a) { return edge_quality(1.0, 2.0, 3.0, a.value); }),
        does_less(
            "edge_qualities, tensors",
            [](args& a) { return edge_qualities(a.pos, a.connectivity, a.kind, a.metrics, a.lengths, a.no_elements); },
            changed(&args::lengths)),
        does_less(
            "edge_qualities, range, tensors",
            [](args& a) { return edge_qualities(a.pos, a.first(), a.last(), a.kinds, a.metrics, a.lengths, a.no_elements); },
            changed(&args::lengths)),
        does_less(
            "H_shock, tensors", [](args& a) { return H_shock(a.pos, a.edges, a.metrics, a.values); }, of_its_size(&args::values)),
        does_less(
            "edge_qualities, sizes",
            [](args& a) { return edge_qualities(a.pos, a.connectivity, a.kind, a.sizes, a.lengths, a.no_elements); },
            changed(&args::lengths)),
        does_less(
            "edge_qualities, range, sizes",
            [](args& a) { return edge_qualities(a.pos, a.first(), a.last(), a.kinds, a.sizes, a.lengths, a.no_elements); },
            changed(&args::lengths)),
        does_less(
            "H_shock, sizes", [](args& a) { return H_shock(a.pos, a.edges, a.sizes, a.values); }, of_its_size(&args::values)),
        fails(
            "shape_qualities", [](args& a) { return shape_qualities(a.pos, a.connectivity, a.kind, a.values); }, emptied(&args::values)),
        quiet("min_quality", [](args& a) { return min_quality(a.pos, a.connectivity, a.kind, a.value, a.index); }),
        fails(
            "jacobians", [](args& a) { return jacobians(a.pos, a.connectivity, a.kind, a.values); }, emptied(&args::values)),
    };
}

std::vector<exported_call> io_calls()
{
    return {
        fails("medit_output, range", [](args& a) { return medit_output(a.file->name(), a.pos, a.first(), a.last(), a.kinds); }),
        fails("medit_output, two matrices",
              [](args& a) { return medit_output(a.file->name(), a.pos, a.connectivity, a.other, a.kind, a.kind); }),
        fails("medit_output, matrix", [](args& a) { return medit_output(a.file->name(), a.pos, a.connectivity, a.kind); }),
        fails("medit_output, colors", [](args& a) { return medit_output(a.file->name(), a.pos, a.connectivity, a.kind, a.colors); })
            .or_code(-6),
        does_less("medit_scalar", [](args& a) { return medit_scalar(a.file->name(), 3, a.sizes); }),
        does_less("medit_vector", [](args& a) { return medit_vector(a.file->name(), 3, a.pos); }),
        does_less("medit_tensor", [](args& a) { return medit_tensor(a.file->name(), a.metrics); }),
        fails("vtk_convert", [](args& a) { return vtk_convert(a.connectivity, a.kind, a.number, a.list, a.second_list); }),
        does_less("vtk_output, stream",
                  [](args& a) { return vtk_output(stream_of(a).get(), a.pos, a.list.size / 2, a.list, a.second_list); }),
        fails("vtk_output, range", [](args& a) { return vtk_output(a.file->name(), a.pos, a.first(), a.last(), a.kinds); }),
        fails("vtk_output, two matrices",
              [](args& a) { return vtk_output(a.file->name(), a.pos, a.connectivity, a.other, a.kind, a.kind); }),
        fails("vtk_output, matrix", [](args& a) { return vtk_output(a.file->name(), a.pos, a.connectivity, a.kind); }),
        fails("ensight_output, range", [](args& a) { return ensight_output(a.file->name(), a.pos, a.first(), a.last(), a.kinds); }),
        fails("ensight_output, two matrices",
              [](args& a) { return ensight_output(a.file->name(), a.pos, a.connectivity, a.other, a.kind, a.kind); }),
        fails("ensight_output, matrix", [](args& a) { return ensight_output(a.file->name(), a.pos, a.connectivity, a.kind); }),
        fails(
            "STL_input, text", [](args& a) { return STL_input(a.files->stl_text.name(), a.points, a.elements); }, emptied(&args::points),
            emptied(&args::elements))
            .when(has_triangles),
        fails(
            "STL_input, binary", [](args& a) { return STL_input(a.files->stl_binary.name(), a.points, a.elements); },
            emptied(&args::points), emptied(&args::elements))
            .when(has_triangles),
        does_less("STL_output, text", [](args& a) { return STL_output(a.file->name(), a.pos, a.connectivity, true); }).when(has_triangles),
        does_less("STL_output, binary", [](args& a) { return STL_output(a.file->name(), a.pos, a.connectivity, false); })
            .when(has_triangles),
        fails(
            "WavefrontOBJ_input",
            [](args& a) {
                return WavefrontOBJ_input(a.files->obj.name(), a.points, a.more_points, a.yet_more_points, a.elements, a.more_elements);
            },
            so_far(&args::points), so_far(&args::more_points), so_far(&args::yet_more_points), so_far(&args::elements),
            so_far(&args::more_elements))
            .when(has_triangles),
        does_less("WavefrontOBJ_output",
                  [](args& a) { return WavefrontOBJ_output(a.file->name(), a.pos, a.normals, a.no_points, a.connectivity, a.no_elements); })
            .when(has_triangles)
            .or_code(-1),
        does_less("WavefrontOBJ_output, matrix",
                  [](args& a) { return WavefrontOBJ_output(a.file->name(), a.pos, a.connectivity, a.kind); }),
        does_less("WavefrontOBJ_output, two matrices",
                  [](args& a) { return WavefrontOBJ_output(a.file->name(), a.pos, a.connectivity, a.other, a.kind, a.kind); }),
        fails(
            "NASTRAN_input, runs",
            [](args& a) { return NASTRAN_input(a.files->nastran.name(), a.points, a.elements, a.list, a.kind_list, a.second_list); },
            replaced(&args::points), replaced(&args::elements), replaced(&args::list), replaced(&args::kind_list),
            replaced(&args::second_list))
            .when(has_triangles),
        fails(
            "NASTRAN_input, matrix", [](args& a) { return NASTRAN_input(a.files->nastran.name(), a.points, a.elements, a.found_kind); },
            replaced(&args::points), replaced(&args::elements), replaced(&args::found_kind))
            .when(has_triangles),
        fails(
            "NASTRAN_input, two matrices",
            [](args& a) {
                return NASTRAN_input(a.files->nastran.name(), a.points, a.elements, a.more_elements, a.found_kind, a.other_found_kind);
            },
            replaced(&args::points), replaced(&args::elements), replaced(&args::more_elements), replaced(&args::found_kind),
            replaced(&args::other_found_kind))
            .when(has_triangles),
        does_less("NASTRAN_output, runs",
                  [](args& a) { return NASTRAN_output(a.file->name(), a.pos, a.connectivity, a.run_starts, a.kinds, a.colors); }),
        fails("NASTRAN_output, matrix", [](args& a) { return NASTRAN_output(a.file->name(), a.pos, a.connectivity, a.kind); }),
        fails("NASTRAN_output, two matrices",
              [](args& a) { return NASTRAN_output(a.file->name(), a.pos, a.connectivity, a.other, a.kind, a.kind); }),
        fails(
            "FEMAP_input, runs",
            [](args& a) { return FEMAP_input(a.files->femap.name(), a.points, a.elements, a.list, a.kind_list, a.second_list); },
            replaced(&args::points), replaced(&args::elements), replaced(&args::list), replaced(&args::kind_list),
            replaced(&args::second_list))
            .when(has_triangles),
        fails(
            "FEMAP_input, matrix", [](args& a) { return FEMAP_input(a.files->femap.name(), a.points, a.elements, a.found_kind); },
            replaced(&args::points), replaced(&args::elements), replaced(&args::found_kind))
            .when(has_triangles),
        fails(
            "FEMAP_input, two matrices",
            [](args& a) {
                return FEMAP_input(a.files->femap.name(), a.points, a.elements, a.more_elements, a.found_kind, a.other_found_kind);
            },
            replaced(&args::points), replaced(&args::elements), replaced(&args::more_elements), replaced(&args::found_kind),
            replaced(&args::other_found_kind))
            .when(has_triangles),
        does_less("FEMAP_output, runs",
                  [](args& a) { return FEMAP_output(a.file->name(), a.pos, a.connectivity, a.run_starts, a.kinds, a.colors); }),
        fails("FEMAP_output, matrix", [](args& a) { return FEMAP_output(a.file->name(), a.pos, a.connectivity, a.kind); }),
        fails("FEMAP_output, two matrices",
              [](args& a) { return FEMAP_output(a.file->name(), a.pos, a.connectivity, a.other, a.kind, a.kind); }),
    };
}

std::vector<exported_call> histogram_calls()
{
    return {
        does_less("histogram", [](args& a) { a.number = auxkit::histogram().bins(); }),
        does_less(
            "histogram, bins", [](args& a) { a.number = auxkit::histogram(0.0, 1.0, 9).bins(); }, replaced(&args::number)),
        does_less(
            "histogram, copied", [](args& a) { a.number = auxkit::histogram(a.spread).bins(); }, replaced(&args::number)),
        quiet("histogram, moved", [](args& a) { a.number = auxkit::histogram(std::move(a.spread)).bins(); }),
        does_less(
            "histogram, assigned", [](args& a) { a.lengths = a.spread; }, without_bins(&args::lengths)),
        quiet("histogram, assigned by a move", [](args& a) { a.lengths = std::move(a.spread); }),
        quiet("process", [](args& a) { a.spread.process(0.5); }),
        quiet("reset", [](args& a) { a.spread.reset(); }),
        does_less(
            "render", [](args& a) { a.number = static_cast<unsigned>(a.spread.render().size()); }, replaced(&args::number)),
    };
}

} // namespace

std::vector<call_family> every_call()
{
    return {{"Core", core_calls()},       {"Edit", edit_calls()},       {"Search", search_calls()}, {"Connectivity", connectivity_calls()},
            {"Metrics", metrics_calls()}, {"Quality", quality_calls()}, {"Io", io_calls()},         {"Histogram", histogram_calls()}};
}

arguments duplicate_of(const arguments& a)
{
    arguments result;
    result.kind = a.kind;
    result.coords = a.coords;
    result.file = a.file;
    result.files = a.files;
    duplicate_fields(result.fields(), const_cast<arguments&>(a).fields(), all_fields{});
    result.parts[0] = result.connectivity;
    result.parts[1] = result.other;
    return result;
}

arguments shared_with(const arguments& before, const arguments& after)
{
    arguments result = before;
    duplicate_changed_fields(result.fields(), const_cast<arguments&>(before).fields(), const_cast<arguments&>(after).fields(),
                             all_fields{});
    result.parts[0] = result.connectivity;
    result.parts[1] = result.other;
    return result;
}

bool are_same(const arguments& a, const arguments& b)
{
    return same_fields(const_cast<arguments&>(a).fields(), const_cast<arguments&>(b).fields(), all_fields{});
}

arguments arguments_for(const mesh& m)
{
    arguments a;
    a.kind = m.kind;
    a.pos.copy(m.pos);
    a.connectivity.copy(m.connectivity);
    copy_mesh(a.pos, a.other, a.connectivity);
    a.kinds = dense1D<int>(2, m.kind);

    get_neighbors(a.connectivity, a.kind, false, a.neighbors);
    get_mesh_boundaries(a.connectivity, a.neighbors, a.kind, a.boundaries);
    copy_edges(a.connectivity, a.kind, a.edges);
    get_ancestors(a.connectivity, a.ancestors);
    const unsigned elements = a.connectivity.cols;
    for (unsigned c = 0; c < elements; ++c) a.colors.push_back(c % 3);
    for (const unsigned start : {0u, elements / 2, elements}) a.run_starts.push_back(start);

    unique_indices(a.edge_of_mesh, a.boundaries, {});
    a.normals = dense2D<double>(3, a.pos.cols, -1e-200); // as long as numbers get
    a.tall = dense2D<unsigned>(40, 2, none_index);
    a.line = dense2D<double>(1, 6, 0.5);
    a.parts[0] = a.connectivity;
    a.parts[1] = a.other;

    // Numbers that look random are enough; `none_index` and repeats are among the nodes.
    const unsigned nodes = a.pos.cols;
    for (unsigned n = 0; n < nodes; ++n)
    {
        a.ids.push_back(n % 7 == 3 ? none_index : n * 5 % nodes);
        a.targets.push_back(nodes - 1 - n);
        a.sizes.push_back(0.1 + (n * 37 % 11) * 0.1);
    }
    a.planar_metrics.resize(3, nodes, 0.0);
    a.spatial_metrics.resize(6, nodes, 0.0);
    a.bases.resize(6, nodes, 0.0);
    for (unsigned n = 0; n < nodes; ++n) a.bases(0, n) = a.bases(4, n) = 1.0;
    metrics_iso_to_aniso2d(a.sizes, a.planar_metrics);
    metrics_iso_to_aniso3d(a.sizes, a.spatial_metrics);
    for (unsigned n = 0; n < nodes; n += 2) a.planar_metrics(0, n) = a.spatial_metrics(0, n) = 9.0;
    a.metrics.copy(a.pos.rows == 2 ? a.planar_metrics : a.spatial_metrics);

    for (dense1D<unsigned>* const list : {&a.list, &a.second_list, &a.third_list}) list->push_back(7, 8);
    a.kind_list.push_back(7);
    a.values.push_back(0.5);
    a.lengths = auxkit::histogram(0.0, 3.0, 4);
    a.spread = auxkit::histogram(0.0, 1.0, 5);
    for (const double size : a.sizes) a.spread.process(size);

    auto coords = std::make_shared<dense2D<double>>();
    coords->copy(a.pos);
    a.coords = coords;
    dense1D<unsigned> half;
    for (unsigned n = 0; n < nodes / 2; ++n) half.push_back(n);
    a.detector.reinit(*a.coords, half);

    a.file = std::make_shared<temporary_file>();
    if (!has_triangles(a)) return a;
    const auto files = std::make_shared<input_files>();
    STL_output(files->stl_text.name(), a.pos, a.connectivity, true);
    STL_output(files->stl_binary.name(), a.pos, a.connectivity, false);
    WavefrontOBJ_output(files->obj.name(), a.pos, a.normals, a.planar_metrics.sub_matrix(0, 0, 2, nodes), a.connectivity, a.no_elements);
    NASTRAN_output(files->nastran.name(), a.pos, a.connectivity, a.kind);
    FEMAP_output(files->femap.name(), a.pos, a.connectivity, a.kind);
    a.files = files;
    return a;
}

} // namespace tq4::test
