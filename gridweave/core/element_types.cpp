#include "gridweave/core/kinds.h"

namespace tq4::gridweave
{

unsigned element_dim(element_type kind)
{
    return record_of(kind).dim;
}

unsigned nbr_nodes(element_type kind)
{
    return record_of(kind).nodes;
}

unsigned nbr_base_nodes(element_type kind)
{
    return record_of(kind).base_nodes;
}

unsigned nbr_boundaries(element_type kind)
{
    return record_of(kind).boundaries;
}

} // namespace tq4::gridweave
