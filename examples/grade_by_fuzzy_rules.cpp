// Grades turned rings by five fuzzy rules, and draws what the rules look at and how they decide. Takes any file with the columns
// of the rules, whose first column names the rings.

#include "common/errors.h"
#include "common/options.h"
#include "common/svg.h"

#include <iomanip>
#include <iostream>

namespace {

/// y0 on the outer side of x0, y1 from x1 to xc, 0 past xc.
ktPtrHandle<ktClsFtSc> ramp(double x0, double x1, double xc, double y0, double y1)
{
    ktPtrHandle<ktClassifierFeatureScoreOneSided> score(new ktClassifierFeatureScoreOneSided);
    score->init(x0, x1, xc, y0, y1);
    return score;
}

/// 1 from nominal - flat to nominal + flat, falling to 0 at nominal - limit and nominal + limit.
ktPtrHandle<ktClsFtSc> around(double nominal, double flat, double limit)
{
    ktPtrHandle<ktClassifierFeatureScoreTwoSided> score(new ktClassifierFeatureScoreTwoSided);
    score->init(nominal - limit, nominal - flat, nominal, nominal + limit, nominal + flat, nominal, 0.0, 1.0, 0.0, 1.0);
    return score;
}

/// What rules may ask of a measurement: scoring functions, each with the word for it.
struct Criteria {
    std::string column;
    examples::SvgAxis axis;
    std::map<std::string, ktPtrHandle<ktClsFtSc>> scores;
};

const std::vector<Criteria> criteria = {
    {"diameter",
     {"diameter / mm", 19.7, 20.7, 0.1},
     {{"right", around(20.0, 0.03, 0.06)},
      {"close", around(20.0, 0.08, 0.16)},
      {"large", ramp(20.08, 20.16, 20.60, 0.0, 1.0)},
      {"small", ramp(19.92, 19.84, 0.0, 0.0, 1.0)}}},
    {"width", {"width / mm", 4.6, 5.4, 0.1}, {{"right", around(5.0, 0.05, 0.10)}, {"close", around(5.0, 0.15, 0.30)}}},
    {"roughness",
     {"roughness Ra / \xC2\xB5m", 0.0, 8.0, 1.0},
     {{"smooth", ramp(0.8, 1.6, 1.6, 1.0, 0.0)},
      {"fair", ramp(1.6, 3.2, 3.2, 1.0, 0.0)},
      {"rough", ramp(1.6, 3.2, 6.3, 0.0, 1.0)}}}};

const std::vector<std::string> grades = {"no rule passes", "grade A", "grade B", "rework", "scrap"};
const std::vector<std::string> colors = {"#ffffff", "#0b5fa5", "#9ccbea", "#fdc57e", "#a63a00"};

/// A grade, and the word for each measurement; an empty one leaves it out.
ktClassifierRule rule(long grade, const std::vector<std::string>& words)
{
    std::vector<ktPtrHandle<ktClsFtSc>> scores;
    for (const Criteria& measured : criteria) {
        const std::string& word = words.at(scores.size());
        scores.push_back(word.empty() ? new ktClassifierFeatureScoreIgnore : measured.scores.at(word));
    }
    ktClassifierRule made;
    made.init(scores, grade);
    return made;
}

/// The place of a ring's grade in the lists above.
std::size_t gradeOf(const ktClassifierRuleTable& table, const std::vector<double>& ring)
{
    return static_cast<std::size_t>(1 + table.classifyHardThreshold(ring, 0.5));
}

void print(const ktClassifierRuleTable& table, const ktKit::Table& rings)
{
    const ktKit::Patterns patterns = ktKit::patterns(rings.data);
    std::cout << "   rule 1  rule 2  rule 3  rule 4  rule 5  grade\n" << std::fixed << std::setprecision(3);
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        std::vector<double> ring;
        for (const Criteria& measured : criteria) {
            ring.push_back(patterns[i]->featureMeasurement(examples::columnOf(rings, measured.column), true));
        }
        std::cout << examples::nameOf(rings, rings.data.categoryLabel(static_cast<long>(i)));
        for (const ktClassifierRule& tried : table.rules()) {
            std::cout << std::setw(8) << tried.score(ring);
        }
        std::cout << "  " << grades[gradeOf(table, ring)] << "\n";
    }
}

void draw(const ktClassifierRuleTable& table, const std::string& folder)
{
    for (const Criteria& measured : criteria) {
        examples::SvgPlot plot("Scores of the " + measured.column, measured.axis, {"score", -0.2, 1.2, 0.2});
        for (const auto& named : measured.scores) {
            plot.curve([&](double x) { return named.second->score(x); }, named.first);
        }
        plot.save(folder + "/" + measured.column + ".svg");
    }
    examples::SvgPlot plot("Grade of a ring of width 5.00 mm", criteria[0].axis, criteria[2].axis);
    plot.regions(240, 160, [&](double diameter, double roughness) {
        return colors[gradeOf(table, {diameter, 5.0, roughness})];
    });
    for (std::size_t i = 0; i < grades.size(); ++i) {
        plot.legendArea(colors[i], grades[i]);
    }
    plot.save(folder + "/grades.svg");
}

void gradeRings(const std::string& csvPath, const std::string& folder)
{
    // The rules in the order in which they are tried: the first one that scores more than a half decides.
    ktClassifierRuleTable table;
    table.train({rule(0, {"right", "right", "smooth"}), rule(1, {"close", "close", "fair"}),
                 rule(2, {"close", "close", "rough"}), rule(2, {"large", "close", ""}), rule(3, {"small", "", ""})});
    print(table, ktKit::readCsv(csvPath));
    draw(table, folder);
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        argc == 3 ? gradeRings(argv[1], argv[2])
                  : throw std::runtime_error("usage: grade_by_fuzzy_rules CSV FOLDER_FOR_PICTURES");
    } catch (const std::exception& error) {
        return examples::reportError(error);
    }
}
