// Search trees: building, closest node, closest other node, nodes in a box, merging within a tolerance.

#include "harness.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <memory>

#include <tq4/gridweave/edit.h>
#include <tq4/gridweave/search.h>

#include "bench/points.h"

#if PEERS_WITH_VTK
#include <vtkDoubleArray.h>
#include <vtkIdList.h>
#include <vtkNew.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkStaticPointLocator.h>
#endif

#if PEERS_WITH_NANOFLANN
#include <nanoflann.hpp>
#endif

#if PEERS_WITH_CGAL
#include <CGAL/Fuzzy_iso_box.h>
#include <CGAL/Kd_tree.h>
#include <CGAL/Orthogonal_k_neighbor_search.h>
#include <CGAL/Search_traits_3.h>
#include <CGAL/Search_traits_adapter.h>
#include <CGAL/Simple_cartesian.h>
#include <CGAL/property_map.h>
#endif

#if PEERS_WITH_BOOST
#include <boost/geometry.hpp>
#include <boost/geometry/geometries/box.hpp>
#include <boost/geometry/geometries/point.hpp>
#include <boost/geometry/index/rtree.hpp>
#endif

namespace bench
{

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

using point = vector_fixed<double, 3>;

// ---- The trees. Each is built over the columns of a matrix and answers for one point; input in a package's own containers stands ready
// before the clock starts.

struct our_tree
{
    using input = const dense2D<double>&;

    explicit our_tree(input pos) : detector(pos) {}

    unsigned closest(const double* x) { return detector.find_closest(point{x[0], x[1], x[2]}); }
    unsigned closest_other(unsigned node, const double*) { return detector.find_closest(node); }

    template <class Visit>
    void in_box(const std::array<double, 3>& low, const std::array<double, 3>& high, Visit visit)
    {
        found.size = 0;
        detector.find_in_box(point{low[0], low[1], low[2]}, point{high[0], high[1], high[2]}, found);
        for (const unsigned node : found) visit(node);
    }

    node_detector detector;
    dense1D<unsigned> found;
};

#if PEERS_WITH_VTK
struct vtk_tree
{
    struct input
    {
        vtkNew<vtkPolyData> cloud;

        explicit input(const dense2D<double>& pos)
        {
            vtkNew<vtkDoubleArray> coordinates;
            coordinates->SetNumberOfComponents(3);
            coordinates->SetArray(const_cast<double*>(pos.data()), vtkIdType{3} * pos.cols, 1);
            vtkNew<vtkPoints> points;
            points->SetData(coordinates);
            cloud->SetPoints(points);
        }
    };

    explicit vtk_tree(const input& in)
    {
        locator->SetDataSet(in.cloud);
        locator->BuildLocator();
    }

    unsigned closest(const double* x) { return static_cast<unsigned>(locator->FindClosestPoint(x)); }

    unsigned closest_other(unsigned node, const double* x)
    {
        locator->FindClosestNPoints(2, x, found);
        return static_cast<unsigned>(found->GetId(found->GetId(0) == node ? 1 : 0));
    }

    vtkNew<vtkStaticPointLocator> locator;
    vtkNew<vtkIdList> found;
};
#endif

#if PEERS_WITH_NANOFLANN
struct nanoflann_tree
{
    /// Our matrix as nanoflann looks at points.
    struct input
    {
        const dense2D<double>& pos;

        explicit input(const dense2D<double>& matrix) : pos(matrix) {}

        std::size_t kdtree_get_point_count() const { return pos.cols; }
        double kdtree_get_pt(std::size_t c, std::size_t k) const { return pos.data()[3 * c + k]; }
        template <class Box>
        bool kdtree_get_bbox(Box&) const
        {
            return false;
        }
    };

    explicit nanoflann_tree(const input& in) : index(3, in, nanoflann::KDTreeSingleIndexAdaptorParams(10)) {}

    unsigned closest(const double* x)
    {
        unsigned node = none_index;
        double squared = 0;
        index.knnSearch(x, 1, &node, &squared);
        return node;
    }

    unsigned closest_other(unsigned node, const double* x)
    {
        unsigned nodes[2] = {none_index, none_index};
        double squared[2] = {};
        index.knnSearch(x, 2, nodes, squared);
        return nodes[nodes[0] == node ? 1 : 0];
    }

    nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<double, input>, input, 3, unsigned> index;
};
#endif

#if PEERS_WITH_CGAL
struct cgal_tree
{
    using kernel = CGAL::Simple_cartesian<double>;
    using numbered_point = std::pair<kernel::Point_3, unsigned>;
    using base_traits = CGAL::Search_traits_3<kernel>;
    using traits = CGAL::Search_traits_adapter<numbered_point, CGAL::First_of_pair_property_map<numbered_point>, base_traits>;
    using search =
        CGAL::Orthogonal_k_neighbor_search<traits, CGAL::internal::Spatial_searching_default_distance<traits>::type,
                                           CGAL::Sliding_midpoint<traits>,
                                           CGAL::Kd_tree<traits, CGAL::Sliding_midpoint<traits>, CGAL::Tag_true, CGAL::Tag_true>>;
    using box = CGAL::Fuzzy_iso_box<traits>;

    struct input
    {
        std::vector<numbered_point> points;

        explicit input(const dense2D<double>& pos)
        {
            points.reserve(pos.cols);
            for (unsigned c = 0; c < pos.cols; ++c) points.emplace_back(kernel::Point_3(pos(0, c), pos(1, c), pos(2, c)), c);
        }
    };

    explicit cgal_tree(const input& in) : tree(in.points.begin(), in.points.end()) { tree.build(); }

    unsigned closest(const double* x) { return search(tree, kernel::Point_3(x[0], x[1], x[2]), 1).begin()->first.second; }

    unsigned closest_other(unsigned node, const double* x)
    {
        const search two(tree, kernel::Point_3(x[0], x[1], x[2]), 2);
        auto nearest = two.begin();
        if (nearest->first.second == node) ++nearest;
        return nearest->first.second;
    }

    template <class Visit>
    void in_box(const std::array<double, 3>& low, const std::array<double, 3>& high, Visit visit)
    {
        found.clear();
        tree.search(std::back_inserter(found), box(kernel::Point_3(low[0], low[1], low[2]), kernel::Point_3(high[0], high[1], high[2])));
        for (const numbered_point& each : found) visit(each.second);
    }

    search::Tree tree;
    std::vector<numbered_point> found;
};
#endif

#if PEERS_WITH_BOOST
struct boost_tree
{
    using place = boost::geometry::model::point<double, 3, boost::geometry::cs::cartesian>;
    using box = boost::geometry::model::box<place>;
    using numbered_point = std::pair<place, unsigned>;

    struct input
    {
        std::vector<numbered_point> points;

        explicit input(const dense2D<double>& pos)
        {
            points.reserve(pos.cols);
            for (unsigned c = 0; c < pos.cols; ++c) points.emplace_back(place(pos(0, c), pos(1, c), pos(2, c)), c);
        }
    };

    explicit boost_tree(const input& in) : tree(in.points) {}

    unsigned closest(const double* x)
    {
        found.clear();
        tree.query(boost::geometry::index::nearest(place(x[0], x[1], x[2]), 1), std::back_inserter(found));
        return found.front().second;
    }

    template <class Visit>
    void in_box(const std::array<double, 3>& low, const std::array<double, 3>& high, Visit visit)
    {
        found.clear();
        tree.query(boost::geometry::index::intersects(box(place(low[0], low[1], low[2]), place(high[0], high[1], high[2]))),
                   std::back_inserter(found));
        for (const numbered_point& each : found) visit(each.second);
    }

