#pragma once

/// The numeric containers that every call of the mesh library takes and returns its arrays through.

#include <tq4/numcore/dense1d.h>
#include <tq4/numcore/dense2d.h>
#include <tq4/numcore/fixed.h>
#include <tq4/numcore/lapack.h>
#include <tq4/numcore/memory.h>
#include <tq4/numcore/ref_counted.h>
#include <tq4/numcore/vector_num.h>
