// Makes the part that the demonstration runs on: a plate with rounded edges, rounded corners and six holes, a pin standing in one of the
// holes, and a gasket under another. The plate and the pin are closed shells, the gasket is an open sheet, so a job on the file finds three
// subdomains and some free edges. Written as binary STL.
//
//   make_bracket part.stl

#include <cmath>
#include <cstdio>
#include <vector>

#include <tq4/gridweave.h>

namespace
{

constexpr double pi = 3.14159265358979323846;

struct point
{
    double x, y, z;
};

/// Triangles with three points of their own each, as STL stores them.
class soup
{
public:
    void triangle(const point& a, const point& b, const point& c)
    {
        for (const point& p : {a, b, c}) points_.push_back(p);
    }

    /// Two triangles; the corners run counter-clockwise seen from outside.
    void quadrangle(const point& a, const point& b, const point& c, const point& d)
    {
        triangle(a, b, c);
        triangle(a, c, d);
    }

    /// The strip between two rows of points that run the same way; `below` lies to the right of the walk seen from outside.
    void strip(const std::vector<point>& below, const std::vector<point>& above)
    {
        for (std::size_t k = 0; k + 1 < below.size(); ++k) quadrangle(below[k], below[k + 1], above[k + 1], above[k]);
    }

    std::size_t triangles() const { return points_.size() / 3; }

