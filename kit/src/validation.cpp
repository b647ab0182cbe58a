#include <clastool/kit/validation.h>

#include <clastool/kit/patterns.h>
#include <clastool/kit/runs.h>

#include "parts.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <mutex>
#include <ostream>
#include <set>

namespace {

double share(long part, long whole)
{
    return whole == 0 ? 0.0 : static_cast<double>(part) / static_cast<double>(whole);
}

/// The number with this many digits behind the point, whatever the locale.
std::string fixed(double value, int digits)
{
    char text[400];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    std::string found = text;
    std::replace(found.begin(), found.end(), ',', '.');
    return found;
}

std::string percent(double value)
{
    return fixed(100.0 * value, 1) + " %";
}

std::string padded(const std::string& text, std::size_t width)
{
    return std::string(width > text.size() ? width - text.size() : 0, ' ') + text;
}

std::string escaped(const std::string& text)
{
    std::string safe;
    for (const char c : text) {
        const std::string entity = c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '&' ? "&amp;" : std::string(1, c);
        safe += entity;
    }
    return safe;
}

/// A number below `size`, each as likely as the others.
std::size_t drawn(ktRandomUniform& random, std::size_t size)
{
    return static_cast<std::size_t>(std::floor(random.next(0.0, static_cast<double>(size))));
}

}  // namespace

ktKit::ConfusionMatrix::ConfusionMatrix() = default;
ktKit::ConfusionMatrix::ConfusionMatrix(const std::vector<std::string>& names) : names_(names) {}

void ktKit::ConfusionMatrix::add(long trueLabel, long assignedLabel)
{
    ++counts_[{trueLabel, assignedLabel}];
}

ktKit::ConfusionMatrix& ktKit::ConfusionMatrix::operator+=(const ConfusionMatrix& other)
{
    std::map<std::pair<long, long>, long> sums = counts_;
    for (const auto& [pair, count] : other.counts_) {
        sums[pair] += count;
    }
    counts_.swap(sums);
    return *this;
}

std::vector<long> ktKit::ConfusionMatrix::labels() const
{
    std::set<long> labels;
    for (const auto& entry : counts_) {
        labels.insert({entry.first.first, entry.first.second});
    }
    return {labels.begin(), labels.end()};
}

long ktKit::ConfusionMatrix::count(long trueLabel, long assignedLabel) const
{
    const auto found = counts_.find({trueLabel, assignedLabel});
    return found == counts_.end() ? 0 : found->second;
}

long ktKit::ConfusionMatrix::total() const
{
    long sum = 0;
    for (const auto& entry : counts_) {
        sum += entry.second;
    }
    return sum;
}

long ktKit::ConfusionMatrix::mistakes() const
{
    long sum = 0;
    for (const auto& [pair, count] : counts_) {
        sum += pair.first == pair.second ? 0 : count;
    }
    return sum;
}

double ktKit::ConfusionMatrix::errorRate() const
{
    return share(mistakes(), total());
}

double ktKit::ConfusionMatrix::cost(const ktClassifierCosts& costs) const
{
    double sum = 0.0;
    for (const auto& [pair, count] : counts_) {
        if (pair.first != pair.second) {
            sum += static_cast<double>(count) * costs.misclassificationCost(pair.first, pair.second);
        }
    }
    return sum;
}

double ktKit::ConfusionMatrix::precision(long label) const
{
    long assigned = 0;
    for (const auto& [pair, count] : counts_) {
        assigned += pair.second == label ? count : 0;
    }
    return share(count(label, label), assigned);
}

double ktKit::ConfusionMatrix::recall(long label) const
{
    long truly = 0;
    for (const auto& [pair, count] : counts_) {
        truly += pair.first == label ? count : 0;
    }
    return share(count(label, label), truly);
}

std::string ktKit::ConfusionMatrix::nameOf(long label) const
{
    const bool hasName = label >= 0 && static_cast<std::size_t>(label) < names_.size();
    return hasName ? names_[static_cast<std::size_t>(label)] : std::to_string(label);
}

