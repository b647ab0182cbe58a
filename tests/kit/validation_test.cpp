// Counting decisions, and cross-validation.

#include "kit_kit.h"

namespace {

using namespace kt_test;
using ktKit::ConfusionMatrix;

TEST(KitConfusionMatrix, Counts)
{
    const ConfusionMatrix matrix = someMatrix();
    EXPECT_EQ(matrix.labels(), (std::vector<long>{-1, 0, 2, 7}));
    EXPECT_EQ(matrix.count(0, 0), 2);
    EXPECT_EQ(matrix.count(0, 7), 1);
    EXPECT_EQ(matrix.count(7, 0), 0);
    EXPECT_EQ(matrix.count(5, 5), 0);
    EXPECT_EQ(matrix.total(), 6);
    EXPECT_EQ(matrix.mistakes(), 3);
    EXPECT_EQ(matrix.errorRate(), 0.5);
    EXPECT_EQ(matrix.precision(0), 2.0 / 3.0);
    EXPECT_EQ(matrix.recall(0), 2.0 / 3.0);
    EXPECT_EQ(matrix.precision(7), 0.5);
    EXPECT_EQ(matrix.recall(7), 0.5);
    EXPECT_EQ(matrix.recall(-1), 0.0);
    EXPECT_EQ(matrix.precision(2), 0.0);
    EXPECT_EQ(ConfusionMatrix().errorRate(), 0.0);
    EXPECT_EQ(ConfusionMatrix().cost(ktClassifierCosts()), 0.0);
}

TEST(KitConfusionMatrix, CostsOfMistakes)
{
    ConfusionMatrix matrix;
    matrix.add(0, 0);
    matrix.add(0, 1);
    matrix.add(0, 1);
    matrix.add(1, 0);
    EXPECT_EQ(matrix.cost(ktKit::costs({{0, 2.5}, {10, 0}})), 15.0);
    expectThrows<ktClassifierDefs::BadLabel>("Category labels must be >= 0",
                                             [] { someMatrix().cost(ktClassifierCosts()); });
}

TEST(KitConfusionMatrix, AddsUp)
{
    ConfusionMatrix sum = someMatrix();
    sum += someMatrix();
    EXPECT_EQ(sum.count(0, 0), 4);
    EXPECT_EQ(sum.total(), 12);
    EXPECT_FALSE(sum == someMatrix());
    ConfusionMatrix same;
    EXPECT_TRUE((same += someMatrix()) == someMatrix());
    EXPECT_TRUE(same != sum);
}

TEST(KitConfusionMatrix, PrintsATable)
{
    ConfusionMatrix matrix({"benign", "malignant"});
    for (int i = 0; i < 12; ++i) {
        matrix.add(i % 2, i % 5 == 0 ? 0 : i % 2);
    }
    matrix.add(3, 1);
    std::ostringstream text;
    text << std::hex << std::setw(40) << matrix;
    EXPECT_EQ(text.str(),
              "true \\ assigned     benign  malignant          3    recall\n"
              "         benign          6          0          0   100.0 %\n"
              "      malignant          1          5          0    83.3 %\n"
              "              3          0          1          0     0.0 %\n"
              "      precision     85.7 %     83.3 %      0.0 %\n"
              "error rate: 2 of 13, 15.4 %\n");
    ConfusionMatrix unknown({"benign"});
    unknown.add(0, -1);
    std::ostringstream numbered;
    numbered << unknown;
    EXPECT_EQ(numbered.str(),
              "true \\ assigned      -1  benign    recall\n"
              "             -1       0       0     0.0 %\n"
              "         benign       1       0     0.0 %\n"
              "      precision   0.0 %   0.0 %\n"
              "error rate: 1 of 1, 100.0 %\n");
    std::ostringstream empty;
    empty << ConfusionMatrix();
    EXPECT_EQ(empty.str(), "true \\ assigned    recall\n      precision\nerror rate: 0 of 0, 0.0 %\n");
}

TEST(KitConfusionMatrix, DrawsAPicture)
{
    ConfusionMatrix matrix({"<a&b>"});
    matrix.add(0, 0);
    matrix.add(0, 0);
    matrix.add(0, 0);
    matrix.add(0, 1);
    std::ostringstream picture;
    matrix.svg(picture);
    const std::string sized = "width=\"60\" height=\"60\" fill=";
    EXPECT_EQ(picture.str(),
              "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"260\" height=\"260\" font-family=\"sans-serif\" "
              "font-size=\"13\">\n"
              "<text x=\"10\" y=\"20\">rows: true, columns: assigned</text>\n"
              "<text x=\"122\" y=\"165\" text-anchor=\"end\">&lt;a&amp;b&gt;</text>\n"
              "<text x=\"160\" y=\"122\" text-anchor=\"middle\">&lt;a&amp;b&gt;</text>\n"
              "<rect x=\"130\" y=\"130\" " +
                  sized +
                  "\"#2a7f4f\" fill-opacity=\"0.750\" stroke=\"#888888\"/>\n"
                  "<text x=\"160\" y=\"165\" text-anchor=\"middle\">3</text>\n"
                  "<rect x=\"190\" y=\"130\" " +
                  sized +
                  "\"#b03030\" fill-opacity=\"0.250\" stroke=\"#888888\"/>\n"
                  "<text x=\"220\" y=\"165\" text-anchor=\"middle\">1</text>\n"
                  "<text x=\"122\" y=\"225\" text-anchor=\"end\">1</text>\n"
                  "<text x=\"220\" y=\"122\" text-anchor=\"middle\">1</text>\n"
                  "<rect x=\"130\" y=\"190\" " +
                  sized +
                  "\"#b03030\" fill-opacity=\"0.000\" stroke=\"#888888\"/>\n"
                  "<text x=\"160\" y=\"225\" text-anchor=\"middle\">0</text>\n"
                  "<rect x=\"190\" y=\"190\" " +
                  sized +
                  "\"#2a7f4f\" fill-opacity=\"0.000\" stroke=\"#888888\"/>\n"
                  "<text x=\"220\" y=\"225\" text-anchor=\"middle\">0</text>\n"
                  "</svg>\n");
}

TEST(KitFolds, EachHasItsShareOfEachCategoryAndOfAll)
{
    std::vector<long> labels;
    for (long i = 0; i < 103; ++i) {
        labels.push_back(i % 10 == 0 ? -1 : i % 10 < 4 ? 5 : 2);
    }
    for (const long folds : {2L, 5L, 10L, 103L}) {
        const std::vector<long> dealt = ktKit::stratifiedFolds(labels, folds, 42);
        ASSERT_EQ(dealt.size(), labels.size());
        std::map<long, long> sizes;
        std::map<std::pair<long, long>, long> shares;
        for (std::size_t i = 0; i < labels.size(); ++i) {
            ++sizes[dealt[i]];
            ++shares[{labels[i], dealt[i]}];
        }
        EXPECT_EQ(sizes.begin()->first, 0);
        EXPECT_EQ(sizes.rbegin()->first, folds - 1);
        for (const auto& [fold, size] : sizes) {
            EXPECT_GE(size, 103 / folds);
            EXPECT_LE(size, 103 / folds + 1);
            for (const long label : {-1L, 2L, 5L}) {
                const auto whole = static_cast<long>(std::count(labels.begin(), labels.end(), label));
                const long share = shares[std::make_pair(label, fold)];
                EXPECT_GE(share, whole / folds);
                EXPECT_LE(share, whole / folds + 1);
            }
        }
    }
}

// Pinned, because every platform is to deal the same.
TEST(KitFolds, AreTheSameEverywhere)
{
    const std::vector<long> labels = {0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 0, 1};
    const std::vector<long> dealt = ktKit::stratifiedFolds(labels, 3, 7);
    EXPECT_EQ(dealt, ktKit::stratifiedFolds(labels, 3, 7));
    EXPECT_EQ(dealt, (std::vector<long>{0, 0, 2, 1, 2, 2, 1, 0, 0, 1, 1, 2}));
    EXPECT_NE(dealt, ktKit::stratifiedFolds(labels, 3, 8));
}

TEST(KitFolds, SayWhatIsWrong)
{
    expectThrows<ktClassifierDefs::BadParams>("There must be at least 2 folds",
                                              [] { ktKit::stratifiedFolds({}, 1, 0); });
    expectThrows<ktClassifierDefs::BadParams>("There must not be more folds than patterns", [] {
        ktKit::stratifiedFolds({1, 2}, 3, 0);
    });
}

TEST(KitSplit, PartsByFold)
{
    Sample sample(0, 6);
    sample.labels[1] = -1;
    ktClassifierDataProviderMemory data;
    data.data(sample.patterns, sample.labels);
    const ktKit::Split parts = ktKit::split(data, {0, 1, 2, 1, 0, 1}, 1);
    EXPECT_EQ(ktKit::labels(parts.test), (std::vector<long>{-1, 0, 2}));
    EXPECT_EQ(ktKit::labels(parts.training), (std::vector<long>{0, 2, 1}));
    EXPECT_EQ(ktKit::patterns(parts.test)[1], sample.patterns[3]);
    EXPECT_EQ(ktKit::split(data, {0, 1, 2, 1, 0, 1}, 9).test.numPatterns(), 0);
    expectThrows<ktClassifierDefs::BadIndex>("Folds must be >= 0", [&] { ktKit::split(data, {-1}, -1); });
    expectThrows<ktClassifierDefs::BadParams>("There must be a fold for each pattern",
                                              [&] { ktKit::split(data, {-1}, 0); });
    expectThrows<ktClassifierDefs::BadIndex>("Folds must be >= 0", [&] { ktKit::split(data, {0, 0, 0, 0, 0, -1}, 0); });
}

/// The plain way: a tool for each fold.
ktKit::CrossValidation plainly(const Sample& sample, const ktClassifierTrainParams& params,
                               const std::vector<long>& folds, long numFolds)
{
    ktKit::CrossValidation found;
    for (long fold = 0; fold < numFolds; ++fold) {
        ktClassifierDataProviderMemory training;
        for (std::size_t i = 0; i < folds.size(); ++i) {
            if (folds[i] != fold) {
                training.addData(sample.patterns[i], sample.labels[i]);
            }
        }
        ktClassifierTool tool;
        tool.train(training, params);
        ConfusionMatrix matrix;
        for (std::size_t i = 0; i < folds.size(); ++i) {
            if (folds[i] == fold && sample.labels[i] != -1) {
                ktClassifierResult result;
                tool.run(*sample.patterns[i], result);
                matrix.add(sample.labels[i], result.categoryResults().front().categoryLabel());
            }
        }
        found.folds.push_back(matrix);
        found.total += matrix;
    }
    return found;
}

Sample sampleWithUnknown()
{
    Sample sample(0, 120);
    sample.labels[7] = -1;
    return sample;
}

TEST(KitCrossValidation, CountsAsTheLoopByHand)
{
    const Sample sample = sampleWithUnknown();
    const std::vector<long> folds = ktKit::stratifiedFolds(sample.labels, 5, 3);
    const ktClassifierDataProviderMemory data = dataOf(sample);
    const kt_test::Bayes bayes = kt_test::bayesParams();
    const Knn knn(3);
    for (const ktClassifierTrainParams* const params :
         {static_cast<const ktClassifierTrainParams*>(&bayes), static_cast<const ktClassifierTrainParams*>(&knn)}) {
        const ktKit::CrossValidation expected = plainly(sample, *params, folds, 5);
        for (const unsigned threads : {1U, 2U, 8U}) {
            const ktKit::CrossValidation found = ktKit::crossValidate(data, *params, folds, threads);
            EXPECT_TRUE(found.folds == expected.folds);
            EXPECT_TRUE(found.total == expected.total);
        }
        const ktKit::Factory factory = [params](const ktClassifierDataProvider& training) {
            ktClassifierTool tool;
            tool.train(training, *params);
            return [tool](const ktFeaturePattern& pattern) {
                ktClassifierResult result;
                tool.run(pattern, result);
                return ktKit::decision(result).categoryLabel();
            };
        };
        EXPECT_TRUE(ktKit::crossValidate(data, factory, folds, 2).folds == expected.folds);
        EXPECT_EQ(expected.total.total(), 119);
    }
}

TEST(KitCrossValidation, AFoldWithoutPatternsIsEmpty)
{
    const Sample sample(0, 30);
    std::vector<long> folds(30, 0);
    folds[3] = 2;
    const ktKit::CrossValidation found = ktKit::crossValidate(
        dataOf(sample), [](const ktClassifierDataProvider&) { return [](const ktFeaturePattern&) { return 1L; }; },
        folds);
    ASSERT_EQ(found.folds.size(), 3U);
    EXPECT_EQ(found.folds[0].total(), 29);
    EXPECT_EQ(found.folds[1].total(), 0);
    EXPECT_EQ(found.folds[2].total(), 1);
    EXPECT_TRUE(ktKit::crossValidate(ktClassifierDataProviderMemory(), Knn(1), {}).folds.empty());
}

TEST(KitCrossValidation, TellsItsProgressAndCanBeEnded)
{
    const Sample sample(0, 60);
    const std::vector<long> folds = ktKit::stratifiedFolds(sample.labels, 4, 3);
    for (const unsigned threads : {1U, 2U}) {
        std::vector<long> told;
        ktKit::crossValidate(dataOf(sample), Knn(1), folds, threads, [&](long done, long all) {
            EXPECT_EQ(all, 4);
            told.push_back(done);
        });
        EXPECT_EQ(told, (std::vector<long>{1, 2, 3, 4}));
        expectThrows<ktClassifierDefs::BadMethod>("enough", [&] {
            ktKit::crossValidate(dataOf(sample), Knn(1), folds, threads,
                                 [](long, long) { throw ktClassifierDefs::BadMethod("enough"); });
        });
        const kt_test::Attention attention(2, kt_test::abortStatus);
        expectThrows<ktFailure>(kt_test::abortMessage,
                                [&] { ktKit::crossValidate(dataOf(sample), Knn(1), folds, threads); });
    }
}

TEST(KitCrossValidation, SaysWhatIsWrongInOrder)
{
    const Sample sample(0, 3);
    expectThrows<ktClassifierDefs::BadParams>("There must be a fold for each pattern", [&] {
        ktKit::crossValidate(dataOf(sample), Knn(1), {-1, 0});
    });
    expectThrows<ktClassifierDefs::BadIndex>("Folds must be >= 0", [&] {
        ktKit::crossValidate(dataOf(sample), Knn(1), {0, -1, 1});
    });
    expectThrows<ktClassifierDefs::InsufficientTrainData>("No valid data was provided for training.", [&] {
        ktKit::crossValidate(dataOf(sample), Knn(1), {0, 0, 0});
    });
}

TEST(KitCrossValidation, RunsOutOfMemoryCleanly)
{
    const Sample sample(0, 12);
    const ktClassifierDataProviderMemory data = dataOf(sample);
    const std::vector<long> folds = ktKit::stratifiedFolds(sample.labels, 2, 3);
    // Training itself says NotImplemented where memory for a classifier runs out.
    const ktKit::Factory factory = [](const ktClassifierDataProvider& training) {
        const std::vector<long> known = ktKit::labels(training);
        return [known](const ktFeaturePattern&) { return known[0]; };
    };
    EXPECT_GT(kt_test::failEachAllocation([&] { ktKit::crossValidate(data, factory, folds); }), 0);
    EXPECT_GT(kt_test::failEachAllocation([&] { ktKit::stratifiedFolds(sample.labels, 2, 3); }), 0);
    EXPECT_GT(kt_test::failEachAllocation([] { return someMatrix(); },
                                          [](ConfusionMatrix& matrix) { matrix += ConfusionMatrix(matrix); },
                                          [](const ConfusionMatrix& matrix) { EXPECT_EQ(matrix.total(), 6); }),
              0);
}

}  // namespace
