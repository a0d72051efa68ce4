#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <set>

#include <gtest/gtest.h>

#include <tq4/gridweave/quality.h>

#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::elements_of;
using test::points_of;

constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();
constexpr double infinite = std::numeric_limits<double>::infinity();
const double sqrt2 = std::sqrt(2.0);
const double sqrt3 = std::sqrt(3.0);

double quality_of(const dense2D<double>& pos, element_type kind)
{
    dense2D<unsigned> element(pos.cols, 1);
    for (unsigned r = 0; r < pos.cols; ++r) element(r, 0) = r;
    dense1D<double> qualities;
    EXPECT_EQ(shape_qualities(pos, element, kind, qualities), 0);
    return qualities.size == 1 ? qualities[0] : not_a_number;
}

dense2D<double> swapped(const dense2D<double>& pos, unsigned a, unsigned b)
{
    dense2D<double> copy;
    copy.copy(pos);
    for (unsigned r = 0; r < pos.rows; ++r) std::swap(copy(r, a), copy(r, b));
    return copy;
}

dense2D<double> permuted(const dense2D<double>& pos, std::initializer_list<unsigned> order)
{
    dense2D<double> copy(pos.rows, pos.cols);
    unsigned c = 0;
    for (const unsigned from : order)
    {
        for (unsigned r = 0; r < pos.rows; ++r) copy(r, c) = pos(r, from);
        ++c;
    }
    return copy;
}

dense2D<double> in_space(const dense2D<double>& pos)
{
    dense2D<double> copy(3, pos.cols, 0.0);
    for (unsigned c = 0; c < pos.cols; ++c)
        for (unsigned r = 0; r < 2; ++r) copy(r, c) = pos(r, c);
    return copy;
}

dense2D<double> equilateral_triangle()
{
    return points_of({{0, 0}, {1, 0}, {0.5, sqrt3 / 2}});
}
dense2D<double> square()
{
    return points_of({{0, 0}, {1, 0}, {1, 1}, {0, 1}});
}
dense2D<double> regular_tetrahedron()
{
    return points_of({{1, 1, 1}, {1, -1, -1}, {-1, 1, -1}, {-1, -1, 1}});
}
dense2D<double> regular_pyramid()
{
    return points_of({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0.5, 0.5, 1 / sqrt2}});
}
dense2D<double> regular_wedge()
{
    return points_of({{0, 0, 0}, {1, 0, 0}, {0.5, sqrt3 / 2, 0}, {0, 0, 1}, {1, 0, 1}, {0.5, sqrt3 / 2, 1}});
}
dense2D<double> cube()
{
    return points_of({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}});
}

struct ideal_shape
{
    element_type kind;
    dense2D<double> pos;
};

std::vector<ideal_shape> ideal_solids()
{
    return {{ELEM_TETRA4, regular_tetrahedron()}, {ELEM_PYRA5, regular_pyramid()}, {ELEM_PENTA6, regular_wedge()}, {ELEM_HEXA8, cube()}};
}

std::vector<ideal_shape> ideal_shapes()
{
    auto all = ideal_solids();
    all.push_back({ELEM_TRIA3, equilateral_triangle()});
    all.push_back({ELEM_TRIA3, in_space(equilateral_triangle())});
    all.push_back({ELEM_QUAD4, square()});
    all.push_back({ELEM_QUAD4, in_space(square())});
    return all;
}

