#include "load_work.h"

#include <utility>

namespace load_work {

namespace {

template <class T>
void loadOne(ktArchive& archive)
{
    T value;
    archive || value;
}

template <class T>
Case caseOf(const T& value)
{
    return {stored(value), loadOne<T>, {}};
}

std::string number(unsigned long value)
{
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>((value >> shift) & 0xFF);
    }
    return bytes;
}

/// The header of an archive and the beginning of a vector of n elements.
std::string vectorOf(long n)
{
    return "KTAR" + number(1) + std::string(1, '\0') + number(static_cast<unsigned long>(n));
}

}  // namespace

std::vector<double> someValues(long n)
{
    std::vector<double> values;
    for (long i = 0; i < n; ++i) {
        values.push_back(static_cast<double>(i * 37 % 101) / 8.0);
    }
    return values;
}

ktPtrHandle<ktDecisionTree> balancedTree(long n)
{
    if (n <= 1) {
        return new ktDecisionTreeLeaf(ktClassifierResult({{n, 1.0, 1.0, 0.0}}, 0.0));
    }
    return new ktDecisionTreeNode(ktComparisonPredicate(0, 1), *balancedTree(n / 2), *balancedTree(n - n / 2));
}

namespace {

ktClassifierDataProviderMemory trainingSet(long n, bool onePattern)
{
    ktClassifierDataProviderMemory data;
    const ktPtrHandle_const<ktFeaturePattern> shared(new ktFeaturePattern(someValues(3), {}));
    for (long i = 0; i < n; ++i) {
        const auto x = static_cast<double>(i * 37 % 1009);
        data.addData(
            onePattern ? shared : ktPtrHandle_const<ktFeaturePattern>(new ktFeaturePattern({x, x * x, 1.0}, {})),
            i % 3);
    }
    return data;
}

Case pattern(long n)
{
    return caseOf(ktFeaturePattern(someValues(n), {0, 1, n / 2}));
}

Case costs(long n)
{
    ktClassifierCosts value;
    for (long i = 0; i < n; ++i) {
        value.misclassificationCostOverride(i, i + 1, 2.0);
    }
    return caseOf(value);
}

Case frequencies(long n)
{
    ktClassifierFrequencies value;
    for (long i = 0; i < n; ++i) {
        value.categoryFrequencyOverride(i, 0.5);
    }
    return caseOf(value);
}

Case result(long n)
{
    std::vector<ktClassifierCategoryResult> categories;
    for (long i = 0; i < n; ++i) {
        categories.emplace_back(i, 1.0, 1.0, 0.0);
    }
    return caseOf(ktClassifierResult(categories, 0.0));
}

Case distributionTypes(long n)
{
    ktClassifierDistributionTypes value;
    for (long i = 0; i < n; ++i) {
        value.distributionTypeOverride(7, i, ktClassifierDistributionTypes::eBinomial);
        value.setDependent(i % 7, {2 * i, 2 * i + 1});
    }
    return caseOf(value);
}

Case neighborTool(long n)
{
    ktClassifierTool tool;
    tool.train(trainingSet(n, false), ktClassifierTrainParamsKNN(3));
    return caseOf(tool);
}

Case neighborToolOfOnePattern(long n)
{
    ktClassifierTool tool;
    tool.train(trainingSet(n, true), ktClassifierTrainParamsKNN(3));
    return caseOf(tool);
}

/// One density over a group: its covariance has n elements.
Case jointBayesianTool(long n)
{
    long size = 1;
    while (size * size < n) {
        ++size;
    }
    std::vector<long> all;
    for (long i = 0; i < size; ++i) {
        all.push_back(i);
    }
    ktClassifierDataProviderMemory data;
    for (long i = 0; i < 4; ++i) {
        data.addData(new ktFeaturePattern(someValues(size), {}), i % 2);
    }
    ktClassifierDistributionTypes types;
    types.setDependent(0, all);
    ktClassifierTool tool;
    tool.train(data, ktClassifierTrainParamsBayesian(types));
    return caseOf(tool);
}

Case bayesianToolOfManyCategories(long n)
{
    ktClassifierDataProviderMemory data;
    for (long i = 0; i < 2 * n; ++i) {
        data.addData(new ktFeaturePattern({static_cast<double>(i), 1.0}, {}), i / 2);
    }
    ktClassifierTool tool;
    tool.train(data, ktClassifierTrainParamsBayesian());
    return caseOf(tool);
}

Case tree(long n)
{
    const ktPtrHandle<ktDecisionTree> built = balancedTree(n);
    ktClassifierTool tool;
    tool.train(*built);
    return caseOf(tool);
}

/// Each level holds the one below twice, so that there are as many ways to a leaf as no machine can walk.
Case doubledChain(long n)
{
    ktDecisionTreeNode top(ktComparisonPredicate(0, 1), *balancedTree(1), *balancedTree(1));
    for (long i = 0; i < n / 8; ++i) {
        top = ktDecisionTreeNode(ktComparisonPredicate(0, 1), top, top);
    }
    ktClassifierTool tool;
    tool.train(top);
    return caseOf(tool);
}

Case ruleTable(long n)
{
    std::vector<ktClassifierRule> rules(static_cast<std::size_t>(n));
    for (ktClassifierRule& rule : rules) {
        rule.init({new ktClassifierFeatureScoreTwoSided, new ktClassifierFeatureScoreOneSided}, 1);
    }
    ktClassifierRuleTable table;
    table.train(rules);
    return caseOf(table);
}

/// A text from a stream that cannot tell its length.
Case text(long n)
{
    return caseOf(std::string(static_cast<std::size_t>(n), 'x'));
}

Case nulls(long n)
{
    return {vectorOf(n) + std::string(static_cast<std::size_t>(n), '\0'),
            loadOne<std::vector<ktPtrHandle_const<ktFeaturePattern>>>,
            {}};
}

/// Every record names its class anew, so each makes a new number of a class.
Case classesNamedAgain(long n)
{
    std::string bytes = vectorOf(n);
    const std::string name = "ktFeaturePattern";
    const std::string whole = stored(ktFeaturePattern());
    for (long i = 0; i < n; ++i) {
        bytes += '\3';
        bytes += number(static_cast<unsigned long>(name.size())) + name + whole.substr(8);
    }
    return {bytes, loadOne<std::vector<ktPtrHandle_const<ktFeaturePattern>>>, {}};
}

/// Objects that the handle refuses, because they are of another class than it can hold.
Case objectsOfAnotherClass(long n)
{
    Case made = classesNamedAgain(n);
    made.load = loadOne<std::vector<ktPtrHandle<ktDecisionTree>>>;
    return made;
}

/// The last byte is missing, so all that was loaded is thrown away.
Case cutShort(long n)
{
    Case made = neighborTool(n);
    made.bytes.pop_back();
    return made;
}

ktFeaturePattern temporary()
{
    return {{1.0, 2.0, 3.0}, {}};
}

void archiveCopies(ktArchive& archive, long n)
{
    const ktArchive::Pass pass(archive);
    for (long i = 0; i < n; ++i) {
        ktFeaturePattern pattern = temporary();
        archive || pattern;
    }
}

void archiveHandles(ktArchive& archive, long n)
{
    const ktArchive::Pass pass(archive);
    for (long i = 0; i < n; ++i) {
        ktPtrHandle<ktFeaturePattern> pattern;
        if (archive.isStoring()) {
            pattern = new ktFeaturePattern(temporary());
        }
        archive || pattern;
    }
}

std::string storedInOnePass(void (*work)(ktArchive& archive, long n), long n)
{
    std::ostringstream out;
    ktArchive archive(out);
    work(archive, n);
    return out.str();
}

template <void (*Work)(ktArchive& archive, long n)>
Case loadedInOnePass(long n)
{
    return {storedInOnePass(Work, n), [n](ktArchive& archive) { Work(archive, n); }, {}};
}

/// Loads nothing: stores once more.
template <void (*Work)(ktArchive& archive, long n)>
Case storedInOnePassAgain(long n)
{
    return {storedInOnePass(Work, n), [n](ktArchive&) { storedInOnePass(Work, n); }, {}};
}

/// A count that the bytes cannot hold.
Case impossibleCount(long n)
{
    return {
        vectorOf(2147483647) + std::string(static_cast<std::size_t>(n), '\1'), loadOne<std::vector<std::string>>, {}};
}

}  // namespace

std::vector<Kind> archiveKinds()
{
    return {{"pattern", pattern},
            {"costs", costs},
            {"frequencies", frequencies},
            {"result", result},
            {"distribution-types", distributionTypes},
            {"neighbor-tool", neighborTool},
            {"neighbor-tool-of-one-pattern", neighborToolOfOnePattern},
            {"joint-bayesian-tool", jointBayesianTool},
            {"bayesian-tool-of-many-categories", bayesianToolOfManyCategories},
            {"tree", tree},
            {"doubled-chain", doubledChain},
            {"rule-table", ruleTable},
            {"text", text},
            {"nulls", nulls},
            {"classes-named-again", classesNamedAgain},
            {"objects-of-another-class", objectsOfAnotherClass},
            {"cut-short", cutShort},
            {"copies-loaded-in-one-pass", loadedInOnePass<archiveCopies>},
            {"handles-loaded-in-one-pass", loadedInOnePass<archiveHandles>},
            {"copies-stored-in-one-pass", storedInOnePassAgain<archiveCopies>},
            {"handles-stored-in-one-pass", storedInOnePassAgain<archiveHandles>},
            {"impossible-count", impossibleCount}};
}

}  // namespace load_work
