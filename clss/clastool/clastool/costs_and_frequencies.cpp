#include <clastool/training_data.h>

#include "grow.h"

#include <algorithm>

namespace {

void requireCost(double cost)
{
    if (cost < 0.0) {
        throw ktClassifierDefs::BadParams("Costs must be >= 0.0");
    }
}

void requireFrequency(double frequency)
{
    if (frequency <= 0.0) {
        throw ktClassifierDefs::BadParams("Category frequencies must be > 0.0");
    }
}

void requireLabel(long label)
{
    if (label < 0) {
        throw ktClassifierDefs::BadLabel("Category labels must be >= 0");
    }
}

void requireDifferent(long trueLabel, long assignedLabel)
{
    if (trueLabel == assignedLabel) {
        throw ktClassifierDefs::BadLabel("Category labels must be different");
    }
}

}  // namespace

ktClassifierCosts::ktClassifierCosts() : ktClassifierCosts(1.0) {}

ktClassifierCosts::ktClassifierCosts(double defaultCost) : default_(defaultCost)
{
    requireCost(defaultCost);
}

ktClassifierCosts& ktClassifierCosts::operator=(const ktClassifierCosts& other)
{
    return *this = ktClassifierCosts(other);
}

void ktClassifierCosts::defaultMisclassificationCost(double cost)
{
    requireCost(cost);
    default_ = cost;
}

void ktClassifierCosts::misclassificationCostOverride(long trueLabel, long assignedLabel, double cost)
{
    requireCost(cost);
    requireDifferent(trueLabel, assignedLabel);
    const long index = misclOverrideIndex_(trueLabel, assignedLabel);
    if (index >= 0) {
        costs_[static_cast<std::size_t>(index)] = cost;
        return;
    }
    kt_makeRoomForOne(fromLabels_, toLabels_, costs_);
    fromLabels_.push_back(trueLabel);
    toLabels_.push_back(assignedLabel);
    costs_.push_back(cost);
}

double ktClassifierCosts::misclassificationCost(long trueLabel, long assignedLabel) const
{
    requireDifferent(trueLabel, assignedLabel);
    const long index = misclOverrideIndex_(trueLabel, assignedLabel);
    return index >= 0 ? costs_[static_cast<std::size_t>(index)] : default_;
}

void ktClassifierCosts::clearMisclassificationOverrides()
{
    fromLabels_.clear();
    toLabels_.clear();
    costs_.clear();
}

long ktClassifierCosts::misclOverrideIndex_(long trueLabel, long assignedLabel) const
{
    requireLabel(trueLabel);
    requireLabel(assignedLabel);
    // A loaded table may be damaged: its sequences need not be equally long.
    const std::size_t size = std::min({fromLabels_.size(), toLabels_.size(), costs_.size()});
    for (std::size_t i = 0; i < size; ++i) {
        if (fromLabels_[i] == trueLabel && toLabels_[i] == assignedLabel) {
            return static_cast<long>(i);
        }
    }
    return -1;
}

bool ktClassifierCosts::operator==(const ktClassifierCosts& other) const
{
    return default_ == other.default_ && fromLabels_ == other.fromLabels_ && toLabels_ == other.toLabels_ &&
           costs_ == other.costs_;
}

ktArchive& operator||(ktArchive& archive, ktClassifierCosts& costs)
{
    const ktArchive::Pass pass(archive);
    archive.version("clss/clastool/clastool", 435);
    return archive || costs.default_ || costs.fromLabels_ || costs.toLabels_ || costs.costs_;
}

ktClassifierFrequencies::ktClassifierFrequencies() : ktClassifierFrequencies(1.0) {}

ktClassifierFrequencies::ktClassifierFrequencies(double defaultFrequency) : default_(defaultFrequency)
{
    requireFrequency(defaultFrequency);
}

ktClassifierFrequencies& ktClassifierFrequencies::operator=(const ktClassifierFrequencies& other)
{
    return *this = ktClassifierFrequencies(other);
}

void ktClassifierFrequencies::defaultCategoryFrequency(double frequency)
{
    requireFrequency(frequency);
    default_ = frequency;
}

void ktClassifierFrequencies::categoryFrequencyOverride(long label, double frequency)
{
    requireFrequency(frequency);
    const long index = freqOverrideIndex_(label);
    if (index >= 0) {
        frequencies_[static_cast<std::size_t>(index)] = frequency;
        return;
    }
    kt_makeRoomForOne(labels_, frequencies_);
    labels_.push_back(label);
    frequencies_.push_back(frequency);
}

double ktClassifierFrequencies::categoryFrequency(long label) const
{
    const long index = freqOverrideIndex_(label);
    return index >= 0 ? frequencies_[static_cast<std::size_t>(index)] : default_;
}

void ktClassifierFrequencies::clearFrequencyOverrides()
{
    labels_.clear();
    frequencies_.clear();
}

long ktClassifierFrequencies::freqOverrideIndex_(long label) const
{
    requireLabel(label);
    const std::size_t size = std::min(labels_.size(), frequencies_.size());
    for (std::size_t i = 0; i < size; ++i) {
        if (labels_[i] == label) {
            return static_cast<long>(i);
        }
    }
    return -1;
}

bool ktClassifierFrequencies::operator==(const ktClassifierFrequencies& other) const
{
    return default_ == other.default_ && labels_ == other.labels_ && frequencies_ == other.frequencies_;
}

ktArchive& operator||(ktArchive& archive, ktClassifierFrequencies& frequencies)
{
    const ktArchive::Pass pass(archive);
    archive.version("clss/clastool/clastool", 522);
    return archive || frequencies.default_ || frequencies.labels_ || frequencies.frequencies_;
}
