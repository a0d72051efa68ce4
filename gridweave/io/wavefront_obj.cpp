#include <array>
#include <climits>
#include <sstream>
#include <string>

#include <tq4/gridweave/io.h>

#include "gridweave/core/append.h"
#include "gridweave/core/kinds.h"
#include "gridweave/core/points.h"
#include "gridweave/io/mesh_ranges.h"
#include "gridweave/io/text_reader.h"
#include "gridweave/io/text_scanner.h"
#include "gridweave/io/text_writer.h"

namespace tq4::gridweave
{

namespace
{

// Reading. Records are read as stream objects read them: numbers up to the first text that is none, under the host's global locale. In the
// classic locale, which is the common case, the characters are looked at directly and give the same.

constexpr int malformed = -2;

/// Numbers of a record; one more than the largest record keeps tells that there are too many.
struct record_numbers
{
    std::array<double, 4> values{};
    unsigned count = 0;
};

/// Nodes of a face; faces of more than 4 corners are not kept, so neither are their further nodes.
struct face_indices
{
    std::array<int, 4> nodes{};
    unsigned node_count = 0;
    bool has_texture = false;
    bool has_normal = false;

    void add(unsigned place, int index)
    {
        if (place == 1) has_texture = true;
        if (place == 2) has_normal = true;
        if (place != 0) return;
        if (node_count < nodes.size()) nodes[node_count] = index;
        ++node_count;
    }
};

/// The first white-space-delimited piece of `text`, which is cut off. Empty when there is none.
std::string_view next_piece(std::string_view& text)
{
    std::size_t begin = 0;
    while (begin < text.size() && is_blank(text[begin])) ++begin;
    std::size_t end = begin;
    while (end < text.size() && !is_blank(text[end])) ++end;
    const std::string_view piece = text.substr(begin, end - begin);
    text.remove_prefix(end);
    return piece;
}

/// A stream keeps what is thrown inside of it, want of memory for one, and tells that it is bad.
int outcome_of(const std::istream& in)
{
    return in.bad() ? out_of_memory : 0;
}

/// Reads numbers with the conversion of stream objects.
int read_streamed_doubles(std::string_view text, record_numbers& numbers)
{
    try
    {
        std::istringstream in{std::string(text)};
        numbers.count = 0;
        for (double value = 0.0; numbers.count < numbers.values.size() && in >> value; ++numbers.count)
            numbers.values[numbers.count] = value;
        return outcome_of(in);
    }
    catch (...)
    {
        return out_of_memory;
    }
}

int read_doubles(std::string_view text, bool classic, record_numbers& numbers)
{
    if (text.empty()) return malformed;
    if (!classic) return read_streamed_doubles(text, numbers);
    numbers.count = 0;
    const char* at = text.data();
    const char* const end = at + text.size();
    while (numbers.count < numbers.values.size())
    {
        while (at != end && is_blank(*at)) ++at;
        if (at == end) return 0;
        at = scan_real(at, numbers.values[numbers.count]);
        // What is no plain decimal number may still begin with one.
        if (!at) return read_streamed_doubles(text, numbers);
        ++numbers.count;
    }
    return 0;
}

/// Reads a whole number at the front of a text, which is not empty, as the streams' conversion to int does: a sign, then digits; none, or a
/// value beyond an int, is a failure.
bool scan_int(std::string_view& text, int& value)
{
    const bool negative = text[0] == '-';
    const std::size_t first_digit = negative || text[0] == '+' ? 1 : 0;
    std::size_t at = first_digit;
    long long number = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
        if (number <= INT_MAX) number = 10 * number + (text[at] - '0');
    if (at == first_digit) return false;
    if (negative) number = -number;
    if (number < INT_MIN || number > INT_MAX) return false;
    value = static_cast<int>(number);
    text.remove_prefix(at);
    return true;
}

/// Reads a corner, "vertex/texture/normal" with any of them missing.
int read_corner(std::string_view corner, face_indices& face)
{
    for (unsigned place = 0; place < 3 && !corner.empty(); ++place)
    {
        if (corner[0] != '/')
        {
            int index = 0;
            // Nothing more is read of a corner in which a number cannot be.
            if (!scan_int(corner, index)) return 0;
            face.add(place, index);
            if (corner.empty()) return 0;
            if (corner[0] != '/') return malformed;
        }
        corner.remove_prefix(1);
    }
    return 0;
}

int read_streamed_face_index(std::istringstream& in, unsigned place, face_indices& face)
{
    char c = 0;
    if (!in.get(c) || c == '/') return 0;
    in.putback(c);
    int index = 0;
    if (!(in >> index)) return outcome_of(in);
    face.add(place, index);
    return !in.get(c) || c == '/' ? 0 : malformed;
}

int read_streamed_face(std::string_view text, face_indices& face)
{
    try
    {
        std::istringstream corners{std::string(text)};
        for (std::string corner; corners >> corner;)
        {
            std::istringstream in(corner);
            for (unsigned place = 0; place < 3; ++place)
                if (const int status = read_streamed_face_index(in, place, face); status != 0) return status;
        }
        return outcome_of(corners);
    }
    catch (...)
    {
        return out_of_memory;
    }
}

int read_face(std::string_view text, bool classic, face_indices& face)
{
    if (text.empty()) return malformed;
    if (!classic) return read_streamed_face(text, face);
    for (auto corner = next_piece(text); !corner.empty(); corner = next_piece(text))
        if (const int status = read_corner(corner, face); status != 0) return status;
    return 0;
}

struct obj_mesh
{
    dense2D<double>& pos;
    dense2D<double>& normals;
    dense2D<double>& texcoords;
    dense2D<unsigned>& triangles;
    dense2D<unsigned>& quadrangles;
    bool has_texture = false; ///< a vt record has been met
    bool has_normals = false; ///< a vn record has been met
};

int add_vertex(const record_numbers& numbers, obj_mesh& mesh)
{
    if (numbers.count < 3) return malformed;
    return append_column(mesh.pos, numbers.values.data(), 3) ? 0 : out_of_memory;
}

int add_texture(const record_numbers& numbers, obj_mesh& mesh)
{
    if (numbers.count > 3) return malformed;
    mesh.has_texture = true;
    // Columns of another height than the first one are dropped, and so are those without numbers.
    if (numbers.count == 0 || (mesh.texcoords.cols != 0 && mesh.texcoords.rows != numbers.count)) return 0;
    return append_column(mesh.texcoords, numbers.values.data(), numbers.count) ? 0 : out_of_memory;
}

int add_normal(const record_numbers& numbers, obj_mesh& mesh)
{
    if (numbers.count != 3) return malformed;
    mesh.has_normals = true;
    return append_column(mesh.normals, numbers.values.data(), 3) ? 0 : out_of_memory;
}

int add_face(const face_indices& face, bool line_is_complete, obj_mesh& mesh)
{
    if (face.has_texture && !mesh.has_texture) return malformed;
    if (face.has_normal && !mesh.has_normals) return malformed;
    // A face on a last line without a line end is deliberately lost.
    if (!line_is_complete) return 0;
    if (face.node_count != 3 && face.node_count != 4) return 0;

    // There is deliberately no counting from the end for negative numbers: -1 becomes the index below none.
    std::array<unsigned, 4> nodes{};
    for (unsigned k = 0; k < face.node_count; ++k) nodes[k] = face.nodes[k] == 0 ? mesh.pos.cols : static_cast<unsigned>(face.nodes[k]) - 1;
    dense2D<unsigned>& elements = face.node_count == 3 ? mesh.triangles : mesh.quadrangles;
    return append_column(elements, nodes.data(), face.node_count) ? 0 : out_of_memory;
}

int read_record(std::string_view line, bool classic, bool line_is_complete, obj_mesh& mesh)
{
    const std::string_view token = next_piece(line);
    if (token == "f")
    {
        face_indices face;
        const int status = read_face(line, classic, face);
        return status != 0 ? status : add_face(face, line_is_complete, mesh);
    }
    if (token != "v" && token != "vt" && token != "vn") return 0;

    record_numbers numbers;
    if (const int status = read_doubles(line, classic, numbers); status != 0) return status;
    if (token == "v") return add_vertex(numbers, mesh);
    return token == "vt" ? add_texture(numbers, mesh) : add_normal(numbers, mesh);
}

// Records of the usual look.

/// The numbers of a line, which come behind blanks. What is behind the last one that counts may be anything.
bool take_numbers(text_scanner& in, record_numbers& numbers)
{
    while (in.take_blanks() && in.take_real(numbers.values[numbers.count]))
    {
        if (++numbers.count == numbers.values.size()) return in.skip_line();
        if (in.take_line_end()) return true;
    }
    return false;
}

/// One corner, which has a node at least.
bool take_corner(text_scanner& in, face_indices& face)
{
    int index = 0;
    if (!in.take_natural(index)) return false;
    face.add(0, index);
    for (unsigned place = 1; place < 3 && in.take('/'); ++place)
    {
        const char* const begin = in.at();
        if (in.take_natural(index))
            face.add(place, index);
        else if (in.at() != begin)
            return false;
    }
    return true;
}

/// The corners of a line, which come behind blanks.
bool take_corners(text_scanner& in, face_indices& face)
{
    while (in.take_blanks() && take_corner(in, face))
        if (in.take_line_end()) return true;
    return false;
}

/// Takes records of the usual look until something else comes.
int take_records(text_reader& reader, obj_mesh& mesh)
{
    // Longer records are taken too where the window happens to hold them.
    constexpr std::size_t usual_length = 256;
    for (int status = 0;;)
    {
        reader.require(usual_length);
        text_scanner in(reader.cursor());
        in.take_blanks();
        if (in.take('f'))
        {
            face_indices face;
            if (!take_corners(in, face)) return 0;
            status = add_face(face, true, mesh);
        }
        else if (in.take('v'))
        {
            const bool normal = in.take('n');
            const bool texture = !normal && in.take('t');
            record_numbers numbers;
            if (!take_numbers(in, numbers)) return 0;
            status = normal ? add_normal(numbers, mesh) : texture ? add_texture(numbers, mesh) : add_vertex(numbers, mesh);
        }
        else
            return 0;
        if (status != 0) return status;
        reader.advance(in.at());
    }
}

int read_obj(std::FILE* stream, obj_mesh& mesh)
{
    const bool classic = streams_use_classic_numbers();
    text_reader in(stream);
    if (!in.has_memory()) return out_of_memory;
    int status = 0;
    while (status == 0 && in.good())
    {
        if (classic) status = take_records(in, mesh);
        text_line line;
        if (status != 0 || !in.next_line(line)) break;
        status = read_record(line.view(), classic, in.good(), mesh);
    }
    return status == 0 && !in.has_memory() ? out_of_memory : status;
}

// Writing.

constexpr real_format number_format{'e', 8};

/// A record of up to three numbers.
void put_numbers(text_writer& out, const char* token, const double* numbers, unsigned count)
{
    out.record([&](auto& fields) {
        fields.text(token);
        for (unsigned k = 0; k < count; ++k)
        {
            fields.real(numbers[k], number_format);
            fields.character(' ');
        }
        fields.character('\n');
    });
}

void write_columns(text_writer& out, const char* token, const dense2D<double>& values)
{
    for (unsigned c = 0; c < values.cols; ++c) put_numbers(out, token, values.column(c), values.rows);
}

void write_vertices(text_writer& out, const dense2D<double>& pos)
{
    const point_reader<3> points(pos);
    for (unsigned node = 0; node < pos.cols; ++node)
    {
        const auto point = points[node];
        put_numbers(out, " v ", point.values, 3);
    }
}

/// Normals and texture coordinates belong to nodes, so the number of the node stands in all three places of a corner.
void write_faces(text_writer& out, const dense2D<unsigned>& elements, bool with_texture, bool with_normals)
{
    for (unsigned c = 0; c < elements.cols; ++c)
    {
        const unsigned* const nodes = elements.column(c);
        out.record([&](auto& fields) {
            fields.text(" f ");
            for (unsigned row = 0; row < elements.rows; ++row)
            {
                const unsigned number = nodes[row] + 1;
                fields.natural(number);
                fields.character('/');
                if (with_texture) fields.natural(number);
                fields.character('/');
                if (with_normals) fields.natural(number);
                fields.character(' ');
            }
            fields.character('\n');
        });
    }
}

/// Up to two matrices of one kind, written one after the other.
struct face_list
{
    std::array<const dense2D<unsigned>*, 2> matrices{};
    unsigned count = 0;

