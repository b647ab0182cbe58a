#include "borrowed_spreads.h"

#include "group_density.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <typeinfo>
#include <unordered_map>

namespace {

/// Null for a missing model, and for one of another class, which may override everything.
const kt_CategoryModelBayesian* exactly(const ktPtrHandle<kt_CategoryModel>& model)
{
    const kt_CategoryModel* object = model.get();
    const bool isBayesian = object != nullptr && typeid(*object) == typeid(kt_CategoryModelBayesian);
    return isBayesian ? static_cast<const kt_CategoryModelBayesian*>(object) : nullptr;
}

double meanOf(const ktNormalDensity& density, std::size_t i)
{
    return density.mean()(static_cast<long>(i), 0);
}

double varianceOf(const ktNormalDensity& density, std::size_t i)
{
    return density.covariance()(static_cast<long>(i), static_cast<long>(i));
}

double squared(double value)
{
    return value * value;
}

}  // namespace

kt_BorrowedSpreads::Models kt_BorrowedSpreads::completed(const Models& models)
{
    kt_BorrowedSpreads spreads;
    // A loaded archive may hold one model under many handles.
    std::unordered_map<const kt_CategoryModel*, ktPtrHandle<kt_CategoryModel>> made;
    for (const ktPtrHandle<kt_CategoryModel>& model : models) {
        const kt_CategoryModelBayesian* bayesian = exactly(model);
        if (bayesian != nullptr && made.emplace(bayesian, nullptr).second) {
            spreads.note(*bayesian);
        }
    }
    spreads.settle();
    Models result;
    result.reserve(models.size());
    for (const ktPtrHandle<kt_CategoryModel>& model : models) {
        const kt_CategoryModelBayesian* bayesian = exactly(model);
        if (bayesian == nullptr) {
            result.push_back(model);
            continue;
        }
        ktPtrHandle<kt_CategoryModel>& one = made[bayesian];
        if (!one) {
            const ktPtrHandle<kt_CategoryModel> standIn = spreads.standInFor(*bayesian);
            one = standIn ? standIn : model;
        }
        result.push_back(one);
    }
    return result;
}

/// The density of the group; null unless it is a normal density that can be evaluated.
const ktNormalDensity* kt_BorrowedSpreads::learntBy(const kt_CategoryModelBayesian& model, std::size_t group)
{
    const std::vector<long>& indices = model.groups_[group];
    const bool areIndices = std::all_of(indices.begin(), indices.end(), [](long index) { return index >= 0; });
    const ktNormalDensity* density = areIndices ? model.group(group).normal() : nullptr;
    return density != nullptr && density->canEvaluate(indices.size()) ? density : nullptr;
}

void kt_BorrowedSpreads::note(const kt_CategoryModelBayesian& model)
{
    for (std::size_t group = 0; group < model.numGroups(); ++group) {
        const ktNormalDensity* density = learntBy(model, group);
        for (std::size_t i = 0; density != nullptr && i < model.groups_[group].size(); ++i) {
            learnt_.push_back({model.groups_[group][i], static_cast<double>(density->count()), meanOf(*density, i),
                               varianceOf(*density, i)});
        }
    }
}

/// Computes the loan for each measurement.
void kt_BorrowedSpreads::settle()
{
    // A stable sort gives every classifier of these models the same sums.
    std::stable_sort(learnt_.begin(), learnt_.end(),
                     [](const Learnt& a, const Learnt& b) { return a.index < b.index; });
    for (auto first = learnt_.begin(); first != learnt_.end();) {
        const auto end =
            std::find_if(first, learnt_.end(), [&](const Learnt& one) { return one.index != first->index; });
        loans_.push_back({first->index, lentBy(&*first, &*first + (end - first))});
        first = end;
    }
}

