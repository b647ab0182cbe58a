#pragma once

#include <clastool/classifier.h>
#include <clastool/kit/config.h>

#include <functional>
#include <iosfwd>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace ktKit {

/// Counts decisions by true category and by assigned one. Labels may be any numbers.
///
/// Copy: copies the counts.
class KT_KIT_API ConfusionMatrix {
public:
    ConfusionMatrix();
    /// `names[label]` is what label is called where the matrix is printed; others are printed as numbers.
    explicit ConfusionMatrix(const std::vector<std::string>& names);

    /// Counts a pattern of one category that was assigned to a category.
    void add(long trueLabel, long assignedLabel);
    /// Counts all that the other has counted too.
    ConfusionMatrix& operator+=(const ConfusionMatrix& other);

    /// The labels that occurred, as true or assigned ones, ascending.
    std::vector<long> labels() const;
    /// How often the pair was counted.
    long count(long trueLabel, long assignedLabel) const;
    /// How many decisions were counted.
    long total() const;
    /// How many of them were wrong.
    long mistakes() const;
    /// The share of the mistakes in the total; 0.0 where nothing was counted.
    double errorRate() const;
    /// What the mistakes cost in all, in the unit of the costs.
    /// Throws: ktClassifierDefs::BadLabel "Category labels must be >= 0" if a negative label occurred in a mistake.
    double cost(const ktClassifierCosts& costs) const;
    /// Of the patterns that were assigned to the category, the share that belongs there; 0.0 if there are none.
    double precision(long label) const;
    /// Of the patterns of the category, the share that was assigned to it; 0.0 if there are none.
    double recall(long label) const;

    /// Writes the matrix as a picture of its own: a row for each true category, a column for each assigned one, each cell as dark as
    /// its share of the row.
    void svg(std::ostream& stream) const;

    /// Equal counts; names are not compared.
    bool operator==(const ConfusionMatrix& other) const { return counts_ == other.counts_; }
    bool operator!=(const ConfusionMatrix& other) const { return !(*this == other); }

private:
    friend KT_KIT_API std::ostream& operator<<(std::ostream& stream, const ConfusionMatrix& matrix);

    std::string nameOf(long label) const;

    std::vector<std::string> names_;
    std::map<std::pair<long, long>, long> counts_;
};

/// The matrix as a table of text, a row for each true category with its recall, a last row with the precisions, and a line with
/// the error rate. The stream's format is not changed, nor looked at.
KT_KIT_API std::ostream& operator<<(std::ostream& stream, const ConfusionMatrix& matrix);

/// Deals patterns out to folds, so that each fold has its share of each category, but for one pattern, and its share of all
/// patterns, but for one. Label -1, an unknown category, is dealt out like others. The same seed gives the same folds on every
/// platform, where the seed fits 32 bits.
/// Returns the fold of each pattern, from 0 to folds - 1.
/// Throws: ktClassifierDefs::BadParams "There must be at least 2 folds"; ktClassifierDefs::BadParams "There must not be more
/// folds than patterns".
/// Cost: sorting the labels.
/// See: R. Kohavi, "A study of cross-validation and bootstrap for accuracy estimation and model selection", 1995; R. A. Fisher,
/// F. Yates, "Statistical tables", 1938, on shuffling.
KT_KIT_API std::vector<long> stratifiedFolds(const std::vector<long>& labels, long folds, unsigned long seed);

/// Data to learn from, and data to judge by.
struct Split {
    /// All folds but one.
    ktClassifierDataProviderMemory training;
    /// The one left out.
    ktClassifierDataProviderMemory test;
};

/// Parts data by folds: `testFold` is the test, all others are the training. The patterns are shared.
/// Throws: ktClassifierDefs::BadIndex "Folds must be >= 0" for the test fold; ktClassifierDefs::BadParams "There must be a fold
/// for each pattern"; ktClassifierDefs::BadIndex "Folds must be >= 0" for a fold of a pattern; what addData refuses.
KT_KIT_API Split split(const ktClassifierDataProvider& data, const std::vector<long>& folds, long testFold);

/// What a cross-validation has counted.
struct CrossValidation {
    /// A matrix for each fold.
    std::vector<ConfusionMatrix> folds;
    /// All folds together.
    ConfusionMatrix total;
};

/// Decides on a pattern: returns the label that it is assigned to.
using Decide = std::function<long(const ktFeaturePattern& pattern)>;
/// Learns from training data how to decide. Whatever belongs to the training, scaling for one, is learnt here.
using Factory = std::function<Decide(const ktClassifierDataProvider& training)>;
/// Is told that `done` of `all` folds are done.
using Progress = std::function<void(long done, long all)>;

/// Trains on all folds but one, decides on the patterns of that one, and counts; for each fold in turn. `folds[i]` is the fold
/// of pattern i. Patterns of unknown category are trained on as the technique does, and not decided on.
///
/// Folds are shared out to as many threads as `threads` says, as runAll does it; the result is the same. `progress` is called once
/// per fold, by one thread at a time, and may throw to end it all.
/// Throws: ktClassifierDefs::BadParams "There must be a fold for each pattern"; ktClassifierDefs::BadIndex "Folds must be >= 0";
/// then, of the first fold that fails, what training, deciding or `progress` throws; what the attention check raises. An empty
/// fold has an empty matrix.
/// Polls: once per fold, and as training and runs do. Cost: that of training and of runs, with one provider per thread that shares the
/// patterns.
/// See: M. Stone, "Cross-validatory choice and assessment of statistical predictions", 1974.
KT_KIT_API CrossValidation crossValidate(const ktClassifierDataProvider& data, const ktClassifierTrainParams& params,
                                         const std::vector<long>& folds, unsigned threads = 1,
                                         const Progress& progress = {});
/// The same for whatever decides. With several threads the factory, and what it returns, are called on several at once.
KT_KIT_API CrossValidation crossValidate(const ktClassifierDataProvider& data, const Factory& factory,
                                         const std::vector<long>& folds, unsigned threads = 1,
                                         const Progress& progress = {});

}  // namespace ktKit
