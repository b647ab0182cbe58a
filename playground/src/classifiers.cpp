// The library as the page's worker calls it: plain functions on numbers and bytes. There is one classifier at a time. A function that
// fails returns -1, and `message` says why, in the library's own words.

#include <clastool/clastool.h>

#include <cxxabi.h>
#include <emscripten.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace {

constexpr long maxCategories = 6;
/// A cell whose pattern gets no answer, and one whose category the page has no colour for.
constexpr std::uint8_t noCategory = 255;
constexpr std::uint8_t otherCategory = maxCategories;

enum Technique { neighbors, bayes, tree, rules };

/// What a pattern to be classified lacks.
enum Missing { nothingMissing, xMissing, yMissing };

struct Classifier {
    Technique technique = neighbors;
    ktClassifierTool tool;
    ktClassifierRuleTable table;
    double threshold = 0.5;
};

Classifier current;
std::string lastMessage;
std::string storedArchive;
std::vector<double> numbers;
std::vector<std::uint8_t> bytes;

std::string nameOf(const std::type_info& type)
{
    int status = 0;
    char* const plain = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
    const std::string name = status == 0 ? plain : type.name();
    std::free(plain);
    return name;
}

/// Calls the function; what it throws becomes -1 and the message.
template <class Function>
int guarded(Function function)
{
    try {
        return function();
    } catch (const std::exception& error) {
        const std::string text = error.what();
        lastMessage = nameOf(typeid(error)) + (text.empty() ? "" : ": " + text);
    }
    return -1;
}

/// Reads what the page has written into `numbers`.
class Reader {
public:
    double number() { return numbers.at(place_++); }
    long integer() { return static_cast<long>(number()); }
    std::size_t count() { return static_cast<std::size_t>(number()); }

private:
    std::size_t place_ = 0;
};

ktClassifierCosts readCosts(Reader& reader, long numCategories, ktClassifierCosts costs)
{
    for (long truth = 0; truth < numCategories; ++truth) {
        for (long called = 0; called < numCategories; ++called) {
            const double cost = reader.number();
            if (truth != called && cost != costs.misclassificationCost(truth, called)) {
                costs.misclassificationCostOverride(truth, called, cost);
            }
        }
    }
    return costs;
}

ktClassifierFrequencies readFrequencies(Reader& reader, long numCategories, ktClassifierFrequencies frequencies)
{
    for (long label = 0; label < numCategories; ++label) {
        const double frequency = reader.number();
        if (frequency != frequencies.categoryFrequency(label)) {
            frequencies.categoryFrequencyOverride(label, frequency);
        }
    }
    return frequencies;
}

/// A measurement that is NaN is missing.
ktPtrHandle_const<ktFeaturePattern> patternOf(double x, double y)
{
    std::vector<long> missing;
    if (std::isnan(x)) {
        missing.push_back(0);
    }
    if (std::isnan(y)) {
        missing.push_back(1);
    }
    return new ktFeaturePattern({std::isnan(x) ? 0.0 : x, std::isnan(y) ? 0.0 : y}, missing);
}

ktClassifierDataProviderMemory readPoints(Reader& reader)
{
    ktClassifierDataProviderMemory data;
    const std::size_t count = reader.count();
    for (std::size_t i = 0; i < count; ++i) {
        const double x = reader.number();
        const double y = reader.number();
        data.addData(patternOf(x, y), reader.integer());
    }
    return data;
}

/// A leaf says how many training patterns of each category reached it.
ktClassifierResult readLeaf(Reader& reader, long numCategories, const ktClassifierCosts& costs)
{
    std::vector<double> counts;
    double all = 0.0;
    for (long label = 0; label < numCategories; ++label) {
        counts.push_back(reader.number());
        all += counts.back();
    }
    std::vector<ktClassifierCategoryResult> shares;
    for (long label = 0; label < numCategories; ++label) {
        shares.emplace_back(label, counts[static_cast<std::size_t>(label)] / all, 0.0, 0.0);
    }
    return {shares, ktClassifierFrequencies(), costs, 0.0};
}

