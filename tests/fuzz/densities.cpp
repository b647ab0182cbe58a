// Normal and binomial densities: learning against the documented recurrence, to the bit, and against moments in two passes;
// lists against single patterns and through archives, to the bit; log densities within their bounds everywhere, and where
// the correlations are well conditioned against long double.

#include "fuzz_kit.h"

#include <clastool/bayes.h>

#include <kt/normal_density.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>

namespace {

using fuzz::badParams;
using fuzz::Input;
using fuzz::Outcome;
using fuzz::require;
using fuzz::requireOutcome;
using fuzz::requireSame;
using NotImplemented = ktClassifierDefs::NotImplemented;
using InsufficientTrainData = ktClassifierDefs::InsufficientTrainData;

constexpr long double unitRoundoff = 0x1p-53L;
const char* const sizesText = "Must call clear before updating with feature vectors of different sizes";

/// A pattern, and the same in plain form.
struct Row {
    std::vector<double> values;
    std::vector<bool> valid;

    std::size_t size() const { return values.size(); }
    /// A value that is not finite counts as invalid.
    bool isValidAt(std::size_t i) const { return valid[i] && std::isfinite(values[i]); }
    bool hasValid() const
    {
        for (std::size_t i = 0; i < size(); ++i) {
            if (isValidAt(i)) {
                return true;
            }
        }
        return false;
    }

    ktFeaturePattern pattern() const
    {
        std::vector<long> invalid;
        for (std::size_t i = 0; i < size(); ++i) {
            if (!valid[i]) {
                invalid.push_back(static_cast<long>(i));
            }
        }
        return {values, invalid};
    }
};

Row readRow(Input& input, std::size_t size)
{
    Row row{input.numbers(size), std::vector<bool>(size, true)};
    if (input.below(4) == 0) {
        for (std::size_t i = 0; i < size; ++i) {
            row.valid[i] = input.below(4) != 0;
        }
    }
    return row;
}

using Rows = std::vector<Row>;

std::vector<ktFeaturePattern> patternsOf(const Rows& rows)
{
    std::vector<ktFeaturePattern> patterns;
    for (const Row& row : rows) {
        patterns.push_back(row.pattern());
    }
    return patterns;
}

/// Mean, covariance and count by the documented recurrence; the rows learnt, for the moments in two passes.
struct State {
    std::optional<std::size_t> size;
    std::vector<double> mean;
    std::vector<double> covariance;
    long count = 0;
    std::vector<std::vector<double>> learnt;

    bool accepts(const Rows& rows) const
    {
        const std::size_t expected = size ? *size : rows.front().size();
        return std::all_of(rows.begin(), rows.end(), [expected](const Row& row) { return row.size() == expected; });
    }

    void learn(const Rows& rows, double normalizer)
    {
        if (!size) {
            size = rows.front().size();
            mean.assign(*size, 0.0);
            covariance.assign(*size * *size, 0.0);
        }
        for (const Row& row : rows) {
            std::vector<double> x = row.values;
            bool counts = true;
            for (std::size_t i = 0; i < *size; ++i) {
                x[i] /= normalizer;
                counts = counts && row.isValidAt(i) && std::isfinite(x[i]);
            }
            if (counts) {
                learn(x);
            }
        }
    }