// A slow and literal account of the measures, one point type, containers of the standard library, every value computed in full.
namespace reference
{

using point = std::array<double, 3>;
using points = std::vector<point>;

point operator-(const point& a, const point& b)
{
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
double dot(const point& a, const point& b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
point cross(const point& a, const point& b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
double det(const point& a, const point& b, const point& c)
{
    return dot(a, cross(b, c));
}
double length(const point& a)
{
    return std::sqrt(dot(a, a));
}
double limit(double q)
{
    return std::isnan(q) ? 0 : std::min(1.0, std::max(-1.0, q));
}
double power(double s)
{
    return s * std::sqrt(s);
}

double triangle(const points& p, bool planar)
{
    const point a = p[0] - p[2], b = p[1] - p[2], c = b - a;
    std::vector<double> l{length(a), length(b), length(c)};
    const double shorter = std::min(l[0], l[1]);
    const bool with_b = planar ? shorter < l[2] : l[2] >= shorter;
    const point n = cross(a, with_b ? b : c);
    const double area = planar ? n[2] : length(n);
    std::sort(l.begin(), l.end());
    const double size = l[2] * (l[0] + l[1] + l[2]);
    return size > 0 ? limit(area / size * 3.4641016151377544) : 0;
}

double quadrangle(const points& p, bool planar)
{
    points e, n;
    for (unsigned i = 0; i < 4; ++i) e.push_back(p[(i + 1) % 4] - p[i]);
    for (unsigned i = 0; i < 4; ++i) n.push_back(cross(e[(i + 3) % 4], e[i]));
    double perimeter = 0;
    double longest = std::max(length(p[2] - p[0]), length(p[3] - p[1]));
    double least = infinite;
    for (unsigned i = 0; i < 4; ++i)
    {
        perimeter += length(e[i]);
        longest = std::max(longest, length(e[i]));
        least = std::min(least, planar ? n[i][2] : length(n[i]));
    }
    const double size = perimeter * longest;
    if (!(size > 0)) return 0;
    const double s = least / size * 5.656854249492381;
    if (planar) return limit(s);
    if (!(least > 0)) return 0;
    const double c1 = dot(n[1], n[3]) / (length(n[1]) * length(n[3]));
    const double c2 = dot(n[0], n[2]) / (length(n[0]) * length(n[2]));
    return limit(s * std::max(0.0, 1 - std::acos(limit(std::min(c1, c2))) * 0.3183098861837907));
}

double single_tetrahedron(const points& p, bool& flag)
{
    const point a = p[0] - p[3], b = p[1] - p[3], c = p[2] - p[3];
    const double aa = dot(a, a), bb = dot(b, b), cc = dot(c, c), ab = dot(a, b), ac = dot(a, c), bc = dot(b, c);
    const double l_ab = aa - 2 * ab + bb, l_ac = aa - 2 * ac + cc, l_bc = bb - 2 * bc + cc;
    const double d = aa - ab - ac + bc;
    std::vector<double> product{bb * cc, aa * cc, aa * bb, l_ac * l_ab};
    std::vector<double> A{bb * cc - bc * bc, aa * cc - ac * ac, aa * bb - ab * ab, l_ac * l_ab - d * d};
    flag = !(l_ab > 0) || !(l_ac > 0) || !(l_bc > 0);
    for (unsigned k = 0; k < 4; ++k)
        if (A[k] < 1e-12 * product[k]) flag = true;
    if (flag)
        for (double& x : A) x = std::max(x, 0.0);
    const double h = std::sqrt(std::max({aa, bb, cc, l_ab, l_ac, l_bc}));
    const double D = h * (std::sqrt(A[0]) + std::sqrt(A[1]) + std::sqrt(A[2]) + std::sqrt(A[3]));
    return D > 0 ? limit(det(a, b, c) / D * 4.898979485566356) : 0;
}

points even_permutation(points p, unsigned i)
{
    std::rotate(p.begin(), p.begin() + i / 3, p.end());
    std::rotate(p.begin(), p.begin() + i % 3, p.begin() + 3);
    if (i / 3 % 2 == 1) std::swap(p[0], p[1]);
    return p;
}

double tetrahedron(const points& p)
{
    bool flag = false;
    double best = single_tetrahedron(p, flag);
    if (!flag && std::abs(best) >= 1e-10) return best;
    if (std::abs(best) <= 1e-12) return best;
    for (unsigned i = 1; i < 12; ++i)
    {
        const double q = single_tetrahedron(even_permutation(p, i), flag);
        if (!(q * best > 0)) return 0;
        if (std::abs(q) < std::abs(best)) best = q;
        if (std::abs(best) <= 1e-12) break;
    }
    return best;
}

double pyramid(const points& p, double& warp)
{
    warp = 0;
    points r;
    for (unsigned i = 0; i < 4; ++i) r.push_back(p[i] - p[4]);
    const double least = std::min({det(r[0], r[2], r[1]), det(r[0], r[3], r[2]), det(r[1], r[3], r[2]), det(r[1], r[0], r[3])});
    double to_apex = 0, around = 0;
    for (unsigned i = 0; i < 4; ++i)
    {
        to_apex += dot(r[i], r[i]);
        const point e = p[(i + 1) % 4] - p[i];
        around += dot(e, e);
    }
    const double size = power(2 * to_apex + around);
    const double q = size > 0 ? limit(least / size * 58.78775382679627) : 0;
    if (q <= 1e-12) return q;
    if (q < 4.1569219381653057e-11)
    {
        double low = 1;
        for (unsigned i = 1; i <= 4 && low > 1e-12; ++i) low = std::min(low, tetrahedron({p[i - 1], p[(i + 1) % 4], p[i % 4], p[4]}));
        if (low < 1e-12) return low;
    }
    points e, n;
    for (unsigned i = 0; i < 4; ++i) e.push_back(p[(i + 1) % 4] - p[i]);
    for (unsigned i = 0; i < 4; ++i) n.push_back(cross(e[(i + 3) % 4], e[i]));
    const double p13 = dot(n[1], n[1]) * dot(n[3], n[3]);
    const double p02 = dot(n[0], n[0]) * dot(n[2], n[2]);
    if (p13 == 0 || p02 == 0)
        warp = 0;
    else
        warp = std::max(0.0, 1 - std::acos(limit(std::min(dot(n[1], n[3]) / std::sqrt(p13), dot(n[0], n[2]) / std::sqrt(p02)))) *
                                     0.3183098861837907);
    return q * warp;
}

using node_lists = std::vector<std::vector<unsigned>>;

double by_corners(const points& p, const node_lists& leaving, const node_lists& edges, double scale)
{
    double least = infinite;
    for (unsigned i = 0; i < p.size(); ++i)
        least = std::min(least, det(p[leaving[i][0]] - p[i], p[leaving[i][1]] - p[i], p[leaving[i][2]] - p[i]));
    double sum = 0;
    for (const auto& e : edges) sum += dot(p[e[1]] - p[e[0]], p[e[1]] - p[e[0]]);
    return power(sum) > 0 ? limit(least / power(sum) * scale) : 0;
}

point centroid(const points& p, double weight)
{
    point g{};
    for (unsigned k = 0; k < 3; ++k)
    {
        for (const point& x : p) g[k] += x[k];
        g[k] *= weight;
    }
    return g;
}

double by_faces(const points& p, const point& g, double corner, double quality, const node_lists& quadrangles)
{
    double warp = 1;
    for (const auto& f : quadrangles)
    {
        if (quality <= 1e-12) break;
        double face_warp = 0;
        quality = std::min(quality, pyramid({p[f[0]], p[f[1]], p[f[2]], p[f[3]], g}, face_warp));
        warp = std::min(warp, face_warp);
    }
    return quality < 1e-12 ? quality : corner * warp;
}

double wedge(const points& p)
{
    const double corner = by_corners(p, {{1, 2, 3}, {2, 0, 4}, {0, 1, 5}, {5, 4, 0}, {3, 5, 1}, {4, 3, 2}},
                                     {{0, 3}, {1, 4}, {2, 5}, {1, 2}, {2, 0}, {0, 1}, {4, 5}, {5, 3}, {3, 4}}, 31.17691453623979);
    if (corner <= 1e-12) return corner;
    const point g = centroid(p, 0.16666666666666666);
    double quality = 1;
    quality = std::min(quality, tetrahedron({p[2], p[1], p[0], g}));
    quality = std::min(quality, tetrahedron({p[4], p[5], p[3], g}));
    return by_faces(p, g, corner, quality, {{2, 1, 4, 5}, {0, 2, 5, 3}, {1, 0, 3, 4}});
}

double hexahedron(const points& p)
{
    const double corner =
        by_corners(p, {{1, 3, 4}, {2, 0, 5}, {3, 1, 6}, {0, 2, 7}, {7, 5, 0}, {4, 6, 1}, {5, 7, 2}, {6, 4, 3}},
                   {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6}, {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}}, 41.569219381653056);
    if (corner <= 1e-12) return corner;
    return by_faces(p, centroid(p, 0.125), corner, 1, {{0, 3, 7, 4}, {1, 5, 6, 2}, {0, 4, 5, 1}, {3, 2, 6, 7}, {0, 1, 2, 3}, {4, 7, 6, 5}});
}

double quality(const dense2D<double>& pos, element_type kind)
{
    points p(pos.cols, point{});
    for (unsigned c = 0; c < pos.cols; ++c)
        for (unsigned r = 0; r < std::min(pos.rows, 3u); ++r) p[c][r] = pos(r, c);
    double warp = 0;
    switch (kind)
    {
    case ELEM_TRIA3: return triangle(p, pos.rows == 2);
    case ELEM_QUAD4: return quadrangle(p, pos.rows == 2);
    case ELEM_TETRA4: return tetrahedron(p);
    case ELEM_PYRA5: return pyramid(p, warp);
    case ELEM_PENTA6: return wedge(p);
    default: return hexahedron(p);
    }
}

} // namespace reference

TEST(ShapeQuality, PyramidsWhoseWarpUnderflowsFollowTheLiteralAccount)
{
    // One corner of the base is close to the diagonal: with the size, the normals of that corner and of the opposite one are the first to
    // be lost.
    for (const unsigned corner : {0u, 1u, 2u, 3u})
        for (const double offset : {0.3, 1e-3, 1e-5, 1e-7, 1e-9})
            for (int exponent = -100; exponent > -145; --exponent)
            {
                const double base[4][2] = {{0.5 - offset, 0.5 - offset}, {1, 0}, {1, 1}, {0, 1}};
                dense2D<double> pos(3, 5);
                for (unsigned k = 0; k < 4; ++k)
                    for (unsigned r = 0; r < 3; ++r) pos(r, (k + corner) % 4) = std::ldexp(r < 2 ? base[k][r] : 0, exponent);
                for (unsigned r = 0; r < 3; ++r) pos(r, 4) = std::ldexp(r < 2 ? 0.6 : 0.7, exponent);
                ASSERT_EQ(quality_of(pos, ELEM_PYRA5), reference::quality(pos, ELEM_PYRA5)) << corner << ' ' << offset << ' ' << exponent;
            }
}

} // namespace

TEST(ShapeQuality, IdealShapesScoreOne)
{
    for (const auto& [kind, pos] : ideal_shapes()) EXPECT_NEAR(quality_of(pos, kind), 1, 4e-15) << "kind " << kind << ", rows " << pos.rows;
}

TEST(ShapeQuality, TurnedIdealShapesLoseNoMoreThanTheArcCosineOfRounding)
{
    const double c = std::cos(0.7), s = std::sin(0.7);
    for (const auto& [kind, pos] : ideal_solids())
    {
        dense2D<double> turned(3, pos.cols);
        for (unsigned k = 0; k < pos.cols; ++k)
        {
            const double x = c * pos(0, k) - s * pos(1, k), y = s * pos(0, k) + c * pos(1, k), z = pos(2, k);
            turned(0, k) = x;
            turned(1, k) = c * y - s * z;
            turned(2, k) = s * y + c * z;
        }
        EXPECT_NEAR(quality_of(turned, kind), 1, 5e-8) << "kind " << kind;
    }
}

TEST(ShapeQuality, ClockwiseSurfaceElementsAreNegativeInThePlaneAndUnsignedInSpace)
{
    const auto triangle = points_of({{0, 0}, {4, 0}, {1, 3}});
    const auto clockwise = swapped(triangle, 0, 1);
    const double quality = quality_of(triangle, ELEM_TRIA3);
    EXPECT_GT(quality, 0.5);
    EXPECT_LT(quality, 1);
    EXPECT_EQ(quality_of(clockwise, ELEM_TRIA3), -quality);
    EXPECT_EQ(quality_of(in_space(clockwise), ELEM_TRIA3), quality);

    const auto quadrangle = points_of({{0, 0}, {3, 0}, {2.5, 2}, {0.5, 1.5}});
    const auto reversed = swapped(quadrangle, 1, 3);
    const double convex = quality_of(quadrangle, ELEM_QUAD4);
    EXPECT_GT(convex, 0.3);
    EXPECT_LT(quality_of(reversed, ELEM_QUAD4), 0);
    EXPECT_DOUBLE_EQ(quality_of(in_space(quadrangle), ELEM_QUAD4), convex);
    EXPECT_DOUBLE_EQ(quality_of(in_space(reversed), ELEM_QUAD4), convex);
}

TEST(ShapeQuality, SolidsArePositiveByOrientation)
{
    for (const auto& [kind, pos] : ideal_solids()) EXPECT_GT(quality_of(pos, kind), 0.9) << "kind " << kind;
    EXPECT_EQ(quality_of(points_of({{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}}), ELEM_TETRA4),
              -quality_of(points_of({{0, 1, 0}, {1, 0, 0}, {0, 0, 1}, {0, 0, 0}}), ELEM_TETRA4));
    EXPECT_GT(quality_of(points_of({{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}}), ELEM_TETRA4), 0);
    EXPECT_NEAR(quality_of(permuted(regular_pyramid(), {3, 2, 1, 0, 4}), ELEM_PYRA5), -1, 4e-15);
    EXPECT_NEAR(quality_of(permuted(regular_wedge(), {3, 4, 5, 0, 1, 2}), ELEM_PENTA6), -1, 4e-15);
    EXPECT_NEAR(quality_of(permuted(cube(), {4, 5, 6, 7, 0, 1, 2, 3}), ELEM_HEXA8), -1, 4e-15);
}

TEST(ShapeQuality, SwappingTheFirstTwoNodesNegatesATetrahedron)
{
    for (unsigned trial = 0; trial < 1000; ++trial)
    {
        const auto pos = test::random_points(3, 4, trial);
        const double quality = quality_of(pos, ELEM_TETRA4);
        ASSERT_NEAR(quality_of(swapped(pos, 0, 1), ELEM_TETRA4), -quality, 1e-14);
    }
}

TEST(ShapeQuality, KnownTriangleValues)
{
    // Inscribed radius over longest edge, times the constant: a right isosceles triangle has 2 sqrt(3) / (sqrt(2) (2 + sqrt(2))).
    EXPECT_DOUBLE_EQ(quality_of(points_of({{0, 0}, {1, 0}, {0, 1}}), ELEM_TRIA3), 2 * sqrt3 / (sqrt2 * (2 + sqrt2)));
    EXPECT_DOUBLE_EQ(quality_of(points_of({{0, 0, 5}, {1, 0, 5}, {0, 1, 5}}), ELEM_TRIA3), 2 * sqrt3 / (sqrt2 * (2 + sqrt2)));
}

TEST(ShapeQuality, DegenerateTrianglesScoreZero)
{
    EXPECT_NEAR(quality_of(points_of({{0, 0}, {1, 0.1}, {3, 0.3}}), ELEM_TRIA3), 0, 1e-15);
    EXPECT_EQ(quality_of(points_of({{0, 0}, {1, 1}, {2, 2}}), ELEM_TRIA3), 0);
    EXPECT_EQ(quality_of(points_of({{0, 0, 0}, {1, 1, 1}, {2, 2, 2}}), ELEM_TRIA3), 0);
    EXPECT_EQ(quality_of(points_of({{3, 4}, {3, 4}, {3, 4}}), ELEM_TRIA3), 0);
    EXPECT_EQ(quality_of(points_of({{3, 4, 5}, {3, 4, 5}, {3, 4, 5}}), ELEM_TRIA3), 0);
}

TEST(ShapeQuality, CoincidentNodesScoreZeroInEveryKind)
{
    for (const auto& [kind, pos] : ideal_shapes())
        EXPECT_EQ(quality_of(dense2D<double>(pos.rows, pos.cols, 7.5), kind), 0) << "kind " << kind << ", rows " << pos.rows;
}

TEST(ShapeQuality, NeedleTrianglesKeepTheirDigits)
{
    // p0 and p1 are far from p2 and close to each other: the product of the long edges would lose all digits of the area.
    const auto needle = points_of({{1e8, 0}, {1e8, 1e-8}, {0, 0}});
    const double expected = (1e8 * 1e-8) / (1e8 * (2e8)) * 2 * sqrt3;
    EXPECT_NEAR(quality_of(needle, ELEM_TRIA3), expected, 1e-14 * expected);
    EXPECT_NEAR(quality_of(in_space(needle), ELEM_TRIA3), expected, 1e-14 * expected);
}

TEST(ShapeQuality, ConcaveQuadranglesAreNegativeInThePlane)
{
    const auto arrow = points_of({{0, 0}, {2, 0}, {0.5, 0.5}, {0, 2}});
    EXPECT_LT(quality_of(arrow, ELEM_QUAD4), 0);
    // In space the corner that points the other way shows as a fold.
    EXPECT_EQ(quality_of(in_space(arrow), ELEM_QUAD4), 0);
}

TEST(ShapeQuality, FoldedQuadranglesLoseByTheWarp)
{
    // A unit square folded on the diagonal from node 1 to node 3: the normals at nodes 0 and 2 part by the angle of the fold.
    const auto folded = [](double angle) {
        const double h = std::sqrt(0.5);
        return points_of({{-h, 0, 0}, {0, -h, 0}, {h * std::cos(angle), 0, h * std::sin(angle)}, {0, h, 0}});
    };
    EXPECT_NEAR(quality_of(folded(0), ELEM_QUAD4), 1, 4e-15);
    double before = 1;
    for (const double angle : {0.25, 0.5, 1.0, 1.5, 2.0, 2.5, 3.0})
    {
        const double quality = quality_of(folded(angle), ELEM_QUAD4);
        EXPECT_LT(quality, before);
        before = quality;
    }
    // The fold of a right angle keeps the corners at nodes 0 and 2: half remains of the planar part.
    const auto right = folded(std::acos(-1.0) / 2);
    const double planar_part =
        reference::quadrangle({{-std::sqrt(0.5), 0, 0}, {0, -std::sqrt(0.5), 0}, {0, 0, std::sqrt(0.5)}, {0, std::sqrt(0.5), 0}}, false);
    EXPECT_NEAR(quality_of(right, ELEM_QUAD4), planar_part, 1e-15);
    EXPECT_NEAR(quality_of(folded(std::acos(-1.0)), ELEM_QUAD4), 0, 1e-15);
}

TEST(ShapeQuality, ReversedCornerOfAHexahedronStandsAsANegativeValue)
{
    auto pos = cube();
    for (unsigned r = 0; r < 3; ++r) pos(r, 6) = 0.2;
    const double quality = quality_of(pos, ELEM_HEXA8);
    EXPECT_LT(quality, 0);
    EXPECT_EQ(quality, reference::quality(pos, ELEM_HEXA8));
}

TEST(ShapeQuality, WarpedHexahedronFaceLowersTheValueThroughTheWarpAlone)
{
    auto pos = cube();
    pos(2, 6) = 1.25; // the top and two sides: the sides stay plane, the top does not
    const double quality = quality_of(pos, ELEM_HEXA8);

    // The corner measure is 1 where the moved node takes no part; the twelve edges grow by one vertical and two slanted ones.
    const double squared_lengths = 9 + 1.25 * 1.25 + 2 * (1 + 0.0625);
    const double corner = 41.569219381653056 / std::pow(squared_lengths, 1.5);
    // Normals of the top at nodes 4 and 6 are (0, 0, 1) and (-1/4, -1/4, 1); at nodes 5 and 7 (-1/4, 0, 1) and (0, -1/4, 1).
    const double cosine = std::min(1 / std::sqrt(1.125), 1 / 1.0625);
    EXPECT_NEAR(quality, corner * (1 - std::acos(cosine) / std::acos(-1.0)), 1e-14);
}

TEST(ShapeQuality, HexahedronWithSoundCornersAndABadFaceIsRejected)
{
    // Search for bodies whose corners are all positive while some face pyramid turns inside out: their value is that of the pyramid.
    unsigned rejected = 0;
    for (unsigned trial = 0; trial < 20000 && rejected < 20; ++trial)
    {
        test::random_source random(trial);
        auto pos = cube();
        for (unsigned c = 0; c < 8; ++c)
            for (unsigned r = 0; r < 3; ++r) pos(r, c) += random.between(-0.6, 0.6);
        const double quality = quality_of(pos, ELEM_HEXA8);
        ASSERT_EQ(quality, reference::quality(pos, ELEM_HEXA8)) << trial;

        reference::points p(8);
        for (unsigned c = 0; c < 8; ++c) p[c] = {pos(0, c), pos(1, c), pos(2, c)};
        const double corner =
            reference::by_corners(p, {{1, 3, 4}, {2, 0, 5}, {3, 1, 6}, {0, 2, 7}, {7, 5, 0}, {4, 6, 1}, {5, 7, 2}, {6, 4, 3}}, {{0, 1}}, 1);
        if (corner > 0 && quality <= 0) ++rejected;
    }
    EXPECT_GE(rejected, 20u);
}

TEST(ShapeQuality, EvenPermutationsAreDistinctAndEven)
{
    std::set<std::vector<int>> seen;
    for (unsigned i = 0; i < 12; ++i)
    {
        const auto p = reference::even_permutation({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}}, i);
        std::vector<int> order;
        for (const auto& x : p) order.push_back(static_cast<int>(x[0]));
        unsigned inversions = 0;
        for (unsigned a = 0; a < 4; ++a)
            for (unsigned b = a + 1; b < 4; ++b) inversions += order[a] > order[b];
        EXPECT_EQ(inversions % 2, 0u) << i;
        seen.insert(order);
    }
    EXPECT_EQ(seen.size(), 12u);
}

