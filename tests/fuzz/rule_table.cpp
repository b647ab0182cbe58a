// Fuzzy rule tables: scoring functions, rules and tables are built from the bytes of an input, also as damaged archives leave
// them, and held against models of their own. Where no branch decides alone, long double judges the digits.

#include "fuzz_kit.h"

#include <clastool/rule_table.h>

#include <algorithm>

namespace {

using fuzz::badParams;
using fuzz::Input;
using fuzz::Outcome;
using fuzz::require;
using fuzz::requireOutcome;
using fuzz::requireSame;
using Handle = ktPtrHandle<ktClsFtSc>;
using OneSided = ktClassifierFeatureScoreOneSided;
using TwoSided = ktClassifierFeatureScoreTwoSided;

bool isUnit(double value)
{
    return value >= 0.0 && value <= 1.0;
}

bool equalOrNan(double a, double b)
{
    return !(a < b || a > b);
}

/// A score, or the refusal to give one.
struct Score {
    Outcome outcome;
    double value = 0.0;
};

struct Ramp {
    double x0 = 0.0;
    double x1 = 1.0;
    double xc = 1.0;
    double y0 = 1.0;
    double y1 = 0.0;

    bool isDisordered() const { return (x1 > x0 && x1 > xc) || (x1 < x0 && x1 < xc); }

    bool equals(const Ramp& other) const
    {
        return equalOrNan(x0, other.x0) && equalOrNan(x1, other.x1) && equalOrNan(xc, other.xc) &&
               equalOrNan(y0, other.y0) && equalOrNan(y1, other.y1);
    }

    Score score(double x) const
    {
        if (isDisordered()) {
            return {badParams("x1 must lie between x0 and xc")};
        }
        if (x0 <= x1 && x1 <= xc) {
            return {Outcome(), x > xc ? 0.0 : x >= x1 ? y1 : x <= x0 ? y0 : between(x)};
        }
        return {Outcome(), x < xc ? 0.0 : x <= x1 ? y1 : x >= x0 ? y0 : between(x)};
    }

    double between(double x) const { return (x1 * y0 - x0 * y1 - (y0 - y1) * x) / (x1 - x0); }

    /// Three products known to two roundings at most, two subtractions, the divisor and the division: 6 roundings of the
    /// three products' sizes. A product in the subnormal range is off by half the smallest number, and so is the quotient.
    void requireOnLine(double x, double actual) const
    {
        const auto isSmall = [](double value) { return std::abs(value) < 1e150; };
        if (!(isSmall(x0) && isSmall(x1) && isSmall(xc) && isSmall(y0) && isSmall(y1) && isSmall(x) && x0 != x1) ||
            !(std::min(x0, x1) < x && x < std::max(x0, x1)) || isDisordered()) {
            return;
        }
        const long double width = static_cast<long double>(x1) - x0;
        const long double right = static_cast<long double>(x) - x0;
        const long double left = static_cast<long double>(x1) - x;
        const long double exact = (y0 * left + y1 * right) / width;
        const long double size = std::abs(static_cast<long double>(x1) * y0) +
                                 std::abs(static_cast<long double>(x0) * y1) +
                                 std::abs((static_cast<long double>(y0) - y1) * x);
        const long double smallest = 0x1p-1074L;
        const long double bound = fuzz::gammaOf(7) * (size / std::abs(width) + std::abs(exact)) +
                                  2.0L * smallest / std::abs(width) + smallest;
        require(std::abs(actual - exact) <= bound, "score ", actual, " at ", x, " is not on the line from (", x0, ", ",
                y0, ") to (", x1, ", ", y1, "), ", static_cast<double>(exact));
    }
};

/// The caller's own scoring function: any score at all.
class Fixed : public ktClsFtSc {
public:
    explicit Fixed(double value) : value_(value) {}
    double score(double) const override { return value_; }
    Fixed* clone() const override { return new Fixed(*this); }
    bool operator==(const ktClsFtSc& other) const override
    {
        return typeid(other) == typeid(Fixed) && equalOrNan(value_, static_cast<const Fixed&>(other).value_);
    }

private:
    double value_;
};

struct Function {
    enum Kind { null, ignore, oneSided, twoSided, fixed };

    Kind kind = null;
    Ramp low{};
    Ramp high{};
    double value = 0.0;
    Handle actual{};

