#include <array>
#include <cmath>

#include <tq4/gridweave/quality.h>

#include "gridweave/core/kinds.h"
#include "gridweave/core/points.h"
#include "gridweave/core/vector_math.h"

// One family of measures: a signed area or volume over a power of the edge sizes, scaled so that the ideal shape scores 1. For triangles
// and tetrahedra that is the inscribed radius over the longest edge: P. P. Pébay and T. J. Baker, "Analysis of triangle quality measures",
// Mathematics of Computation 72 (2003); V. N. Parthasarathy, C. M. Graichen and A. F. Hathaway, "A comparison of tetrahedron quality
// measures", Finite Elements in Analysis and Design 15 (1994). The other shapes take their worst corner, in the manner of P. M. Knupp,
// "Algebraic mesh quality metrics for unstructured initial meshes", Finite Elements in Analysis and Design 39 (2003), and a solid whose
// corners are sound must also stand a test of its faces.

namespace tq4::gridweave
{

namespace
{

using vector3 = vector_fixed<double, 3>;

template <unsigned D, unsigned N>
using corners = std::array<vector_fixed<double, D>, N>;

constexpr double two_sqrt3 = 3.4641016151377544;
constexpr double four_sqrt2 = 5.656854249492381;
constexpr double two_sqrt6 = 4.898979485566356;
constexpr double twenty_four_sqrt6 = 58.78775382679627;
constexpr double eighteen_sqrt3 = 31.17691453623979;
constexpr double twenty_four_sqrt3 = 41.569219381653056;
constexpr double inverse_pi = 0.3183098861837907;

constexpr double degenerate = 1e-12;                            ///< what counts as zero, and the relative test of a flat face
constexpr double suspicious = 1e-10;                            ///< a tetrahedron this close to zero gets a second opinion
constexpr double thin_pyramid = twenty_four_sqrt3 * degenerate; ///< a pyramid below it is cut into tetrahedra

constexpr double folded = -1; ///< cosine between the normals of a quadrangle folded shut, and of one that cannot be measured

/// A value cut to [-1, 1]. NaN, where the sizes of an element overflow or its coordinates are no numbers, gives 0.
double limited(double value)
{
    if (value >= 1) return 1;
    if (value <= -1) return -1;
    return value == value ? value : 0;
}

double smaller(double a, double b)
{
    return b < a ? b : a;
}

double larger(double a, double b)
{
    return b > a ? b : a;
}

template <std::size_t N>
double smallest(const std::array<double, N>& values)
{
    double least = values[0];
    for (std::size_t k = 1; k < N; ++k) least = smaller(least, values[k]);
    return least;
}

/// Area with the sign that the plane gives it, or without one in space.
double area_of(double cross_product)
{
    return cross_product;
}
double area_of(const vector3& cross_product)
{
    return norm(cross_product);
}

/// The power 1.5 of a sum of squared lengths: a volume.
double volume_of(double squared_lengths)
{
    return squared_lengths * std::sqrt(squared_lengths);
}

template <unsigned D>
double quality_of(triangle, const corners<D, 3>& p)
{
    const auto a = subtract(p[0], p[2]);
    const auto b = subtract(p[1], p[2]);
    const auto c = subtract(b, a);
    const double length_a = norm(a);
    const double length_b = norm(b);
    const double length_c = norm(c);

    // The product of the two shorter edges at a corner keeps its digits in a needle. At equal lengths the plane takes (a, c) and space
    // (a, b): deliberate, since the two differ in the last digits.
    const double shorter = smaller(length_a, length_b);
    const bool take_b = D == 2 ? shorter < length_c : !(length_c < shorter);
    const double doubled_area = area_of(cross(a, take_b ? b : c));

    const double low = smaller(shorter, length_c);
    const double longer = larger(length_a, length_b);
    const double longest = larger(longer, length_c);
    const double middle = smaller(longer, larger(shorter, length_c));
    const double size = longest * (low + middle + longest);
    if (!(size > 0)) return 0;
    return limited(doubled_area / size * two_sqrt3);
}

// What is marked inline from here on runs six times per hexahedron: out of line it hands its vectors over in memory and takes half as long
// again.

/// The four edges of a quadrangle in turn.
template <unsigned D>
inline corners<D, 4> edges_of(const vector_fixed<double, D>& p0, const vector_fixed<double, D>& p1, const vector_fixed<double, D>& p2,
                              const vector_fixed<double, D>& p3)
{
    return {subtract(p1, p0), subtract(p2, p1), subtract(p3, p2), subtract(p0, p3)};
}

/// Cross products of the edges that meet at each corner.
template <unsigned D>
inline auto corner_products(const corners<D, 4>& e)
{
    return std::array{cross(e[3], e[0]), cross(e[0], e[1]), cross(e[1], e[2]), cross(e[2], e[3])};
}

/// What a fold costs: 1 for a plane quadrangle, 0 for one folded shut, by the cosine between the normals of two opposite corners.
double warp_factor(double cosine)
{
    return larger(0, 1 - std::acos(limited(cosine)) * inverse_pi);
}

template <unsigned D>
double quality_of(quadrangle, const corners<D, 4>& p)
{
    const auto e = edges_of(p[0], p[1], p[2], p[3]);
    const std::array lengths{norm(e[0]), norm(e[1]), norm(e[2]), norm(e[3])};
    const double perimeter = lengths[0] + lengths[1] + lengths[2] + lengths[3];
    double longest = larger(norm(subtract(p[2], p[0])), norm(subtract(p[3], p[1])));
    for (const double length : lengths) longest = larger(longest, length);

    const auto normals = corner_products(e);
    const std::array areas{area_of(normals[0]), area_of(normals[1]), area_of(normals[2]), area_of(normals[3])};
    const double least = smallest(areas);
    const double size = perimeter * longest;
    if (!(size > 0)) return 0;
    const double planar = least / size * four_sqrt2;
    if constexpr (D == 3)
    {
        if (!(least > 0)) return 0;
        const double cosine =
            smaller(dot(normals[1], normals[3]) / (areas[1] * areas[3]), dot(normals[0], normals[2]) / (areas[0] * areas[2]));
        return limited(planar * warp_factor(cosine));
    }
    else
        return limited(planar);
}

struct tetrahedron_score
{
    double quality;
    bool doubtful; ///< a face is so flat that its area has lost its digits
};

tetrahedron_score score_tetrahedron(const vector3& p0, const vector3& p1, const vector3& p2, const vector3& p3)
{
    const vector3 a = subtract(p0, p3);
    const vector3 b = subtract(p1, p3);
    const vector3 c = subtract(p2, p3);
    const double aa = dot(a, a);
    const double bb = dot(b, b);
    const double cc = dot(c, c);
    const double ab = dot(a, b);
    const double ac = dot(a, c);
    const double bc = dot(b, c);

    // Everything else about edges and faces follows from these six numbers: cheap, and where it cancels the flag tells.
    const double edge_ab = aa - 2 * ab + bb;
    const double edge_ac = aa - 2 * ac + cc;
    const double edge_bc = bb - 2 * bc + cc;
    const double between = aa - ab - ac + bc; // (a - c) · (a - b)
    const std::array products{bb * cc, aa * cc, aa * bb, edge_ac * edge_ab};
    std::array squared_areas{products[0] - bc * bc, products[1] - ac * ac, products[2] - ab * ab, products[3] - between * between};

    bool doubtful = !(edge_ab > 0) || !(edge_ac > 0) || !(edge_bc > 0);
    for (unsigned k = 0; k < 4; ++k) doubtful |= squared_areas[k] < degenerate * products[k];
    if (doubtful)
        for (double& squared_area : squared_areas)
            if (squared_area < 0) squared_area = 0;

    const double longest = larger(larger(larger(aa, bb), larger(cc, edge_ab)), larger(edge_ac, edge_bc));
    const double areas =
        std::sqrt(squared_areas[0]) + std::sqrt(squared_areas[1]) + std::sqrt(squared_areas[2]) + std::sqrt(squared_areas[3]);
    const double size = std::sqrt(longest) * areas;
    if (!(size > 0)) return {0, doubtful};
    return {limited(determinant(a, b, c) / size * two_sqrt6), doubtful};
}

/// The even permutations of four points, which leave the exact value as it is; the first is the identity. Their order decides which
/// rounding is met first.
constexpr auto even_permutations = [] {
    std::array<std::array<unsigned char, 4>, 12> table{};
    for (unsigned i = 0; i < 12; ++i)
    {
        const unsigned turn = i / 3;
        auto& order = table[i];
        for (unsigned k = 0; k < 3; ++k) order[k] = static_cast<unsigned char>(((k + i % 3) % 3 + turn) % 4);
        order[3] = static_cast<unsigned char>((3 + turn) % 4);
        if (turn % 2 == 1)
        {
            const unsigned char first = order[0];
            order[0] = order[1];
            order[1] = first;
        }
    }
    return table;
}();

/// Rounding can give a nearly flat tetrahedron either sign. A doubtful value is computed again from the other orders of the nodes: the
/// smallest counts, and where the signs disagree the tetrahedron is flat.
double second_opinion(double best, const corners<3, 4>& p)
{
    for (unsigned i = 1; i < even_permutations.size() && std::abs(best) > degenerate; ++i)
    {
        const auto& order = even_permutations[i];
        const double other = score_tetrahedron(p[order[0]], p[order[1]], p[order[2]], p[order[3]]).quality;
        if (!(other * best > 0)) return 0;
        if (std::abs(other) < std::abs(best)) best = other;
    }
    return best;
}

double quality_of(tetrahedron, const corners<3, 4>& p)
{
    const auto [quality, doubtful] = score_tetrahedron(p[0], p[1], p[2], p[3]);
    if (!doubtful && std::abs(quality) >= suspicious) return quality;
    return second_opinion(quality, p);
}

/// Cosine between the normals of opposite corners of a pyramid's base, the worse of the two pairs.
inline double base_cosine(const corners<3, 4>& normals)
{
    std::array<double, 2> cosines{};
    std::array<double, 2> products{};
    for (unsigned k = 0; k < 2; ++k)
    {
        products[k] = squared_norm(normals[k]) * squared_norm(normals[k + 2]);
        cosines[k] = dot(normals[k], normals[k + 2]) / std::sqrt(products[k]);
    }
    if (products[0] == 0 || products[1] == 0) return folded;
    return limited(smaller(cosines[1], cosines[0]));
}

inline corners<3, 4> base_normals(const corners<3, 5>& p)
{
    return corner_products(edges_of(p[0], p[1], p[2], p[3]));
}

double squared_size(const corners<3, 5>& p)
{
    double to_apex = 0;
    double around = 0;
    for (unsigned k = 0; k < 4; ++k)
    {
        to_apex += squared_norm(subtract(p[k], p[4]));
        around += squared_norm(subtract(p[(k + 1) % 4], p[k]));
    }
    return 2 * to_apex + around;
}

double pyramid_base_quality(const corners<3, 5>& p)
{
    const vector3 r0 = subtract(p[0], p[4]);
    const vector3 r1 = subtract(p[1], p[4]);
    const vector3 r2 = subtract(p[2], p[4]);
    const vector3 r3 = subtract(p[3], p[4]);
    const double least =
        smallest(std::array{determinant(r0, r2, r1), determinant(r0, r3, r2), determinant(r1, r3, r2), determinant(r1, r0, r3)});
    const double size = volume_of(squared_size(p));
    if (!(size > 0)) return 0;
    return limited(least / size * twenty_four_sqrt6);
}

/// The smallest quality of the four tetrahedra that a corner of the base, its neighbours and the apex make.
double lowest_corner_tetrahedron(const corners<3, 5>& p)
{
    double lowest = 1;
    for (unsigned i = 1; i <= 4 && lowest > degenerate; ++i)
        lowest = smaller(lowest, quality_of(tetrahedron{}, corners<3, 4>{p[i - 1], p[(i + 1) % 4], p[i % 4], p[4]}));
    return lowest;
}

struct pyramid_score
{
    double quality;
    double cosine; ///< of the base's fold; `folded` where the pyramid was rejected before its base was looked at
};

pyramid_score score_pyramid(const corners<3, 5>& p)
{
    const double quality = pyramid_base_quality(p);
    if (quality <= degenerate) return {quality, folded};
    if (quality < thin_pyramid)
    {
        const double lowest = lowest_corner_tetrahedron(p);
        if (lowest < degenerate) return {lowest, folded};
    }
    const double cosine = base_cosine(base_normals(p));
    return {quality * warp_factor(cosine), cosine};
}

double quality_of(pyramid, const corners<3, 5>& p)
{
    return score_pyramid(p).quality;
}

/// What is particular to a solid that is judged by its corners and then by its faces: the edges leaving each corner, in the order that
/// makes their determinant positive, the factor that makes the ideal shape score 1, and the weight of a node in the centroid.
template <class Shape>
struct corner_rule;

template <>
struct corner_rule<wedge>
{
    static constexpr unsigned char neighbors[6][3]{{1, 2, 3}, {2, 0, 4}, {0, 1, 5}, {5, 4, 0}, {3, 5, 1}, {4, 3, 2}};
    static constexpr double scale = eighteen_sqrt3;
    static constexpr double node_weight = 0.16666666666666666;
};

template <>
struct corner_rule<hexahedron>
{
    static constexpr unsigned char neighbors[8][3]{{1, 3, 4}, {2, 0, 5}, {3, 1, 6}, {0, 2, 7}, {7, 5, 0}, {4, 6, 1}, {5, 7, 2}, {6, 4, 3}};
    static constexpr double scale = twenty_four_sqrt3;
    static constexpr double node_weight = 0.125;
};

template <class Shape>
double least_corner_measure(const corners<3, Shape::nodes>& p)
{
    const auto measure_at = [&](unsigned corner) {
        const auto& to = corner_rule<Shape>::neighbors[corner];
        return determinant(subtract(p[to[0]], p[corner]), subtract(p[to[1]], p[corner]), subtract(p[to[2]], p[corner]));
    };
    double least = measure_at(0);
    for (unsigned corner = 1; corner < Shape::nodes; ++corner) least = smaller(least, measure_at(corner));
    return least;
}

template <class Shape>
double squared_edge_lengths(const corners<3, Shape::nodes>& p)
{
    double sum = 0;
    for (const local_edge edge : Shape::edges) sum += squared_norm(subtract(p[edge.b], p[edge.a]));
    return sum;
}

template <std::size_t N>
vector3 centroid(const corners<3, N>& p, double node_weight)
{
    vector3 sum = p[0];
    for (unsigned n = 1; n < N; ++n)
        for (unsigned k = 0; k < 3; ++k) sum[k] += p[n][k];
    for (unsigned k = 0; k < 3; ++k) sum[k] *= node_weight;
    return sum;
}

/// Square of a measure above which a face pyramid is sound beyond doubt, from the squared edge lengths of its solid. The pyramid has at
/// most 25 times that sum: its base edges belong to the solid, and from a node to the centroid it is no farther than over three edges.
double ample_squared_measure(double squared_lengths)
{
    constexpr double ample = 1e-9; // 1000 degenerates, and far above the rounding of the measure
    const double size = 25 * squared_lengths;
    return ample * ample * (size * size * size);
}

/// True when a pyramid's quality is above every threshold by so much that its exact value does not matter. The corner normals of the base
/// are at hand, so this costs a fraction of the exact value, and no root.
inline bool is_clearly_sound(const corners<3, 5>& p, const corners<3, 4>& normals, double cosine, double ample)
{
    double least = dot(normals[0], subtract(p[4], p[0]));
    for (unsigned k = 1; k < 4; ++k) least = smaller(least, dot(normals[k], subtract(p[4], p[k])));
    return cosine >= 0 && least > 0 && least * least > ample;
}

/// Quality of a face pyramid, or 1 in its place where it is clearly sound: it decides on rejection only.
inline pyramid_score score_face(const corners<3, 5>& p, double ample)
{
    const auto normals = base_normals(p);
    const double cosine = base_cosine(normals);
    return is_clearly_sound(p, normals, cosine, ample) ? pyramid_score{1, cosine} : score_pyramid(p);
}

/// A solid by its worst corner, times the warp of its worst face. Each face makes a pyramid, or a tetrahedron, with the centroid: one that
/// is flat or turned inside out rejects the solid, and its value stands.
template <class Shape>
double quality_by_corners(const corners<3, Shape::nodes>& p)
{
    const double squared_lengths = squared_edge_lengths<Shape>(p);
    const double size = volume_of(squared_lengths);
    if (!(size > 0)) return 0;
    const double corner = limited(least_corner_measure<Shape>(p) / size * corner_rule<Shape>::scale);
    if (corner <= degenerate) return corner;

    const vector3 middle = centroid(p, corner_rule<Shape>::node_weight);
    const double ample = ample_squared_measure(squared_lengths);
    double lowest = 1;
    double cosine = 1;
    for (const local_side& face : Shape::sides)
    {
        const auto& n = face.node;
        if (face.count == 3) // both triangles of a wedge are looked at, whatever the first gives
            lowest = smaller(lowest, quality_of(tetrahedron{}, corners<3, 4>{p[n[2]], p[n[1]], p[n[0]], middle}));
        else
        {
            if (lowest <= degenerate) break;
            const pyramid_score score = score_face({p[n[0]], p[n[1]], p[n[2]], p[n[3]], middle}, ample);
            lowest = smaller(lowest, score.quality);
            cosine = smaller(cosine, score.cosine);
        }
    }
    if (lowest < degenerate) return lowest;
    return corner * warp_factor(cosine);
}

double quality_of(wedge, const corners<3, 6>& p)
{
    return quality_by_corners<wedge>(p);
}

double quality_of(hexahedron, const corners<3, 8>& p)
{
    return quality_by_corners<hexahedron>(p);
}

/// Calls `consume(element, quality)` for the elements in order; one that returns false ends the walk. D is the dimension that surface
/// elements are measured in: the plane gives them a sign. Solids always stand in space.
template <unsigned D, class Consumer>
void evaluate_in(topology shapes, const dense2D<double>& pos, const dense2D<unsigned>& connectivity, Consumer&& consume)
{
    const point_reader<D> at(pos);
    for_each_element(shapes, connectivity, [&](auto shape, unsigned element, const unsigned* nodes) {
        using Shape = decltype(shape);
        if constexpr (Shape::dim == 1)
            consume(element, 1.0); // a bar has no shape to lose; its nodes are not read
        else if constexpr (Shape::dim <= D)
        {
            corners<D, Shape::nodes> p;
            for (unsigned k = 0; k < Shape::nodes; ++k) p[k] = at[nodes[k]];
            consume(element, quality_of(shape, p));
        }
    });
}

template <class Consumer>
void evaluate(element_type kind, const dense2D<double>& pos, const dense2D<unsigned>& connectivity, Consumer&& consume)
{
    if (pos.rows == 2 && element_dim(kind) == 2)
        evaluate_in<2>(linear_topology(kind), pos, connectivity, consume);
    else
        evaluate_in<3>(linear_topology(kind), pos, connectivity, consume);
}

} // namespace

int shape_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind, dense1D<double>& qualities)
{
    qualities.size = 0;
    if (connectivity.empty()) return 0;
    if (!check_IDs(connectivity, kind, pos.cols)) return -2;
    if (!qualities.resize(connectivity.cols, 0.0))
    {
        qualities.size = 0;
        return out_of_memory;
    }
    kind = narrow(kind, connectivity.rows);
    if (linear_topology(kind) == topology::none)
    {
        qualities.size = 0;
        return -3;
    }
    evaluate(kind, pos, connectivity, [out = qualities.data()](unsigned element, double quality) { out[element] = quality; });
    return 0;
}

int min_quality(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind, double& lowest, unsigned& index)
{
    lowest = 1;
    index = none_index;
    if (connectivity.empty()) return 0;
    if (!check_IDs(connectivity, kind, pos.cols)) return -2;
    kind = narrow(kind, connectivity.rows);
    if (linear_topology(kind) == topology::none) return -3;

    double least = 1;
    unsigned where = none_index;
    evaluate(kind, pos, connectivity, [&](unsigned element, double quality) {
        if (!(quality < least)) return; // ties keep the first element
        least = quality;
        where = element;
    });
    lowest = least;
    index = where;
    return 0;
}

} // namespace tq4::gridweave