TEST(ShapeQuality, NearlyFlatTetrahedraFollowTheLiteralSecondOpinion)
{
    // Needles whose nodes leave a line by a little, and flat bodies that leave a plane by a little, far from the origin and near it.
    unsigned disagreeing = 0;
    unsigned lowered = 0;
    for (unsigned trial = 0; trial < 60000; ++trial)
    {
        test::random_source random(trial);
        const double off = std::pow(10, random.between(-14, -6));
        const double off_z = trial % 2 ? off : off * off;
        const bool needle = trial % 4 < 2;
        dense2D<double> pos(3, 4);
        const std::array direction{random.between(-1, 1), random.between(-1, 1), random.between(-1, 1)};
        for (unsigned c = 0; c < 4; ++c)
        {
            const double t = random.between(0, 1);
            pos(0, c) = needle ? direction[0] * t + off * random.between(-1, 1) : random.between(-1, 1);
            pos(1, c) = needle ? direction[1] * t + off * random.between(-1, 1) : random.between(-1, 1);
            pos(2, c) = needle ? direction[2] * t + off * random.between(-1, 1) : 0.3 * pos(0, c) + off_z * random.between(-1, 1);
        }
        const double quality = quality_of(pos, ELEM_TETRA4);
        ASSERT_EQ(quality, reference::quality(pos, ELEM_TETRA4)) << "trial " << trial;

        bool flag = false;
        reference::points p(4);
        for (unsigned c = 0; c < 4; ++c) p[c] = {pos(0, c), pos(1, c), pos(2, c)};
        const double first = reference::single_tetrahedron(p, flag);
        if (quality == 0 && std::abs(first) > 1e-12) ++disagreeing;
        if (quality != 0 && quality != first) ++lowered;
    }
    EXPECT_GT(disagreeing, 100u); // the sign changed across the orders: exactly 0
    EXPECT_GT(lowered, 100u);
}