/// A tree, root first, each node's true tree before its false tree; -1 in place of a measurement is a leaf. The page bounds the
/// depth.
ktPtrHandle<ktDecisionTree> readTree(Reader& reader, long numCategories, const ktClassifierCosts& costs)
{
    const long measurement = reader.integer();
    if (measurement < 0) {
        return new ktDecisionTreeLeaf(readLeaf(reader, numCategories, costs));
    }
    const double limit = reader.number();
    const ktPtrHandle<ktDecisionTree> atMost = readTree(reader, numCategories, costs);
    const ktPtrHandle<ktDecisionTree> above = readTree(reader, numCategories, costs);
    const ktRange range(-std::numeric_limits<double>::infinity(), limit);
    return new ktDecisionTreeNode(ktRangePredicate(range, {measurement}), *atMost, *above);
}

/// 0 up to a, 1 from b to c, 0 from d on; or a measurement that the rule does not look at.
ktPtrHandle<ktClsFtSc> readScore(Reader& reader)
{
    const bool isLookedAt = reader.number() != 0.0;
    const double a = reader.number();
    const double b = reader.number();
    const double c = reader.number();
    const double d = reader.number();
    if (!isLookedAt) {
        return new ktClassifierFeatureScoreIgnore;
    }
    const double middle = (b + c) / 2.0;
    ktPtrHandle<ktClassifierFeatureScoreTwoSided> score(new ktClassifierFeatureScoreTwoSided);
    score->init(a, b, middle, d, c, middle, 0.0, 1.0, 0.0, 1.0);
    return score;
}

ktClassifierRuleTable readTable(Reader& reader)
{
    std::vector<ktClassifierRule> made(reader.count());
    for (ktClassifierRule& rule : made) {
        const long label = reader.integer();
        const ktPtrHandle<ktClsFtSc> ofX = readScore(reader);
        const ktPtrHandle<ktClsFtSc> ofY = readScore(reader);
        rule.init({ofX, ofY}, label);
    }
    ktClassifierRuleTable table;
    table.train(made);
    return table;
}

/// The Bayesian parameters; jointly or not, for each category.
ktClassifierTrainParamsBayesian bayesianParams(bool isJoint, long numCategories,
                                               const ktClassifierFrequencies& frequencies,
                                               const ktClassifierCosts& costs)
{
    ktClassifierDistributionTypes types;
    for (long label = 0; isJoint && label < numCategories; ++label) {
        types.setDependent(label, {0, 1});
    }
    return {types, frequencies, costs};
}

Classifier readClassifier()
{
    Reader reader;
    Classifier made;
    made.technique = static_cast<Technique>(reader.integer());
    const long numCategories = reader.integer();
    const ktClassifierCosts costs = readCosts(reader, numCategories, {});
    const ktClassifierFrequencies frequencies = readFrequencies(reader, numCategories, {});
    const ktClassifierDataProviderMemory data = readPoints(reader);
    switch (made.technique) {
    case neighbors: {
        const long k = reader.integer();
        made.tool.train(data, ktClassifierTrainParamsKNN(k, ktPatternDistanceMetricNorm(reader.number()), costs));
        break;
    }
    case bayes: {
        const bool isJoint = reader.number() != 0.0;
        made.tool.train(data, bayesianParams(isJoint, numCategories, frequencies, costs));
        break;
    }
    case tree:
        made.tool.train(*readTree(reader, numCategories, costs));
        break;
    case rules:
        made.threshold = reader.number();
        made.table = readTable(reader);
        break;
    }
    return made;
}

/// The technique of a tool that was loaded.
Technique techniqueOf(ktClassifierTool& tool)
{
    try {
        const ktPtrHandle_const<ktClassifierTrainParams> params = tool.trainParams();
        return dynamic_cast<const ktClassifierTrainParamsBayesian*>(params.get()) != nullptr ? bayes : neighbors;
    } catch (const ktClassifierDefs::BadMethod&) {
        return tree;
    }
}

