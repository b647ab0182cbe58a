#pragma once

// Random sets of patterns, what runs on them are asked, and the answers of a second, plain implementation.

#include "clss/clastool/neighbor_scan/compact_copy.h"
#include "clss/clastool/neighbor_scan/exact_distance.h"
#include "tests/support/attention.h"
#include "tests/support/neighbor_reference.h"
#include "tests/support/training.h"

#include <clastool/clastool.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

namespace neighbor_cases {

using Row = std::vector<double>;

inline constexpr double infinity = std::numeric_limits<double>::infinity();

/// The same numbers on every platform.
class Random {
public:
    explicit Random(unsigned long seed) : uniform_(seed), gaussian_(seed + 1) {}

    double uniform(double low, double high) { return uniform_.next(low, high); }
    double normal() { return gaussian_.next(0.0, 1.0); }
    std::size_t below(std::size_t limit)
    {
        return static_cast<std::size_t>(uniform_.next(0.0, static_cast<double>(limit)));
    }
    int between(int low, int high) { return low + static_cast<int>(below(static_cast<std::size_t>(high - low + 1))); }
    bool oneIn(std::size_t times) { return below(times) == 0; }

    template <class T, std::size_t Size>
    T oneOf(const T (&values)[Size])
    {
        return values[below(Size)];
    }

private:
    ktRandomUniform uniform_;
    ktRandomGaussian gaussian_;
};

enum class Order { random, farthestFirst, nearestFirst };

/// How the measurements of a set are drawn.
struct Kind {
    std::string_view name;
    /// The measurement `j` of a pattern of a group of 0 to 3.
    double (*value)(Random& random, std::size_t j, int group);
    /// Whether copies answer more than half of the cases with a norm themselves, instead of leaving them to the plain scan.
    bool isServed = true;
    std::size_t mostRows = 150;
    std::size_t mostMeasurements = 16;
    Order order = Order::random;
    /// Of how many patterns one repeats another one.
    std::size_t repeats = 8;
};

inline std::ostream& operator<<(std::ostream& out, const Kind& kind)
{
    return out << kind.name;
}

inline double normal(Random& random, std::size_t, int)
{
    return random.normal();
}

inline double smallInteger(Random& random, std::size_t, int)
{
    return random.between(-3, 3);
}

inline const Kind kinds[] = {
    {"Uniform", [](Random& r, std::size_t, int) { return r.uniform(0.0, 1.0); }},
    {"Normal", normal},
    {"OverlappingClasses", [](Random& r, std::size_t, int group) { return r.normal() + 0.5 * group; }},
    {"FarthestFirst", normal, true, 300, 12, Order::farthestFirst},
    {"ManyFarthestFirst", normal, true, 9000, 2, Order::farthestFirst},
    {"NearestFirst", normal, true, 300, 12, Order::nearestFirst},
    {"Grid", smallInteger},
    {"GridOfManyPatterns", smallInteger, true, 3000, 2},
    {"Bits", [](Random& r, std::size_t, int) { return static_cast<double>(r.between(0, 1)); }},
    {"Duplicates", normal, true, 200, 12, Order::random, 1},
    {"AllOne", [](Random&, std::size_t j, int) { return static_cast<double>(j); }},
    {"LastBits", [](Random& r, std::size_t, int) { return 1.0 + r.between(0, 4) * 0x1p-52; }},
    {"MirroredGroups",
     [](Random&, std::size_t j, int g) { return (g % 2 == 0 ? 0.1 : -0.1) * (1.0 + double(j * 7 % 5)); }},
    {"Clusters", [](Random& r, std::size_t, int group) { return group + 1e-7 * r.normal(); }},
    {"Offset", [](Random& r, std::size_t, int) { return 1e6 + r.normal(); }},
    {"LargeOffset", [](Random& r, std::size_t, int) { return 1e15 + r.between(0, 8); }},
    {"MixedScales", [](Random& r, std::size_t j, int) { return std::pow(10.0, int(j % 7) - 3) * r.normal(); }},
    {"ManyScales", [](Random& r, std::size_t, int) { return std::ldexp(r.normal(), r.between(-20, 20)); }},
    {"AllScales", [](Random& r, std::size_t, int) { return std::ldexp(r.normal(), r.between(-1070, 800)); }},
    {"GroupScales", [](Random& r, std::size_t, int group) { return std::ldexp(r.normal(), 150 * group - 300); }},
    {"SubnormalBesideHuge",
     [](Random& r, std::size_t j, int group) {
         return j == 0 && group < 2 ? std::ldexp(r.normal(), 830) : std::ldexp(r.between(-150, 150) / 100.0, -241);
     }},
    {"OneInFiftyWild",
     [](Random& r, std::size_t, int) {
         return r.normal() * (r.oneIn(800) ? r.oneOf({1e4, 1e7, 1e30, 1e100}) : 1.0);
     },
     true, 900, 16},
    {"FarClusters",
     [](Random& r, std::size_t, int group) {
         const double centres[] = {0.0, 0.0, 1e7, -1e50};
         return centres[group] + (group == 3 ? 1e36 : 1.0) * r.normal();
     },
     true, 900, 8},
    {"ManyMeasurements", normal, true, 100, 300},
    {"ManyPatternsInClusters", [](Random& r, std::size_t, int group) { return 4.0 * group + r.normal(); }, true, 5000,
     2},
    {"Tiny", [](Random& r, std::size_t, int) { return 1e-200 * r.normal(); }},
    {"Subnormal", [](Random& r, std::size_t, int) { return std::ldexp(r.normal(), -1060); }, false},
    {"Huge", [](Random& r, std::size_t, int) { return 1e150 * r.normal(); }},
    {"Largest", [](Random& r, std::size_t, int) { return r.uniform(-1.79e308, 1.79e308); }, false},
    {"NotFinite",
     [](Random& r, std::size_t, int) {
         return r.oneIn(100) ? r.oneOf({infinity, -infinity, std::nan("")}) : r.normal();
     },
     false},
};

inline constexpr std::size_t setsOfKind = 100;
inline constexpr std::size_t casesOfSet = 40;
static_assert(std::size(kinds) * setsOfKind * casesOfSet >= 100000);

/// A metric of the user's own. It derives from the norm and gives other distances, so a run that hurried past it would show.
class CoarseNorm : public ktPatternDistanceMetricNorm {
public:
    using ktPatternDistanceMetricNorm::ktPatternDistanceMetricNorm;
    double distance(const ktFeaturePattern& a, const ktFeaturePattern& b) const override
    {
        return coarse(ktPatternDistanceMetricNorm::distance(a, b));
    }
    ktPtrHandle<ktPatternDistanceMetric> clone() const override { return new CoarseNorm(*this); }