/// The squared spread that these categories lend for one measurement; 0 if they have none.
double kt_BorrowedSpreads::lentBy(const Learnt* first, const Learnt* last)
{
    const auto number = static_cast<double>(last - first);
    double sumOfCounts = 0.0;
    // Relative to the first mean, so that any number of equal means has no spread.
    double mean = 0.0;
    double largest = 0.0;
    for (const Learnt* one = first; one != last; ++one) {
        if (!std::isfinite(one->mean) || !std::isfinite(one->variance)) {
            return 0.0;
        }
        sumOfCounts += one->count;
        mean += (one->mean - first->mean) / number;
        largest = std::max(largest, std::abs(one->mean));
    }
    double pooled = 0.0;
    double ofMeans = 0.0;
    bool hasSpread = false;
    for (const Learnt* one = first; one != last; ++one) {
        if (ktNormalDensity::hasSpread(one->mean, one->variance)) {
            pooled += one->count / sumOfCounts * one->variance;
            hasSpread = true;
        }
        ofMeans += squared(one->mean - first->mean - mean) / number;
    }
    if (hasSpread) {
        return std::max(pooled, std::numeric_limits<double>::min());
    }
    return std::isfinite(ofMeans) && ktNormalDensity::hasSpread(largest, ofMeans) ? ofMeans : 0.0;
}

double kt_BorrowedSpreads::lentFor(long index) const
{
    const auto isBefore = [](const Loan& loan, long wanted) { return loan.index < wanted; };
    return std::lower_bound(loans_.begin(), loans_.end(), index, isBefore)->variance;
}

/// A copy of the model that borrows; null if the model borrows nothing.
ktPtrHandle<kt_CategoryModel> kt_BorrowedSpreads::standInFor(const kt_CategoryModelBayesian& model)
{
    ktPtrHandle<kt_CategoryModelBayesian> made;
    for (std::size_t group = 0; group < model.numGroups(); ++group) {
        const Part part = partOf(model, group);
        if (!part.isWhole && !made) {
            made = new kt_CategoryModelBayesian(model);
            made->groups_.resize(group);
            made->densities_.resize(group);
        }
        if (part.isWhole && made) {
            made->groups_.push_back(model.groups_[group]);
            made->densities_.push_back(model.densities_[group]);
        }
        if (!part.isWhole && !part.kept.empty()) {
            made->groups_.push_back(part.indices);
            made->densities_.push_back(standInFor(*model.group(group).normal(), part));
        }
    }
    return made;
}

/// The measurements of a group that are evaluated. A repeated measurement is evaluated once.
kt_BorrowedSpreads::Part kt_BorrowedSpreads::partOf(const kt_CategoryModelBayesian& model, std::size_t group)
{
    Part part;
    const ktNormalDensity* density = learntBy(model, group);
    const std::vector<long>& indices = model.groups_[group];
    for (std::size_t i = 0; density != nullptr && i < indices.size(); ++i) {
        const double variance = lentFor(indices[i]);
        const bool isNamed = std::find(part.indices.begin(), part.indices.end(), indices[i]) != part.indices.end();
        if (variance == 0.0 || isNamed) {
            part.isWhole = false;
            continue;
        }
        const bool hasOwn = ktNormalDensity::hasSpread(meanOf(*density, i), varianceOf(*density, i));
        part.isWhole = part.isWhole && hasOwn;
        part.kept.push_back(i);
        part.indices.push_back(indices[i]);
        part.borrowed.push_back(hasOwn ? 0.0 : variance);
    }
    if (!part.isWhole && !borrowers_.insert(density).second) {
        part.isWhole = true;
    }
    return part;
}

ktPtrHandle<kt_ProbabilityDensityFunction> kt_BorrowedSpreads::standInFor(const ktNormalDensity& density,
                                                                          const Part& part)
{
    const ktPtrHandle<kt_PDFMultivariateNormal> made = new kt_PDFMultivariateNormal;
    made->state_.standIn(density, part.kept, part.borrowed);
    return made;
}