    boost::geometry::index::rtree<numbered_point, boost::geometry::index::rstar<16>> tree;
    std::vector<numbered_point> found;
};
#endif

// ---- The jobs, the same for every tree.

/// Names a type where only values are passed.
template <class T>
struct of_type
{
    using type = T;
};

double squared_distance(const double* a, const double* b)
{
    double sum = 0;
    for (unsigned k = 0; k < 3; ++k) sum += (a[k] - b[k]) * (a[k] - b[k]);
    return sum;
}

using distances = std::vector<double>;

/// How far the found nodes are: what trees agree on where several nodes are equally close.
distances distances_to(const dense2D<double>& pos, const dense2D<double>& queries, const std::vector<unsigned>& found)
{
    distances all(found.size());
    for (unsigned c = 0; c < found.size(); ++c)
        all[c] = found[c] < pos.cols ? squared_distance(pos.column(found[c]), queries.column(c)) : -1.0;
    return all;
}

template <class Tree>
std::vector<unsigned> closest_nodes(Tree& tree, const dense2D<double>& queries, unsigned count)
{
    std::vector<unsigned> found(count);
    for (unsigned c = 0; c < count; ++c) found[c] = tree.closest(queries.column(c));
    return found;
}

template <class Tree>
std::vector<unsigned> closest_other_nodes(Tree& tree, const dense2D<double>& pos)
{
    std::vector<unsigned> found(pos.cols);
    for (unsigned c = 0; c < pos.cols; ++c) found[c] = tree.closest_other(c, pos.column(c));
    return found;
}

/// A number for each box that tells its set of nodes, whatever their order.
template <class Tree>
std::vector<std::uint64_t> box_contents(Tree& tree, const dense2D<double>& centres, double half)
{
    std::vector<std::uint64_t> sums(centres.cols);
    for (unsigned c = 0; c < centres.cols; ++c)
    {
        const double* const x = centres.column(c);
        std::uint64_t sum = 0;
        tree.in_box({x[0] - half, x[1] - half, x[2] - half}, {x[0] + half, x[1] + half, x[2] + half},
                    [&](unsigned node) { sum += (node + 1) * 0x9E3779B97F4A7C15ull; });
        sums[c] = sum;
    }
    return sums;
}

/// Adds a contender: `ours` for our tree, a peer otherwise.
template <class Form, class Call, class View>
void add(row<Form>& r, const char* name, Call call, View view)
{
    if (name)
        r.peer(name, call, view);
    else
        r.ours(call, view);
}

// ---- The rows.

struct cloud
{
    const char* name;
    dense2D<double> (*make)(unsigned count, unsigned seed);
    const char* closest_rival; ///< whose time the queries must not exceed
};

constexpr cloud clouds[] = {{"cube", points_in_cube, "nanoflann"}, {"surface", points_on_surface, "CGAL"}};

void build_row(table& rows, const cloud& where)
{
    const auto count = static_cast<unsigned>(rows.chosen().items);
    row<distances> r(rows, {std::string("search tree, ") + where.name, "points", 1.0 * count, {{1.1, ""}}, "distances of 1,000 queries"});
    if (!r.chosen()) return;
    const auto pos = where.make(count, 1);
    const auto queries = where.make(1000, 2);

    const auto contend = [&](const char* name, auto tree_type, const auto& input) {
        using tree = typename decltype(tree_type)::type;
        add(
            r, name, [&] { return std::make_unique<tree>(input); },
            [&](const std::unique_ptr<tree>& built) { return distances_to(pos, queries, closest_nodes(*built, queries, queries.cols)); });
    };
    contend(nullptr, of_type<our_tree>(), pos);
#if PEERS_WITH_VTK
    const vtk_tree::input vtk(pos);
    contend("VTK", of_type<vtk_tree>(), vtk);
#endif
#if PEERS_WITH_NANOFLANN
    const nanoflann_tree::input nanoflann(pos);
    contend("nanoflann", of_type<nanoflann_tree>(), nanoflann);
#endif
#if PEERS_WITH_CGAL
    const cgal_tree::input cgal(pos);
    contend("CGAL", of_type<cgal_tree>(), cgal);
#endif
#if PEERS_WITH_BOOST
    const boost_tree::input boost(pos);
    contend("Boost rtree", of_type<boost_tree>(), boost);
#endif
    r.run();
}

/// The trees over a cloud that answer for the closest point.
struct closest_trees
{
    const dense2D<double>& pos;

    our_tree ours{pos};
#if PEERS_WITH_VTK
    vtk_tree vtk{vtk_tree::input(pos)};
#endif
#if PEERS_WITH_NANOFLANN
    nanoflann_tree::input nanoflann_input{pos};
    nanoflann_tree nanoflann{nanoflann_input};
#endif
#if PEERS_WITH_CGAL
    cgal_tree cgal{cgal_tree::input(pos)};
#endif

