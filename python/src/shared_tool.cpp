#include "tool.h"

#include "access.h"
#include "clastool/training_watch.h"

#include <algorithm>
#include <exception>
#include <set>
#include <utility>

namespace {

using Access = kt_KitAccess;

std::vector<long> ascending(std::vector<long> labels)
{
    std::sort(labels.begin(), labels.end());
    labels.erase(std::unique(labels.begin(), labels.end()), labels.end());
    return labels;
}

std::vector<long> categoriesOf(const ktClassifierTool& tool)
{
    if (auto* neighbors = Access::classifierAs<kt_ClassifierKNN>(tool)) {
        const ktPtrHandle<ktClassifierDataProviderMemory>& kept = Access::kept(*neighbors);
        std::set<long> labels;
        for (long i = 0; kept && i < kept->numPatterns(); ++i) {
            labels.insert(kept->categoryLabel(i));
        }
        labels.erase(-1);
        return {labels.begin(), labels.end()};
    }
    if (auto* bayes = Access::classifierAs<kt_ClassifierBayesian>(tool)) {
        std::vector<long> labels;
        for (const ktPtrHandle<kt_CategoryModel>& model : Access::models(*bayes)) {
            labels.push_back(model->categoryLabel());
        }
        return ascending(labels);
    }
    if (const auto* tree = Access::classifierAs<kt_ClassifierDecisionTree>(tool)) {
        return tree->decisionTree() ? ascending(tree->decisionTree()->categoryLabels()) : std::vector<long>();
    }
    return {};
}

/// Training data in an array. It makes a pattern on each request, and keeps no pattern but the last.
class RowProvider : public ktClassifierDataProvider, public kt_TrainingWatch {
public:
    RowProvider(const Rows& rows, const Labels& labels, Watch& watch)
        : rows_(rows), labels_(labels), watch_(watch), maker_(rows)
    {
    }

    std::string name() override { return {}; }
    std::string description() override { return {}; }
    long numMeasurements() const override { return rows_.size() == 0 ? 0 : static_cast<long>(rows_.width()); }
    long numPatterns() const override { return static_cast<long>(rows_.size()); }
    ktPtrHandle_const<ktFeaturePattern> featurePattern(long index) override
    {
        if (index % 256 == 0) {
            watch_.look(static_cast<std::size_t>(index));
        }
        maker_.make(static_cast<std::size_t>(index), pattern_);
        return pattern_;
    }
    long categoryLabel(long index) const override { return labels_[static_cast<std::size_t>(index)]; }
    bool goesOn() noexcept override
    {
        try {
            watch_.look(rows_.size());
        } catch (...) {
            failure_ = std::current_exception();
        }
        return failure_ == nullptr;
    }
    /// Throws the exception that ended the training after the last row was read.
    void rethrow() const
    {
        if (failure_) {
            std::rethrow_exception(failure_);
        }
    }

private:
    const Rows& rows_;
    const Labels& labels_;
    Watch& watch_;
    PatternMaker maker_;
    ktPtrHandle<ktFeaturePattern> pattern_;
    std::exception_ptr failure_;
};

}  // namespace

Trained::Trained(ktClassifierTool tool) : tool_(std::move(tool)), categories_(categoriesOf(tool_)) {}

SharedTool::SharedTool() : SharedTool(ktClassifierTool()) {}

SharedTool::SharedTool(ktClassifierTool tool) : trained_(std::make_shared<const Trained>(std::move(tool))) {}

SharedTool::SharedTool(const SharedTool& other) : trained_(other.now()) {}

void SharedTool::take(ktClassifierTool tool)
{
    std::atomic_store(&trained_, std::make_shared<const Trained>(std::move(tool)));
}

ktClassifierTool trainedOn(const Rows& rows, const Labels& labels, const ktClassifierTrainParams& params, Watch& watch)
{
    ktClassifierTool tool;
    const ktPtrHandle<RowProvider> provider = new RowProvider(rows, labels, watch);
    tool.train(*provider, params);
    provider->rethrow();
    return tool;
}
