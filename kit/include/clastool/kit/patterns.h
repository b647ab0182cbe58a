#pragma once

#include <clastool/kit/config.h>
#include <clastool/training_data.h>

#include <cstddef>
#include <initializer_list>
#include <vector>

namespace ktKit {

/// Many patterns, as the operations of the kit take them. One handle may occur several times.
using Patterns = std::vector<ktPtrHandle_const<ktFeaturePattern>>;

/// A new pattern of these values. A value that is not finite becomes an invalid measurement and is kept. So NaN, which most programs
/// use for what was not measured, is a missing measurement.
/// Cost: linear; one allocation for the values, two more if a value is invalid.
KT_KIT_API ktPtrHandle_const<ktFeaturePattern> pattern(const std::vector<double>& values);
/// The same from a list of values.
KT_KIT_API ktPtrHandle_const<ktFeaturePattern> pattern(std::initializer_list<double> values);
/// Requires: `size` values that can be read; `values` may be null if there are none.
KT_KIT_API ktPtrHandle_const<ktFeaturePattern> pattern(const double* values, std::size_t size);
/// Each value becomes the double that equals it.
KT_KIT_API ktPtrHandle_const<ktFeaturePattern> pattern(const float* values, std::size_t size);

/// All patterns of a provider, shared with it. Throws: what the provider throws.
KT_KIT_API Patterns patterns(const ktClassifierDataProvider& data);
/// The label of each pattern of a provider. Throws: what the provider throws.
KT_KIT_API std::vector<long> labels(const ktClassifierDataProvider& data);

/// Costs from a square matrix: `matrix[i][j]` is the cost of assigning a pattern of category `labels[i]` to `labels[j]`. If no labels
/// are given, they are 0, 1, 2, ... A pair with a label that is not listed keeps the default cost 1.0. Overrides are entered row by
/// row.
/// Throws: ktClassifierDefs::BadParams "The matrix of costs must be square"; ktClassifierDefs::BadParams "There must be as
/// many category labels as rows of the matrix of costs"; ktClassifierDefs::BadLabel "Category labels must be >= 0", for any
/// label; ktClassifierDefs::BadLabel "Category labels must be unique"; ktClassifierDefs::BadParams "The diagonal of the
/// matrix of costs must be 0"; ktClassifierDefs::BadParams "Costs must be >= 0.0", for NaN too.
/// Cost: n labels make n (n - 1) overrides; entering them takes time in proportion to the square of their number.
KT_KIT_API ktClassifierCosts costs(const std::vector<std::vector<double>>& matrix,
                                   const std::vector<long>& labels = {});

/// Prior frequencies: `values[i]` is that of category `labels[i]`, in any unit, because a result divides them by their sum. If no
/// labels are given, they are 0, 1, 2, ... A label that is not listed keeps the default frequency 1.0.
/// Throws: ktClassifierDefs::BadParams "There must be as many category labels as frequencies"; ktClassifierDefs::BadLabel
/// "Category labels must be >= 0", for any label; ktClassifierDefs::BadLabel "Category labels must be unique";
/// ktClassifierDefs::BadParams "Category frequencies must be > 0.0", for NaN too.
/// Cost: quadratic in the labels.
KT_KIT_API ktClassifierFrequencies frequencies(const std::vector<double>& values, const std::vector<long>& labels = {});

}  // namespace ktKit