TEST(ShapeQuality, RandomElementsOfEveryShapeFollowTheLiteralAccount)
{
    for (const auto& [kind, ideal] : ideal_shapes())
        for (unsigned trial = 0; trial < 4000; ++trial)
        {
            test::random_source random(trial);
            const double spread = std::pow(10, random.between(-9, 0.3));
            const bool lattice = trial % 4 == 0;
            dense2D<double> pos;
            pos.copy(ideal);
            for (unsigned c = 0; c < pos.cols; ++c)
                for (unsigned r = 0; r < pos.rows; ++r) pos(r, c) = lattice ? random.below(3) : pos(r, c) + spread * random.between(-1, 1);
            ASSERT_EQ(quality_of(pos, kind), reference::quality(pos, kind))
                << "kind " << kind << ", rows " << pos.rows << ", trial " << trial;
        }
}

TEST(ShapeQuality, FlattenedSolidsFollowTheLiteralAccount)
{
    // Heights down to 1e-16: through the thresholds at which a pyramid is cut, a tetrahedron doubted and a solid rejected.
    for (const auto& [kind, ideal] : ideal_solids())
    {
        std::set<double> values;
        for (unsigned trial = 0; trial < 6000; ++trial)
        {
            test::random_source random(trial);
            const double height = std::pow(10, random.between(-16, -6));
            dense2D<double> pos;
            pos.copy(ideal);
            for (unsigned c = 0; c < pos.cols; ++c)
            {
                for (unsigned r = 0; r < 2; ++r) pos(r, c) += random.between(-0.2, 0.2);
                pos(2, c) = height * (pos(2, c) + random.between(-0.5, 0.5)) + (trial % 2 ? 0.7 * pos(0, c) : 0);
            }
            const double quality = quality_of(pos, kind);
            ASSERT_EQ(quality, reference::quality(pos, kind)) << "kind " << kind << ", trial " << trial;
            values.insert(quality);
        }
        EXPECT_GT(values.size(), 1000u) << "kind " << kind;
    }
}

