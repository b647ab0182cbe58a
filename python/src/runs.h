#pragma once

#include "arrays.h"
#include "tool.h"
#include "watch.h"

#include <memory>

/// Runs the tool on each row. Returns a RowResults.
nb::object runRows(const Trained& trained, const Rows& rows, unsigned threads, bool onlyLabels, nb::handle progress);

/// The log-likelihoods of each row in all categories of a Bayesian tool, in the order of its categories.
nb::object logLikelihoods(const Trained& trained, const Rows& rows, unsigned threads, nb::handle progress);

/// The nearest neighbours of each row, as a Neighbors. If `k` is None, the tool's own k counts.
nb::object findNeighbors(const Trained& trained, const Rows& rows, nb::handle k, unsigned threads, nb::handle progress);

/// For each row the first `count` kept patterns, in stored order, that are at most as far away as the row's distance. Returns a Neighbors;
/// NaN and -1 fill it up if there are fewer. Cost: that of a plain scan up to the last of these patterns.
nb::object findFirstWithin(const Trained& trained, const Rows& rows, nb::handle distances, std::size_t count,
                           unsigned threads, nb::handle progress);
