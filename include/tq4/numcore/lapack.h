#pragma once

#include <tq4/export.h>

namespace tq4
{
namespace lapack
{

/// Eigenvalues and, with jobz 'V', eigenvectors of a symmetric matrix in packed storage: a thin wrapper over LAPACK's routine of that name.
///
/// @param jobz  'N' for eigenvalues only, 'V' for eigenvectors too
/// @param uplo  'U' for a packed upper triangle (the storage of `symmetric_fixed`), 'L' for a lower one
/// @param n     order of the matrix
/// @param ap    n (n + 1) / 2 packed entries; overwritten
/// @param w     n eigenvalues in ascending order
/// @param z     n columns of ldz rows, column k the eigenvector of w[k]; may be null with jobz 'N'
/// @param ldz   leading dimension of z, at least n with jobz 'V', at least 1 otherwise
/// @param work  3 n entries of work space
/// @param info  0 on success, -k when argument k is bad, above 0 when the iteration did not converge
/// @return the value of `info`, cut to an int
TQ4_NUMCORE_API int dspev(char jobz, char uplo, long n, double* ap, double* w, double* z, long ldz, double* work, long& info);

} // namespace lapack
} // namespace tq4