    void add(const dense2D<unsigned>& matrix) { matrices[count++] = &matrix; }

    bool are_valid(element_type kind) const
    {
        for (unsigned k = 0; k < count; ++k)
            if (!check_IDs(*matrices[k], kind, none_index)) return false;
        return true;
    }
};

int write_obj(const char* file, const dense2D<double>& pos, const dense2D<double>& normals, const dense2D<double>& texcoords,
              const face_list& triangles, const face_list& quadrangles)
{
    std::FILE* const stream = open_file(file, "w");
    if (!stream) return -1;
    const auto refuse = [&](int code) {
        close_file(stream);
        return code;
    };
    if (pos.rows != 2 && pos.rows != 3) return refuse(-2);
    if (!normals.empty() && (normals.rows != 3 || normals.cols != pos.cols)) return refuse(-3);
    if (!texcoords.empty() && (texcoords.rows != 2 || texcoords.cols != pos.cols)) return refuse(-4);
    if (!triangles.are_valid(ELEM_TRIA3)) return refuse(-5);
    if (!quadrangles.are_valid(ELEM_QUAD4)) return refuse(-6);

    text_writer out(stream, text_writer::locale_of::streams);
    const bool with_texture = !texcoords.empty();
    const bool with_normals = !normals.empty();
    write_vertices(out, pos);
    if (with_texture) write_columns(out, " vt ", texcoords);
    if (with_normals) write_columns(out, " vn ", normals);
    for (const face_list* list : {&triangles, &quadrangles})
        for (unsigned k = 0; k < list->count; ++k)
            if (!list->matrices[k]->empty()) write_faces(out, *list->matrices[k], with_texture, with_normals);
    return finish(out, stream) ? 0 : -1;
}

/// The forms without normals and texture coordinates: matrices of other kinds are ignored.
template <std::size_t N>
int write_faces_of_kinds(const char* file, const dense2D<double>& pos, const std::array<const dense2D<unsigned>*, N>& matrices,
                         const std::array<element_type, N>& kinds)
{
    face_list triangles;
    face_list quadrangles;
    for (std::size_t k = 0; k < N; ++k)
    {
        const element_type kind = narrow(kinds[k], matrices[k]->rows);
        if (kind == ELEM_TRIA3) triangles.add(*matrices[k]);
        if (kind == ELEM_QUAD4) quadrangles.add(*matrices[k]);
    }
    const dense2D<double> nothing;
    return write_obj(file, pos, nothing, nothing, triangles, quadrangles);
}

} // namespace

int WavefrontOBJ_input(const char* file, dense2D<double>& pos, dense2D<double>& normals, dense2D<double>& texcoords,
                       dense2D<unsigned>& connect_tria, dense2D<unsigned>& connect_quad)
{
    pos.clear();
    normals.clear();
    texcoords.clear();
    connect_tria.clear();
    connect_quad.clear();
    std::FILE* const stream = open_file(file, "r");
    if (!stream) return -1;
    obj_mesh mesh{pos, normals, texcoords, connect_tria, connect_quad};
    const int status = read_obj(stream, mesh);
    close_file(stream);
    return status;
}

int WavefrontOBJ_output(const char* file, const dense2D<double>& pos, const dense2D<double>& normals, const dense2D<double>& texcoords,
                        const dense2D<unsigned>& connect_tria, const dense2D<unsigned>& connect_quad)
{
    face_list triangles;
    face_list quadrangles;
    triangles.add(connect_tria);
    quadrangles.add(connect_quad);
    return write_obj(file, pos, normals, texcoords, triangles, quadrangles);
}

int WavefrontOBJ_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect, element_type kind)
{
    return write_faces_of_kinds<1>(file, pos, {&connect}, {kind});
}

int WavefrontOBJ_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect1, const dense2D<unsigned>& connect2,
                        element_type kind1, element_type kind2)
{
    return write_faces_of_kinds<2>(file, pos, {&connect1, &connect2}, {kind1, kind2});
}

} // namespace tq4::gridweave
