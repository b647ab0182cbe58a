#include "allocation_scenarios.h"

#include "support/training.h"

namespace trust {

namespace {

using Norm = ktPatternDistanceMetricNorm;
using Params = ktClassifierTrainParamsKNN;
using Classifier = kt_ClassifierKNN;

/// Not known to the scan, which asks it for each distance.
class Chessboard : public ktPatternDistanceMetric {
public:
    double distance(const ktFeaturePattern& a, const ktFeaturePattern& b) const override
    {
        double largest = 0.0;
        for (long i = 0; i < a.numMeasurements(); ++i) {
            largest = std::max(largest, std::abs(a.featureMeasurement(i, true) - b.featureMeasurement(i, true)));
        }
        return largest;
    }
    ktPtrHandle<ktPatternDistanceMetric> clone() const override { return new Chessboard(*this); }
    bool isEquivalent(const ktPatternDistanceMetric& other) const override
    {
        return dynamic_cast<const Chessboard*>(&other) != nullptr;
    }
};

const kt_Instantiator chessboardEntry(
    typeid(Chessboard), []() -> ktPersistent* { return new Chessboard; }, "trust::Chessboard");

Params someParams(long k)
{
    ktClassifierCosts costs(2.0);
    costs.misclassificationCostOverride(1, 2, 7.0);
    return Params(k, Norm(1.0), costs);
}

ktClassifierDataProviderMemory someData(long categories)
{
    ktClassifierDataProviderMemory data;
    data.setName("a name that is too long for a string to hold without memory of its own");
    for (long i = 0; i < 2 * categories; ++i) {
        const auto x = static_cast<double>(i);
        data.addData(kt_test::pattern({x, 0.5 * x, -x}), i % categories);
    }
    data.addData(kt_test::pattern({0.0, 0.0, 0.0}), -1);
    return data;
}

Classifier trained(long categories, const Params& params)
{
    Classifier classifier;
    classifier.train(someData(categories), params);
    return classifier;
}

void listParams(ScenarioList& list)
{
    list.makes(
        "norm: made", [] { return Norm(3.0); }, Allocates::nothing);
    list.values("norm", Norm(), Norm(3.0), Allocates::nothing);
    list.asks("norm: cloned", Norm(3.0), [](const Norm& norm) { return norm.clone(); });
    list.keeps(
        "norm: refuses an order of zero", [] { return Norm(3.0); }, refused([](Norm& norm) { norm.order(0.0); }));
    const auto patterns = std::make_pair(ktFeaturePattern({1.0, 2.0}, {}), ktFeaturePattern({4.0, 6.0}, {}));
    list.asks(
        "norm: measures a distance", patterns,
        [](const auto& both) { return Norm().distance(both.first, both.second); }, Allocates::nothing);
    list.keeps(
        "norm: refuses patterns of two sizes", [] { return Norm(); },
        refused([a = ktFeaturePattern({1.0}, {}), b = ktFeaturePattern()](const Norm& norm) { norm.distance(a, b); }));

    list.makes("neighbour parameters: made by default", [] { return Params(); });
    list.makes("neighbour parameters: made",
               [from = someParams(3)] { return Params(3, *from.distanceMetric(), from.misclassificationCosts()); });
    list.makes(
        "neighbour parameters: refused for k of 0",
        [] {
            try {
                const Params params(0);
            } catch (const ktClassifierDefs::BadParams& error) {
                return error.message();
            }
            return std::string("not refused");
        },
        Allocates::nothing);
    list.values("neighbour parameters", Params(), someParams(3));
    list.asks("neighbour parameters: cloned", someParams(3), [](const Params& params) { return params.clone(); });
    list.keeps(
        "neighbour parameters: k set", [] { return Params(); }, [](Params& params) { params.k(5); },
        Allocates::nothing);
    list.keeps(
        "neighbour parameters: refuse k of 0", [] { return Params(); }, refused([](Params& params) { params.k(0); }),
        Allocates::nothing);
    list.keeps(
        "neighbour parameters: metric set", [] { return Params(); },
        [](Params& params) { params.distanceMetric(Norm(1.0)); });
    list.keeps(
        "neighbour parameters: costs set", [] { return Params(); },
        [costs = someParams(1).misclassificationCosts()](Params& params) { params.misclassificationCosts(costs); });
}

using Run = std::pair<Classifier, ktClassifierResult>;

void listRuns(ScenarioList& list)
{
    const ktFeaturePattern query({2.2, 1.0, -2.0}, {});
    const auto run = [query](Run& state) { state.first.run(query, state.second); };
    const auto with = [](long categories, const Params& params) {
        return [categories, params] { return std::make_pair(trained(categories, params), kt_test::untouchedResult()); };
    };
    list.keeps("neighbours: run", with(3, someParams(4)), run);
    list.keeps("neighbours: run with more neighbours than patterns", with(3, someParams(1000)), run);
    list.keeps("neighbours: run among 40 categories", with(40, someParams(70)), run);
    list.keeps("neighbours: run with a metric of another class", with(3, Params(4, Chessboard(), ktClassifierCosts())),
               run);
    list.keeps(
        "neighbours: run where the result has room",
        [with] {
            Run state = with(3, someParams(4))();
            state.first.run(ktFeaturePattern({0.0, 0.0, 0.0}, {}), state.second);
            return state;
        },
        run, Allocates::nothing);
    list.keeps(
        "neighbours: refuse to run on an invalid measurement", with(3, someParams(4)),
        refused([hole = ktFeaturePattern({2.2, 1.0, -2.0}, {1})](Run& state) { state.first.run(hole, state.second); }));
    list.keeps(
        "neighbours: refuse to run untrained", [] { return std::make_pair(Classifier(), kt_test::untouchedResult()); },
        refused(run));
}

void listTraining(ScenarioList& list)
{
    const auto prepare = [] { return trained(3, someParams(4)); };
    list.leaves(
        "neighbours: trained", [] { return Classifier(); },
        [data = someData(3), params = someParams(4)](Classifier& classifier) { classifier.train(data, params); },
        [](const Classifier& classifier) { expectTrainingFailed(classifier, Classifier()); });
    list.leaves(
        "neighbours: trained again", prepare,
        [data = someData(5), params = someParams(2)](Classifier& classifier) { classifier.train(data, params); },
        [prepare](const Classifier& classifier) { expectTrainingFailed(classifier, prepare()); });
    list.keeps("neighbours: retrained", prepare,
               [params = someParams(2)](Classifier& classifier) { classifier.retrain(params); });
    list.keeps("neighbours: refuse to be retrained with another technique", prepare,
               refused([](Classifier& classifier) { classifier.retrain(ktClassifierTrainParamsBayesian()); }));
    list.keeps("neighbours: incremental step", prepare,
               [added = ktFeaturePattern({1.0, 1.0, 1.0}, {})](Classifier& classifier) {
                   classifier.trainIncremental(added, 8);
               });
    list.keeps("neighbours: incremental step with an invalid measurement", prepare,
               [added = ktFeaturePattern({1.0, 1.0, 1.0}, {2})](Classifier& classifier) {
                   classifier.trainIncremental(added, 8);
               });
    list.keeps("neighbours: refuse an incremental step of another size", prepare,
               refused([added = ktFeaturePattern({1.0}, {})](Classifier& classifier) {
                   classifier.trainIncremental(added, 8);
               }));
    list.leaves(
        "neighbours: incremental training begun", prepare,
        [params = someParams(2)](Classifier& classifier) { classifier.trainStart(params); },
        [prepare](const Classifier& classifier) { expectTrainingFailed(classifier, prepare()); });
}

}  // namespace

void listNeighbors(ScenarioList& list)
{
    listParams(list);
    list.makes(
        "neighbours: made", [] { return Classifier(); }, Allocates::nothing);
    list.values("neighbours", trained(2, Params()), trained(3, someParams(4)), Allocates::nothing);
    list.asks("neighbours: cloned", trained(3, someParams(4)),
              [](const Classifier& classifier) { return classifier.clone(); });
    listTraining(list);
    listRuns(list);
}

}  // namespace trust