    void learn(const std::vector<double>& x)
    {
        learnt.push_back(x);
        count = count < 1 ? 1 : std::min(count, 2147483646L) + 1;
        if (count == 1) {
            mean = x;
            covariance.assign(covariance.size(), 0.0);
            return;
        }
        const auto n = static_cast<double>(count);
        const std::vector<double> old = mean;
        for (std::size_t i = 0; i < *size; ++i) {
            for (std::size_t j = 0; j < *size; ++j) {
                double& element = covariance[i * *size + j];
                element = element * (n - 2.0) / (n - 1.0) + (x[i] - old[i]) * (x[j] - old[j]) / n;
            }
            mean[i] = old[i] + (x[i] - old[i]) / n;
        }
    }
};

void requireState(const ktNMMatrix& mean, const ktNMMatrix& covariance, const State& state)
{
    const std::size_t size = state.size.value_or(0);
    require(mean.numRows() == static_cast<long>(size), "mean of ", mean.numRows(), " rows");
    require(covariance.numRows() == static_cast<long>(size) && covariance.numColumns() == covariance.numRows(),
            "covariance of ", covariance.numRows(), " rows and ", covariance.numColumns(), " columns");
    for (std::size_t i = 0; i < size; ++i) {
        requireSame(mean.data()[i], state.mean[i], "mean of measurement ", i);
    }
    for (std::size_t i = 0; i < size * size; ++i) {
        requireSame(covariance.data()[i], state.covariance[i], "element ", i, " of the covariance");
    }
}

/// What is known of one measurement: the largest size, and how far apart its values lie.
struct Spread {
    long double size = 0.0L;
    long double range = 0.0L;
    long double mean = 0.0L;
};

Spread spreadOf(const State& state, std::size_t i)
{
    Spread spread;
    long double low = state.learnt.front()[i];
    long double high = low;
    for (const std::vector<double>& x : state.learnt) {
        low = std::min<long double>(low, x[i]);
        high = std::max<long double>(high, x[i]);
        spread.mean += x[i];
    }
    spread.size = std::max(std::abs(low), std::abs(high));
    spread.range = high - low;
    spread.mean /= static_cast<long double>(state.learnt.size());
    return spread;
}

/// The recurrence against moments in two passes. A step of the mean costs at most 3 roundings of the largest value X, so a
/// difference d of range D is known to e = u (D + 3 n X); a product of two to D e' + D' e + u D D'; an element is an average
/// of n of them, at most twice the largest, with 4 roundings a step of its own. All of it is doubled for what is of second
/// order.
void requireMoments(const State& state)
{
    if (state.learnt.empty() || state.count != static_cast<long>(state.learnt.size())) {
        return;
    }
    const std::size_t size = *state.size;
    const auto n = static_cast<long double>(state.count);
    std::vector<Spread> spreads;
    for (std::size_t i = 0; i < size; ++i) {
        spreads.push_back(spreadOf(state, i));
        if (!(spreads.back().size < 1e140L)) {
            return;
        }
    }
    const long double smallest = 0x1p-1074L;
    const auto error = [n](const Spread& s) { return unitRoundoff * (s.range + 3.0L * n * s.size) + 0x1p-1074L; };
    for (std::size_t i = 0; i < size; ++i) {
        const Spread& a = spreads[i];
        require(std::abs(state.mean[i] - a.mean) <= 6.0L * n * unitRoundoff * a.size + n * smallest, "mean ",
                state.mean[i], " instead of ", static_cast<double>(a.mean));
        for (std::size_t j = 0; j < size && state.count > 1; ++j) {
            const Spread& b = spreads[j];
            long double sum = 0.0L;
            for (const std::vector<double>& x : state.learnt) {
                sum += (x[i] - a.mean) * (x[j] - b.mean);
            }
            const long double exact = sum / (n - 1.0L);
            const long double bound = 4.0L * (b.range * error(a) + a.range * error(b)) +
                                      4.0L * (1.0L + 4.0L * n) * unitRoundoff * a.range * b.range + 8.0L * n * smallest;
            require(std::abs(state.covariance[i * size + j] - exact) <= bound, "covariance ",
                    state.covariance[i * size + j], " instead of ", static_cast<double>(exact));
        }
    }
}

using LongMatrix = std::vector<std::vector<long double>>;

/// Lower triangular factor of a symmetric matrix; none if it is not positive definite.
std::optional<LongMatrix> factorised(const LongMatrix& matrix)
{
    LongMatrix factor = matrix;
    for (std::size_t i = 0; i < matrix.size(); ++i) {
        for (std::size_t j = 0; j <= i; ++j) {
            for (std::size_t k = 0; k < j; ++k) {
                factor[i][j] -= factor[i][k] * factor[j][k];
            }
            if (i != j) {
                factor[i][j] /= factor[j][j];
            } else if (factor[i][i] > 0.0L) {
                factor[i][i] = std::sqrt(factor[i][i]);
            } else {
                return std::nullopt;
            }
        }
    }
    return factor;
}

struct LogDensity {
    long double value;
    long double tolerance;
};

/// The density in long double, where no spread is near that of rounding, and no eigenvalue of its correlations is small: with determinant D and
/// trace n the smallest eigenvalue is at least D ((n - 1) / n)^(n - 1) >= D / e. Rounding changes a correlation by a few u,
/// which the inverse enlarges by 1 / eigenvalue, and the factor by as much; the sums over n terms add the rest.
class Reference {
public:
    explicit Reference(const State& state) : state_(state), size_(*state.size)
    {
        isComparable_ = isModest(state.mean, 1e140) && isModest(state.covariance, 1e280);
        for (std::size_t i = 0; i < size_ && isComparable_; ++i) {
            const long double variance = std::max(state.covariance[i * size_ + i], 0.0);
            deviations_.push_back(std::sqrt(variance));
            isComparable_ = deviations_[i] > std::abs(static_cast<long double>(state.mean[i])) * 0x1p-49L;
        }
        if (!isComparable_) {
            return;
        }
        correlations_.assign(size_, std::vector<long double>(size_, 1.0L));
        for (std::size_t i = 0; i < size_; ++i) {
            for (std::size_t j = 0; j < size_; ++j) {
                if (i != j) {
                    const long double r = state.covariance[i * size_ + j] / deviations_[i] / deviations_[j];
                    correlations_[i][j] = std::clamp(r, -1.0L, 1.0L);
                }
            }
        }
        const std::optional<LongMatrix> factor = factorised(correlations_);
        long double determinant = 1.0L;
        for (std::size_t i = 0; factor && i < size_; ++i) {
            determinant *= (*factor)[i][i] * (*factor)[i][i];
        }
        isComparable_ = factor && determinant > 1e-6L;
        smallestEigenvalue_ = determinant / 2.7182818284590452354L;
    }