std::ostream& ktKit::operator<<(std::ostream& stream, const ConfusionMatrix& matrix)
{
    const std::string corner = "true \\ assigned";
    const std::vector<long> labels = matrix.labels();
    std::size_t first = corner.size();
    std::size_t width = 8;
    for (const long label : labels) {
        first = std::max(first, matrix.nameOf(label).size());
        width = std::max(width, matrix.nameOf(label).size() + 2);
    }
    std::string text = padded(corner, first);
    for (const long label : labels) {
        text += padded(matrix.nameOf(label), width);
    }
    text += padded("recall", 10) + "\n";
    for (const long truly : labels) {
        text += padded(matrix.nameOf(truly), first);
        for (const long assigned : labels) {
            text += padded(std::to_string(matrix.count(truly, assigned)), width);
        }
        text += padded(percent(matrix.recall(truly)), 10) + "\n";
    }
    text += padded("precision", first);
    for (const long label : labels) {
        text += padded(percent(matrix.precision(label)), width);
    }
    text += "\nerror rate: " + std::to_string(matrix.mistakes()) + " of " + std::to_string(matrix.total()) + ", " +
            percent(matrix.errorRate()) + "\n";
    return stream.write(text.data(), static_cast<std::streamsize>(text.size()));
}

void ktKit::ConfusionMatrix::svg(std::ostream& stream) const
{
    constexpr std::size_t cell = 60;
    constexpr std::size_t margin = 130;
    const std::vector<long> known = labels();
    const std::string size = std::to_string(margin + cell * known.size() + 10);
    const auto write = [&stream](const std::string& text) {
        stream.write(text.data(), static_cast<std::streamsize>(text.size()));
    };
    const auto at = [](std::size_t x, std::size_t y) {
        return "x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) + "\"";
    };
    write("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + size + "\" height=\"" + size +
          "\" font-family=\"sans-serif\" font-size=\"13\">\n");
    write("<text " + at(10, 20) + ">rows: true, columns: assigned</text>\n");
    for (std::size_t i = 0; i < known.size(); ++i) {
        const std::size_t middle = margin + cell * i + cell / 2;
        const std::string name = escaped(nameOf(known[i]));
        long truly = 0;
        for (const long label : known) {
            truly += count(known[i], label);
        }
        write("<text " + at(margin - 8, middle + 5) + " text-anchor=\"end\">" + name + "</text>\n");
        write("<text " + at(middle, margin - 8) + " text-anchor=\"middle\">" + name + "</text>\n");
        for (std::size_t j = 0; j < known.size(); ++j) {
            const double dark = share(count(known[i], known[j]), truly);
            const std::string fill = i == j ? "#2a7f4f" : "#b03030";
            write("<rect " + at(margin + cell * j, margin + cell * i) + " width=\"" + std::to_string(cell) +
                  "\" height=\"" + std::to_string(cell) + "\" fill=\"" + fill + "\" fill-opacity=\"" + fixed(dark, 3) +
                  "\" stroke=\"#888888\"/>\n");
            write("<text " + at(margin + cell * j + cell / 2, middle + 5) + " text-anchor=\"middle\">" +
                  std::to_string(count(known[i], known[j])) + "</text>\n");
        }
    }
    write("</svg>\n");
}

std::vector<long> ktKit::stratifiedFolds(const std::vector<long>& labels, long folds, unsigned long seed)
{
    if (folds < 2) {
        throw ktClassifierDefs::BadParams("There must be at least 2 folds");
    }
    if (static_cast<unsigned long>(folds) > labels.size()) {
        throw ktClassifierDefs::BadParams("There must not be more folds than patterns");
    }
    std::map<long, std::vector<std::size_t>> ofLabel;
    for (std::size_t i = 0; i < labels.size(); ++i) {
        ofLabel[labels[i]].push_back(i);
    }
    ktRandomUniform random(seed);
    std::vector<long> dealt(labels.size());
    // Each category begins at the fold after the last one, so that no fold gets more patterns than others from every category.
    long next = 0;
    for (auto& entry : ofLabel) {
        std::vector<std::size_t>& patterns = entry.second;
        for (std::size_t i = patterns.size(); i > 1; --i) {
            std::swap(patterns[i - 1], patterns[drawn(random, i)]);
        }
        for (const std::size_t pattern : patterns) {
            dealt[pattern] = next;
            next = (next + 1) % folds;
        }
    }
    return dealt;
}

namespace {

/// Trains on the other folds and counts the decisions on one fold.
using Judge = std::function<ktKit::ConfusionMatrix(const ktClassifierDataProviderMemory& training,
                                                   const ktKit::Patterns& tested, const std::vector<long>& labels)>;

/// The data in folds. It copies the handles, because a provider of the caller's own may allow one thread at a time.
struct Folds {
    ktKit::Patterns patterns;
    std::vector<long> labels;
    std::vector<long> folds;
    std::size_t number = 0;

