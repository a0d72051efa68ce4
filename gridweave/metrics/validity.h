#pragma once

// Is a size or a tensor usable as a metric?

#include "gridweave/metrics/eigen.h"

namespace tq4::gridweave
{

/// 0 < h < DBL_MAX; NaN is not.
inline bool is_valid_size(double h)
{
    return 0.0 < h && h < DBL_MAX;
}

/// True when the smallest eigenvalue is above 0. A tensor with an infinite or NaN entry is not valid.
inline bool is_valid_tensor(const tensor<2>& m)
{
    double lambda_small = 0.0;
    double lambda_large = 0.0;
    // The eigenvalues of a tensor with a non-finite entry compare false here, so whether both are finite need not be asked.
    symmetric_eigenvalues_2d(m[0], m[1], m[2], lambda_small, lambda_large);
    return 0.0 < lambda_small;
}

bool is_valid_tensor(const tensor<3>& m);

/// True when the eigenvalues that LAPACK finds are certain to lie in lower ... upper, where lower is not negative. False says nothing: they
/// may lie there all the same.
bool has_eigenvalues_within(const tensor<3>& m, double lower, double upper);

} // namespace tq4::gridweave
