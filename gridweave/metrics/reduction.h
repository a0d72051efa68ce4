#pragma once

// Two metrics on one basis: the ground on which they are merged and interpolated.

#include "gridweave/core/vector_math.h"
#include "gridweave/metrics/eigen.h"

namespace tq4::gridweave
{

/// A pair of tensors A and B as diagonal matrices on a common basis. A tensor with the values m_k on that basis is
/// `compose_metric(m, inverse_rows)`.
template <unsigned D>
struct reduced_pair
{
    basis<D> vectors;          ///< the unit eigenvectors e_k of B x = lambda A x
    basis<D> inverse_rows;     ///< the dual basis: q_i . e_j is 1 for i = j and 0 otherwise
    vector_fixed<double, D> a; ///< e_kT A e_k
    vector_fixed<double, D> b; ///< e_kT B e_k, as lambda_k a_k
};

/// The dual of a basis; of one that spans no volume the plane gets zeros and space what is left without the division.
inline basis<2> dual_basis(const basis<2>& e)
{
    const double det = e(0, 0) * e(1, 1) - e(1, 0) * e(0, 1);
    if (det == 0.0) return {};
    return {e(1, 1) / det, -e(0, 1) / det, -e(1, 0) / det, e(0, 0) / det};
}

inline basis<3> dual_basis(const basis<3>& e)
{
    const auto e0 = basis_vector(e, 0);
    const auto e1 = basis_vector(e, 1);
    const auto e2 = basis_vector(e, 2);
    const auto normal = cross(e1, e2);
    const double det = dot(e0, normal);
    basis<3> dual;
    set_basis_vector(dual, 0, normal);
    set_basis_vector(dual, 1, cross(e2, e0));
    set_basis_vector(dual, 2, cross(e0, e1));
    if (det != 0.0)
        for (double& entry : dual.values) entry /= det;
    return dual;
}

/// Brings A and B on a common basis. True when all their values there lie strictly between 0 and DBL_MAX. Where the pair has no
/// eigenvectors the record is all zero; otherwise it is left as computed even when the result is false.
template <unsigned D>
bool simultaneous_reduction(const tensor<D>& A, const tensor<D>& B, reduced_pair<D>& pair)
{
    vector_fixed<double, D> lambda;
    if (!generalized_eigen_pairs(A, B, lambda, pair.vectors))
    {
        pair = {};
        return false;
    }
    pair.inverse_rows = dual_basis(pair.vectors);
    for (unsigned k = 0; k < D; ++k)
    {
        pair.a[k] = quadratic_form(A, basis_vector(pair.vectors, k));
        pair.b[k] = pair.a[k] * lambda[k];
    }
    return all_in_open_range(pair.a) && all_in_open_range(pair.b);
}

/// The tensor that takes `choose(a_k, b_k)` on every vector of the common basis. False, with `result` as it was, when one of these is not
/// strictly between 0 and DBL_MAX. `result` may be A or B.
template <unsigned D, class Choice>
bool merge_metrics(const tensor<D>& A, const tensor<D>& B, tensor<D>& result, Choice&& choose)
{
    reduced_pair<D> pair;
    // A pair that does not reduce is found out by the values: it may be fine in what is chosen.
    simultaneous_reduction(A, B, pair);
    vector_fixed<double, D> chosen;
    for (unsigned k = 0; k < D; ++k) chosen[k] = choose(pair.a[k], pair.b[k]);
    if (!all_in_open_range(chosen)) return false;
    result = compose_metric(chosen, pair.inverse_rows);
    return true;
}

/// The metric of the smaller size, that is of the larger value, in every direction of the common basis. NaN chooses A's value.
template <unsigned D>
bool minimum_metric_inner(const tensor<D>& A, const tensor<D>& B, tensor<D>& result)
{
    return merge_metrics(A, B, result, [](double a, double b) { return a < b ? b : a; });
}

/// The metric of the larger size, that is of the smaller value, in every direction of the common basis. NaN chooses A's value.
template <unsigned D>
bool maximum_metric_inner(const tensor<D>& A, const tensor<D>& B, tensor<D>& result)
{
    return merge_metrics(A, B, result, [](double a, double b) { return b < a ? b : a; });
}

} // namespace tq4::gridweave