template <class T>
T valueOf(const std::string& archived)
{
    std::istringstream stream(archived);
    T value;
    ktArchive archive(stream);
    archive || value;
    if (stream.peek() != std::istringstream::traits_type::eof()) {
        throw std::runtime_error("the file goes on behind the archive");
    }
    return value;
}

Classifier loadedTool(const std::string& archived)
{
    Classifier loaded;
    loaded.tool = valueOf<ktClassifierTool>(archived);
    if (!loaded.tool.isTrained()) {
        throw std::runtime_error("the stored tool is not trained");
    }
    loaded.technique = techniqueOf(loaded.tool);
    if (loaded.technique == neighbors) {
        // A loaded tool of nearest neighbours holds its parameters, but does not run with them yet.
        loaded.tool.retrain(*loaded.tool.trainParams());
    }
    return loaded;
}

Classifier loadedTable(const std::string& archived)
{
    Classifier loaded;
    loaded.technique = rules;
    loaded.table = valueOf<ktClassifierRuleTable>(archived);
    return loaded;
}

/// A tool and a rule table are told apart by loading them. Where both fail, the message of the first try stands.
Classifier loadedFrom(const std::string& archived, bool isTableFirst)
{
    try {
        return isTableFirst ? loadedTable(archived) : loadedTool(archived);
    } catch (const std::exception&) {
        Classifier second;
        try {
            second = isTableFirst ? loadedTool(archived) : loadedTable(archived);
        } catch (const std::exception&) {
            second.technique = neighbors;
        }
        const bool isThere = second.technique == rules ? !second.table.rules().empty() : second.tool.isTrained();
        if (!isThere) {
            throw;
        }
        return second;
    }
}

/// Changes what differs from the costs and frequencies in `numbers`, so that those of categories beyond them stay.
void retrainBy(ktClassifierTool& tool, Reader& reader)
{
    const long numCategories = reader.integer();
    const ktPtrHandle<ktClassifierTrainParams> params = tool.trainParams()->clone();
    if (auto* const ofNeighbors = dynamic_cast<ktClassifierTrainParamsKNN*>(params.get())) {
        ofNeighbors->misclassificationCosts(readCosts(reader, numCategories, ofNeighbors->misclassificationCosts()));
        readFrequencies(reader, numCategories, {});
        ofNeighbors->k(reader.integer());
        ofNeighbors->distanceMetric(ktPatternDistanceMetricNorm(reader.number()));
    } else if (auto* const ofBayes = dynamic_cast<ktClassifierTrainParamsBayesian*>(params.get())) {
        ofBayes->misclassificationCosts(readCosts(reader, numCategories, ofBayes->misclassificationCosts()));
        ofBayes->categoryFrequencies(readFrequencies(reader, numCategories, ofBayes->categoryFrequencies()));
    }
    tool.retrain(*params);
}

std::uint8_t cellOf(long label)
{
    return label < 0 ? noCategory : label < maxCategories ? static_cast<std::uint8_t>(label) : otherCategory;
}

double measurementOrNan(double value, bool isMissing)
{
    return isMissing ? std::numeric_limits<double>::quiet_NaN() : value;
}

ktPtrHandle_const<ktFeaturePattern> askedPattern(double x, double y, int missing)
{
    return patternOf(measurementOrNan(x, missing == xMissing), measurementOrNan(y, missing == yMissing));
}

std::uint8_t decisionAt(double x, double y, int missing, ktClassifierResult& result)
{
    if (current.technique == rules) {
        // A missing value is NaN, which a rule leaves out.
        return cellOf(
            current.table.classifyHardThreshold(ktClassifierFeatureVector({measurementOrNan(x, missing == xMissing),
                                                                           measurementOrNan(y, missing == yMissing)}),
                                                current.threshold));
    }
    current.tool.run(*askedPattern(x, y, missing), result);
    return cellOf(result.categoryResults().front().categoryLabel());
}

