#pragma once

/// Mesh files: readers and writers of the seven formats.
///
/// Conventions of all of them:
///   - A file name is complete with its extension and goes to the system as it stands. Every file is opened and left within one call.
///   - Memory is 0-based, files are 1-based but for VTK. Elements are numbered by their column.
///   - Readers clear their results first and give coordinates of 3 rows. Nothing checks that the nodes of an element are in the file.
///   - Writers take coordinates of 2 or 3 rows (MEDIT and EnSight 1 to 3); a missing coordinate is written as 0. They overwrite the file
///     from its first byte; a write that fails in the middle leaves a partial file.
///   - A connectivity range [first, last) of matrices with one `element_type` each in `kinds` is one mesh. A mixed kind whose matrix has
///     the rows of a plain kind is that plain kind (see `element_type`).
///   - Numbers are written and read under the locale that the host has set; the library sets none. Under a C++ locale of the host's own
///     they go through stream objects; where memory runs out in these, a write has failed (-1), and a reader returns -199.
///
/// The codes of the writers, where a function does not say otherwise: -1 the file cannot be opened or a write failed, -2 illegal rows of
/// `pos`, -3 a connectivity that `check_IDs` refuses for its kind, -4 `last` before `first`, -5 `kinds` does not fit the range, -199 out
/// of memory. Where arguments are tested after the file was opened, a failed test leaves an empty file and its handle open to the end of
/// the process; hosts that test their arguments lose none.

#include <cstdio>

#include <tq4/export.h>
#include <tq4/gridweave/core.h>

namespace tq4
{
namespace gridweave
{

// MEDIT (.mesh, .sol), text, written only.

/// Writes a mesh in the MEDIT format. Elements are reduced to their corner nodes, pyramids and prisms become degenerate hexahedra. The
/// reference of an element is the 0-based place of its matrix in the range. Every kind has a section of its own, in the order of
/// `element_type`, so two kinds with one keyword give two sections. Elements of `ELEM_NONE`, `ELEM_NODE`, `ELEM_BAR_ANY`, `ELEM_PYRA13`
/// and `ELEM_PENTA15` are left out without a report. Columns of a mixed matrix are grouped by shape.
///
/// The tests stand before the file is opened: -2, -4, -5, -3, then -1, and a failed test leaves no file.
///
/// @param pos          1 to 3 rows × nodes
/// @param first, last  nodes of an element × elements, one matrix per part of the mesh; an empty range writes the nodes alone
/// @param kinds        the kind of each matrix
/// @return 0, or a code of the writers
TQ4_GRIDWEAVE_API int medit_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>* first,
                                   const dense2D<unsigned>* last, const dense1D<int>& kinds);

/// The same for two matrices, with references 0 and 1, and for one with reference 0.
TQ4_GRIDWEAVE_API int medit_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect1,
                                   const dense2D<unsigned>& connect2, element_type kind1, element_type kind2);
TQ4_GRIDWEAVE_API int medit_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect, element_type kind);

/// The same for one matrix with a reference per element. Within a section elements are ordered by colour, then by column.
///
/// @param colors  the reference of each column; elements of colour `none_index` are not written
/// @return 0, also for an empty `connect`, and then without a file; -5 `colors` has not one entry per column; -6 memory would not hold a
///         matrix for every colour from 0 to the largest; -2, -3, -1 and -199 as above
TQ4_GRIDWEAVE_API int medit_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect, element_type kind,
                                   const dense1D<unsigned>& colors);

/// Writes one value per node as a MEDIT solution file, 8 to a line.
///
/// @param dim     dimension of the mesh, written as given
/// @param values  one per node
/// @return 0; -1 the file cannot be opened or a write failed
TQ4_GRIDWEAVE_API int medit_scalar(const char* file, unsigned dim, const dense1D<double>& values);

/// Writes one vector per node as a MEDIT solution file, one to a line.
///
/// @param dim      dimension of the mesh, written as given
/// @param vectors  components × nodes
/// @return 0; -1 the file cannot be opened or a write failed
TQ4_GRIDWEAVE_API int medit_vector(const char* file, unsigned dim, const dense2D<double>& vectors);

/// Writes one symmetric tensor per node as a MEDIT solution file, one to a line.
///
/// @param metrics  3 (plane) or 6 (space) rows × nodes, in the packed order of `symmetric_fixed`
/// @return 0; -1 the file cannot be opened or a write failed; -2 another number of rows (an empty file stays, with its handle open)
TQ4_GRIDWEAVE_API int medit_tensor(const char* file, const dense2D<double>& metrics);