    Score score(double x) const
    {
        switch (kind) {
        case null:
            return {fuzz::refusal(ktBadPointer())};
        case ignore:
            return {Outcome(), -1.0};
        case oneSided:
            return low.score(x);
        case twoSided:
            return scoreTwoSided(x);
        case fixed:
            break;
        }
        return {Outcome(), value};
    }

    Score scoreTwoSided(double x) const
    {
        if (low.isDisordered() || high.isDisordered()) {
            return {badParams("x1 must lie between x0 and xc")};
        }
        const double lowest = std::min({high.x0, high.x1, high.xc});
        if (low.x0 > lowest || low.x1 > lowest || low.xc > lowest) {
            return {badParams("Bad x values")};
        }
        return x < lowest ? low.score(x) : high.score(x);
    }

    bool equals(const Function& other) const
    {
        return kind == other.kind && low.equals(other.low) && high.equals(other.high) && equalOrNan(value, other.value);
    }
};

void requireRamp(const OneSided& actual, const Ramp& model)
{
    requireSame(actual.x0(), model.x0, "x0");
    requireSame(actual.x1(), model.x1, "x1");
    requireSame(actual.xc(), model.xc, "xc");
    requireSame(actual.y0(), model.y0, "y0");
    requireSame(actual.y1(), model.y1, "y1");
}

Ramp readRamp(Input& input)
{
    Ramp ramp;
    ramp.x0 = input.number();
    ramp.x1 = input.number();
    ramp.xc = input.number();
    // In order more often than chance would have it.
    if (input.below(4) != 0 && !std::isnan(ramp.x0 + ramp.x1 + ramp.xc)) {
        double* const values[] = {&ramp.x0, &ramp.x1, &ramp.xc};
        double sorted[] = {ramp.x0, ramp.x1, ramp.xc};
        const bool rises = input.flag();
        std::sort(sorted, sorted + 3, [rises](double a, double b) { return rises ? a < b : a > b; });
        for (int i = 0; i < 3; ++i) {
            *values[i] = sorted[i];
        }
    }
    ramp.y0 = input.share();
    ramp.y1 = input.share();
    return ramp;
}

Outcome initRefusal(const Ramp& ramp)
{
    if (!isUnit(ramp.y0)) {
        return badParams("y0 must be between 0 and 1");
    }
    if (!isUnit(ramp.y1)) {
        return badParams("y1 must be between 0 and 1");
    }
    return ramp.isDisordered() ? badParams("x1 must be lie between x0 and xc") : Outcome();
}

Outcome initRefusal(const Ramp& low, const Ramp& high)
{
    const double lowest = std::min({high.x0, high.x1, high.xc});
    if (low.x0 > lowest || low.x1 > lowest || low.xc > lowest) {
        return badParams("x0 > lowest || x1 > lowest || xc > lowest");
    }
    const Outcome refusal = initRefusal(low);
    return refusal.returned() ? initRefusal(high) : refusal;
}

/// Calls one of the five setters; `set` does the same to the object.
template <class Set>
void changeOne(Input& input, Ramp& ramp, const char* y0Text, const char* y1Text, Set set)
{
    double* const fields[] = {&ramp.x0, &ramp.x1, &ramp.xc, &ramp.y0, &ramp.y1};
    const unsigned which = input.below(5);
    const double value = which < 3 ? input.number() : input.share();
    const Outcome expected = which < 3 || isUnit(value) ? Outcome() : badParams(which == 3 ? y0Text : y1Text);
    requireOutcome(fuzz::outcomeOf([&] { set(which, value); }), expected, "setter");
    if (expected.returned()) {
        *fields[which] = value;
    }
}

void setOne(OneSided& ramp, unsigned which, double value)
{
    switch (which) {
    case 0:
        return ramp.x0(value);
    case 1:
        return ramp.x1(value);
    case 2:
        return ramp.xc(value);
    case 3:
        return ramp.y0(value);
    default:
        return ramp.y1(value);
    }
}

void setHigh(TwoSided& score, unsigned which, double value)
{
    switch (which) {
    case 0:
        return score.x0h(value);
    case 1:
        return score.x1h(value);
    case 2:
        return score.xch(value);
    case 3:
        return score.y0h(value);
    default:
        return score.y1h(value);
    }
}

void setLow(TwoSided& score, unsigned which, double value)
{
    switch (which) {
    case 0:
        return score.x0(value);
    case 1:
        return score.x1(value);
    case 2:
        return score.xc(value);
    case 3:
        return score.y0(value);
    default:
        return score.y1(value);
    }
}

/// The object of a ramp, as loading leaves it: loading validates nothing.
OneSided loadedRamp(const Ramp& ramp)
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    Ramp copy = ramp;
    const ktArchive::Pass pass(archive);
    archive || copy.x0 || copy.x1 || copy.xc || copy.y0 || copy.y1;
    OneSided loaded;
    fuzz::loadInto(loaded, out.str());
    return loaded;
}

