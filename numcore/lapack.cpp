#include <tq4/numcore/lapack.h>

#include <climits>
#include <cstddef>

// The Fortran routine; the two lengths of its character arguments come last, as Fortran compilers pass them.
extern "C" void dspev_(const char* jobz, const char* uplo, const int* n, double* ap, double* w, double* z, const int* ldz, double* work,
                       int* info, std::size_t jobz_length, std::size_t uplo_length);

namespace tq4::lapack
{

int dspev(char jobz, char uplo, long n, double* ap, double* w, double* z, long ldz, double* work, long& info)
{
    // LAPACK reports a bad argument by stopping the program, which a library must never do: the arguments are tested here, with its codes.
    const bool vectors = jobz == 'V' || jobz == 'v';
    const bool upper_or_lower = uplo == 'U' || uplo == 'u' || uplo == 'L' || uplo == 'l';
    info = 0;
    if (!vectors && jobz != 'N' && jobz != 'n')
        info = -1;
    else if (!upper_or_lower)
        info = -2;
    else if (n < 0 || n > INT_MAX)
        info = -3;
    else if (ldz < 1 || ldz > INT_MAX || (vectors && ldz < n))
        info = -7;
    if (info != 0) return static_cast<int>(info);

    const int order = static_cast<int>(n);
    const int leading = static_cast<int>(ldz);
    int status = 0;
    dspev_(&jobz, &uplo, &order, ap, w, z, &leading, work, &status, 1, 1);
    info = status;
    return status;
}

} // namespace tq4::lapack