    static double coarse(double distance) { return std::floor(distance * 2.0); }
};

struct Stored {
    Row measurements;
    long label;
    bool isValid;
};

/// What a run is asked.
struct Question {
    Row query;
    bool isValid = true;
    double order = 2.0;
    bool isCoarse = false;
    long k = 1;
    /// The attention check fails at this poll; 0 for never, below 0 for no attention handler.
    long failingPoll = -1;
};

/// What a run gives: an error, and the result that it leaves.
struct Answer {
    std::string error;
    long polls = 0;
    ktClassifierResult result;

    bool operator==(const Answer& other) const
    {
        return error == other.error && polls == other.polls && result == other.result;
    }
};

inline std::ostream& operator<<(std::ostream& out, const Answer& answer)
{
    out << (answer.error.empty() ? "no error" : answer.error) << ", " << answer.polls << " polls, categories";
    for (const ktClassifierCategoryResult& category : answer.result.categoryResults()) {
        out << ' ' << category.categoryLabel() << " (" << category.matchScore() << ')';
    }
    return out;
}

inline std::string described(const ktException& error)
{
    return std::string(typeid(error).name()) + " " + std::to_string(error.errorNumber()) + " " + error.message();
}

/// The plain implementation. The list is given back as well.
inline Answer plainAnswer(const std::vector<Stored>& stored, const Question& question, kt_test::PlainNeighbors& list)
{
    Answer answer{"", 0, kt_test::untouchedResult()};
    const auto isAborted = [&] {
        answer.polls += question.failingPoll >= 0 ? 1 : 0;
        return question.failingPoll > 0 && answer.polls == question.failingPoll;
    };
    const std::string aborted = described(ktFailure(kt_test::abortStatus));
    if (!question.isValid || question.query.size() != stored.front().measurements.size()) {
        answer.error = described(
            ktClassifierDefs::BadFeatures("K-nearest neighbor classification does not support invalid measurements"));
        return answer;
    }
    list.k = static_cast<std::size_t>(question.k);
    for (std::size_t row = 0; row < stored.size(); ++row) {
        if (isAborted()) {
            answer.error = aborted;
            return answer;
        }
        if (!stored[row].isValid) {
            answer.error = described(
                ktClassifierDefs::BadFeatures("Access to full feature vector requires that all features are valid."));
            return answer;
        }
        const double distance = kt_test::plainDistance(question.query, stored[row].measurements, question.order);
        list.take(row, question.isCoarse ? CoarseNorm::coarse(distance) : distance);
    }
    std::vector<long> labels;
    for (const Stored& each : stored) {
        labels.push_back(each.label);
    }
    const ktClassifierResult result = kt_test::resultOfVotes(list.rows, labels, ktClassifierCosts(1.0));
    for (std::size_t i = 0; i < result.categoryResults().size(); ++i) {
        if (isAborted()) {
            answer.error = aborted;
            return answer;
        }
    }
    answer.result = result;
    return answer;
}

inline Answer answerOf(const kt_ClassifierKNN& classifier, const Question& question)
{
    const ktFeaturePattern pattern(question.query, question.isValid ? std::vector<long>{} : std::vector<long>{0});
    Answer answer{"", 0, kt_test::untouchedResult()};
    const auto run = [&] {
        try {
            classifier.run(pattern, answer.result);
        } catch (const ktException& error) {
            answer.error = described(error);
        }
    };
    if (question.failingPoll < 0) {
        run();
        return answer;
    }
    const kt_test::Attention attention(question.failingPoll, kt_test::abortStatus);
    run();
    answer.polls = attention.polls();
    return answer;
}

/// A set of patterns in three forms: as the plain implementation reads them, in a classifier, and in a store with a copy
/// of its own that can be asked directly.
class PatternSet {
public:
    PatternSet(const Kind& kind, unsigned long number) : kind_(kind), random_(seedOf(kind, number))
    {
        size_ = 1 + random_.below(kind.mostMeasurements);
        hasOwnLabels_ = !random_.oneIn(4);
        std::vector<Row> rows;
        for (std::size_t wanted = random_.oneIn(8) ? 1 : 1 + random_.below(kind.mostRows); wanted > 0; --wanted) {
            rows.push_back(!rows.empty() && random_.oneIn(kind.repeats)
                               ? rows[random_.below(std::min<std::size_t>(rows.size(), 6))]
                               : draw());
        }
        sort(rows);
        for (const Row& row : rows) {
            owned_.emplace_back(new ktFeaturePattern(row, {}));
            stored_.push_back({row, nextLabel(), true});
            store_.addData(owned_.back(), stored_.back().label);
        }
        classifier_.train(store_, ktClassifierTrainParamsKNN());
        copy_->make(store_);
    }