TwoSided loadedPair(const Ramp& low, const Ramp& high)
{
    std::ostringstream out;
    ktArchive archive(static_cast<std::ostream&>(out));
    OneSided halves[] = {loadedRamp(low), loadedRamp(high)};
    const ktArchive::Pass pass(archive);
    archive || halves[0] || halves[1];
    TwoSided loaded;
    fuzz::loadInto(loaded, out.str());
    return loaded;
}

Function readOneSided(Input& input)
{
    Function function{Function::oneSided};
    const Ramp ramp = readRamp(input);
    OneSided actual;
    if (input.below(8) == 0) {
        actual = loadedRamp(ramp);
        function.low = ramp;
    } else {
        const Outcome expected = initRefusal(ramp);
        const auto init = [&] { actual.init(ramp.x0, ramp.x1, ramp.xc, ramp.y0, ramp.y1); };
        requireOutcome(fuzz::outcomeOf(init), expected, "one-sided init");
        function.low = expected.returned() ? ramp : Ramp();
    }
    for (unsigned i = input.below(8) == 0 ? input.below(4) : 0; i > 0; --i) {
        changeOne(input, function.low, "y0 must be between 0 and 1", "y1 must be between 0 and 1",
                  [&](unsigned which, double value) { setOne(actual, which, value); });
    }
    requireRamp(actual, function.low);
    function.actual = actual.clone();
    return function;
}

Function readTwoSided(Input& input)
{
    Function function{Function::twoSided};
    function.low = {0.0, -1.0, -1.0, 1.0, 0.0};
    function.high = {0.0, 1.0, 1.0, 1.0, 0.0};
    const Ramp low = readRamp(input);
    const Ramp high = readRamp(input);
    TwoSided actual;
    requireRamp(actual.Low(), function.low);
    requireRamp(actual.High(), function.high);
    Outcome expected;
    if (input.below(8) == 0) {
        actual = loadedPair(low, high);
    } else {
        expected = initRefusal(low, high);
        const Outcome outcome = fuzz::outcomeOf(
            [&] { actual.init(low.x0, low.x1, low.xc, high.x0, high.x1, high.xc, low.y0, low.y1, high.y0, high.y1); });
        requireOutcome(outcome, expected, "two-sided init");
    }
    if (expected.returned()) {
        function.low = low;
        function.high = high;
    }
    for (unsigned i = input.below(8) == 0 ? input.below(4) : 0; i > 0; --i) {
        if (input.flag()) {
            changeOne(input, function.low, "y0 must be between 0 and 1", "y1 must be between 0 and 1",
                      [&](unsigned which, double value) { setLow(actual, which, value); });
        } else {
            changeOne(input, function.high, "y0h must be between 0 and 1", "y1h must be between 0 and 1",
                      [&](unsigned which, double value) { setHigh(actual, which, value); });
        }
    }
    requireRamp(actual.Low(), function.low);
    requireRamp(actual.High(), function.high);
    function.actual = actual.clone();
    return function;
}

Function readFunction(Input& input)
{
    const unsigned kind = input.below(16);
    if (kind == 0) {
        return {};
    }
    if (kind == 1) {
        Function function{Function::ignore};
        function.actual = new ktClassifierFeatureScoreIgnore;
        return function;
    }
    if (kind == 2) {
        Function function{Function::fixed};
        function.value = input.number();
        function.actual = new Fixed(function.value);
        return function;
    }
    return kind < 10 ? readOneSided(input) : readTwoSided(input);
}