    std::optional<LogDensity> at(const Row& row) const
    {
        std::vector<std::size_t> kept;
        for (std::size_t i = 0; i < size_; ++i) {
            if (row.isValidAt(i)) {
                kept.push_back(i);
            }
        }
        if (!isComparable_ || kept.empty() || !isModest(row.values, 1e140)) {
            return std::nullopt;
        }
        const std::size_t n = kept.size();
        LongMatrix part(n, std::vector<long double>(n));
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t j = 0; j < n; ++j) {
                part[i][j] = correlations_[kept[i]][kept[j]];
            }
        }
        const std::optional<LongMatrix> factor = factorised(part);
        long double squares = 0.0L;
        long double logarithms = 0.0L;
        long double sizes = 0.0L;
        std::vector<long double> white(n);
        for (std::size_t i = 0; i < n; ++i) {
            const std::size_t m = kept[i];
            white[i] = (static_cast<long double>(row.values[m]) - state_.mean[m]) / deviations_[m];
            for (std::size_t j = 0; j < i; ++j) {
                white[i] -= (*factor)[i][j] * white[j];
            }
            white[i] /= (*factor)[i][i];
            squares += white[i] * white[i];
            logarithms += std::log(deviations_[m]) + std::log((*factor)[i][i]);
            sizes += std::abs(std::log(deviations_[m])) + 2.0L;
        }
        if (squares > 1e290L) {
            return std::nullopt;  // close to where a log density is held
        }
        const long double logTwoPi = 1.837877066409345483560659472811235279723L;
        const long double value = -0.5L * (static_cast<long double>(n) * logTwoPi + squares) - logarithms;
        const auto size = static_cast<long double>(size_);
        const long double tolerance = 64.0L * size * size * unitRoundoff / smallestEigenvalue_ * (squares + sizes);
        return LogDensity{value, tolerance};
    }

private:
    static bool isModest(const std::vector<double>& values, double limit)
    {
        return std::all_of(values.begin(), values.end(), [limit](double value) { return std::abs(value) < limit; });
    }

    const State& state_;
    std::size_t size_;
    bool isComparable_ = true;
    std::vector<long double> deviations_;
    LongMatrix correlations_;
    long double smallestEigenvalue_ = 0.0L;
};

void requireLogDensity(double actual, const State& state, const Row& row)
{
    require(std::abs(actual) <= 1e300, "log density ", actual);
    if (!row.hasValid()) {
        requireSame(actual, 0.0, "log density without a valid measurement");
        return;
    }
    if (const std::optional<LogDensity> exact = Reference(state).at(row)) {
        require(std::abs(actual - exact->value) <= exact->tolerance, "log density ", actual, " instead of ",
                static_cast<double>(exact->value), " within ", static_cast<double>(exact->tolerance));
    }
}

/// One density learns lists, one pattern by pattern, one is stored and loaded between.
class NormalCase {
public:
    explicit NormalCase(Input& input) : size_(input.below(8) == 0 ? input.below(40) : 1 + input.below(5))
    {
        normalizer_ = input.below(4) == 0 ? input.number() : 1.0;
    }