    /// What happens between two runs.
    void change()
    {
        if (random_.oneIn(stored_.size() < 20 ? 2 : 8)) {
            add();
        }
        if (random_.oneIn(20)) {
            assignOver();
        }
        if (random_.oneIn(20)) {
            // Shares the patterns and the copy.
            classifier_ = kt_ClassifierKNN(classifier_);
        }
    }

    Question ask()
    {
        if (random_.oneIn(3)) {
            const double usual[] = {1.0, 2.0};
            const double others[] = {0.5, 3.0, 1.5, 7.3, 0.7, 0.3, 0.1, 2.5, 12.0, 50.0, random_.uniform(0.2, 10.0)};
            const double unusual[] = {1e-300, 0.01, 400.0, 1e5, 1e300, infinity};
            question_.order = random_.oneIn(2) ? random_.oneOf(usual) : random_.oneOf(others);
            question_.order = random_.oneIn(30) ? random_.oneOf(unusual) : question_.order;
            question_.isCoarse = random_.oneIn(20);
            question_.k = number();
            retrain();
        }
        question_.query = query();
        question_.isValid = !random_.oneIn(150);
        const auto polls = static_cast<int>(stored_.size()) + 3;
        question_.failingPoll = !random_.oneIn(12) ? -1 : random_.oneIn(2) ? 0 : random_.between(1, polls);
        return question_;
    }

