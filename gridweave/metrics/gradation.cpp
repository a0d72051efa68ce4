#include <tq4/gridweave/metrics.h>

#include "gridweave/metrics/relaxation.h"

namespace tq4::gridweave
{

int bound_metric_gradations(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind,
                            const dense1D<unsigned>& indices, bool indices_frozen, int direction, double g, dense2D<double>& metrics)
{
    return limit_field<gradation_limit>(pos, connectivity, kind, indices, indices_frozen, direction, g, metrics);
}

int bound_metric_gradations(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind,
                            const dense1D<unsigned>& indices, bool indices_frozen, int direction, double g, dense1D<double>& sizes)
{
    return limit_field<gradation_limit>(pos, connectivity, kind, indices, indices_frozen, direction, g, sizes);
}

} // namespace tq4::gridweave