void requireScore(const Function& function, double x)
{
    if (function.kind == Function::null) {
        return;
    }
    double actual = 0.0;
    const Score expected = function.score(x);
    requireOutcome(fuzz::outcomeOf([&] { actual = function.actual->score(x); }), expected.outcome, "score");
    if (!expected.outcome.returned()) {
        return;
    }
    requireSame(actual, expected.value, "score at ", x);
    if (function.kind == Function::oneSided) {
        function.low.requireOnLine(x, actual);
    }
}

struct Rule {
    std::vector<Function> functions;
    long label = 0;
    ktClassifierRule actual;

    bool hasNull() const { return has(Function::null); }

    /// Archives know neither null handles nor functions of the caller's own.
    bool isArchivable() const { return !hasNull() && !has(Function::fixed); }

    bool has(Function::Kind kind) const
    {
        return std::any_of(functions.begin(), functions.end(), [kind](const Function& f) { return f.kind == kind; });
    }

    Score score(const std::vector<double>& values) const
    {
        if (values.size() != functions.size()) {
            return {badParams("MismatchedFeatureVectorSize")};
        }
        if (values.empty()) {
            return {badParams("featureVector.featureValues().size() == 0")};
        }
        double product = 1.0;
        double count = 0.0;
        for (std::size_t i = 0; i < values.size(); ++i) {
            const Score score = functions[i].score(values[i]);
            if (!score.outcome.returned()) {
                return score;
            }
            if (score.value != -1.0 && !std::isnan(score.value)) {
                product *= score.value;
                count += 1.0;
            }
        }
        return {Outcome(), product > 0.0 ? std::pow(product, 1.0 / count) : product};
    }

    /// The geometric mean by logarithms, where every score is normal. The product has n - 1 roundings and its root an n-th
    /// of them; the exponent is rounded, which costs |ln product| / n; and pow may be off by a rounding or two.
    void requireGeometricMean(const std::vector<double>& values, double given) const
    {
        long double logarithms = 0.0L;
        double n = 0.0;
        for (std::size_t i = 0; i < values.size(); ++i) {
            const double score = functions[i].score(values[i]).value;
            if (score == -1.0 || std::isnan(score)) {
                continue;
            }
            if (!(score > 1e-20 && score < 1e20)) {
                return;
            }
            logarithms += std::log(static_cast<long double>(score));
            n += 1.0;
        }
        if (n == 0.0) {
            requireSame(given, 1.0, "score of a rule that ignores everything");
            return;
        }
        const long double exact = std::exp(logarithms / static_cast<long double>(n));
        const double roundings = 4.0 + static_cast<double>(std::abs(logarithms)) / n;
        require(std::abs(given - exact) <= fuzz::gammaOf(roundings) * exact, "rule scores ", given, " instead of ",
                static_cast<double>(exact));
    }
};

Rule readRule(Input& input, std::size_t width, const std::vector<Function>& pool)
{
    Rule rule;
    std::vector<Handle> handles;
    for (std::size_t i = 0; i < width; ++i) {
        rule.functions.push_back(pool[input.below(static_cast<unsigned>(pool.size()))]);
        handles.push_back(rule.functions.back().actual);
    }
    const long label = input.label();
    Outcome expected;
    if (label < 0) {
        expected = badParams("label < 0");
    } else if (handles.empty()) {
        expected = badParams("scoringMethods.size() == 0");
    }
    requireOutcome(fuzz::outcomeOf([&] { rule.actual.init(handles, label); }), expected, "rule init");
    rule.label = expected.returned() ? label : 0;
    if (!expected.returned()) {
        rule.functions.clear();
    }
    require(rule.actual.scoringMethods().size() == rule.functions.size(), "a refused rule has changed");
    require(rule.actual.label() == rule.label, "label ", rule.actual.label());
    return rule;
}

/// As far as a null handle lets it come.
Outcome compare(const Rule& a, const Rule& b, bool& isEqual)
{
    isEqual = false;
    if (a.functions.size() != b.functions.size()) {
        return {};
    }
    for (std::size_t i = 0; i < a.functions.size(); ++i) {
        if (a.functions[i].kind == Function::null || b.functions[i].kind == Function::null) {
            return fuzz::refusal(ktBadPointer());
        }
        if (!a.functions[i].equals(b.functions[i])) {
            return {};
        }
    }
    isEqual = a.label == b.label;
    return {};
}

