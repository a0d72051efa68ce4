#pragma once

/// Spatial search: the closest node and the nodes in a box.

#include <tq4/export.h>
#include <tq4/gridweave/core.h>
#include <tq4/numcore/fixed.h>

namespace tq4
{
namespace gridweave
{

template <unsigned D>
class node_tree;

/// Proximity questions over a chosen subset of the columns of a coordinate matrix: the node closest to a point or to another node, and the
/// nodes in an axis-aligned box.
///
/// Inside is a k-d tree whose shape follows from the list of nodes alone: the nodes are linked in an order that is shuffled with a fixed
/// seed (Bentley, "Multidimensional binary search trees used for associative searching", 1975). The same list gives the same tree, and
/// with it the same order of results and the same choice among equally close nodes.
///
/// The detector keeps a pointer to the matrix and reads coordinates through it at every call; it keeps no coordinate itself. The matrix
/// must outlive the detector and must not be moved. Columns may be appended to it and inserted later. A matrix whose storage no longer
/// holds the inserted columns answers no query.
///
/// Queries change nothing: several threads may query one detector at once. `insert`, `reinit`, `clear` and assignment need it alone.
///
/// Cost: n log n for building, about log n for a query. Nodes at one place make a chain: it is built in linear time, but a query (or the
/// insertion of a single node) that passes it reads all of it.
class TQ4_GRIDWEAVE_API node_detector
{
public:
    /// A detector without nodes, which finds nothing and takes none until a `reinit`.
    node_detector();

    /// Each does what the `reinit` of the same arguments does; where that fails the detector is empty.
    explicit node_detector(const dense2D<double>& coords);
    node_detector(const dense2D<double>& coords, const dense1D<unsigned>& ids);
    node_detector(const dense2D<double>& coords, const dense2D<unsigned>& connectivity);
    node_detector(const dense2D<double>& coords, const dense2D<unsigned>* first, const dense2D<unsigned>* last);

    /// A detector with a tree of its own over the same matrix. Where memory runs out it is empty.
    node_detector(const node_detector& other);
    node_detector& operator=(const node_detector& other);

    ~node_detector();

    /// Starts anew with all columns of `coords` (2 or 3 rows × nodes). What was held before is given up first.
    /// @return 0; -1 when the rows are neither 2 nor 3; -199 out of memory. The detector is empty after a failure.
    int reinit(const dense2D<double>& coords);

    /// Starts anew with the listed nodes; `none_index` and repeats are passed over.
    /// @return 0; -1 when the rows are neither 2 nor 3; -2 when an index is not below the columns of `coords`; -199 out of memory. The
    ///         detector keeps its content after -1 and -2, and is empty after -199.
    int reinit(const dense2D<double>& coords, const dense1D<unsigned>& ids);

    /// The same with the nodes of a connectivity, in order of first appearance.
    int reinit(const dense2D<double>& coords, const dense2D<unsigned>& connectivity);

    /// The same with the nodes of a range of matrices.
    /// @return as above; -3 when `first` is above `last`, with the content kept
    int reinit(const dense2D<double>& coords, const dense2D<unsigned>* first, const dense2D<unsigned>* last);

    /// Adds nodes of the matrix; those that are there already, `none_index` and indices beyond its columns are passed over.
    /// @return the number of nodes added: 0 for a detector without a matrix, where memory ran out, and where the matrix has lost an axis or
    ///         no longer holds the nodes inserted before (nothing is added then)
    unsigned insert(const dense1D<unsigned>& ids);

    /// The same with the nodes of a connectivity.
    unsigned insert(const dense2D<unsigned>& connectivity);

    /// The node closest to a point, or `none_index` when there is none. Among nodes at exactly the same distance the first in the order
    /// of the search wins: the nodes on the way that an insertion of the point would take, then a record before its right subtree and
    /// that before its left one. A node with a NaN coordinate is never found, and may hide nodes inserted after it.
    ///
    /// A point with two coordinates lies at z = 0 for a three-dimensional detector; a third coordinate is ignored by a two-dimensional
    /// one. Allocates nothing.
    unsigned find_closest(const vector_fixed<double, 2>& p) const;
    unsigned find_closest(const vector_fixed<double, 3>& p) const;

    /// The node closest to a column of the matrix, itself left out; `node` need not be in the detector. A node at the same place is a valid
    /// answer. `none_index` when there is none or `node` is not a column.
    unsigned find_closest(unsigned node) const;

    /// Appends the nodes with low ≤ coordinate ≤ high on all axes to `found`, in the order of the tree: a record, its left subtree, its
    /// right subtree. A box with two coordinates has z from 0 to 0 for a three-dimensional detector; z is ignored by a two-dimensional one.
    /// Where memory runs out nodes are silently missing from `found`.
    void find_in_box(const vector_fixed<double, 2>& low, const vector_fixed<double, 2>& high, dense1D<unsigned>& found) const;
    void find_in_box(const vector_fixed<double, 3>& low, const vector_fixed<double, 3>& high, dense1D<unsigned>& found) const;

    /// Number of records: that of the nodes, plus one while the record of a refused repeat awaits its reuse by the next node added.
    unsigned size() const;

    /// Gives everything up; the detector is empty and can take a `reinit`.
    void clear();

private:
    // At most one of them is not null.
    node_tree<2>* planar_ = nullptr;
    node_tree<3>* spatial_ = nullptr;
};

} // namespace gridweave
} // namespace tq4
