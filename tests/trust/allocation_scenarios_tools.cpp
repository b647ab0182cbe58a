#include "allocation_scenarios.h"

#include "support/training.h"

namespace trust {

namespace {

using Tool = ktClassifierTool;
using Make = Tool (*)();

ktClassifierDataProviderMemory someData()
{
    return kt_test::trainingData(
        {{{1.0, 4.0}, 1}, {{2.0, 7.0}, 1}, {{3.0, 5.0}, 1}, {{7.0, 4.0}, 2}, {{8.0, 6.0}, 2}, {{9.0, 5.0}, 2}});
}

ktClassifierTrainParamsBayesian bayesParams()
{
    ktClassifierDistributionTypes types;
    types.setDependent(1, {0, 1});
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(1, 2, 7.0);
    return ktClassifierTrainParamsBayesian(types, ktClassifierFrequencies(), costs);
}

ktClassifierTrainParamsKNN knnParams()
{
    ktClassifierCosts costs;
    costs.misclassificationCostOverride(1, 2, 7.0);
    return ktClassifierTrainParamsKNN(3, ktPatternDistanceMetricNorm(1.0), costs);
}

ktDecisionTreeNode someTree()
{
    const auto leaf = [](long label) { return ktDecisionTreeLeaf(ktClassifierResult({{label, 1.0, 1.0, 0.0}}, 0.0)); };
    return ktDecisionTreeNode(ktComparisonPredicate(), leaf(1), leaf(2));
}

Tool bayes()
{
    Tool tool;
    tool.train(someData(), bayesParams());
    return tool;
}

Tool neighbours()
{
    Tool tool;
    tool.train(someData(), knnParams());
    return tool;
}

Tool tree()
{
    Tool tool;
    tool.train(someTree());
    return tool;
}

void expectUntrained(const Tool& tool)
{
    EXPECT_FALSE(tool.isTrained());
    EXPECT_TRUE(tool == Tool());
}

/// Trains. Documented: parameters that cannot make a classifier, for lack of memory too, end in NotImplemented.
template <class Params>
void train(Tool& tool, const ktClassifierDataProviderMemory& data, const Params& params)
{
    try {
        tool.train(data, params);
    } catch (const ktClassifierDefs::NotImplemented& error) {
        EXPECT_EQ(error.message(),
                  "The classification method specified by the training parameters is not implemented.");
        expectUntrained(tool);
        throw std::bad_alloc();
    }
}

/// Where training itself went through, only the readiness check ran out of memory, which leaves the tool trained.
template <class Params>
void listTraining(ScenarioList& list, const std::string& name, const Params& params, Make trained)
{
    const auto check = [trained](const Tool& tool) {
        if (tool.isTrained()) {
            EXPECT_TRUE(tool == trained());
        } else {
            expectUntrained(tool);
        }
    };
    const auto operation = [data = someData(), params](Tool& tool) { train(tool, data, params); };
    list.leaves(
        name + " tool: trained", [] { return Tool(); }, operation, check);
    list.leaves(
        name + " tool: trained instead of another", [] { return tree(); }, operation, check);
    Params unchecked(params);
    unchecked.throwIfNotReady(false);
    list.leaves(
        name + " tool: trained without the readiness check", [] { return tree(); },
        [data = someData(), unchecked](Tool& tool) { train(tool, data, unchecked); }, expectUntrained);
}

using Run = std::pair<Tool, ktClassifierResult>;
using Batch = std::pair<Tool, std::vector<ktClassifierResult>>;

void listTechnique(ScenarioList& list, const std::string& name, Make trained)
{
    const ktFeaturePattern query({2.0, 5.0}, {});
    list.asks(name + " tool: copied", trained(), [](const Tool& tool) { return Tool(tool); });
    list.leaves(
        name + " tool: assigned over another", [] { return tree(); }, [from = trained()](Tool& tool) { tool = from; },
        expectUntrained);
    list.asks(name + " tool: stored", trained(), [](const Tool& tool) { return kt_test::store(tool); });
    list.leaves(
        name + " tool: loaded over another", [] { return neighbours(); },
        [bytes = kt_test::store(trained())](Tool& tool) { kt_test::loadInto(tool, bytes); },
        [](const Tool& tool) {
            if (tool.isTrained()) {
                EXPECT_TRUE(tool == neighbours());
            } else {
                expectUntrained(tool);
            }
        });
    list.keeps(
        name + " tool: run the first time",
        [trained] { return std::make_pair(kt_test::storedAndLoaded(trained()), ktClassifierResult()); },
        [query](Run& state) { state.first.run(query, state.second); });
    const std::vector<ktPtrHandle_const<ktFeaturePattern>> several(3, new ktFeaturePattern(query));
    list.keeps(
        name + " tool: run on several patterns",
        [trained] { return Batch(trained(), std::vector<ktClassifierResult>(2, kt_test::untouchedResult())); },
        [several](Batch& state) { state.first.run(several, state.second); });
    list.keeps(
        name + " tool: untrained", trained, [](Tool& tool) { tool.untrain(); }, Allocates::nothing);
}

void listRetraining(ScenarioList& list)
{
    ktClassifierTrainParamsBayesian bayesian = bayesParams();
    bayesian.misclassificationCosts(ktClassifierCosts(5.0));
    // Only the readiness check may run out of memory after the new parameters are in force.
    list.leaves(
        "Bayesian tool: retrained", bayes, [bayesian](Tool& tool) { tool.retrain(bayesian); },
        [bayesian](const Tool& tool) {
            Tool retrained = bayes();
            retrained.retrain(bayesian);
            EXPECT_TRUE(tool == bayes() || tool == retrained);
        });
    bayesian.throwIfNotReady(false);
    list.keeps("Bayesian tool: retrained without the readiness check", bayes,
               [bayesian](Tool& tool) { tool.retrain(bayesian); });
    list.keeps("Bayesian tool: refuses to be retrained with other types", bayes,
               refused([](Tool& tool) { tool.retrain(ktClassifierTrainParamsBayesian()); }));
    const ktClassifierTrainParamsKNN knn(1, ktPatternDistanceMetricNorm(4.0), ktClassifierCosts(5.0));
    list.keeps("neighbour tool: retrained", neighbours, [knn](Tool& tool) { tool.retrain(knn); });
    list.keeps("neighbour tool: retrained with its own parameters", neighbours,
               [](Tool& tool) { tool.retrain(*tool.trainParams()); });
    list.keeps("neighbour tool: refuses another technique", neighbours,
               refused([](Tool& tool) { tool.retrain(ktClassifierTrainParamsBayesian()); }));
    list.keeps("tree tool: refuses to be retrained", tree, refused([knn](Tool& tool) { tool.retrain(knn); }));
    list.keeps(
        "empty tool: refuses to be retrained", [] { return Tool(); },
        refused([knn](Tool& tool) { tool.retrain(knn); }));
}

void listAnswers(ScenarioList& list)
{
    list.makes(
        "tool: made", [] { return Tool(); }, Allocates::nothing);
    list.keeps(
        "empty tool: refuses to run", [] { return std::make_pair(Tool(), kt_test::untouchedResult()); },
        refused([](Run& state) { state.first.run(ktFeaturePattern(), state.second); }));
    list.keeps(
        "empty tool: refuses to give its parameters", [] { return Tool(); },
        refused([](Tool& tool) { tool.trainParams(); }));
    list.keeps(
        "empty tool: refuses to give its tree", [] { return Tool(); },
        refused([](Tool& tool) { tool.decisionTree(); }));
    list.keeps("tree tool: refuses to give its parameters", tree, refused([](Tool& tool) { tool.trainParams(); }));
    list.keeps("neighbour tool: refuses to give its tree", neighbours,
               refused([](Tool& tool) { tool.decisionTree(); }));
    list.keeps(
        "neighbour tool: gives its parameters", neighbours,
        [](Tool& tool) { EXPECT_FALSE(tool.trainParams().isNull()); }, Allocates::nothing);
    list.keeps(
        "tree tool: gives its tree", tree, [](Tool& tool) { EXPECT_FALSE(tool.decisionTree().isNull()); },
        Allocates::nothing);
    const auto compared = [](const std::pair<Tool, Tool>& both) { return both.first == both.second ? 1L : 0L; };
    list.asks("Bayesian tools: compared", std::make_pair(bayes(), bayes()), compared, Allocates::nothing);
    list.asks("neighbour tools: compared", std::make_pair(neighbours(), neighbours()), compared, Allocates::nothing);
    list.asks("tree tools: compared", std::make_pair(tree(), tree()), compared);
    list.asks("tools of two techniques: compared", std::make_pair(bayes(), neighbours()), compared, Allocates::nothing);
}

}  // namespace

void listTools(ScenarioList& list)
{
    listAnswers(list);
    listTraining(list, "Bayesian", bayesParams(), bayes);
    listTraining(list, "neighbour", knnParams(), neighbours);
    list.leaves(
        "tree tool: trained", [] { return Tool(); }, [given = someTree()](Tool& tool) { tool.train(given); },
        expectUntrained);
    list.leaves(
        "tree tool: trained instead of another", neighbours, [given = someTree()](Tool& tool) { tool.train(given); },
        expectUntrained);
    listTechnique(list, "Bayesian", bayes);
    listTechnique(list, "neighbour", neighbours);
    listTechnique(list, "tree", tree);
    listRetraining(list);
}

}  // namespace trust
