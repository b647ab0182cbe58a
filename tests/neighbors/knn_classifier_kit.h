#pragma once

#include "support/messages.h"
#include "support/technique.h"
#include "support/test.h"

// What the tests of the nearest-neighbour classifier share.

namespace neighbors {

using Data = ktClassifierDataProviderMemory;
using Params = ktClassifierTrainParamsKNN;
using OpenKNN = kt_test::OpenClassifier<kt_ClassifierKNN>;

/// Takes itself for trained whatever it holds.
struct AlwaysTrained : OpenKNN {
    bool isTrained_() const override { return true; }
};

/// On a line, so that distances are easy to see.
inline const std::vector<kt_test::Labelled> line = {{{0}, 2}, {{1}, 2}, {{3}, 5}, {{10}, 7}, {{20}, 7}};

inline OpenKNN trained(const std::vector<kt_test::Labelled>& rows, const ktClassifierTrainParamsKNN& params)
{
    OpenKNN classifier;
    classifier.train(kt_test::trainingData(rows), params);
    return classifier;
}

/// Expects the error from a run, and the caller's result untouched.
template <class Error>
void expectRunThrows(const kt_Classifier& classifier, const ktFeaturePattern& query, const std::string& message)
{
    ktClassifierResult result = kt_test::untouchedResult();
    kt_test::expectThrows<Error>(message, [&] { classifier.run(query, result); });
    EXPECT_TRUE(result == kt_test::untouchedResult());
}

/// A provider of the user's own, which notes what it is asked for.
class NotingProvider : public ktClassifierDataProvider {
public:
    struct Row {
        kt_test::PatternHandle pattern;
        long label;
    };

    NotingProvider(kt_test::Script& script, std::vector<Row> rows) : script_(&script), rows_(std::move(rows)) {}

    std::string name() override { return noted("name"); }
    std::string description() override { return noted("description"); }
    long numMeasurements() const override { return 0; }
    long numPatterns() const override
    {
        script_->note("numPatterns");
        return static_cast<long>(rows_.size());
    }
    kt_test::PatternHandle featurePattern(long index) override
    {
        script_->note("pattern " + std::to_string(index));
        return rows_[static_cast<std::size_t>(index)].pattern;
    }
    long categoryLabel(long index) const override
    {
        script_->note("label " + std::to_string(index));
        return rows_[static_cast<std::size_t>(index)].label;
    }

private:
    std::string noted(const std::string& call)
    {
        script_->note(call);
        return "the " + call;
    }

    kt_test::Script* script_;
    std::vector<Row> rows_;
};

/// The patterns that a classifier keeps, as its archive tells.
inline Data keptBy(const kt_ClassifierKNN& classifier)
{
    kt_test::LoadingArchive archive(kt_test::store(classifier));
    const ktArchive::Pass pass(archive);
    unsigned char version = 0;
    ktPtrHandle<Params> params;
    ktPtrHandle<Data> data;
    archive || version || version || params || data;
    return *data;
}

}  // namespace neighbors