/// Appends the decision to `bytes`. Returns 1 if there is none, because the library refuses, else 0.
int appendDecision(double x, double y, int missing, ktClassifierResult& result)
{
    const int decided = guarded([&] { return decisionAt(x, y, missing, result); });
    bytes.push_back(decided < 0 ? noCategory : static_cast<std::uint8_t>(decided));
    return decided < 0 ? 1 : 0;
}

/// How many categories the page has to show, at least two: asked at some places of the plane.
long numCategoriesMet()
{
    constexpr int places = 20;
    long highest = 1;
    for (int i = 0; i < places * places && current.technique != rules; ++i) {
        ktClassifierResult result;
        const int failed = guarded([&] {
            current.tool.run(*patternOf(i % places * 0.5 + 0.25, i / places * 0.5 + 0.25), result);
            return 0;
        });
        for (std::size_t j = 0; failed == 0 && j < result.categoryResults().size(); ++j) {
            highest = std::max(highest, result.categoryResults()[j].categoryLabel());
        }
    }
    for (const ktClassifierRule& rule : current.table.rules()) {
        highest = std::max(highest, rule.label());
    }
    return std::min(highest + 1, maxCategories);
}

/// What the page shows of a classifier that was loaded: the number of categories, k, order and joint or not, 36 costs, 6 frequencies.
void describe(std::vector<double>& out)
{
    double k = 0.0;
    double order = 0.0;
    double isJoint = 0.0;
    ktClassifierCosts costs;
    ktClassifierFrequencies frequencies;
    if (current.technique == neighbors) {
        const auto params = current.tool.trainParams();
        const auto& own = dynamic_cast<const ktClassifierTrainParamsKNN&>(*params);
        k = static_cast<double>(own.k());
        const auto* const norm = dynamic_cast<const ktPatternDistanceMetricNorm*>(own.distanceMetric().get());
        order = norm == nullptr ? 0.0 : norm->order();
        costs = own.misclassificationCosts();
    } else if (current.technique == bayes) {
        const auto params = current.tool.trainParams();
        const auto& own = dynamic_cast<const ktClassifierTrainParamsBayesian&>(*params);
        isJoint = own.distributionTypes().isDependent(0, {0, 1}) ? 1.0 : 0.0;
        costs = own.misclassificationCosts();
        frequencies = own.categoryFrequencies();
    }
    out = {static_cast<double>(numCategoriesMet()), k, order, isJoint};
    for (long truth = 0; truth < maxCategories; ++truth) {
        for (long called = 0; called < maxCategories; ++called) {
            out.push_back(truth == called ? 0.0 : costs.misclassificationCost(truth, called));
        }
    }
    for (long label = 0; label < maxCategories; ++label) {
        out.push_back(frequencies.categoryFrequency(label));
    }
}

/// The label that the table decides for, then of each rule its label, its score and the scores of x and y.
void answerByRules(double x, double y)
{
    const ktClassifierFeatureVector vector({x, y});
    numbers = {static_cast<double>(current.table.classifyHardThreshold(vector, current.threshold))};
    for (const ktClassifierRule& rule : current.table.rules()) {
        const double ofX = rule.scoringMethods().at(0)->score(x);
        const double ofY = rule.scoringMethods().at(1)->score(y);
        numbers.insert(numbers.end(), {static_cast<double>(rule.label()), rule.score(vector), ofX, ofY});
    }
}

/// The logarithm of the factor, then of each category its label, match score, class score and expected cost.
void answerByTool(double x, double y, int missing)
{
    ktClassifierResult result;
    current.tool.run(*askedPattern(x, y, missing), result);
    numbers = {result.matchScoreFactorLog()};
    for (const ktClassifierCategoryResult& category : result.categoryResults()) {
        numbers.insert(numbers.end(), {static_cast<double>(category.categoryLabel()), category.matchScore(),
                                       category.classScore(), category.expectedCost()});
    }
}

}  // namespace