TEST(ShapeQuality, ScalingByAPowerOfTwoChangesNoBit)
{
    for (const auto& [kind, ideal] : ideal_shapes())
        for (unsigned trial = 0; trial < 200; ++trial)
        {
            test::random_source random(trial);
            dense2D<double> pos, large;
            pos.copy(ideal);
            for (unsigned c = 0; c < pos.cols; ++c)
                for (unsigned r = 0; r < pos.rows; ++r) pos(r, c) += random.between(-0.3, 0.3);
            large.copy(pos);
            for (unsigned c = 0; c < pos.cols; ++c)
                for (unsigned r = 0; r < pos.rows; ++r) large(r, c) *= 1024;
            ASSERT_EQ(quality_of(large, kind), quality_of(pos, kind)) << "kind " << kind << ", trial " << trial;
        }
}

TEST(ShapeQuality, TranslationOnTheLatticeChangesNoBit)
{
    for (const auto& [kind, ideal] : ideal_shapes())
        for (unsigned trial = 0; trial < 200; ++trial)
        {
            const auto pos = test::lattice_points(ideal.rows, ideal.cols, 4, trial);
            dense2D<double> moved;
            moved.copy(pos);
            for (unsigned c = 0; c < pos.cols; ++c)
                for (unsigned r = 0; r < pos.rows; ++r) moved(r, c) += 64;
            const double quality = quality_of(pos, kind);
            const double rounding = kind == ELEM_PENTA6 ? 1e-13 : 0; // a sixth of a sum is rounded
            ASSERT_NEAR(quality_of(moved, kind), quality, rounding) << "kind " << kind << ", trial " << trial;
        }
}

