#pragma once

#include <clastool/bayes.h>

#include <cstddef>
#include <unordered_set>
#include <vector>

/// The spreads that categories lend each other. A measurement that did not vary within a category has no spread of its own there
/// (ktNormalDensity::hasSpread), and would overrule all other measurements. Its evaluation takes the first of these:
///
/// 1. The pooled spread within categories. Its square is the sum of n_c var_c, divided by the sum of n_c. Both sums go over the
///    categories c that model the measurement by a normal density. n_c is their count, and var_c their variance, 0 without a spread.
/// 2. If that is 0: the spread of these categories' means, the root of their mean squared distance from their mean.
/// 3. If that is 0 too, up to rounding, or if a mean or variance is not finite: nothing. The measurement does not distinguish the
///    categories, and all of them leave it out.
///
/// The state of a model does not change. A copy of the model is evaluated instead. It shares the densities that borrow nothing, and has
/// stand-ins for the others.
class kt_BorrowedSpreads {
public:
    using Models = std::vector<ktPtrHandle<kt_CategoryModel>>;

    /// For each model the one to evaluate. It is the model itself if that borrows nothing, is missing, or has another class than
    /// kt_CategoryModelBayesian. Only normal densities that can be evaluated lend and borrow. A damaged archive may put one density into
    /// several groups; it borrows in the first one alone.
    /// Cost: n log n in the number of groups, and the size of the densities that borrow.
    static Models completed(const Models& models);

private:
    /// What a category learnt about one measurement.
    struct Learnt {
        long index;
        double count;
        double mean;
        double variance;
    };
    /// The squared spread that the categories lend for one measurement; 0 if all of them leave it out.
    struct Loan {
        long index;
        double variance;
    };
    /// The measurements of a group that are evaluated: their places in the group, their indices in the pattern, and the variances that
    /// they borrow, 0 for a measurement with its own spread.
    struct Part {
        std::vector<std::size_t> kept;
        std::vector<long> indices;
        std::vector<double> borrowed;
        bool isWhole = true;
    };

    static const ktNormalDensity* learntBy(const kt_CategoryModelBayesian& model, std::size_t group);
    static double lentBy(const Learnt* first, const Learnt* last);
    static ktPtrHandle<kt_ProbabilityDensityFunction> standInFor(const ktNormalDensity& density, const Part& part);

    void note(const kt_CategoryModelBayesian& model);
    void settle();
    double lentFor(long index) const;
    Part partOf(const kt_CategoryModelBayesian& model, std::size_t group);
    ktPtrHandle<kt_CategoryModel> standInFor(const kt_CategoryModelBayesian& model);

    std::vector<Learnt> learnt_;
    std::vector<Loan> loans_;
    std::unordered_set<const ktNormalDensity*> borrowers_;
};
