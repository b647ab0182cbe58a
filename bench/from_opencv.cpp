// What docs/from-opencv.md shows, with OpenCV beside it: the same task by both, and the conversions of clastool/opencv.h. Ends
// with a failure where the two decide differently, or a conversion loses something.

#include <clastool/opencv.h>

#include <opencv2/ml.hpp>

#include <cmath>
#include <iostream>
#include <limits>
#include <stdexcept>

namespace {

void require(bool isRight, const char* what)
{
    if (!isRight) {
        throw std::runtime_error(what);
    }
}

template <class Error, class Operation>
void requireRefused(Operation operation, const std::string& message)
{
    try {
        operation();
    } catch (const Error& error) {
        require(error.message() == message, message.c_str());
        return;
    }
    throw std::runtime_error("not refused: " + message);
}

void sideBySide()
{
    // [data]
    cv::Mat rows = (cv::Mat_<float>(5, 2) << 1.0, 2.0, 1.2, 1.9, 0.9, 2.2, 1.5, 2.5, 2.0, 2.2);
    cv::Mat labels = (cv::Mat_<int>(5, 1) << 0, 0, 0, 1, 1);
    cv::Mat query = (cv::Mat_<float>(1, 2) << 1.4, 2.2);
    // [data]

    // [theirs]
    auto knn = cv::ml::KNearest::create();
    knn->setIsClassifier(true);
    knn->train(rows, cv::ml::ROW_SAMPLE, labels);
    cv::Mat decision, neighbors, distances;
    knn->findNearest(query, 3, decision, neighbors, distances);
    // [theirs]

    // [ours]
    ktClassifierTool tool;
    tool.train(ktKit::trainingData(rows, labels), ktClassifierTrainParamsKNN(3));
    const std::vector<ktClassifierResult> results = ktKit::runAll(tool, query);
    const cv::Mat decisions = ktKit::decisions(results);                  // CV_32S, a row for each query
    const cv::Mat probabilities = ktKit::probabilities(results, {0, 1});  // CV_64F, a column for each label
    const std::vector<ktKit::Neighbor> nearest = ktKit::neighbors(tool, *ktKit::patterns(query).front());
    // [ours]

    require(decisions.at<int>(0) == static_cast<int>(decision.at<float>(0)), "the decision");
    require(std::abs(probabilities.at<double>(0, 0) - 2.0 / 3.0) < 1e-15, "the probability");
    for (int i = 0; i < 3; ++i) {
        const ktKit::Neighbor& near = nearest[static_cast<std::size_t>(i)];
        require(static_cast<float>(near.label) == neighbors.at<float>(0, i), "a neighbour");
        require(std::abs(near.distance * near.distance - distances.at<float>(0, i)) < 1e-6, "a distance");
    }
}

void conversions()
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const cv::Mat whole = (cv::Mat_<double>(3, 4) << 1, 2, 3, 4, 5, nan, 7, 8, 9, 10, 11, 12);
    // A part of a matrix, whose rows do not follow each other.
    const cv::Mat part = whole(cv::Range(0, 3), cv::Range(1, 3));
    const ktKit::Patterns patterns = ktKit::patterns(part);
    require(patterns.size() == 3 && *patterns[2] == ktFeaturePattern({10, 11}, {}), "rows with a step");
    require(!patterns[1]->isValid(0) && patterns[1]->isValid(1), "NaN is missing");
    for (const int type : {CV_32F, CV_64F}) {
        const cv::Mat back = ktKit::samples(patterns, type);
        cv::Mat narrow;
        part.convertTo(narrow, type);
        require(back.type() == type && *ktKit::patterns(back)[2] == *ktKit::patterns(narrow)[2], "there and back");
        require(!ktKit::patterns(back)[1]->isValid(0), "missing there and back");
    }
    ktClassifierTool tool;
    tool.train(ktKit::trainingData(part, (cv::Mat_<int>(1, 3) << 4, 4, 9)), ktClassifierTrainParamsBayesian());
    cv::Mat single;
    part.convertTo(single, CV_32F);
    for (const cv::Mat& samples : {part, part.clone(), single}) {
        require(ktKit::runAll(tool, samples, 2) == ktKit::runAll(tool, ktKit::patterns(samples)), "runs of a matrix");
    }
    require(ktKit::labels((cv::Mat_<float>(2, 1) << 3, -1)) == std::vector<long>({3, -1}), "labels in floats");
    require(ktKit::labels((cv::Mat_<double>(1, 2) << 3, -1)) == std::vector<long>({3, -1}), "labels in doubles");
    require(ktKit::patterns(cv::Mat(0, 0, CV_64F)).empty() && ktKit::samples({}).empty(), "nothing");
}

void refusals()
{
    using Features = ktClassifierDefs::BadFeatures;
    using Label = ktClassifierDefs::BadLabel;
    const std::string samples = "Samples must be a matrix of two dimensions and one channel, CV_32F or CV_64F";
    const std::string line = "Labels must be a row or a column of one channel, CV_32S, CV_32F or CV_64F";
    const std::string numbers = "Labels must be whole numbers";
    const int sizes[] = {2, 2, 2};
    for (const cv::Mat& bad : {cv::Mat(2, 2, CV_8U), cv::Mat(2, 2, CV_32FC2), cv::Mat(3, sizes, CV_64F)}) {
        requireRefused<Features>([&] { ktKit::patterns(bad); }, samples);
        requireRefused<Features>([&] { ktKit::runAll(ktClassifierTool(), bad); }, samples);
    }
    requireRefused<Features>([] { ktKit::samples({ktKit::pattern({1.0})}, CV_8U); }, samples);
    requireRefused<Features>(
        [] {
            ktKit::samples({ktKit::pattern({1.0}), ktKit::pattern({1.0, 2.0})});
        },
        "All patterns must have the same number of measurements");
    requireRefused<Label>([] { ktKit::labels(cv::Mat(2, 2, CV_32S)); }, line);
    requireRefused<Label>([] { ktKit::labels(cv::Mat(2, 1, CV_8U)); }, line);
    requireRefused<Label>([] { ktKit::labels((cv::Mat_<float>(2, 1) << 1, 0.5F)); }, numbers);
    requireRefused<Label>([] { ktKit::labels((cv::Mat_<double>(1, 1) << 1e300)); }, numbers);
    requireRefused<Label>([] { ktKit::labels((cv::Mat_<double>(1, 1) << std::numeric_limits<double>::quiet_NaN())); },
                          numbers);
}

}  // namespace

int main()
{
    try {
        sideBySide();
        conversions();
        refusals();
    } catch (const std::exception& error) {
        std::cerr << "wrong: " << error.what() << "\n";
        return 1;
    }
    std::cout << "right\n";
    return 0;
}