    /// Calls `contend(name, tree)` for each; ours has no name.
    template <class Contend>
    void each(Contend&& contend)
    {
        contend(nullptr, ours);
#if PEERS_WITH_VTK
        contend("VTK", vtk);
#endif
#if PEERS_WITH_NANOFLANN
        contend("nanoflann", nanoflann);
#endif
#if PEERS_WITH_CGAL
        contend("CGAL", cgal);
#endif
    }
};

void closest_row(table& rows, const cloud& where)
{
    const auto count = static_cast<unsigned>(rows.chosen().items);
    row<distances> r(rows, {std::string("closest node, ") + where.name, "queries", 1.0 * count, {{1.0, where.closest_rival}}, "distances"});
    if (!r.chosen()) return;
    const auto pos = where.make(count, 1);
    const auto queries = where.make(count, 2);

    const auto contend = [&](const char* name, auto& tree) {
        add(
            r, name, [&] { return closest_nodes(tree, queries, queries.cols); },
            [&](const std::vector<unsigned>& found) { return distances_to(pos, queries, found); });
    };
    closest_trees trees{pos};
    trees.each(contend);
    r.run();
}

void closest_other_row(table& rows, const cloud& where)
{
    const auto count = static_cast<unsigned>(rows.chosen().items);
    row<distances> r(rows,
                     {std::string("closest other node, ") + where.name, "queries", 1.0 * count, {{1.0, where.closest_rival}}, "distances"});
    if (!r.chosen()) return;
    const auto pos = where.make(count, 1);

    const auto contend = [&](const char* name, auto& tree) {
        add(
            r, name, [&] { return closest_other_nodes(tree, pos); },
            [&](const std::vector<unsigned>& found) { return distances_to(pos, pos, found); });
    };
    closest_trees trees{pos};
    trees.each(contend);
    r.run();
}

/// One box per ten points, each with about 30 of them.
void box_row(table& rows)
{
    const auto count = static_cast<unsigned>(rows.chosen().items);
    row<std::vector<std::uint64_t>> r(rows, {"nodes in a box, 30 each", "boxes", 0.1 * count, {{1.0, "CGAL"}}, "sets of nodes"});
    if (!r.chosen()) return;
    const auto pos = points_in_cube(count, 1);
    const auto centres = points_in_cube(count / 10, 2);
    const double half = 0.5 * std::cbrt(30.0 / count);

    const auto contend = [&](const char* name, auto& tree) {
        add(
            r, name, [&] { return box_contents(tree, centres, half); }, [](const auto& sums) { return sums; });
    };
    our_tree ours(pos);
    contend(nullptr, ours);
#if PEERS_WITH_CGAL
    cgal_tree cgal{cgal_tree::input(pos)};
    contend("CGAL", cgal);
#endif
#if PEERS_WITH_BOOST
    boost_tree boost{boost_tree::input(pos)};
    contend("Boost rtree", boost);
#endif
    r.run();
}

void merge_row(table& rows)
{
    constexpr double tolerance = 1e-6;
    const auto count = static_cast<unsigned>(rows.chosen().items);
    row<std::vector<unsigned>> r(rows, {"merge within a tolerance, in pairs", "nodes", 1.0 * count, {{1.0, ""}}, "node that each becomes"});
    if (!r.chosen()) return;
    const auto pos = points_in_pairs(count, tolerance);
    dense1D<unsigned> all(count);
    for (unsigned c = 0; c < count; ++c) all[c] = c;

    r.ours(
        [&] {
            dense1D<unsigned> new_ids;
            merge(pos, all, new_ids, tolerance);
            return new_ids;
        },
        [](const dense1D<unsigned>& ids) { return std::vector<unsigned>(ids.begin(), ids.end()); });
#if PEERS_WITH_VTK
    const vtk_tree::input vtk(pos);
    r.peer(
        "VTK",
        [&] {
            const vtk_tree tree(vtk);
            std::vector<vtkIdType> new_ids(count);
            tree.locator->MergePoints(tolerance, new_ids.data());
            return new_ids;
        },
        [](const std::vector<vtkIdType>& ids) { return std::vector<unsigned>(ids.begin(), ids.end()); });
#endif
#if PEERS_WITH_NANOFLANN
    const nanoflann_tree::input nanoflann(pos);
    r.peer(
        "nanoflann",
        [&] {
            const nanoflann_tree tree(nanoflann);
            std::vector<unsigned> new_ids(count);
            std::vector<std::pair<unsigned, double>> near;
            const nanoflann::SearchParams unsorted(32, 0, false);
            for (unsigned c = 0; c < count; ++c)
            {
                tree.index.radiusSearch(pos.column(c), tolerance * tolerance, near, unsorted);
                new_ids[c] = c;
                for (const auto& [node, squared] : near) new_ids[c] = std::min(new_ids[c], node);
            }
            return new_ids;
        },
        [](const std::vector<unsigned>& ids) { return ids; });
#endif
    r.run();
}

} // namespace

void search_rows(table& rows)
{
    for (const cloud& where : clouds) build_row(rows, where);
    for (const cloud& where : clouds) closest_row(rows, where);
    for (const cloud& where : clouds) closest_other_row(rows, where);
    box_row(rows);
    merge_row(rows);
}

} // namespace bench
