#include "load_work.h"

#include <cmath>
#include <cstddef>

namespace load_work {

namespace {

using Row = std::vector<double>;

/// Changes a row of a store, which is then out of proportion.
using Wilderness = void (*)(std::size_t number, Row& row);

constexpr std::size_t rowSize = 16;

Row drawnRow(ktRandomGaussian& random, std::size_t number, Wilderness change)
{
    Row row(rowSize);
    for (double& value : row) {
        value = random.next(0.0, 1.0);
    }
    change(number, row);
    return row;
}

/// The norm in another class, so that the plain scan calls it for every stored row.
class PlainNorm : public ktPatternDistanceMetricNorm {
public:
    using ktPatternDistanceMetricNorm::ktPatternDistanceMetricNorm;
    ktPtrHandle<ktPatternDistanceMetric> clone() const override { return new PlainNorm(*this); }
};

/// Keeps the results, as a run of many patterns does.
void runEach(const ktClassifierTool& tool, const std::vector<ktPtrHandle_const<ktFeaturePattern>>& queries)
{
    std::vector<ktClassifierResult> results(queries.size());
    for (std::size_t i = 0; i < queries.size(); ++i) {
        tool.run(*queries[i], results[i]);
    }
}

void runTogether(const ktClassifierTool& tool, const std::vector<ktPtrHandle_const<ktFeaturePattern>>& queries)
{
    std::vector<ktClassifierResult> results;
    tool.run(queries, results);
}

/// Runs of a tool of 20 n stored rows, with patterns that are drawn as the rows were. Only a tool that is to be loaded first is
/// archived, and beyond the bytes of the case.
Case search(long n, const ktPatternDistanceMetric& metric, Wilderness change, std::size_t numQueries = 20,
            decltype(&runEach) run = runEach, bool isLoaded = false)
{
    const ktClassifierTrainParamsKNN params(5, metric, {});
    return {"", {}, [=](ktArchive&) {
                ktRandomGaussian random(7);
                ktClassifierDataProviderMemory data;
                const auto numRows = 20 * static_cast<std::size_t>(n);
                for (std::size_t i = 0; i < numRows; ++i) {
                    data.addData(new ktFeaturePattern(drawnRow(random, i, change), {}), static_cast<long>(i % 4));
                }
                const auto tool = std::make_shared<ktClassifierTool>();
                tool->train(data, params);
                if (isLoaded) {
                    std::istringstream in(stored(*tool));
                    data = {};
                    ktArchive archive(static_cast<std::istream&>(in));
                    archive || *tool;
                }
                std::vector<ktPtrHandle_const<ktFeaturePattern>> queries;
                for (std::size_t i = 0; i < numQueries; ++i) {
                    queries.emplace_back(new ktFeaturePattern(drawnRow(random, 10 * i + i % 10, change), {}));
                }
                return [tool, queries, run] { run(*tool, queries); };
            }};
}

struct SearchedOrder {
    const char* name;
    double value;
    // The most work of a search, in shares of the plain scan's work: a third more than was measured.
    const char* most;
};

constexpr SearchedOrder searchedOrders[] = {
    {"order-1", 1.0, "0.0077"}, {"order-1.5", 1.5, "0.0123"}, {"order-2", 2.0, "0.0065"}};

struct Wild {
    const char* name;
    Wilderness change;
    // The most work of a search, in multiples of that in the tame store.
    const char* most = "4 ";
};

const Wild wildernesses[] = {
    {"value", [](std::size_t number, Row& row) { row[3] = number == 700 ? 9999999.0 : row[3]; }},
    {"value-of-1e100", [](std::size_t number, Row& row) { row[3] = number == 700 ? 1e100 : row[3]; }},
    {"rows",
     [](std::size_t number, Row& row) {
         for (double& value : row) {
             value *= number % 500 == 499 ? 1e7 : 1.0;
         }
     }},
    {"sentinels", [](std::size_t number, Row& row) { row[3] = number % 10 == 9 ? 9999999.0 : row[3]; }},
    {"measurement", [](std::size_t, Row& row) { row[3] *= 1e8; }},
    {"far-cluster",
     [](std::size_t number, Row& row) {
         for (double& value : row) {
             value += number % 10 == 9 ? 1e7 : 0.0;
         }
     },
     // Either part is smaller than all.
     "1.02 "},
    {"scales",
     [](std::size_t number, Row& row) {
         for (double& value : row) {
             value *= number % 100 == 50 ? std::pow(10.0, 4.0 + static_cast<double>(number / 100 % 97)) : 1.0;
         }
     }},
    {"values-of-1e4",
     [](std::size_t, Row& row) {
         for (double& value : row) {
             value *= 1e4;
         }
     }},
    {"values-of-1e100",
     [](std::size_t, Row& row) {
         for (double& value : row) {
             value *= 1e100;
         }
     }},
};

}  // namespace

/// For each order the plain scan of a tame store, the search there, and the wild stores that are compared with it.
std::vector<Kind> searchKinds()
{
    std::vector<Kind> kinds;
    const Wilderness none = [](std::size_t, Row&) {};
    for (const SearchedOrder& order : searchedOrders) {
        const ktPatternDistanceMetricNorm norm(order.value);
        const std::string plain = std::string("search-plain-") + order.name;
        const std::string tame = std::string("search-tame-") + order.name;
        const auto searching = [norm](Wilderness change) {
            return [norm, change](long n) { return search(n, norm, change); };
        };
        kinds.push_back({plain, [order, none](long n) { return search(n, PlainNorm(order.value), none); }, ""});
        kinds.push_back({tame, searching(none), order.most + (" " + plain)});
        for (const Wild& wild : wildernesses) {
            kinds.push_back(
                {std::string("search-wild-") + wild.name + "-" + order.name, searching(wild.change), wild.most + tame});
        }
    }
    const ktPatternDistanceMetricNorm euclidean(2.0);
    kinds.push_back({"search-loaded", [=](long n) { return search(n, euclidean, none, 20, runEach, true); },
                     "1.1 search-tame-order-2"});
    kinds.push_back({"search-one-by-one", [=](long n) { return search(n, euclidean, none, 400); }, ""});
    kinds.push_back({"search-together", [=](long n) { return search(n, euclidean, none, 400, runTogether); },
                     "0.74 search-one-by-one"});
    const Wilderness few = [](std::size_t, Row& row) { row.resize(2); };
    kinds.push_back({"search-few-one-by-one", [=](long n) { return search(n, euclidean, few, 400); }, ""});
    kinds.push_back({"search-few-together", [=](long n) { return search(n, euclidean, few, 400, runTogether); },
                     "1 search-few-one-by-one"});
    return kinds;
}

}  // namespace load_work