// Legacy VTK (.vtk), unstructured grid, text, written only.

/// Appends the elements of a matrix to VTK cell lists. The corner nodes of an element make one cell of VTK's linear type (those of a
/// tetrahedron with the last two swapped); further nodes follow as a second cell of type 2, loose points.
///
/// @param connect     nodes of an element × elements, of any node numbers
/// @param nbr_cells   increased by the cells appended
/// @param cells       appended to: for each cell its number of points and the points, 0-based
/// @param cell_types  appended to: VTK's type of each cell
/// @return 0, at once for an empty matrix; -1 `connect` is no connectivity of its kind; -2 a kind that the format does not take
///         (`ELEM_NODE`, `ELEM_BAR_ANY`, the mixed kinds, `ELEM_PYRA13`, `ELEM_PENTA15`); -199 out of memory. The lists stay
///         as they were on a failure.
TQ4_GRIDWEAVE_API int vtk_convert(const dense2D<unsigned>& connect, element_type kind, unsigned& nbr_cells, dense1D<unsigned>& cells,
                                  dense1D<unsigned>& cell_types);

/// Writes the body of a VTK file to an open stream, which stays open, so that a host can add data sections of its own. Coordinates are
/// written with six decimals, so small ones lose digits. Write errors are not reported; test the stream.
///
/// @param pos                     2 or 3 rows × nodes
/// @param nbr_cells, cells, cell_types  as `vtk_convert` makes them
/// @return 0; -1 no stream; -2 illegal rows of `pos`
TQ4_GRIDWEAVE_API int vtk_output(std::FILE* stream, const dense2D<double>& pos, unsigned nbr_cells, const dense1D<unsigned>& cells,
                                 const dense1D<unsigned>& cell_types);

/// Writes a mesh as a VTK file; see `vtk_convert` for how kinds are written. The columns of a mixed matrix are grouped by shape, largest
/// first; otherwise cells stand in the order of the range.
///
/// The file is opened before the tests -2, -4, -5, -3 and before the conversion of the cells, whose codes -1 and -2 are returned as they
/// are; all of these leave an empty file with its handle open. Write errors are not reported.
///
/// @param pos          2 or 3 rows × nodes
/// @param first, last  nodes of an element × elements, one matrix per part of the mesh; an empty range writes the nodes alone
/// @param kinds        the kind of each matrix
/// @return 0, or a code of the writers
TQ4_GRIDWEAVE_API int vtk_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>* first,
                                 const dense2D<unsigned>* last, const dense1D<int>& kinds);

/// The same for two matrices and for one.
TQ4_GRIDWEAVE_API int vtk_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect1,
                                 const dense2D<unsigned>& connect2, element_type kind1, element_type kind2);
TQ4_GRIDWEAVE_API int vtk_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect, element_type kind);

// EnSight geometry (.geo), text, written only.

/// Writes a mesh as an EnSight geometry file, one part per matrix with entries; the number of a part is the 1-based place of its matrix in
/// the range. Coordinates have six significant digits. Pyramids, `ELEM_PENTA15`, `ELEM_NODE` and the mixed kinds are left out without a
/// report (so is a kind that is no element); `ELEM_QUAD9`, `ELEM_PENTA18` and `ELEM_HEXA27` lose their last nodes. A part of `ELEM_TRIA6`
/// lists its elements twice, in EnSight's node order and in stored order, under one count.
///
/// The file is opened before the tests -2, -4, -5, -3; a failed one leaves an empty file with its handle open.
///
/// @param pos          1 to 3 rows × nodes
/// @param first, last  nodes of an element × elements, one matrix per part of the mesh; node numbers are not compared with `pos`
/// @param kinds        the kind of each matrix
/// @return 0, or a code of the writers
TQ4_GRIDWEAVE_API int ensight_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>* first,
                                     const dense2D<unsigned>* last, const dense1D<int>& kinds);

/// The same for two matrices and for one.
TQ4_GRIDWEAVE_API int ensight_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect1,
                                     const dense2D<unsigned>& connect2, element_type kind1, element_type kind2);
TQ4_GRIDWEAVE_API int ensight_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect, element_type kind);

// STL (.stl), triangle surfaces, text and binary, read and written.

