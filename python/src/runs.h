#pragma once

#include "arrays.h"
#include "tool.h"
#include "watch.h"

#include <memory>

/// Runs the tool on each row, and returns clastool's RowResults.
nb::object runRows(const Trained& trained, const Rows& rows, unsigned threads, bool onlyLabels, nb::handle progress);

/// The log-likelihoods of each row in all categories of a Bayesian tool, in the order of its categories.
nb::object logLikelihoods(const Trained& trained, const Rows& rows, unsigned threads, nb::handle progress);

/// The nearest neighbours of each row: clastool's Neighbors. `k` is None for that in use.
nb::object findNeighbors(const Trained& trained, const Rows& rows, nb::handle k, unsigned threads, nb::handle progress);

/// The first `count` kept patterns in stored order that are no farther from each row than its distance: clastool's Neighbors, filled
/// with NaN and -1. Cost: the plain scan's, up to the last of these patterns.
nb::object findFirstWithin(const Trained& trained, const Rows& rows, nb::handle distances, std::size_t count,
                           unsigned threads, nb::handle progress);
