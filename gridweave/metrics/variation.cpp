#include <tq4/gridweave/metrics.h>

#include "gridweave/metrics/relaxation.h"

namespace tq4::gridweave
{

int bound_metric_variations(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind,
                            const dense1D<unsigned>& indices, bool indices_frozen, int direction, double v, dense2D<double>& metrics)
{
    return limit_field<variation_limit>(pos, connectivity, kind, indices, indices_frozen, direction, v, metrics);
}

int bound_metric_variations(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind,
                            const dense1D<unsigned>& indices, bool indices_frozen, int direction, double v, dense1D<double>& sizes)
{
    return limit_field<variation_limit>(pos, connectivity, kind, indices, indices_frozen, direction, v, sizes);
}

} // namespace tq4::gridweave