/// Reads a triangle surface and welds it into a mesh with shared nodes. The file is tried as text and, where that fails, as binary.
/// Keywords of the text form match in any case, lines with "color" are skipped, several solids become one mesh; normals, names and
/// attributes are dropped.
///
/// The corners are welded by `merge` (exactly equal ones first, in slices of 100,000 triangles; then all within 5% of the smallest
/// positive altitude of a triangle), followed by `remove_degenerated` and `simplify`. Nodes keep the order of the corners that they come
/// from. Where no triangle has a positive altitude the corners stay as they are, three nodes to a triangle.
///
/// @param pos      replaced; 3 rows × nodes
/// @param connect  replaced; 3 rows × triangles
/// @return 0; -1 the file cannot be opened; -2 no text ("solid" in the first line) and shorter than a binary header; -3 truncated or
///         malformed; -199 out of memory. The matrices are empty after a failure.
TQ4_GRIDWEAVE_API int STL_input(const char* file, dense2D<double>& pos, dense2D<unsigned>& connect);

/// Writes triangles as an STL file. Text has seven significant digits, binary 32-bit floats. The normals are computed; that of a triangle
/// without area is zero.
///
/// The file is opened before the tests, and a failed test leaves an empty file with its handle open.
///
/// @param pos      3 rows × nodes. Two rows pass too, but then the third coordinate of a node is whatever follows it in the storage of
///                 the matrix (0 behind its end): give three.
/// @param connect  3 rows × triangles
/// @param text     true for the text form, false for the binary one
/// @return 0; -1 the file cannot be opened or a write failed; -2 `pos` has neither 2 nor 3 rows; -3 `connect` is no connectivity of
///         `ELEM_TRIA3` over the nodes
TQ4_GRIDWEAVE_API int STL_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect, bool text);

// Wavefront OBJ (.obj), surfaces of triangles and quadrangles, read and written.

/// Reads the records v, vt, vn and f; everything else is skipped. Normals and texture coordinates are read as lists of their own: the
/// indices that the corners of faces name for them are dropped. Faces of 3 and 4 corners become elements, others are dropped, and so is a
/// face on a last line without a line end. A vertex number i becomes the node index i - 1; 0 becomes the number of nodes so far, and
/// negative numbers are not counted from the end.
///
/// @param pos           replaced; 3 rows × nodes
/// @param normals       replaced; 3 rows × vn records
/// @param texcoords     replaced; rows of the first vt record (1 to 3) × vt records of that height
/// @param connect_tria  replaced; 3 rows × triangles
/// @param connect_quad  replaced; 4 rows × quadrangles
/// @return 0; -1 the file cannot be opened; -2 a malformed record: v with fewer than 3 numbers, vt with more than 3, vn with another count
///         than 3, one of these or f with nothing behind it, a corner with text that is no number, a face that names texture coordinates or
///         normals before any were given; -199 out of memory. What was read so far stays.
TQ4_GRIDWEAVE_API int WavefrontOBJ_input(const char* file, dense2D<double>& pos, dense2D<double>& normals, dense2D<double>& texcoords,
                                         dense2D<unsigned>& connect_tria, dense2D<unsigned>& connect_quad);

/// Writes a surface, numbers in scientific notation with 8 digits behind the point: all nodes, texture coordinates, normals, triangles and
/// quadrangles in this order. The corners of a face name the node in all places that are there. A failed test leaves an empty file.
///
/// @param pos           2 or 3 rows × nodes
/// @param normals       empty, or 3 rows × nodes
/// @param texcoords     empty, or 2 rows × nodes
/// @param connect_tria  3 rows × triangles; node numbers are not compared with `pos`
/// @param connect_quad  4 rows × quadrangles
/// @return 0; -1 the file cannot be opened or a write failed; -2 illegal rows of `pos`; -3 `normals` does not fit; -4 `texcoords` does not
///         fit; -5 `connect_tria` is no connectivity of triangles; -6 `connect_quad` is none of quadrangles
TQ4_GRIDWEAVE_API int WavefrontOBJ_output(const char* file, const dense2D<double>& pos, const dense2D<double>& normals,
                                          const dense2D<double>& texcoords, const dense2D<unsigned>& connect_tria,
                                          const dense2D<unsigned>& connect_quad);

/// The same without normals and texture coordinates, for one matrix and for two. Matrices of `ELEM_TRIA3` and `ELEM_QUAD4` (or of
/// `ELEM_SURF_ANY` with 3 rows) are written, two of one kind one after the other; a matrix of any other kind is ignored.
TQ4_GRIDWEAVE_API int WavefrontOBJ_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect,
                                          element_type kind);
TQ4_GRIDWEAVE_API int WavefrontOBJ_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect1,
                                          const dense2D<unsigned>& connect2, element_type kind1, element_type kind2);

// FEMAP neutral (.neu), the blocks 403 (nodes) and 404 (elements), read and written.

