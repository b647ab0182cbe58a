#include "allocation_scenarios.h"

namespace trust {

namespace {

using Ignore = ktClassifierFeatureScoreIgnore;
using OneSided = ktClassifierFeatureScoreOneSided;
using TwoSided = ktClassifierFeatureScoreTwoSided;
using Rule = ktClassifierRule;
using Table = ktClassifierRuleTable;
using Method = ktPtrHandle<ktClsFtSc>;

OneSided oneSided()
{
    OneSided score;
    score.init(1.0, 1.5, 2.0, 1.0, 0.0);
    return score;
}

TwoSided twoSided()
{
    TwoSided score;
    score.init(2.5, 2.0, 1.0, 3.0, 4.0, 5.0, 1.0, 0.0, 1.0, 0.0);
    return score;
}

std::vector<Method> methods()
{
    return {oneSided().clone(), twoSided().clone(), new Ignore};
}

Rule rule(long label)
{
    Rule made;
    made.init(methods(), label);
    return made;
}

Table table(long size)
{
    std::vector<Rule> rules;
    for (long i = 0; i < size; ++i) {
        rules.push_back(rule(i));
    }
    Table made;
    made.train(rules);
    return made;
}

void listScores(ScenarioList& list)
{
    list.makes(
        "one-sided score: made", [] { return oneSided(); }, Allocates::nothing);
    list.values("one-sided score", OneSided(), oneSided(), Allocates::nothing);
    list.asks("one-sided score: cloned", oneSided(), [](const OneSided& score) { return Method(score.clone()); });
    list.asks(
        "one-sided score: scores", oneSided(), [](const OneSided& score) { return score.score(1.25); },
        Allocates::nothing);
    list.keeps("one-sided score: refuses y", oneSided, refused([](OneSided& score) { score.y0(2.0); }));
    list.keeps("one-sided score: refuses to be made with y", oneSided,
               refused([](OneSided& score) { score.init(1.0, 1.5, 2.0, 2.0, 0.0); }));
    list.makes(
        "two-sided score: made", [] { return twoSided(); }, Allocates::nothing);
    list.values("two-sided score", TwoSided(), twoSided(), Allocates::nothing);
    list.asks("two-sided score: cloned", twoSided(), [](const TwoSided& score) { return Method(score.clone()); });
    list.asks(
        "two-sided score: scores", twoSided(), [](const TwoSided& score) { return score.score(2.5); },
        Allocates::nothing);
    list.keeps("two-sided score: refuses y", twoSided, refused([](TwoSided& score) { score.y1h(2.0); }));
    list.makes("ignored score: cloned", [] { return Method(Ignore().clone()); });
    list.storedAndLoaded("score handle", Method(new Ignore), Method(twoSided().clone()));
}

void listRules_(ScenarioList& list)
{
    const ktClassifierFeatureVector features({1.25, 2.5, 9.0});
    list.makes("feature vector: made", [] { return ktClassifierFeatureVector({1.25, 2.5, 9.0}); });
    list.asks("feature vector: copied", features,
              [](const ktClassifierFeatureVector& given) { return ktClassifierFeatureVector(given); });
    list.storedAndLoaded("feature vector", ktClassifierFeatureVector({1.0}), features);
    list.makes(
        "rule: made empty", [] { return Rule(); }, Allocates::nothing);
    list.values("rule", Rule(), rule(1));
    list.keeps(
        "rule: set up", [] { return rule(1); },
        [given = std::vector<Method>{new Ignore}](Rule& made) { made.init(given, 3); });
    // Where there is room for what comes, assigning part by part would stop half way.
    list.keeps(
        "rule: assigned over a longer one", [] { return rule(1); }, [from = [] {
            Rule shorter;
            shorter.init({new Ignore, new Ignore}, 5);
            return shorter;
        }()](Rule& made) { made = from; });
    list.keeps(
        "rule: refuses a label", [] { return rule(1); },
        refused([given = methods()](Rule& made) { made.init(given, -1); }), Allocates::nothing);
    list.asks(
        "rule: scores", rule(1), [features](const Rule& given) { return given.score(features); }, Allocates::nothing);
    list.keeps(
        "rule: refuses features of another number", [] { return rule(1); },
        refused([](const Rule& given) { given.score(ktClassifierFeatureVector({1.0})); }));
    list.makes(
        "rule table: made", [] { return Table(); }, Allocates::nothing);
    list.values("rule table", table(1), table(3));
    list.keeps(
        "rule table: assigned over a longer one", [] { return table(3); }, [from = [] {
            Table shorter;
            shorter.train({rule(7), rule(8)});
            return shorter;
        }()](Table& given) { given = from; });
    list.keeps(
        "rule table: trained", [] { return table(1); },
        [rules = table(4).rules()](Table& given) { given.train(rules); });
    list.keeps(
        "rule table: refuses rules of two lengths", [] { return table(1); },
        refused([rules = std::vector<Rule>{rule(1), Rule()}](Table& given) { given.train(rules); }));
    list.asks(
        "rule table: classifies", table(3),
        [features](const Table& given) { return given.classifyHardThreshold(features, 0.1); }, Allocates::nothing);
    list.keeps(
        "rule table: refuses a threshold", [] { return table(1); },
        refused([features](const Table& given) { given.classifyHardThreshold(features, 1.5); }));
}

// A generator shows its state only in what it gives.

template <class Generator>
struct Generated {
    Generator generator;
};

template <class Generator>
std::string bytesOf(const Generated<Generator>& given)
{
    return kt_test::store(Generator(given.generator).generateData());
}

template <class Generator>
void listGenerator(ScenarioList& list, const std::string& name, const Generator& some, const Generator& others)
{
    const Generated<Generator> fresh{some};
    Generated<Generator> used{others};
    used.generator.generateData();
    const auto ask = [](Generated<Generator>& given) { given.generator.generateData(); };
    list.asks(name + ": copied", used, [](const Generated<Generator>& given) { return given; });
    list.keeps(
        name + ": assigned", [fresh] { return fresh; }, [used](Generated<Generator>& given) { given = used; });
    list.keeps(
        name + ": asked the first time", [fresh] { return fresh; }, ask);
    list.keeps(
        name + ": asked again", [used] { return used; }, ask);
}

void listGenerators(ScenarioList& list)
{
    using Class = kt_ClassDataGenerator;
    using Total = kt_TotalDataGenerator;
    const std::vector<ktPair<double>> distribution{{0.0, 1.0}, {5.0, 2.0}};
    const Class first(distribution, 4);
    const Class second({{9.0, 1.0}, {7.0, 2.0}}, 4);
    list.asks("class generator: made", Nothing{},
              [distribution](const Nothing&) { return Generated<Class>{Class(distribution, 3)}; });
    list.asks("total generator: made", Nothing{},
              [given = std::vector<Class>{first, second}](const Nothing&) { return Generated<Total>{Total(given)}; });
    listGenerator(list, "class generator", first, Class({{1.0, 1.0}}, 2));
    listGenerator(list, "total generator", Total({first, second, first}), Total({second, first}));
}

}  // namespace

void listRules(ScenarioList& list)
{
    listScores(list);
    listRules_(list);
    listGenerators(list);
}

}  // namespace trust
