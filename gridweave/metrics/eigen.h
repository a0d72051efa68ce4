#pragma once

// Eigenvalues and eigenvectors of one metric and of a pair of metrics. The plane is in closed form; space goes through LAPACK.

#include "gridweave/metrics/tensor.h"

namespace tq4::gridweave
{

/// Eigenvalues of the symmetric matrix (a b; b c). False when one of them is infinite or NaN.
inline bool symmetric_eigenvalues_2d(double a, double b, double c, double& lambda_small, double& lambda_large)
{
    // Of two eigenvalues this far apart the one closer to zero is mostly cancellation; the determinant gives it to full precision.
    constexpr double cancelled = 1e-12;

    const double det = a * c - b * b;
    const double s = std::sqrt((a - c) * (a - c) + 4.0 * (b * b));
    lambda_small = 0.5 * (a + c - s);
    lambda_large = s + lambda_small;
    if (std::abs(lambda_small) < cancelled * std::abs(lambda_large))
        lambda_small = det / lambda_large;
    else if (std::abs(lambda_large) < cancelled * std::abs(lambda_small))
        lambda_large = det / lambda_small;
    return std::isfinite(lambda_small) && std::isfinite(lambda_large);
}

/// Eigenpairs of (p q; q r): the eigenvalues in ascending order, e1 being e0 turned by a quarter turn. False, with the vectors unset,
/// when an eigenvalue is infinite or NaN.
inline bool symmetric_eigen_pairs_2d(double p, double q, double r, double& lambda0, double& lambda1, vector_fixed<double, 2>& e0,
                                     vector_fixed<double, 2>& e1, bool normalize)
{
    // Squared distance from a multiple of the unit matrix, relative to the entries, below which every vector is an eigenvector.
    constexpr double isotropic = 1e-24;

    if (!symmetric_eigenvalues_2d(p, q, r, lambda0, lambda1)) return false;

    // Either row of the matrix less lambda0 gives the vector; the longer one does so with less cancellation.
    const double from_r = (lambda0 - r) * (lambda0 - r);
    const double from_p = (lambda0 - p) * (lambda0 - p);
    double squared_length = 0.0;
    if (from_p < from_r)
    {
        e0 = {lambda0 - r, q};
        squared_length = from_r + q * q;
    }
    else
    {
        e0 = {q, lambda0 - p};
        squared_length = from_p + q * q;
    }

    if (std::max(p * p, r * r) * isotropic >= squared_length)
        e0 = {1.0, 0.0};
    else if (normalize)
    {
        const double length = std::sqrt(squared_length);
        e0 = {e0[0] / length, e0[1] / length};
    }
    e1 = {-e0[1], e0[0]};
    return true;
}

/// Divides every vector by its length, but for those of length 0 and those of length 1 already.
template <unsigned D>
void normalize_vectors(basis<D>& vectors)
{
    for (unsigned k = 0; k < D; ++k)
    {
        double squared_length = vectors(0, k) * vectors(0, k);
        for (unsigned r = 1; r < D; ++r) squared_length += vectors(r, k) * vectors(r, k);
        if (squared_length == 0.0 || squared_length == 1.0) continue;
        const double length = std::sqrt(squared_length);
        for (unsigned r = 0; r < D; ++r) vectors(r, k) /= length;
    }
}

/// Pairs of B x = lambda A x, with vectors of length 1. False when A is not positive definite (a negative definite A passes) or an
/// eigenvalue is infinite or NaN.
inline bool generalized_eigen_pairs_2d(const tensor<2>& A, const tensor<2>& B, vector_fixed<double, 2>& values, basis<2>& vectors)
{
    const double a = A[0];
    const double b = A[1];
    const double c = A[2];
    const double d = B[0];
    const double e = B[1];
    const double f = B[2];
    const double det = a * c - b * b;
    if (a == 0.0 || !(det > 0.0)) return false;

    // The symmetric problem of the pair, without forming a factor of A: it is det times a times the one that a factor gives.
    const double root = std::sqrt(det);
    const double p = det * d;
    const double q = root * (a * e - b * d);
    const double r = a * a * f - b * (2.0 * a * e - b * d);
    vector_fixed<double, 2> e0;
    vector_fixed<double, 2> e1;
    if (!symmetric_eigen_pairs_2d(p, q, r, values[0], values[1], e0, e1, false)) return false;

    const double scale = 1.0 / (det * a);
    values[0] *= scale;
    values[1] *= scale;
    vectors = {e0[0] * root - e0[1] * b, e0[1] * a, e1[0] * root - e1[1] * b, e1[1] * a};
    normalize_vectors(vectors);
    return true;
}

/// Pairs of B x = lambda A x, with vectors of length 1. False when A is not positive semidefinite, when an entry of A or B (or of the
/// problem that they reduce to) is infinite or NaN, or when LAPACK finds no answer. With a zero row in A the result is true and the
/// eigenvalues are infinite or NaN: the caller examines them.
bool generalized_eigen_pairs_3d(const tensor<3>& A, const tensor<3>& B, vector_fixed<double, 3>& values, basis<3>& vectors);

inline bool generalized_eigen_pairs(const tensor<2>& A, const tensor<2>& B, vector_fixed<double, 2>& values, basis<2>& vectors)
{
    return generalized_eigen_pairs_2d(A, B, values, vectors);
}

inline bool generalized_eigen_pairs(const tensor<3>& A, const tensor<3>& B, vector_fixed<double, 3>& values, basis<3>& vectors)
{
    return generalized_eigen_pairs_3d(A, B, values, vectors);
}

} // namespace tq4::gridweave