/// Reads nodes and elements in the order of the file. Node n becomes column n - 1 of `pos`; the columns of numbers that are missing are
/// zero, and element numbers are dropped. The elements stand in one matrix as high as the largest of them, shorter columns padded with
/// none, as a table of runs of one kind: run k covers the columns from `run_starts[k]` to `run_starts[k + 1] - 1`. An element of a topology
/// that is unknown is passed over but stands in `kinds` as `ELEM_NONE`; in a file with such elements `kinds` and `run_starts` do not go
/// together in general.
///
/// @param pos         replaced; 3 rows × largest node number
/// @param connect     replaced; nodes of the largest element × elements
/// @param run_starts  replaced; one entry per run and the number of elements, (0, 0) for a file without elements
/// @param kinds       replaced; `element_type` of each run
/// @param colors      replaced; the colour of each element
/// @return 0; -1 the file cannot be opened; -102 a node with fewer than 14 fields or the number 0, an element with fewer than 5 fields
///         or fewer than 10 in a line of nodes, a file that ends inside an element; -199 out of memory, for which a node number can ask
///         too. What was read so far stays, with the number of complete elements at the end of `run_starts`.
TQ4_GRIDWEAVE_API int FEMAP_input(const char* file, dense2D<double>& pos, dense2D<unsigned>& connect, dense1D<unsigned>& run_starts,
                                  dense1D<int>& kinds, dense1D<unsigned>& colors);

/// The same without the table of runs. `kind` is the kind of all elements, and `ELEM_NONE` after a failure or where there are several.
TQ4_GRIDWEAVE_API int FEMAP_input(const char* file, dense2D<double>& pos, dense2D<unsigned>& connect, element_type& kind);

/// The same for a file of two runs; further runs are dropped. `connect1` keeps the rows of the largest element of the file, `connect2` has
/// those of its kind. Where there is no such run the matrix is empty and its kind `ELEM_NONE`, as after a failure.
TQ4_GRIDWEAVE_API int FEMAP_input(const char* file, dense2D<double>& pos, dense2D<unsigned>& connect1, dense2D<unsigned>& connect2,
                                  element_type& kind1, element_type& kind2);

/// Writes nodes and elements as a table of runs. Coordinates have six significant digits. Runs of kinds that the format does not hold are
/// left out without a report: `ELEM_NONE`, `ELEM_BAR_ANY`, `ELEM_QUAD9`, all pyramids (also among mixed columns), `ELEM_PENTA15`,
/// `ELEM_PENTA18`, `ELEM_HEXA27`. The columns of a mixed run are of the kind that their padding tells. The corners of `ELEM_TRIA6`
/// are written one too low, so that they come back one lower.
///
/// The file is opened first; a failed test leaves it empty, and so does an empty `connect`.
///
/// @param pos         2 or 3 rows × nodes
/// @param connect     nodes of an element × elements, of any node numbers
/// @param run_starts  first column of each run and, last, their end; descending starts make an empty run
/// @param kinds       the kind of each run
/// @param colors      one per column
/// @return 0, for an empty `connect` even where the file cannot be opened; -1 the file cannot be opened or a write failed; -2 illegal rows
///         of `pos`; -5 `run_starts` has not one entry more than `kinds`; -6 `colors` has not one entry per column; -3 a run is no
///         connectivity of its kind
TQ4_GRIDWEAVE_API int FEMAP_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect,
                                   const dense1D<unsigned>& run_starts, const dense1D<int>& kinds, const dense1D<unsigned>& colors);

/// The same for one matrix of one kind, all of colour 1.
/// @return as above, or -199 out of memory
TQ4_GRIDWEAVE_API int FEMAP_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect, element_type kind);

/// The same for two matrices, of colours 1 and 2. The second run ends at the column whose number is the second matrix's own count, so that
/// elements at its end are left out wherever the first matrix has columns: prefer the general form for two matrices.
/// @return as above, or -199 out of memory
TQ4_GRIDWEAVE_API int FEMAP_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect1,
                                   const dense2D<unsigned>& connect2, element_type kind1, element_type kind2);

// NASTRAN bulk data (.bdf, .nas, .dat), read and written.