TEST(ShapeQuality, ValuesLieWithinOne)
{
    for (const auto& [kind, ideal] : ideal_shapes())
        for (unsigned trial = 0; trial < 500; ++trial)
        {
            const double quality = quality_of(test::random_points(ideal.rows, ideal.cols, trial), kind);
            ASSERT_LE(std::abs(quality), 1);
            if (ideal.rows == 3 && element_dim(kind) == 2) { ASSERT_GE(quality, 0); }
        }
}

TEST(ShapeQuality, CoordinatesThatAreNotNumbersGiveZero)
{
    for (const auto& [kind, ideal] : ideal_shapes())
        for (unsigned c = 0; c < ideal.cols; ++c)
            for (unsigned r = 0; r < ideal.rows; ++r)
                for (const double value : {not_a_number, infinite, -infinite, 1e308})
                {
                    dense2D<double> pos;
                    pos.copy(ideal);
                    pos(r, c) = value;
                    ASSERT_EQ(quality_of(pos, kind), 0) << "kind " << kind << ", node " << c << ", value " << value;
                }
}

TEST(ShapeQuality, HugeAndTinyElementsStayWithinBounds)
{
    for (const auto& [kind, ideal] : ideal_shapes())
        for (const double scale : {1e-300, 1e-160, 1e-110, 1e-60, 1e60, 1e110, 1e160, 1e300})
        {
            dense2D<double> pos;
            pos.copy(ideal);
            for (unsigned c = 0; c < pos.cols; ++c)
                for (unsigned r = 0; r < pos.rows; ++r) pos(r, c) *= scale;
            const double quality = quality_of(pos, kind);
            ASSERT_GE(quality, -1);
            ASSERT_LE(quality, 1);
        }
}

TEST(ShapeQualities, ReplaceTheResult)
{
    const auto m = test::grid_of_hexahedra(2);
    auto qualities = test::vector_of<double>({5, 5, 5, 5, 5, 5, 5, 5, 5, 5});
    EXPECT_EQ(shape_qualities(m.pos, m.connectivity, m.kind, qualities), 0);
    ASSERT_EQ(qualities.size, 8u);
    for (const double quality : qualities) EXPECT_NEAR(quality, 1, 4e-15);
}

TEST(ShapeQualities, EmptyConnectivityComesFirst)
{
    auto qualities = test::vector_of<double>({1, 2});
    EXPECT_EQ(shape_qualities(dense2D<double>(), dense2D<unsigned>(), ELEM_TRIA6, qualities), 0);
    EXPECT_EQ(qualities.size, 0u);
    qualities = test::vector_of<double>({1, 2});
    EXPECT_EQ(shape_qualities(dense2D<double>(7, 1), dense2D<unsigned>(3, 0), ELEM_NODE, qualities), 0);
    EXPECT_EQ(qualities.size, 0u);
    qualities = test::vector_of<double>({1, 2});
    EXPECT_EQ(shape_qualities(dense2D<double>(3, 1), dense2D<unsigned>(0, 5), ELEM_TETRA4, qualities), 0);
    EXPECT_EQ(qualities.size, 0u);
}