extern "C" {

/// Where the page writes as many numbers before it calls, and reads them afterwards.
EMSCRIPTEN_KEEPALIVE double* numbersOf(int count)
{
    numbers.resize(static_cast<std::size_t>(count));
    return numbers.data();
}

/// Where the page writes and reads bytes.
EMSCRIPTEN_KEEPALIVE std::uint8_t* bytesOf(int count)
{
    bytes.resize(static_cast<std::size_t>(count));
    return bytes.data();
}

EMSCRIPTEN_KEEPALIVE const char* message()
{
    return lastMessage.c_str();
}

/// Makes a classifier from `numbers`; if that fails, the one before stays.
EMSCRIPTEN_KEEPALIVE int train()
{
    return guarded([] {
        current = readClassifier();
        return 0;
    });
}

/// Gives a tool that was loaded the costs, frequencies and parameters in `numbers`, or a table its threshold.
EMSCRIPTEN_KEEPALIVE int retrain()
{
    return guarded([] {
        Reader reader;
        if (current.technique == rules) {
            current.threshold = reader.number();
        } else if (current.technique != tree) {
            retrainBy(current.tool, reader);
        }
        return 0;
    });
}

/// Classifies the middles of the cells of some rows, counted from the top, of a grid over the plane from 0 to `high` each way;
/// `bytes` becomes a category for each cell. Returns how many cells get no answer; `message` then says why the last of them got none.
EMSCRIPTEN_KEEPALIVE int decide(double high, int cells, int firstRow, int numRows, int missing)
{
    return guarded([=] {
        const double size = high / cells;
        bytes.clear();
        ktClassifierResult result;
        int numFailed = 0;
        for (int row = firstRow; row < firstRow + numRows; ++row) {
            const double y = high - (row + 0.5) * size;
            for (int column = 0; column < cells; ++column) {
                numFailed += appendDecision((column + 0.5) * size, y, missing, result);
            }
        }
        return numFailed;
    });
}

/// Classifies the patterns in `numbers`, x and y in turn; `bytes` becomes a category for each. Returns as `decide`.
EMSCRIPTEN_KEEPALIVE int decideEach()
{
    return guarded([] {
        bytes.clear();
        ktClassifierResult result;
        int numFailed = 0;
        for (std::size_t i = 0; i + 1 < numbers.size(); i += 2) {
            numFailed += appendDecision(numbers[i], numbers[i + 1], nothingMissing, result);
        }
        return numFailed;
    });
}

/// The whole answer for a pattern, in `numbers`. Returns how many there are.
EMSCRIPTEN_KEEPALIVE int answer(double x, double y, int missing)
{
    return guarded([=] {
        if (current.technique == rules) {
            answerByRules(measurementOrNan(x, missing == xMissing), measurementOrNan(y, missing == yMissing));
        } else {
            answerByTool(x, y, missing);
        }
        return static_cast<int>(numbers.size());
    });
}

/// Stores the classifier in `bytes`. Returns how many there are.
EMSCRIPTEN_KEEPALIVE int store()
{
    return guarded([] {
        std::ostringstream stream;
        ktArchive archive(stream);
        if (current.technique == rules) {
            archive || current.table;
        } else {
            archive || current.tool;
        }
        const std::string stored = stream.str();
        bytes.assign(stored.begin(), stored.end());
        return static_cast<int>(bytes.size());
    });
}

/// Loads a classifier from `bytes` and describes it in `numbers`. Returns its technique; if loading fails, the classifier before stays.
EMSCRIPTEN_KEEPALIVE int load(int isTableFirst)
{
    return guarded([=] {
        current = loadedFrom({bytes.begin(), bytes.end()}, isTableFirst != 0);
        describe(numbers);
        return static_cast<int>(current.technique);
    });
}
}