/// Reads nodes and elements from NASTRAN bulk data in small, large and free fields, mixed line by line. Cards other than GRID and the
/// elements BAR, BEAM, ROD, TRIA3, TRIA6, QUAD4, QUAD8, TETRA, PYRA(M), PENTA and HEXA (with or without C before the name, TRIA3 and QUAD4
/// also as CTRIA and CQUAD) are skipped without a report, and so are elements whose number of nodes fits no kind, for instance a CBAR with
/// the numbers of an orientation. "BEGIN BULK" is not required, "ENDDATA" ends the data. Text that is no number reads as 0.
///
/// Node n is column n - 1 of `pos`, which is as wide as the largest number; columns of numbers that are not in the file are zero, and of
/// two nodes with one number the later one stays. Elements keep the order of the file; their numbers are dropped. Columns of smaller
/// elements are padded with `none_index` below a larger element that came before, with 0 in the rows of one that came later: take the rows
/// of an element from its kind. An `ELEM_PENTA15` does not come back in the node order in which it was written.
///
/// A continuation line counts up to its 255th character; a longer one ends its card.
///
/// @param pos           replaced; 3 rows × nodes
/// @param connect       replaced; nodes of the largest element × elements
/// @param run_starts    replaced; first column of each run of elements of one kind and, last, the number of elements: (0, 0) without any
/// @param kinds         replaced; the kind of each run
/// @param property_ids  replaced; the second field of each element's card
/// @return 0; -1 the file cannot be opened (all results are empty) or a node cannot be read or is numbered 0; -199 out of memory, also for
///         a node whose number is negative or beyond what memory holds. After a failure the results hold what was read so far.
TQ4_GRIDWEAVE_API int NASTRAN_input(const char* file, dense2D<double>& pos, dense2D<unsigned>& connect, dense1D<unsigned>& run_starts,
                                    dense1D<int>& kinds, dense1D<unsigned>& property_ids);

/// The same with one kind for all elements.
///
/// @param kind  the kind if there is one run; `ELEM_SURF_ANY` for triangles and quadrangles, `ELEM_SOLID_ANY` for linear solids of several
///              shapes (mind the padding by 0 told above); `ELEM_NONE` for any other mixture, for no element and after a failure
TQ4_GRIDWEAVE_API int NASTRAN_input(const char* file, dense2D<double>& pos, dense2D<unsigned>& connect, element_type& kind);

/// The same with the first two runs in a matrix each, which share storage; further runs are dropped.
///
/// @param connect1, connect2  replaced; nodes of an element × elements of the first and the second run; empty without one and after a
///                            failure
/// @param kind1, kind2        their kinds, or `ELEM_NONE`
TQ4_GRIDWEAVE_API int NASTRAN_input(const char* file, dense2D<double>& pos, dense2D<unsigned>& connect1, dense2D<unsigned>& connect2,
                                    element_type& kind1, element_type& kind2);

/// Writes a mesh as NASTRAN bulk data: nodes in large fields with seven significant digits, elements in free fields, and one placeholder
/// material. The number of an element is its column + 1. `ELEM_BAR3`, `ELEM_QUAD9`, `ELEM_PYRA14`, `ELEM_PENTA18` and `ELEM_HEXA27` lose
/// their last nodes; runs of `ELEM_NONE`, `ELEM_NODE` and `ELEM_BAR_ANY` are left out without a report. In a run of a mixed kind the
/// padding of a column tells its kind.
///
/// An empty `connect` returns 0 without a file. The file is opened before the other tests, in the order -1, -2, -5, -6, -3; a failed test
/// leaves an empty file with its handle open.
///
/// @param pos           2 or 3 rows × nodes
/// @param connect       nodes of the largest element × elements; node numbers are not compared with `pos`
/// @param run_starts    first column of each run of elements of one kind and, last, the end of the last run; a run with descending starts
///                      is empty
/// @param kinds         the kind of each run
/// @param property_ids  a number for each element
/// @return 0; -1 the file cannot be opened or a write failed; -2 illegal rows of `pos`; -5 `run_starts` has not one entry more than
///         `kinds`; -6 `property_ids` has not one entry per column; -3 a run is no connectivity of its kind: it needs more rows than the
///         matrix has, or has none entries out of place. A run of `ELEM_SOLID_ANY` is refused in a matrix of more than 8 rows.
TQ4_GRIDWEAVE_API int NASTRAN_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect,
                                     const dense1D<unsigned>& run_starts, const dense1D<int>& kinds, const dense1D<unsigned>& property_ids);

/// The same for one run, with all property numbers 1.
/// @return as above, and -199 out of memory
TQ4_GRIDWEAVE_API int NASTRAN_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect, element_type kind);

/// The same for two runs, with property numbers 1 and 2. -3 also for a matrix with more rows than the larger of both kinds has nodes.
/// @return as above, and -199 out of memory
TQ4_GRIDWEAVE_API int NASTRAN_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect1,
                                     const dense2D<unsigned>& connect2, element_type kind1, element_type kind2);

} // namespace gridweave
} // namespace tq4