    int write(const char* file) const
    {
        const auto count = static_cast<unsigned>(points_.size());
        tq4::dense2D<double> pos(3, count);
        tq4::dense2D<unsigned> connectivity(3, count / 3);
        for (unsigned k = 0; k < count; ++k)
        {
            pos(0, k) = points_[k].x;
            pos(1, k) = points_[k].y;
            pos(2, k) = points_[k].z;
            connectivity(k % 3, k / 3) = k;
        }
        return tq4::gridweave::STL_output(file, pos, connectivity, false);
    }

private:
    std::vector<point> points_;
};

/// A point of the plate's outline with the outward direction there.
struct outline_point
{
    double x, y, nx, ny;
};

// The plate, in millimetres. Its flat faces end where the rounded edge begins; they are cut into 3 × 2 cells with one hole in each.
constexpr int cells_x = 3;
constexpr int cells_y = 2;
constexpr double half_length = 60.0;
constexpr double half_width = 40.0;
constexpr double half_thickness = 5.0;
constexpr double corner_radius = 12.0;
constexpr double edge_fillet = 2.0;
constexpr double hole_radius = 9.0;
constexpr double flat_half_length = half_length - edge_fillet;
constexpr double flat_half_width = half_width - edge_fillet;
constexpr double cell_length = 2.0 * flat_half_length / cells_x;
constexpr double cell_width = 2.0 * flat_half_width / cells_y;

double cell_x(double i)
{
    return -flat_half_length + cell_length * i;
}
double cell_y(double j)
{
    return -flat_half_width + cell_width * j;
}

constexpr int per_side = 24;    // points along one side of a cell
constexpr int rings = 10;       // rings of elements between a hole and the border of its cell
constexpr int fillet_steps = 6; // elements across a rounded edge
constexpr int wall_steps = 8;   // elements across the thickness

/// The point of the flat faces' outline that belongs to a point on the border of their enclosing rectangle: the same one but for the
/// rounded corners.
outline_point on_outline(double x, double y)
{
    const double r = corner_radius - edge_fillet;
    const double cx = std::copysign(flat_half_length - r, x);
    const double cy = std::copysign(flat_half_width - r, y);
    const bool beyond_x = std::fabs(x) > std::fabs(cx);
    const bool beyond_y = std::fabs(y) > std::fabs(cy);
    if (beyond_x && beyond_y)
    {
        const double length = std::sqrt((x - cx) * (x - cx) + (y - cy) * (y - cy));
        const double nx = (x - cx) / length;
        const double ny = (y - cy) / length;
        return {cx + r * nx, cy + r * ny, nx, ny};
    }
    if (beyond_x) return {x, y, std::copysign(1.0, x), 0.0};
    return {x, y, 0.0, std::copysign(1.0, y)};
}

/// Point k of the 4 × per_side points round the border of cell (i, j), counter-clockwise from its lower left corner, and the outward
/// direction where the border is the plate's.
outline_point on_cell_border(int i, int j, int k)
{
    const int side = k / per_side % 4;
    const double along = static_cast<double>(k % per_side) / per_side;
    double u = i;
    double v = j;
    if (side == 0) u = i + along;
    if (side == 1) u = i + 1, v = j + along;
    if (side == 2) u = i + 1 - along, v = j + 1;
    if (side == 3) v = j + 1 - along;
    const bool outer = u <= 0.0 || v <= 0.0 || u >= cells_x || v >= cells_y;
    return outer ? on_outline(cell_x(u), cell_y(v)) : outline_point{cell_x(u), cell_y(v), 0.0, 0.0};
}

/// One flat face of a cell: rings from the hole to the border. `z` above 0 is the upper face.
void add_cell_face(soup& part, int i, int j, double z)
{
    const double cx = cell_x(i + 0.5);
    const double cy = cell_y(j + 0.5);
    const int around = 4 * per_side;
    std::vector<std::vector<point>> ring(rings + 1, std::vector<point>(around + 1));
    for (int k = 0; k <= around; ++k)
    {
        const double angle = 2.0 * pi * (k % around) / around - 0.75 * pi;
        const point inner{cx + hole_radius * std::cos(angle), cy + hole_radius * std::sin(angle), z};
        const outline_point border = on_cell_border(i, j, k % around);
        const point outer{border.x, border.y, z};
        for (int r = 0; r <= rings; ++r)
        {
            const double w = static_cast<double>(r) / rings;
            ring[r][k] = r == 0       ? inner
                         : r == rings ? outer
                                      : point{inner.x + w * (outer.x - inner.x), inner.y + w * (outer.y - inner.y), z};
        }
    }
    for (int r = 0; r < rings; ++r)
    {
        if (z > 0.0)
            part.strip(ring[r + 1], ring[r]);
        else
            part.strip(ring[r], ring[r + 1]);
    }
}

/// The wall of a hole, its outside being the air in the hole.
void add_hole_wall(soup& part, int i, int j)
{
    const double cx = cell_x(i + 0.5);
    const double cy = cell_y(j + 0.5);
    const int around = 4 * per_side;
    for (int s = 0; s < wall_steps; ++s)
    {
        std::vector<point> below(around + 1);
        std::vector<point> above(around + 1);
        for (int k = 0; k <= around; ++k)
        {
            const double angle = 2.0 * pi * (k % around) / around - 0.75 * pi;
            const double x = cx + hole_radius * std::cos(angle);
            const double y = cy + hole_radius * std::sin(angle);
            below[k] = {x, y, -half_thickness + 2.0 * half_thickness * s / wall_steps};
            above[k] = {x, y, -half_thickness + 2.0 * half_thickness * (s + 1) / wall_steps};
        }
        part.strip(above, below);
    }
}

/// The rounded outer side of the plate: the outline swept along a profile of a quarter circle, a straight wall and a quarter circle.
void add_outer_side(soup& part)
{
    std::vector<outline_point> outline;
    const auto add_border = [&](int i, int j, int side) {
        for (int k = side * per_side; k < (side + 1) * per_side; ++k) outline.push_back(on_cell_border(i, j, k));
    };
    for (int i = 0; i < cells_x; ++i) add_border(i, 0, 0);
    for (int j = 0; j < cells_y; ++j) add_border(cells_x - 1, j, 1);
    for (int i = cells_x; i-- > 0;) add_border(i, cells_y - 1, 2);
    for (int j = cells_y; j-- > 0;) add_border(0, j, 3);
    outline.push_back(outline.front());

    // Distance outwards from the flat outline, and height.
    struct profile_point
    {
        double out, z;
    };
    std::vector<profile_point> profile;
    const double wall = half_thickness - edge_fillet;
    for (int s = 0; s <= fillet_steps; ++s)
    {
        const double angle = 0.5 * pi * s / fillet_steps;
        if (s == 0)
            profile.push_back({0.0, -half_thickness});
        else
            profile.push_back({edge_fillet * std::sin(angle), -wall - edge_fillet * std::cos(angle)});
    }
    for (int s = 1; s < wall_steps; ++s) profile.push_back({edge_fillet, -wall + 2.0 * wall * s / wall_steps});
    for (int s = fillet_steps; s >= 0; --s)
    {
        const double angle = 0.5 * pi * s / fillet_steps;
        if (s == 0)
            profile.push_back({0.0, half_thickness});
        else
            profile.push_back({edge_fillet * std::sin(angle), wall + edge_fillet * std::cos(angle)});
    }

    const auto row = [&](const profile_point& p) {
        std::vector<point> points;
        for (const outline_point& o : outline) points.push_back({o.x + p.out * o.nx, o.y + p.out * o.ny, p.z});
        return points;
    };
    for (std::size_t s = 0; s + 1 < profile.size(); ++s) part.strip(row(profile[s]), row(profile[s + 1]));
}

/// A body of revolution about a vertical axis. The profile runs from the lower pole to the upper one as (radius, height).
void add_pin(soup& part, double cx, double cy)
{
    constexpr int around = 72;
    constexpr double shaft = 7.5;
    constexpr double head = 12.0;
    constexpr double rounding = 1.5;

    std::vector<std::pair<double, double>> profile;
    const auto arc = [&](double cr, double cz, double from, double to) {
        for (int s = 0; s <= fillet_steps; ++s)
        {
            const double angle = from + (to - from) * s / fillet_steps;
            profile.emplace_back(cr + rounding * std::cos(angle), cz + rounding * std::sin(angle));
        }
    };
    const auto line_to = [&](double r, double z, int steps) {
        const auto [r0, z0] = profile.back();
        for (int s = 1; s < steps; ++s) profile.emplace_back(r0 + (r - r0) * s / steps, z0 + (z - z0) * s / steps);
    };
    profile.emplace_back(0.0, -14.0);
    line_to(shaft - rounding, -14.0, 5);
    arc(shaft - rounding, -14.0 + rounding, -0.5 * pi, 0.0);
    line_to(shaft, half_thickness + 0.5, 14);
    profile.emplace_back(shaft, half_thickness + 0.5);
    line_to(head - rounding, half_thickness + 0.5, 4);
    arc(head - rounding, half_thickness + 0.5 + rounding, -0.5 * pi, 0.0);
    line_to(head, half_thickness + 6.0 - rounding, 4);
    arc(head - rounding, half_thickness + 6.0 - rounding, 0.0, 0.5 * pi);
    line_to(0.0, half_thickness + 6.0, 8);
    profile.emplace_back(0.0, half_thickness + 6.0);

    const auto at = [&](std::size_t s, int k) {
        const auto [r, z] = profile[s];
        const double angle = 2.0 * pi * (k % around) / around;
        return point{cx + r * std::cos(angle), cy + r * std::sin(angle), z};
    };
    const std::size_t last = profile.size() - 1;
    for (int k = 0; k < around; ++k)
    {
        part.triangle(at(0, 0), at(1, k + 1), at(1, k));
        for (std::size_t s = 1; s + 1 < last; ++s) part.quadrangle(at(s, k), at(s, k + 1), at(s + 1, k + 1), at(s + 1, k));
        part.triangle(at(last, 0), at(last - 1, k), at(last - 1, k + 1));
    }
}

/// A thin open ring below a hole, facing up.
void add_gasket(soup& part, double cx, double cy)
{
    constexpr int around = 96;
    constexpr int steps = 6;
    const auto ring = [&](int s) {
        const double r = hole_radius + 1.0 + 6.0 * s / steps;
        std::vector<point> points;
        for (int k = 0; k <= around; ++k)
        {
            const double angle = 2.0 * pi * (k % around) / around;
            points.push_back({cx + r * std::cos(angle), cy + r * std::sin(angle), -half_thickness - 1.5});
        }
        return points;
    };
    for (int s = 0; s < steps; ++s) part.strip(ring(s + 1), ring(s));
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::fprintf(stderr, "usage: make_bracket part.stl\n");
        return 2;
    }

    soup part;
    for (int j = 0; j < cells_y; ++j)
    {
        for (int i = 0; i < cells_x; ++i)
        {
            add_cell_face(part, i, j, half_thickness);
            add_cell_face(part, i, j, -half_thickness);
            add_hole_wall(part, i, j);
        }
    }
    add_outer_side(part);
    add_pin(part, cell_x(0.5), cell_y(0.5));
    add_gasket(part, cell_x(cells_x - 0.5), cell_y(cells_y - 0.5));

    if (part.write(argv[1]) != 0)
    {
        std::fprintf(stderr, "make_bracket: cannot write %s\n", argv[1]);
        return 1;
    }
    std::printf("%zu triangles written to %s\n", part.triangles(), argv[1]);
    return 0;
}