void requireComparison(const Rule& a, const Rule& b)
{
    bool expected = false;
    bool actual = false;
    const Outcome outcome = compare(a, b, expected);
    requireOutcome(fuzz::outcomeOf([&] { actual = a.actual == b.actual; }), outcome, "comparison of rules");
    require(actual == expected, "rules compare ", actual);
}

void requireRuleScore(const Rule& rule, const std::vector<double>& values)
{
    double actual = 0.0;
    const Score expected = rule.score(values);
    const ktClassifierFeatureVector vector(values);
    requireOutcome(fuzz::outcomeOf([&] { actual = rule.actual.score(vector); }), expected.outcome, "rule score");
    if (expected.outcome.returned()) {
        requireSame(actual, expected.value, "rule score");
        rule.requireGeometricMean(values, actual);
    }
}

struct Table {
    std::vector<Rule> rules;
    ktClassifierRuleTable actual;

    void train(const std::vector<Rule>& newRules)
    {
        std::vector<ktClassifierRule> given;
        Outcome expected = newRules.empty() ? badParams("rules.size() == 0") : Outcome();
        for (const Rule& rule : newRules) {
            given.push_back(rule.actual);
            if (rule.functions.size() != newRules.front().functions.size()) {
                expected = badParams("rules[i].scoringMethods().size() != ruleSize");
            }
        }
        requireOutcome(fuzz::outcomeOf([&] { actual.train(given); }), expected, "train");
        if (expected.returned()) {
            rules = newRules;
        }
        require(actual.rules().size() == rules.size(), actual.rules().size(), " rules after training");
    }

    void requireLabel(const std::vector<double>& values, double threshold) const
    {
        long label = -2;
        long expectedLabel = -2;
        const Outcome expected = classify(values, threshold, expectedLabel);
        const ktClassifierFeatureVector vector(values);
        const auto call = [&] { label = actual.classifyHardThreshold(vector, threshold); };
        requireOutcome(fuzz::outcomeOf(call), expected, "classify");
        require(label == expectedLabel, "label ", label, " instead of ", expectedLabel);
    }

    Outcome classify(const std::vector<double>& values, double threshold, long& label) const
    {
        if (!isUnit(threshold)) {
            return badParams("hardThreshold < 0 || hardThreshold > 1");
        }
        if (rules.empty()) {
            return fuzz::refusal(
                ktClassifierDefs::NotTrained("the rule table needs to be trained before it can classify"));
        }
        if (values.empty()) {
            return badParams("featureVector.featureValues().size() == 0");
        }
        if (values.size() != rules.front().functions.size()) {
            return badParams("featureVector.featureValues().size() != rules_[0].scoringMethods().size())");
        }
        for (const Rule& rule : rules) {
            const Score score = rule.score(values);
            if (!score.outcome.returned()) {
                return score.outcome;
            }
            if (score.value > threshold) {
                label = rule.label;
                return {};
            }
        }
        label = -1;
        return {};
    }

    void requireRoundTrip() const
    {
        if (!std::all_of(rules.begin(), rules.end(), [](const Rule& rule) { return rule.isArchivable(); })) {
            return;
        }
        const ktClassifierRuleTable loaded = fuzz::storedAndLoaded(actual);
        require(loaded == actual, "a loaded table is not equal");
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    std::vector<Function> pool;
    for (unsigned i = 1 + input.below(8); i > 0; --i) {
        pool.push_back(readFunction(input));
        requireScore(pool.back(), input.number());
    }
    Table table;
    while (!input.isAtEnd()) {
        const std::size_t width = input.below(5);
        const std::vector<double> values = input.numbers(input.below(8) == 0 ? input.below(6) : width);
        std::vector<Rule> rules;
        for (unsigned i = input.below(5); i > 0; --i) {
            rules.push_back(readRule(input, input.below(16) == 0 ? input.below(5) : width, pool));
            requireRuleScore(rules.back(), values);
            requireComparison(rules.back(), rules.front());
        }
        for (const double value : values) {
            requireScore(pool.front(), value);
        }
        table.train(rules);
        table.requireLabel(values, input.share());
        table.requireRoundTrip();
        const ktClassifierRuleTable copy = table.actual;
        table.actual = copy;
    }
    return 0;
}
