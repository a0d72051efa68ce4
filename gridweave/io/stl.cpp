#include <algorithm>
#include <bit>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <tq4/gridweave/io.h>

#include "gridweave/core/vector_math.h"
#include "gridweave/io/text_reader.h"
#include "gridweave/io/text_scanner.h"
#include "gridweave/io/text_writer.h"
#include "gridweave/io/triangle_soup.h"

namespace tq4::gridweave
{

namespace
{

using point = vector_fixed<double, 3>;

// Text, line by line: what decides how a file is read.

/// The lines of a file in lower case, cut to pieces that fit the buffer.
class lower_case_lines
{
public:
    static constexpr std::size_t buffer_size = 256;

    explicit lower_case_lines(text_reader& reader) : reader_(reader) {}

    bool next()
    {
        if (!reader_.next_piece(line_, buffer_size)) return false;
        for (char* c = line_; *c; ++c) *c = static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
        return true;
    }

    /// A keyword matches anywhere in the line.
    bool has(const char* keyword) const { return std::strstr(line_, keyword) != nullptr; }

    bool next_has(const char* keyword) { return next() && has(keyword); }

    const char* text() const { return line_; }

private:
    text_reader& reader_;
    char line_[buffer_size] = "";
};

/// Reads the rest of a facet whose first line is the current one. 0, -3 or -199.
int read_facet(lower_case_lines& lines, triangle_soup& soup)
{
    point normal;
    if (std::sscanf(lines.text(), " facet normal %lg %lg %lg\n", &normal[0], &normal[1], &normal[2]) != 3) return -3;
    if (!lines.next_has("outer loop")) return -3;
    point corners[3];
    for (point& corner : corners)
    {
        if (!lines.next()) return -3;
        if (std::sscanf(lines.text(), " vertex %lg %lg %lg\n", &corner[0], &corner[1], &corner[2]) != 3) return -3;
    }
    if (!lines.next_has("endloop")) return -3;
    if (!lines.next_has("endfacet")) return -3;
    return soup.add(corners);
}

// Text, facet by facet: what most files look like.

/// True when the conversions of the C library take and give what they do in the "C" locale.
bool is_plain_locale()
{
    for (int letter = 'a'; letter <= 'z'; ++letter)
        if (std::tolower(letter - 'a' + 'A') != letter) return false;
    return c_library_uses_decimal_point();
}

// Every line of a facet must be within the reach of the line buffer.

bool take_line_end(text_scanner& in, const char* line)
{
    return in.take_line_end() && in.at() - line < static_cast<std::ptrdiff_t>(lower_case_lines::buffer_size);
}

/// A line of nothing else.
bool take_line(text_scanner& in, std::string_view words)
{
    const char* const line = in.at();
    in.take_blanks();
    return in.take_words(words) && take_line_end(in, line);
}

/// A line of one or two words and three numbers.
bool take_line(text_scanner& in, std::string_view word, std::string_view second_word, point& numbers)
{
    const char* const line = in.at();
    in.take_blanks();
    if (!in.take_words(word) || !in.take_blanks()) return false;
    if (!second_word.empty() && (!in.take_words(second_word) || !in.take_blanks())) return false;
    if (!in.take_real(numbers[0]) || !in.take_blanks()) return false;
    if (!in.take_real(numbers[1]) || !in.take_blanks()) return false;
    return in.take_real(numbers[2]) && take_line_end(in, line);
}

bool take_facet(text_scanner& in, point (&corners)[3])
{
    point normal;
    if (!take_line(in, "facet", "normal", normal)) return false;
    if (!take_line(in, "outer loop")) return false;
    for (point& corner : corners)
        if (!take_line(in, "vertex", "", corner)) return false;
    return take_line(in, "endloop") && take_line(in, "endfacet");
}

/// Takes facets of the usual look until something else comes. 0 or -199.
int take_facets(text_reader& reader, triangle_soup& soup)
{
    // No facet that is taken is longer.
    constexpr std::size_t longest_facet = 7 * lower_case_lines::buffer_size;
    for (;;)
    {
        reader.require(longest_facet);
        text_scanner in(reader.cursor());
        point corners[3];
        if (!take_facet(in, corners)) return 0;
        reader.advance(in.at());
        if (const int result = soup.add(corners); result < 0) return result;
    }
}

// Binary: records of 12 floats (normal and corners) and 2 bytes, little-endian.

constexpr std::size_t header_size = 80;
constexpr std::size_t count_size = 4;
constexpr std::size_t record_size = 50;
constexpr char header_text[header_size + 1] = "TQ4 STL Binary";

/// The bytes of a 32-bit field in the order of the file.
template <class T>
std::uint32_t little_endian(T value)
{
    const auto bits = std::bit_cast<std::uint32_t>(value);
    if constexpr (std::endian::native == std::endian::little) return bits;
    return bits >> 24 | (bits >> 8 & 0xFF00u) | (bits << 8 & 0xFF0000u) | bits << 24;
}

template <class T>
T field_at(const char* place)
{
    std::uint32_t bits = 0;
    std::memcpy(&bits, place, sizeof bits);
    return std::bit_cast<T>(little_endian(bits));
}

template <class T>
char* put_field(char* place, T value)
{
    const std::uint32_t bits = little_endian(value);
    std::memcpy(place, &bits, sizeof bits);
    return place + sizeof bits;
}

/// Reads the text form into a soup and welds it. 0, -2, -3 or -199.
int read_ascii_stl(text_reader& reader, triangle_soup& soup)
{
    if (!reader.has_memory()) return out_of_memory;
    const bool fast = is_plain_locale();
    lower_case_lines lines(reader);
    if (!lines.next_has("solid")) return -2;
    for (;;)
    {
        if (fast)
            if (const int result = take_facets(reader, soup); result < 0) return result;
        if (!lines.next()) return -3;
        if (lines.has("color")) continue;
        if (lines.has("endsolid"))
        {
            if (!lines.next()) return soup.weld();
            if (lines.has("solid")) continue;
        }
        if (const int result = read_facet(lines, soup); result < 0) return result;
    }
}

/// Reads the binary form into a soup and welds it. 0, -2, -3 or -199.
int read_binary_stl(text_reader& reader, triangle_soup& soup)
{
    if (!reader.has_memory()) return out_of_memory;
    if (!reader.require(header_size)) return -2;
    if (!reader.require(header_size + count_size)) return -3;
    const auto count = field_at<std::int32_t>(reader.cursor() + header_size);
    reader.advance(reader.cursor() + header_size + count_size);

    // The count is not trusted with memory: as much is stored as the file has. A negative one is an empty surface.
    for (std::int32_t triangle = 0; triangle < count; ++triangle)
    {
        if (!reader.require(record_size)) return -3;
        const char* place = reader.cursor() + 3 * sizeof(float);
        point corners[3];
        for (point& corner : corners)
            for (unsigned k = 0; k < 3; ++k, place += sizeof(float)) corner[k] = static_cast<double>(field_at<float>(place));
        reader.advance(reader.cursor() + record_size);
        if (const int result = soup.add(corners); result < 0) return result;
    }
    return soup.weld();
}

/// What no reader returns.
constexpr int not_opened = -1;

/// Runs one of the readers over a file. A failed read leaves the matrices empty.
int read_file(const char* file, const char* mode, dense2D<double>& pos, dense2D<unsigned>& connect,
              int (&read)(text_reader&, triangle_soup&))
{
    pos.clear();
    connect.clear();
    std::FILE* const stream = open_file(file, mode);
    if (!stream) return not_opened;
    int result = 0;
    {
        text_reader reader(stream);
        triangle_soup soup(pos, connect);
        result = read(reader, soup);
    }
    close_file(stream);
    if (result < 0)
    {
        pos.clear();
        connect.clear();
    }
    return result;
}

/// The three coordinates of a node, whatever the rows of the matrix: the third one of a matrix of 2 rows is what stands behind the node in
/// its storage, most often the next node's first coordinate. No zero is put in; that is deliberate. Behind the end of the storage it is 0.
point stored_point(const dense2D<double>& pos, unsigned node)
{
    const double* const x = pos.column(node);
    const std::uint64_t third = pos.offset + std::uint64_t{node} * pos.ld + 2;
    return {x[0], x[1], third < pos.block->capacity ? x[2] : 0.0};
}

struct facet
{
    point normal;
    point corners[3];
};

/// Columns of a connectivity that have nodes.
unsigned triangle_count(const dense2D<unsigned>& connect)
{
    return connect.empty() ? 0 : connect.cols;
}

/// The normal from the two shorter of the sides compared, of length 1 unless it is zero.
point triangle_normal(const point& p0, const point& p1, const point& p2)
{
    const point a = subtract(p0, p2);
    const point b = subtract(p1, p2);
    const point e = subtract(p1, p0);
    const bool short_e = !(squared_norm(e) > std::min(squared_norm(a), squared_norm(b)));
    point normal = short_e ? cross(a, e) : cross(a, b);
    const double squared_length = squared_norm(normal);
    if (squared_length != 0 && squared_length != 1)
    {
        const double length = std::sqrt(squared_length);
        for (double& component : normal.values) component /= length;
    }
    return normal;
}

facet facet_of(const dense2D<double>& pos, const unsigned* nodes)
{
    facet f;
    for (unsigned k = 0; k < 3; ++k) f.corners[k] = stored_point(pos, nodes[k]);
    f.normal = triangle_normal(f.corners[0], f.corners[1], f.corners[2]);
    return f;
}

void write_point_line(text_writer& out, std::string_view words, const point& x)
{
    constexpr real_format coordinate{'e'};
    out.record([&](auto& fields) {
        fields.text(words);
        for (const double value : x.values)
        {
            fields.character(' ');
            fields.real(value, coordinate);
        }
        fields.character('\n');
    });
}

void write_ascii_stl(text_writer& out, const dense2D<double>& pos, const dense2D<unsigned>& connect)
{
    const unsigned triangles = triangle_count(connect);
    out.text("solid TQ4\n");
    for (unsigned c = 0; c < triangles && out.good(); ++c)
    {
        const facet f = facet_of(pos, connect.column(c));
        write_point_line(out, "   facet normal", f.normal);
        out.text("      outer loop\n");
        for (const point& corner : f.corners) write_point_line(out, "         vertex", corner);
        out.text("      endloop\n"
                 "   endfacet\n");
    }
    out.text("endsolid TQ4\n");
}

void write_binary_stl(text_writer& out, const dense2D<double>& pos, const dense2D<unsigned>& connect)
{
    const unsigned triangles = triangle_count(connect);
    out.text({header_text, header_size});
    char record[record_size] = {};
    put_field(record, triangles);
    out.text({record, count_size});
    for (unsigned c = 0; c < triangles && out.good(); ++c)
    {
        const facet f = facet_of(pos, connect.column(c));
        char* place = record;
        for (const double value : f.normal.values) place = put_field(place, static_cast<float>(value));
        for (const point& corner : f.corners)
            for (const double value : corner.values) place = put_field(place, static_cast<float>(value));
        place[0] = place[1] = 0;
        out.text({record, record_size});
    }
}

} // namespace

int STL_input(const char* file, dense2D<double>& pos, dense2D<unsigned>& connect)
{
    const int text_result = read_file(file, "rt", pos, connect, read_ascii_stl);
    // Lack of memory is final; a file that does not read as text is tried as binary.
    if (text_result >= 0 || text_result < -198) return text_result;
    const int binary_result = read_file(file, "rb", pos, connect, read_binary_stl);
    return binary_result == not_opened ? text_result : binary_result;
}

int STL_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect, bool text)
{
    std::FILE* const stream = open_file(file, text ? "wt" : "wb");
    if (!stream) return -1;
    // The file is opened before the tests and, deliberately, not closed where one of them fails: an empty file and an open handle stay.
    if (pos.rows != 2 && pos.rows != 3) return -2;
    if (!check_IDs(connect, ELEM_TRIA3, pos.cols)) return -3;

    text_writer out(stream);
    text ? write_ascii_stl(out, pos, connect) : write_binary_stl(out, pos, connect);
    return finish(out, stream) ? 0 : -1;
}

} // namespace tq4::gridweave
