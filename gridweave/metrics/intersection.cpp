#include <tq4/gridweave/metrics.h>

#include "gridweave/metrics/reduction.h"

namespace tq4::gridweave
{

bool minimum_metric(const symmetric_fixed<double, 2>& A, const symmetric_fixed<double, 2>& B, symmetric_fixed<double, 2>& result)
{
    if (minimum_metric_inner(A, B, result)) return true;
    result = A;
    return false;
}

bool minimum_metric(const symmetric_fixed<double, 3>& A, const symmetric_fixed<double, 3>& B, symmetric_fixed<double, 3>& result)
{
    if (minimum_metric_inner(A, B, result)) return true;
    result = A;
    return false;
}

bool maximum_metric(const symmetric_fixed<double, 2>& A, const symmetric_fixed<double, 2>& B, symmetric_fixed<double, 2>& result)
{
    if (maximum_metric_inner(A, B, result)) return true;
    result = A;
    return false;
}

bool maximum_metric(const symmetric_fixed<double, 3>& A, const symmetric_fixed<double, 3>& B, symmetric_fixed<double, 3>& result)
{
    if (maximum_metric_inner(A, B, result)) return true;
    result = A;
    return false;
}

} // namespace tq4::gridweave
