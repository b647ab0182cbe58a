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

/// Counts decisions by true category and by assigned category. Labels may be any numbers.
///
/// Copy: copies the counts.
class KT_KIT_API ConfusionMatrix {
public:
    ConfusionMatrix();
    /// `names[label]` is printed for the label; a label without a name is printed as a number.
    explicit ConfusionMatrix(const std::vector<std::string>& names);

    /// Counts one decision.
    void add(long trueLabel, long assignedLabel);
    /// Adds the counts of the other matrix.
    ConfusionMatrix& operator+=(const ConfusionMatrix& other);

    /// The labels that occurred as true or assigned category, ascending.
    std::vector<long> labels() const;
    /// How often the pair was counted.
    long count(long trueLabel, long assignedLabel) const;
    /// The number of decisions.
    long total() const;
    /// The number of wrong decisions.
    long mistakes() const;
    /// The share of mistakes in the total; 0.0 if nothing was counted.
    double errorRate() const;
    /// The sum of the costs of all mistakes.
    /// Throws: ktClassifierDefs::BadLabel "Category labels must be >= 0" if a negative label occurred in a mistake.
    double cost(const ktClassifierCosts& costs) const;
    /// The share of patterns of the category among those that were assigned to it; 0.0 if there are none.
    double precision(long label) const;
    /// The share of patterns assigned to the category among those that belong to it; 0.0 if there are none.
    double recall(long label) const;

    /// Writes the matrix as a whole SVG picture: a row for each true category, a column for each assigned one. The darkness of a cell
    /// is its share of the row.
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

/// Writes the matrix as a table of text: a row for each true category with its recall, a last row with the precisions, and a line with
/// the error rate. The stream's format flags are neither used nor changed.
KT_KIT_API std::ostream& operator<<(std::ostream& stream, const ConfusionMatrix& matrix);

/// Assigns patterns to folds at random. The number of patterns of a category differs by at most one between folds, and so does the
/// number of all patterns. Label -1, an unknown category, is treated like any other. A seed that fits 32 bits gives the same folds on
/// every platform.
/// Returns the fold of each pattern, from 0 to folds - 1.
/// Throws: ktClassifierDefs::BadParams "There must be at least 2 folds"; ktClassifierDefs::BadParams "There must not be more
/// folds than patterns".
/// Cost: sorting the labels.
/// See: R. Kohavi, "A study of cross-validation and bootstrap for accuracy estimation and model selection", 1995; R. A. Fisher,
/// F. Yates, "Statistical tables", 1938, on shuffling.
KT_KIT_API std::vector<long> stratifiedFolds(const std::vector<long>& labels, long folds, unsigned long seed);

/// Training data, and test data.
struct Split {
    /// All folds but one.
    ktClassifierDataProviderMemory training;
    /// The one left out.
    ktClassifierDataProviderMemory test;
};

/// Splits data by folds: `testFold` is the test data, all other folds are the training data. The patterns are shared.
/// Throws: ktClassifierDefs::BadIndex "Folds must be >= 0" for the test fold; ktClassifierDefs::BadParams "There must be a fold
/// for each pattern"; ktClassifierDefs::BadIndex "Folds must be >= 0" for a fold of a pattern; what addData refuses.
KT_KIT_API Split split(const ktClassifierDataProvider& data, const std::vector<long>& folds, long testFold);

/// The counts of a cross-validation.
struct CrossValidation {
    /// A matrix for each fold.
    std::vector<ConfusionMatrix> folds;
    /// All folds together.
    ConfusionMatrix total;
};

/// Returns the label to which the pattern is assigned.
using Decide = std::function<long(const ktFeaturePattern& pattern)>;
/// Learns from training data, and returns how to decide. Everything that belongs to the training, such as scaling, is learnt here.
using Factory = std::function<Decide(const ktClassifierDataProvider& training)>;
/// Called when `done` of `all` folds are finished.
using Progress = std::function<void(long done, long all)>;

/// For each fold: trains on all other folds, decides on the patterns of this fold, and counts. `folds[i]` is the fold of pattern i.
/// Patterns of unknown category are given to training, which treats them as the technique does; they are not decided on. An empty fold
/// has an empty matrix.
///
/// `threads` threads share the folds, as in `runAll`; the result does not depend on their number. `progress` is called once per fold, by
/// one thread at a time. It may throw to end the cross-validation.
/// Throws: ktClassifierDefs::BadParams "There must be a fold for each pattern"; ktClassifierDefs::BadIndex "Folds must be >= 0";
/// then, of the first fold that fails, what training, deciding or `progress` throws; what the attention check raises.
/// Polls: once per fold, and as training and runs do. Cost: that of training and of runs, and one provider per thread, which shares the
/// patterns.
/// See: M. Stone, "Cross-validatory choice and assessment of statistical predictions", 1974.
KT_KIT_API CrossValidation crossValidate(const ktClassifierDataProvider& data, const ktClassifierTrainParams& params,
                                         const std::vector<long>& folds, unsigned threads = 1,
                                         const Progress& progress = {});
/// The same for any way of deciding. With several threads, the factory and what it returns are called on several threads at once.
KT_KIT_API CrossValidation crossValidate(const ktClassifierDataProvider& data, const Factory& factory,
                                         const std::vector<long>& folds, unsigned threads = 1,
                                         const Progress& progress = {});

}  // namespace ktKit