TEST(ShapeQualities, BadConnectivityComesBeforeTheKind)
{
    const auto pos = equilateral_triangle();
    auto qualities = test::vector_of<double>({1, 2});
    EXPECT_EQ(shape_qualities(pos, elements_of({{0, 1, 3}}), ELEM_TRIA3, qualities), -2);
    EXPECT_EQ(qualities.size, 0u);
    EXPECT_EQ(shape_qualities(pos, elements_of({{0, 1, 2, 0}}), ELEM_TRIA3, qualities), -2);
    EXPECT_EQ(shape_qualities(pos, elements_of({{0, 1, none_index}}), ELEM_TRIA3, qualities), -2);
    EXPECT_EQ(shape_qualities(pos, elements_of({{0, 1, 3}}), ELEM_BAR3, qualities), -2); // an index and the kind are wrong
    EXPECT_EQ(shape_qualities(pos, elements_of({{0, 1, 2}}), ELEM_NONE, qualities), -2); // no matrix with rows fits this kind
    EXPECT_EQ(shape_qualities(pos, elements_of({{0, 1, 2, 0, 1}}), ELEM_SURF_ANY, qualities), -2);
}

TEST(ShapeQualities, KindsThatAreNotServed)
{
    const dense2D<double> pos(3, 27, 0.0);
    for (const element_type kind : {ELEM_NODE, ELEM_BAR_ANY, ELEM_BAR3, ELEM_TRIA6, ELEM_QUAD8, ELEM_QUAD9, ELEM_TETRA10, ELEM_PYRA13,
                                    ELEM_PYRA14, ELEM_PENTA15, ELEM_PENTA18, ELEM_HEXA20, ELEM_HEXA27})
    {
        const dense2D<unsigned> connectivity(nbr_nodes(kind), 2, 0u);
        auto qualities = test::vector_of<double>({1, 2, 3});
        EXPECT_EQ(shape_qualities(pos, connectivity, kind, qualities), -3) << kind;
        EXPECT_EQ(qualities.size, 0u);
        double lowest = -5;
        unsigned index = 9;
        EXPECT_EQ(min_quality(pos, connectivity, kind, lowest, index), -3) << kind;
        EXPECT_EQ(lowest, 1);
        EXPECT_EQ(index, none_index);
    }
}

TEST(ShapeQualities, BarsScoreOneWithoutBeingRead)
{
    const auto bars = elements_of({{0, 1}, {1, 1}});
    dense1D<double> qualities;
    EXPECT_EQ(shape_qualities(points_of({{not_a_number, not_a_number}, {0, 0}}), bars, ELEM_BAR2, qualities), 0);
    EXPECT_EQ(test::list(qualities), (std::vector<double>{1, 1}));
    double lowest = 0;
    unsigned index = 0;
    EXPECT_EQ(min_quality(points_of({{not_a_number, not_a_number}, {0, 0}}), bars, ELEM_BAR2, lowest, index), 0);
    EXPECT_EQ(lowest, 1);
    EXPECT_EQ(index, none_index);
}

TEST(ShapeQualities, MixedKindsTakeTheShapeOfEachColumn)
{
    for (const auto& m : {test::shuffled(test::mixed_surface(3), 1), test::shuffled(test::mixed_solid(3), 2)})
    {
        dense1D<double> qualities;
        ASSERT_EQ(shape_qualities(m.pos, m.connectivity, m.kind, qualities), 0);
        std::set<unsigned> heights;
        for (unsigned e = 0; e < m.connectivity.cols; ++e)
        {
            unsigned nodes = 0;
            while (nodes < m.connectivity.rows && m.connectivity(nodes, e) != none_index) ++nodes;
            heights.insert(nodes);
            dense2D<double> pos(m.pos.rows, nodes);
            for (unsigned n = 0; n < nodes; ++n)
                for (unsigned r = 0; r < m.pos.rows; ++r) pos(r, n) = m.pos(r, m.connectivity(n, e));
            const element_type surfaces[]{ELEM_TRIA3, ELEM_QUAD4};
            const element_type solids[]{ELEM_TETRA4, ELEM_PYRA5, ELEM_PENTA6, ELEM_NONE, ELEM_HEXA8};
            const element_type kind = m.kind == ELEM_SURF_ANY ? surfaces[nodes - 3] : solids[nodes - 4];
            EXPECT_EQ(qualities[e], reference::quality(pos, kind)) << "element " << e;
            EXPECT_GT(qualities[e], 0);
        }
        EXPECT_EQ(heights.size(), m.kind == ELEM_SURF_ANY ? 2u : 4u);
    }
}

TEST(ShapeQualities, MixedKindsWithFewerRowsArePlain)
{
    for (const auto& [kind, pos] : ideal_shapes())
    {
        if (kind == ELEM_QUAD4 || kind == ELEM_HEXA8) continue;
        const element_type mixed = kind == ELEM_TRIA3 ? ELEM_SURF_ANY : ELEM_SOLID_ANY;
        EXPECT_EQ(quality_of(pos, mixed), quality_of(pos, kind)) << "kind " << kind;
    }
}

TEST(ShapeQualities, MixedSurfacesInThePlaneAreSigned)
{
    const auto pos = points_of({{0, 0}, {1, 0}, {1, 1}, {0, 1}});
    const auto clockwise = elements_of({{0, 2, 1, none_index}, {0, 3, 2, 1}});
    dense1D<double> qualities;
    ASSERT_EQ(shape_qualities(pos, clockwise, ELEM_SURF_ANY, qualities), 0);
    EXPECT_LT(qualities[0], 0);
    EXPECT_NEAR(qualities[1], -1, 4e-15);
    ASSERT_EQ(shape_qualities(in_space(pos), clockwise, ELEM_SURF_ANY, qualities), 0);
    EXPECT_GT(qualities[0], 0);
    EXPECT_NEAR(qualities[1], 1, 4e-15);
}

TEST(ShapeQualities, SolidsOverTwoRowsLieFlat)
{
    for (const auto& [kind, ideal] : ideal_solids())
    {
        dense2D<double> flat(2, ideal.cols);
        for (unsigned c = 0; c < ideal.cols; ++c)
            for (unsigned r = 0; r < 2; ++r) flat(r, c) = ideal(r, c);
        EXPECT_EQ(quality_of(flat, kind), 0) << "kind " << kind;
    }
}