    void step(Input& input)
    {
        const unsigned operation = input.below(16);
        if (operation < 8) {
            learn(input);
        } else if (operation < 14) {
            ask(readRow(input, sizeFrom(input)));
        } else if (operation == 14) {
            compareAndCopy();
        } else if (input.below(4) == 0) {
            clear();
        }
    }

private:
    std::size_t sizeFrom(Input& input) const { return input.below(16) == 0 ? input.below(8) : size_; }

    void learn(Input& input)
    {
        Rows rows;
        for (unsigned i = input.below(6); i > 0; --i) {
            rows.push_back(readRow(input, sizeFrom(input)));
        }
        const bool isAccepted = rows.empty() || state_.accepts(rows);
        const std::string before = fuzz::stored(lists_);
        const auto call = [&] { lists_.updateWithDataNormalize(patternsOf(rows), normalizer_); };
        requireOutcome(fuzz::outcomeOf(call), isAccepted ? Outcome() : badParams(sizesText), "learning a list");
        if (!isAccepted || rows.empty()) {
            require(fuzz::stored(lists_) == before, "a list that is refused, or empty, has changed the density");
            return;
        }
        state_.learn(rows, normalizer_);
        for (const Row& row : rows) {
            singles_.updateWithDataNormalize({row.pattern()}, normalizer_);
        }
        reloaded_.updateWithDataNormalize(patternsOf(rows), normalizer_);
        reloaded_ = fuzz::storedAndLoaded(reloaded_);
        requireState(lists_.mean(), lists_.covariance(), state_);
        requireMoments(state_);
        const std::string bytes = fuzz::stored(lists_);
        require(fuzz::stored(singles_) == bytes, "patterns learnt one by one end in another state");
        require(fuzz::stored(reloaded_) == bytes, "a state that is stored and loaded goes on in another way");
    }

    void ask(const Row& row) const
    {
        require(lists_.isValid() == (state_.count > 0), "valid: ", lists_.isValid());
        Outcome expected;
        if (state_.count < 1) {
            expected = fuzz::refusal(InsufficientTrainData("No valid data has been used to train the distribution"));
        } else if (row.size() != *state_.size) {
            expected = badParams(sizesText);
        }
        double value = 0.0;
        requireOutcome(fuzz::outcomeOf([&] { value = lists_.logValue(row.pattern()); }), expected, "log density");
        if (expected.returned()) {
            requireLogDensity(value, state_, row);
            requireSame(reloaded_.logValue(row.pattern()), value, "log density of a loaded state");
        }
    }

    void compareAndCopy()
    {
        const kt_PDFMultivariateNormal copy(lists_);
        require(fuzz::stored(copy) == fuzz::stored(lists_), "a copy has another state");
        const bool hasNan =
            std::any_of(state_.covariance.begin(), state_.covariance.end(),
                        [](double value) { return std::isnan(value); }) ||
            std::any_of(state_.mean.begin(), state_.mean.end(), [](double value) { return std::isnan(value); });
        require(copy.isEquivalent(lists_) == !hasNan, "a copy is not equivalent");
        require(!copy.isEquivalent(kt_PDFBinomial()), "a normal density is equivalent to a binomial one");
        singles_ = copy;
    }

    void clear()
    {
        for (kt_PDFMultivariateNormal* density : {&lists_, &singles_, &reloaded_}) {
            density->clear();
        }
        state_ = State();
    }

    std::size_t size_;
    double normalizer_;
    State state_;
    kt_PDFMultivariateNormal lists_;
    kt_PDFMultivariateNormal singles_;
    kt_PDFMultivariateNormal reloaded_;
};