    const std::vector<Stored>& stored() const { return stored_; }
    const kt_ClassifierKNN& classifier() const { return classifier_; }

    /// The list made of the rows that the copy finds. Returns false where it leaves them to the plain scan.
    bool find(const Question& question, kt_test::PlainNeighbors& list) const
    {
        const std::size_t k = std::min(static_cast<std::size_t>(question.k), stored_.size());
        kt_RowList rows(k);
        if (!copy_->isCurrent(store_) || !copy_->nearest(store_, question.query, question.order, rows)) {
            return false;
        }
        std::sort(rows.begin(), rows.end());
        list.k = static_cast<std::size_t>(question.k);
        for (const std::size_t row : rows) {
            list.take(row,
                      kt_exactDistance(question.query.data(), stored_[row].measurements.data(), size_, question.order));
        }
        return true;
    }

private:
    static unsigned long seedOf(const Kind& kind, unsigned long number)
    {
        // By its name, because the parameter of a test is a copy.
        const auto* const place =
            std::find_if(std::begin(kinds), std::end(kinds), [&](const Kind& each) { return each.name == kind.name; });
        return static_cast<unsigned long>(place - kinds) * 1000 + number;
    }

    Row draw()
    {
        const int group = random_.between(0, 3);
        Row row(size_);
        for (std::size_t j = 0; j < size_; ++j) {
            row[j] = kind_.value(random_, j, group);
        }
        return row;
    }

    void sort(std::vector<Row>& rows) const
    {
        const auto length = [](const Row& row) { return std::inner_product(row.begin(), row.end(), row.begin(), 0.0); };
        const auto isNearer = [&](const Row& a, const Row& b) { return length(a) < length(b); };
        if (kind_.order != Order::random) {
            std::sort(rows.begin(), rows.end(), isNearer);
        }
        if (kind_.order == Order::farthestFirst) {
            std::reverse(rows.begin(), rows.end());
        }
    }

    long nextLabel() { return hasOwnLabels_ ? static_cast<long>(stored_.size()) : static_cast<long>(random_.below(4)); }

    long number()
    {
        const auto all = static_cast<int>(stored_.size());
        if (all > 500) {
            // More neighbours of so many rows would take the plain implementation too long.
            return random_.between(1, random_.oneIn(16) ? 500 : 10);
        }
        if (random_.oneIn(8)) {
            return random_.oneOf({std::max(all / 2, 1), std::max(all - 1, 1), all, all + 1, 2147483647});
        }
        return random_.between(1, 10);
    }

    Row query()
    {
        Row query = random_.oneIn(3) ? stored_[random_.below(stored_.size())].measurements : draw();
        if (random_.oneIn(6)) {
            std::fill(query.begin(), query.end(), 0.0);
        }
        if (random_.oneIn(8)) {
            query[random_.below(size_)] = draw()[0];
        }
        if (random_.oneIn(25)) {
            query[random_.below(size_)] *= random_.oneOf({1e3, 1e10, 1e100});
        }
        if (random_.oneIn(60)) {
            query[random_.below(size_)] = random_.oneOf({1e300, infinity, -infinity, std::nan("")});
        }
        if (random_.oneIn(150)) {
            query.push_back(1.0);
        }
        return query;
    }

