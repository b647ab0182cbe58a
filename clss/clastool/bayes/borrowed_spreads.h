#pragma once

#include <clastool/bayes.h>

#include <cstddef>
#include <unordered_set>
#include <vector>

/// The spreads that categories lend each other. A measurement that did not vary within a category has no spread of its own there
/// (ktNormalDensity::hasSpread), and would overrule all others. It is evaluated with
///
/// 1. the pooled spread within categories: its square is the sum of n_c var_c over the sum of n_c, over the categories c that
///    model this measurement by a normal density, n_c their counts, var_c 0 where they have no spread;
/// 2. if that is 0, the spread of these categories' means: the root of their mean squared distance from their mean;
/// 3. if that is 0 too, but for rounding, or if a mean or variance is not finite, the measurement says nothing about the
///    categories, and is left out of all of them.
///
/// A model's state does not change. A copy of the model is evaluated in its place: it shares the densities that borrow nothing, and
/// has stand-ins for the others.
class kt_BorrowedSpreads {
public:
    using Models = std::vector<ktPtrHandle<kt_CategoryModel>>;

    /// The models to evaluate in place of these, one for one: a model itself where it borrows nothing, and where it is missing or
    /// of another class than kt_CategoryModelBayesian. Only normal densities that can be evaluated lend and borrow; one that a
    /// damaged archive put into several groups borrows in the first alone.
    /// Cost: groups times the logarithm of their number, and the size of what borrows.
    static Models completed(const Models& models);

private:
    /// What a category has learnt of a measurement.
    struct Learnt {
        long index;
        double count;
        double mean;
        double variance;
    };
    /// The square of the spread that is lent for a measurement; 0 where it says nothing.
    struct Loan {
        long index;
        double variance;
    };
    /// What of a group is evaluated: which of its measurements, their indices in the pattern, and what variances they borrow, 0
    /// for one with a spread of its own.
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