/// A state as a damaged archive may leave it: any mean, covariance and count.
void runRestored(Input& input)
{
    State state;
    state.size = 1 + input.below(5);
    const std::size_t size = *state.size;
    state.mean = input.numbers(size);
    state.covariance.assign(size * size, 0.0);
    for (std::size_t i = 0; i < size; ++i) {
        for (std::size_t j = 0; j <= i; ++j) {
            state.covariance[i * size + j] = state.covariance[j * size + i] = input.number();
        }
    }
    state.count = input.label();
    const bool isIrregular = input.below(8) == 0;
    const auto rows = static_cast<long>(size);
    ktNMMatrix mean(rows, 1);
    ktNMMatrix covariance(rows, isIrregular ? rows + 1 : rows);
    std::copy(state.mean.begin(), state.mean.end(), mean.data());
    std::copy(state.covariance.begin(), state.covariance.end(), covariance.data());
    ktNormalDensity density;
    density.restore(mean, covariance, state.count);

    while (!input.isAtEnd()) {
        const Row row = readRow(input, input.below(8) == 0 ? input.below(7) : size);
        const std::unique_ptr<bool[]> valid(new bool[row.size() + 1]);
        std::copy(row.valid.begin(), row.valid.end(), valid.get());
        const ktNormalDensity::Row given{row.values.data(), valid.get(), row.size()};
        const bool isRefused = isIrregular || row.size() != size;
        double value = 0.0;
        const auto code = static_cast<std::uint32_t>(density.logDensity(given, value));
        const std::uint32_t expected = state.count < 1 ? 0x80000B61u : isRefused ? 0x80000B62u : 0u;
        require(code == expected, "code ", code, " instead of ", expected);
        if (code == 0) {
            requireLogDensity(value, state, row);
        }
        if (input.flag()) {
            const auto learnCode = static_cast<std::uint32_t>(density.accumulate(&given, 1, 1.0));
            require(learnCode == (isRefused ? 0x80000B62u : 0u), "code ", learnCode, " from learning");
            if (!isRefused) {
                state.learn({row}, 1.0);
                requireState(density.mean(), density.covariance(), state);
                require(density.count() == state.count, "count ", density.count());
            }
        }
    }
}

long double logFactorial(std::int64_t m)
{
    return m < 2 ? 0.0L : std::lgamma(static_cast<long double>(m) + 1.0L);
}

long saturated(double value)
{
    if (std::isnan(value)) {
        return 0;
    }
    return static_cast<long>(std::clamp(std::trunc(value), -2147483648.0, 2147483647.0));
}

class BinomialCase {
public:
    explicit BinomialCase(Input& input)
        : maximum_(input.below(4) == 0 ? input.number() : 1.0 + input.below(32)),
          lists_(ktFeaturePattern({maximum_}, {})),
          singles_(lists_)
    {
    }

    void step(Input& input)
    {
        const unsigned operation = input.below(16);
        if (operation < 8) {
            learn(input);
        } else if (operation < 14) {
            ask(readRow(input, sizeFrom(input)));
        } else if (operation == 14) {
            reload();
        } else if (input.below(4) == 0) {
            clear();
        }
    }

private:
    static std::size_t sizeFrom(Input& input) { return input.below(32) == 0 ? input.below(3) : 1; }

    void learn(Input& input)
    {
        Rows rows;
        for (unsigned i = input.below(6); i > 0; --i) {
            rows.push_back(readRow(input, sizeFrom(input)));
        }
        const Outcome expected = learnRefusal(rows);
        const std::string before = fuzz::stored(lists_);
        requireOutcome(fuzz::outcomeOf([&] { lists_.updateWithData(patternsOf(rows)); }), expected, "learning a list");
        if (!expected.returned() || rows.empty()) {
            require(fuzz::stored(lists_) == before, "a list that is refused, or empty, has changed the density");
            return;
        }
        accumulator_.learn(rows, maximum_);
        for (const Row& row : rows) {
            singles_.updateWithData({row.pattern()});
        }
        if (accumulator_.count > 0) {
            estimate();
        }
        require(lists_.numTrials() == numTrials_, "n is ", lists_.numTrials(), " instead of ", numTrials_);
        requireSame(lists_.theta(), theta_, "theta");
    }

    Outcome learnRefusal(const Rows& rows) const
    {
        if (rows.empty()) {
            return {};
        }
        if (rows.front().size() != 1) {
            return fuzz::refusal(NotImplemented("Multivariate Binomial Distributions are not implemented"));
        }
        for (const Row& row : rows) {
            for (std::size_t i = 0; i < row.size(); ++i) {
                if (row.isValidAt(i) && row.values[i] > maximum_) {
                    return badParams(
                        "Train data measurement cannot exceed its maximum value when using binomial "
                        "distribution");
                }
            }
        }
        return accumulator_.accepts(rows) ? Outcome() : badParams(sizesText);
    }