TEST(ShapeQualities, FewerRowsThanTwoCountAsZero)
{
    EXPECT_EQ(quality_of(points_of({{0}, {1}, {5}}), ELEM_TRIA3), 0);
    EXPECT_EQ(quality_of(dense2D<double>(1, 8, 3.0), ELEM_HEXA8), 0);
}

TEST(ShapeQualities, NonDenseMatricesGiveTheSame)
{
    for (const auto& m : test::all_linear_meshes(3))
    {
        dense1D<double> plain, spread;
        ASSERT_EQ(shape_qualities(m.pos, m.connectivity, m.kind, plain), 0);
        ASSERT_EQ(shape_qualities(test::non_dense(m.pos, not_a_number), test::non_dense(m.connectivity, 77777u), m.kind, spread), 0);
        EXPECT_EQ(test::list(plain), test::list(spread));
        EXPECT_EQ(plain.size, m.connectivity.cols);
    }
}

TEST(ShapeQualities, ReportExhaustedMemory)
{
    const auto m = test::grid_of_tetrahedra(3);
    const long alive = test::live_allocations();
    bool done = false;
    for (unsigned n = 1; !done; ++n)
    {
        ASSERT_LT(n, 10u);
        dense1D<double> qualities;
        qualities.push_back(4.0);
        test::failing_allocation fail(n);
        const int code = shape_qualities(m.pos, m.connectivity, m.kind, qualities);
        done = !fail.has_failed();
        EXPECT_EQ(code, done ? 0 : out_of_memory);
        EXPECT_EQ(qualities.size, done ? m.connectivity.cols : 0u);
        EXPECT_FALSE(done && n == 1);
    }
    EXPECT_EQ(test::live_allocations(), alive);
}

TEST(MinQuality, FindsTheFirstOfTheWorst)
{
    const auto pos = points_of({{0, 0}, {1, 0}, {0, 1}, {5, 5}, {6, 5}, {5, 6}, {0.5, sqrt3 / 2}});
    const auto triangles = elements_of({{0, 1, 6}, {0, 1, 2}, {3, 4, 5}, {0, 1, 2}});
    double lowest = 0;
    unsigned index = 0;
    EXPECT_EQ(min_quality(pos, triangles, ELEM_TRIA3, lowest, index), 0);
    EXPECT_EQ(index, 1u);
    EXPECT_DOUBLE_EQ(lowest, 2 * sqrt3 / (sqrt2 * (2 + sqrt2)));
}

TEST(MinQuality, FindsInvertedElements)
{
    auto m = test::grid_of_tetrahedra(3);
    std::swap(m.connectivity(0, 77), m.connectivity(1, 77));
    std::swap(m.connectivity(0, 99), m.connectivity(1, 99));
    double lowest = 0;
    unsigned index = 0;
    EXPECT_EQ(min_quality(m.pos, m.connectivity, m.kind, lowest, index), 0);
    EXPECT_LT(lowest, 0);
    EXPECT_TRUE(index == 77 || index == 99);
}

TEST(MinQuality, PerfectElementsLeaveTheIndexAtNone)
{
    double lowest = 0;
    unsigned index = 0;
    EXPECT_EQ(min_quality(square(), elements_of({{0, 1, 2, 3}}), ELEM_QUAD4, lowest, index), 0);
    EXPECT_NEAR(lowest, 1, 4e-15);
    EXPECT_EQ(index, lowest < 1 ? 0u : none_index);

    const auto bars = test::polyline(4);
    EXPECT_EQ(min_quality(bars.pos, bars.connectivity, bars.kind, lowest, index), 0);
    EXPECT_EQ(lowest, 1);
    EXPECT_EQ(index, none_index);
}

TEST(MinQuality, AgreesWithTheQualities)
{
    for (auto m : test::all_linear_meshes(3))
    {
        test::random_source random(5);
        for (unsigned c = 0; c < m.pos.cols; ++c)
            for (unsigned r = 0; r < m.pos.rows; ++r) m.pos(r, c) += random.between(-0.2, 0.2);
        dense1D<double> qualities;
        ASSERT_EQ(shape_qualities(m.pos, m.connectivity, m.kind, qualities), 0);
        const auto worst = std::min_element(qualities.begin(), qualities.end());
        double lowest = 0;
        unsigned index = 0;
        ASSERT_EQ(min_quality(m.pos, m.connectivity, m.kind, lowest, index), 0);
        EXPECT_EQ(lowest, *worst) << m.kind;
        EXPECT_EQ(index, *worst < 1 ? static_cast<unsigned>(worst - qualities.begin()) : none_index) << m.kind;
    }
}

TEST(MinQuality, EmptyAndBadInputLeaveOneAndNone)
{
    double lowest = 0;
    unsigned index = 0;
    EXPECT_EQ(min_quality(dense2D<double>(), dense2D<unsigned>(), ELEM_TRIA6, lowest, index), 0);
    EXPECT_EQ(lowest, 1);
    EXPECT_EQ(index, none_index);
    lowest = 0;
    index = 0;
    EXPECT_EQ(min_quality(square(), dense2D<unsigned>(0, 4), ELEM_QUAD4, lowest, index), 0);
    EXPECT_EQ(lowest, 1);
    EXPECT_EQ(index, none_index);
    lowest = 0;
    index = 0;
    EXPECT_EQ(min_quality(square(), elements_of({{0, 1, 2, 4}}), ELEM_QUAD4, lowest, index), -2);
    EXPECT_EQ(lowest, 1);
    EXPECT_EQ(index, none_index);
    EXPECT_EQ(min_quality(square(), elements_of({{0, 1, 2, 4}}), ELEM_NODE, lowest, index), -2);
}

TEST(MinQuality, AllocatesNothing)
{
    const auto m = test::grid_of_pyramids(2);
    const unsigned long before = test::allocation_count();
    double lowest = 0;
    unsigned index = 0;
    EXPECT_EQ(min_quality(m.pos, m.connectivity, m.kind, lowest, index), 0);
    EXPECT_EQ(test::allocation_count(), before);
}