    void retrain()
    {
        const ktPatternDistanceMetricNorm norm(question_.order);
        const CoarseNorm coarse(question_.order);
        const ktPatternDistanceMetric& metric = question_.isCoarse ? coarse : norm;
        classifier_.retrain(ktClassifierTrainParamsKNN(question_.k, metric, ktClassifierCosts(1.0)));
    }

    void add()
    {
        Row row = draw();
        if (random_.oneIn(20)) {
            row[random_.below(size_)] *= random_.oneOf({1e3, 1e9, 1e30});
        }
        const bool isValid = !random_.oneIn(100);
        const ktFeaturePattern pattern(row, isValid ? std::vector<long>{} : std::vector<long>{0});
        stored_.push_back({row, nextLabel(), isValid});
        classifier_.trainIncremental(pattern, stored_.back().label);
        store_.addData(new ktFeaturePattern(pattern), stored_.back().label);
        copy_->append(store_);
    }

    /// The classifier's copy is out of date from here on to the next pattern that is added.
    void assignOver()
    {
        const std::size_t row = random_.below(owned_.size());
        stored_[row].measurements = draw();
        *owned_[row] = ktFeaturePattern(stored_[row].measurements, {});
        EXPECT_FALSE(copy_->isCurrent(store_));
        copy_->make(store_);
    }

    const Kind& kind_;
    Random random_;
    std::size_t size_ = 0;
    bool hasOwnLabels_ = false;
    Question question_;
    std::vector<Stored> stored_;
    std::vector<ktPtrHandle<ktFeaturePattern>> owned_;
    kt_ClassifierKNN classifier_;
    ktClassifierDataProviderMemory store_;
    ktPtrHandle<kt_CompactCopy> copy_ = new kt_CompactCopy;
};

class NeighborCases : public testing::TestWithParam<Kind> {
protected:
    void SetUp() override
    {
        for (const int set : {0, 1}) {
            if (kt_CompactCopy::instructionSet(set) == set) {
                instructionSets_.push_back(set);
            }
        }
    }
    void TearDown() override
    {
        kt_CompactCopy::instructionSet(1);
        kt_CompactCopy::cellsFrom(usualCells_);
    }

    /// Every other set has cells, which only large sets have otherwise.
    void check(unsigned long number)
    {
        kt_CompactCopy::cellsFrom(number % 2 == 0 ? 0 : usualCells_);
        PatternSet set(GetParam(), number);
        for (std::size_t i = 0; i < casesOfSet; ++i) {
            SCOPED_TRACE(testing::Message() << "case " << i << " of KT_NEIGHBOR_SET=" << number);
            set.change();
            const Question question = set.ask();
            kt_test::PlainNeighbors expectedList{};
            const Answer expected = plainAnswer(set.stored(), question, expectedList);
            for (const int instructionSet : instructionSets_) {
                kt_CompactCopy::instructionSet(instructionSet);
                ASSERT_EQ(answerOf(set.classifier(), question), expected)
                    << "order " << question.order << ", k " << question.k << ", instruction set " << instructionSet;
                if (expected.error.empty() && !question.isCoarse) {
                    compareLists(set, question, expectedList);
                }
            }
        }
    }

    void compareLists(const PatternSet& set, const Question& question, const kt_test::PlainNeighbors& expected)
    {
        kt_test::PlainNeighbors found{};
        ++asked_;
        if (set.find(question, found)) {
            ++served_;
            ASSERT_TRUE(found.isSameAs(expected)) << "neighbours or distances differ, order " << question.order;
        }
    }

    long asked_ = 0;
    long served_ = 0;

private:
    const std::size_t usualCells_ = kt_CompactCopy::cellsFrom();
    std::vector<int> instructionSets_;
};

}  // namespace neighbor_cases