    Folds(const ktClassifierDataProvider& data, const std::vector<long>& given)
        : patterns(ktKit::patterns(data)), labels(ktKit::labels(data)), folds(given)
    {
        if (patterns.size() != folds.size()) {
            throw ktClassifierDefs::BadParams("There must be a fold for each pattern");
        }
        for (const long fold : folds) {
            if (fold < 0) {
                throw ktClassifierDefs::BadIndex("Folds must be >= 0");
            }
            number = std::max(number, static_cast<std::size_t>(fold) + 1);
        }
    }

    /// All other folds as training data, this fold as test data.
    ktKit::Split split(std::size_t fold) const
    {
        ktKit::Split parts;
        for (std::size_t i = 0; i < folds.size(); ++i) {
            const bool isTested = static_cast<std::size_t>(folds[i]) == fold;
            (isTested ? parts.test : parts.training).addData(patterns[i], labels[i]);
        }
        return parts;
    }

    ktKit::ConfusionMatrix judge(std::size_t fold, const Judge& judged) const
    {
        ktKit::Patterns tested;
        std::vector<long> testedLabels;
        for (std::size_t i = 0; i < folds.size(); ++i) {
            if (static_cast<std::size_t>(folds[i]) == fold && labels[i] != -1) {
                tested.push_back(patterns[i]);
                testedLabels.push_back(labels[i]);
            }
        }
        return tested.empty() ? ktKit::ConfusionMatrix() : judged(split(fold).training, tested, testedLabels);
    }
};

ktKit::CrossValidation crossValidated(const Folds& folds, const Judge& judged, unsigned threads,
                                      const ktKit::Progress& progress)
{
    ktKit::CrossValidation found;
    found.folds.resize(folds.number);
    std::mutex telling;
    long done = 0;
    kt_doInParts(folds.number, threads, [&](std::size_t fold, std::size_t) {
        kfThrowExceptionOnFailure(kfCheckAttention());
        found.folds[fold] = folds.judge(fold, judged);
        const std::lock_guard<std::mutex> lock(telling);
        ++done;
        if (progress) {
            progress(done, static_cast<long>(folds.number));
        }
    });
    for (const ktKit::ConfusionMatrix& matrix : found.folds) {
        found.total += matrix;
    }
    return found;
}

}  // namespace

ktKit::Split ktKit::split(const ktClassifierDataProvider& data, const std::vector<long>& folds, long testFold)
{
    if (testFold < 0) {
        throw ktClassifierDefs::BadIndex("Folds must be >= 0");
    }
    return Folds(data, folds).split(static_cast<std::size_t>(testFold));
}

ktKit::CrossValidation ktKit::crossValidate(const ktClassifierDataProvider& data, const ktClassifierTrainParams& params,
                                            const std::vector<long>& folds, unsigned threads, const Progress& progress)
{
    const Folds split(data, folds);
    // Parameters allow one thread at a time.
    std::mutex cloning;
    const auto judged = [&](const ktClassifierDataProviderMemory& training, const Patterns& tested,
                            const std::vector<long>& labels) {
        ktPtrHandle<ktClassifierTrainParams> own;
        {
            const std::lock_guard<std::mutex> lock(cloning);
            own = params.clone();
        }
        ktClassifierTool tool;
        tool.train(training, *own);
        const std::vector<ktClassifierResult> results = runAll(tool, tested);
        ConfusionMatrix matrix;
        for (std::size_t i = 0; i < tested.size(); ++i) {
            matrix.add(labels[i], decision(results[i]).categoryLabel());
        }
        return matrix;
    };
    return crossValidated(split, judged, threads, progress);
}

ktKit::CrossValidation ktKit::crossValidate(const ktClassifierDataProvider& data, const Factory& factory,
                                            const std::vector<long>& folds, unsigned threads, const Progress& progress)
{
    const auto judged = [&](const ktClassifierDataProviderMemory& training, const Patterns& tested,
                            const std::vector<long>& labels) {
        const Decide decide = factory(training);
        ConfusionMatrix matrix;
        for (std::size_t i = 0; i < tested.size(); ++i) {
            matrix.add(labels[i], decide(*tested[i]));
        }
        return matrix;
    };
    return crossValidated(Folds(data, folds), judged, threads, progress);
}
