#pragma once

#include <clastool/bayes.h>
#include <clastool/kit/config.h>
#include <clastool/kit/patterns.h>

#include <vector>

namespace ktKit {

/// What a Bayesian tool has learnt of one group of measurements in one category. It is a copy: the tool does not change with it.
struct Density {
    /// The category.
    long label = 0;
    /// The measurements of the group, in the order of `mean` and `covariance`.
    std::vector<long> measurements;
    /// eNormal or eBinomial.
    ktClassifierDistributionTypes::DistributionType type = ktClassifierDistributionTypes::eNormal;
    /// Normal: the mean of each measurement, in its unit. Empty if nothing was learnt.
    std::vector<double> mean;
    /// Normal: the unbiased covariance matrix as learnt, without spreads that are borrowed from other categories.
    ktNMMatrix covariance;
    /// The number of patterns learnt. Binomial: 0 if the tool was loaded from an archive, which does not hold this number.
    long count = 0;
    /// Binomial: n, 0 until learnt.
    long numTrials = 0;
    /// Binomial: the probability of a trial.
    double theta = 0.0;
};

/// What a Bayesian tool has learnt: a density for each group of each category. Categories come in the order of their first training
/// pattern, groups in the order of their first measurement.
/// Throws: ktClassifierDefs::NotTrained "Classifier tool must be trained before requesting the densities"; ktClassifierDefs::BadMethod
/// "Classifier tool was not trained by Bayes"; ktBadPointer for a missing model or density (after loading a damaged archive);
/// ktClassifierDefs::NotImplemented "A density is neither normal nor binomial" for one of the caller's own class.
KT_KIT_API std::vector<Density> densities(const ktClassifierTool& tool);

/// Trains a tool further. The result is, to the bit, that of one training with these patterns behind the earlier ones. A Bayesian tool
/// learns the patterns; a nearest-neighbour tool keeps them and shares them with the caller. Label -1 is an unknown category; such
/// a pattern is checked and left out. The parameters do not change, nor do those in use of a nearest-neighbour tool. Copies of the
/// tool do not change either.
/// Throws, with the tool unchanged:
/// - ktClassifierDefs::NotTrained "Classifier tool must be trained before incremental training.";
/// - ktClassifierDefs::BadMethod "Classifier tool was trained neither for nearest neighbors nor by Bayes";
/// - ktClassifierDefs::BadFeatures "The number of the feature patterns must be equal to the number of category labels";
/// - then for each pattern in turn: ktBadPointer for a null handle; ktClassifierDefs::BadFeatures "Feature pattern must have the
///   same number of measurements as the rest of the data."; for nearest neighbours ktClassifierDefs::BadFeatures "K-nearest
///   neighbor classification does not support invalid measurements"; ktClassifierDefs::BadLabel "Category labels must be >= 0
///   or unknown";
/// - Bayes: what `densities` throws for the models; ktClassifierDefs::BadMethod "A binomial density from an archive cannot learn
///   further: ktKit::save keeps what that takes" for a tool that ktArchive loaded; what training throws for a pattern;
/// - with `throwIfNotReady` of the stored parameters, what training throws for a classifier that cannot run.
///
/// Cost: nearest neighbours: linear in all kept patterns, so add many in one call. Bayes: that of training on these patterns, plus the
/// size of the models.
KT_KIT_API void add(ktClassifierTool& tool, const Patterns& patterns, const std::vector<long>& labels);

/// Joins what two Bayesian tools have learnt from different patterns. Except for rounding, the result is that of one training on the
/// patterns of both, with those of `tool` first. With counts a and b, and d the difference of the means:
///
///     n = a + b,  mean = mean_a + d b / n,  cov = ((a - 1) cov_a + (b - 1) cov_b + d d' a b / n) / (n - 1)
///
/// Rounding changes a mean by about 1e-15 of itself. It changes a covariance by about 1e-15 of the product of the deviations, times
/// |mean| / deviation where that is more than 1: so by less than 1e-12 for a mean of up to a thousand deviations. Learning rounds as
/// much. A binomial n that lies halfway between two integers may be rounded to the other one.
///
/// Categories that only `other` has are appended to those of the tool. `other` may be the tool itself, which then counts twice.
/// Throws, with the tool unchanged:
/// - ktClassifierDefs::NotTrained "Classifier tools must be trained before they are merged", for either;
/// - ktClassifierDefs::BadMethod "Classifier tools must be trained by Bayes to be merged", for either;
/// - ktClassifierDefs::BadParams "Classifier tools must be trained with equal parameters to be merged", by the parameters' own
///   equality: distribution types, frequencies, costs and maximum values;
/// - what `densities` throws for the models of either; ktClassifierDefs::BadFeatures "Classifier tools must be trained on the
///   same measurements to be merged"; ktClassifierDefs::BadMethod "A binomial density from an archive cannot learn further:
///   ktKit::save keeps what that takes";
/// - with `throwIfNotReady` of the stored parameters, what training throws for a classifier that cannot run.
///
/// Cost: the size of the models.
/// See: T. F. Chan, G. H. Golub, R. J. LeVeque, "Updating formulae and a pairwise algorithm for computing sample variances", 1979.
KT_KIT_API void merge(ktClassifierTool& tool, const ktClassifierTool& other);

}  // namespace ktKit