    void estimate()
    {
        theta_ = accumulator_.mean[0];
        requireSame(singles_.theta(), theta_, "theta learnt one by one");
        const double variance = accumulator_.covariance[0];
        if (std::abs(variance) <= 1e-15) {
            return;
        }
        numTrials_ = saturated((1.0 - theta_) / variance * theta_ + 0.5);
        require(singles_.numTrials() == numTrials_, "n learnt one by one is ", singles_.numTrials());
    }

    void ask(const Row& row) const
    {
        Outcome expected;
        if (numTrials_ == 0) {
            expected =
                fuzz::refusal(InsufficientTrainData("Insufficient data has been used to train the distribution"));
        } else if (row.size() != 1) {
            expected = fuzz::refusal(NotImplemented("Multivariate Binomial Distributions are not implemented"));
        } else if (row.isValidAt(0) && row.values[0] > maximum_) {
            expected = badParams("Feature measurement must be <= specified maximum value");
        }
        double value = 0.0;
        requireOutcome(fuzz::outcomeOf([&] { value = lists_.logValue(row.pattern()); }), expected, "log density");
        if (!expected.returned()) {
            return;
        }
        if (!row.isValidAt(0)) {
            requireSame(value, 0.0, "log density at an invalid measurement");
        } else {
            requireLogProbability(value, row.values[0]);
        }
    }

    /// ln m! is held to 1e-12 of itself. 1 - theta is rounded, which costs (n - k) u / (1 - theta).
    void requireLogProbability(double value, double x) const
    {
        const double rounded = x * (static_cast<double>(numTrials_) / maximum_) + 0.5;
        if (std::isnan(rounded)) {
            require(std::isnan(value), "log density ", value, " at a k that is not a number");
            return;
        }
        const std::int64_t n = numTrials_;
        const std::int64_t k = saturated(rounded);
        const double special =
            static_cast<double>(k) * std::log(theta_) + static_cast<double>(n - k) * std::log(1.0 - theta_);
        if (!std::isfinite(special)) {
            requireSame(value, special, "log density at theta ", theta_);
            return;
        }
        const long double logs[] = {logFactorial(n), logFactorial(k), logFactorial(n - k)};
        const long double success = static_cast<long double>(k) * std::log(static_cast<long double>(theta_));
        const long double failure = static_cast<long double>(n - k) * std::log1p(-static_cast<long double>(theta_));
        const long double exact = logs[0] - (logs[1] + logs[2]) + success + failure;
        const long double tolerance =
            1e-12L * (logs[0] + logs[1] + logs[2]) + 16.0L * unitRoundoff * (std::abs(success) + std::abs(failure)) +
            4.0L * unitRoundoff * std::abs(static_cast<long double>(n - k)) / (1.0L - theta_) + 1e-14L;
        require(std::abs(value - exact) <= tolerance, "log density ", value, " instead of ", static_cast<double>(exact),
                ", n = ", n, ", k = ", k, ", theta = ", theta_);
        if (theta_ > 0.0 && theta_ < 1.0 && k >= 0 && k <= n) {
            require(value <= tolerance, "a probability above 1: ", value);
        }
    }

    /// A loaded density keeps n and theta, and starts to learn from nothing.
    void reload()
    {
        lists_ = fuzz::storedAndLoaded(lists_);
        singles_ = lists_;
        accumulator_ = State();
        require(lists_.numTrials() == numTrials_, "n is ", lists_.numTrials(), " after loading");
        requireSame(lists_.theta(), theta_, "theta after loading");
        require(lists_.isEquivalent(singles_) == !(std::isnan(theta_) || std::isnan(maximum_)),
                "a copy is not equivalent");
    }

    void clear()
    {
        lists_.clear();
        singles_.clear();
        accumulator_ = State();
        numTrials_ = 0;
        require(lists_.numTrials() == 0, "n is ", lists_.numTrials(), " after clear");
        requireSame(lists_.theta(), theta_, "theta after clear");
    }

    double maximum_;
    kt_PDFBinomial lists_;
    kt_PDFBinomial singles_;
    State accumulator_;
    long numTrials_ = 0;
    double theta_ = 0.0;
};

template <class Case>
void run(Input& input)
{
    Case densities(input);
    while (!input.isAtEnd()) {
        densities.step(input);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    switch (input.below(4)) {
    case 0:
        runRestored(input);
        break;
    case 1:
        run<BinomialCase>(input);
        break;
    default:
        run<NormalCase>(input);
        break;
    }
    return 0;
}
