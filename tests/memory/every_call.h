#pragma once

// A call of every function that the library exports, as a C++17 host makes it, and what each promises for the case that memory runs out.
// This header and every_call.cpp are compiled as C++17, and a test holds the calls against the list of exported symbols.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <tq4/gridweave.h>

#include "io/files.h"
#include "support/meshes.h"

namespace tq4::test
{

/// Files to read, with one surface in all of them.
struct input_files
{
    temporary_file stl_text{".stl"};
    temporary_file stl_binary{".stl"};
    temporary_file obj{".obj"};
    temporary_file nastran{".nas"};
    temporary_file femap{".neu"};
};

/// What the calls take and leave. A call uses what it needs; results are handed in with something in them.
struct arguments
{
    // A mesh in two parts, each with nodes of its own at the same places.
    dense2D<double> pos;
    dense2D<unsigned> connectivity;
    dense2D<unsigned> other;
    gridweave::element_type kind = gridweave::ELEM_NONE;
    dense1D<int> kinds; ///< of both parts

    // About the first part.
    dense2D<unsigned> neighbors;
    dense2D<unsigned> boundaries;
    dense2D<unsigned> edges;
    dense1D<unsigned> ancestors;
    dense1D<unsigned> colors;       ///< of its elements
    dense1D<unsigned> run_starts;   ///< two runs of one kind
    dense1D<unsigned> edge_of_mesh; ///< nodes of the boundaries
    dense2D<double> normals;

    // Lists of nodes and fields over the nodes.
    dense1D<unsigned> ids;
    dense1D<unsigned> targets;
    dense1D<unsigned> nothing;
    dense2D<unsigned> no_elements;
    dense2D<unsigned> tall; ///< columns of many nodes
    dense2D<double> line;   ///< coordinates of one row
    dense2D<double> no_points;
    dense1D<double> sizes;
    dense2D<double> metrics; ///< as `pos` has them
    dense2D<double> planar_metrics;
    dense2D<double> spatial_metrics;
    dense2D<double> bases;

    // Results.
    dense1D<unsigned> list;
    dense1D<unsigned> second_list;
    dense1D<unsigned> third_list;
    dense1D<int> kind_list;
    dense1D<double> values;
    dense2D<unsigned> elements;
    dense2D<unsigned> more_elements;
    dense2D<double> points;
    dense2D<double> more_points;
    dense2D<double> yet_more_points;
    unsigned number = 7;
    gridweave::element_type found_kind = gridweave::ELEM_HEXA27;
    gridweave::element_type other_found_kind = gridweave::ELEM_HEXA27;
    auxkit::histogram lengths;
    auxkit::histogram spread;
    std::string text;

    // A detector over a matrix that no call changes.
    std::shared_ptr<const dense2D<double>> coords;
    gridweave::node_detector detector;
    gridweave::node_detector other_detector;

    // Results of a fixed size, which are not compared.
    vector_fixed<double, 2> low2{-1, -1};
    vector_fixed<double, 2> high2{2, 2};
    vector_fixed<double, 3> low3{-1, -1, -1};
    vector_fixed<double, 3> high3{2, 2, 2};
    matrix_fixed<double, 2, 2> vectors2{};
    matrix_fixed<double, 3, 3> vectors3{};
    symmetric_fixed<double, 2> planar_metric{4, 1, 2};
    symmetric_fixed<double, 3> spatial_metric{4, 1, 2, 0.5, 0.25, 3};
    double value = 0;
    unsigned index = 0;

    std::shared_ptr<const temporary_file> file; ///< to be written
    std::shared_ptr<const input_files> files;   ///< to be read

    /// Both parts as a range; they share storage with the matrices above.
    dense2D<unsigned> parts[2];
    dense2D<unsigned>* first() { return parts; }
    dense2D<unsigned>* last() { return parts + 2; }

    /// All that a call may change.
    auto fields()
    {
        return std::tie(pos, connectivity, other, kinds, neighbors, boundaries, edges, ancestors, colors, run_starts, edge_of_mesh, normals,
                        ids, targets, nothing, no_elements, no_points, tall, line, sizes, metrics, planar_metrics, spatial_metrics, bases,
                        list, second_list, third_list, kind_list, values, elements, more_elements, points, more_points, yet_more_points,
                        number, found_kind, other_found_kind, lengths, spread, text, detector, other_detector);
    }
};

/// Arguments around one mesh. Files are written for meshes of triangles.
arguments arguments_for(const mesh& m);

/// Arguments that share nothing with the given ones but what calls only read.
arguments duplicate_of(const arguments& a);

/// Arguments whose views share storage with those of `before`, but for the fields that a call changes, as `after` shows.
arguments shared_with(const arguments& before, const arguments& after);

/// True when every field is the same in both, to the last bit.
bool are_same(const arguments& a, const arguments& b);

/// What becomes of one field when memory runs out.
struct field_promise
{
    /// Whether the field is as promised, given the arguments before the call and after one that succeeded.
    std::function<bool(const arguments& after, const arguments& before, const arguments& success)> is_kept;
    /// Takes the field from `before`.
    std::function<void(arguments& after, const arguments& before)> restore;
    /// The call may be made again without restoring the field.
    bool is_replaced;
};

/// Stands for the code of a call that does not report want of memory: its result is what it got done.
constexpr int not_reported = 1;

struct exported_call
{
    std::string name;
    std::function<int(arguments&)> make; ///< a result that is no int is turned into one
    int code;                            ///< when memory runs out; 0: nothing is allocated
    std::vector<field_promise> promises; ///< all other fields stay as they were
    std::optional<int> other_code = {};  ///< a second code, where there is one
    bool (*suits)(const arguments&) = nullptr;
    bool is_in_place = false; ///< it may write what stands there already, so that a difference does not tell what it writes

    exported_call& or_code(int second)
    {
        other_code = second;
        return *this;
    }

    exported_call& in_place()
    {
        is_in_place = true;
        return *this;
    }

    /// For arguments of a kind only.
    exported_call& when(bool (*condition)(const arguments&))
    {
        suits = condition;
        return *this;
    }
};

struct call_family
{
    const char* name;
    std::vector<exported_call> calls;
};

/// All calls, in the order of the headers.
std::vector<call_family> every_call();

} // namespace tq4::test
