#pragma once

/// The chief header of the mesh library: it includes everything a host needs.

#include <tq4/auxkit/histogram.h>
#include <tq4/gridweave/connectivity.h>
#include <tq4/gridweave/core.h>
#include <tq4/gridweave/edit.h>
#include <tq4/gridweave/io.h>
#include <tq4/gridweave/metrics.h>
#include <tq4/gridweave/quality.h>
#include <tq4/gridweave/search.h>
#include <tq4/numcore/numcore.h>
