#pragma once

// Texts of errors that several tests expect.

namespace kt_test {

// Patterns

inline constexpr const char* negativeIndex = "Feature measurement indices must be >= 0";
inline constexpr const char* indexTooLarge = "Feature measurement indices must be < number of features";
inline constexpr const char* notAvailable = "The measurement for the specified measurement index is not valid.";
inline constexpr const char* notAllValid = "Access to full feature vector requires that all features are valid.";

// Training data

inline constexpr const char* badPatternIndex = "Feature pattern index must be >=0 and < number of patterns.";
inline constexpr const char* badLabelIndex = "Category label index must be >=0 and < number of patterns.";
inline constexpr const char* badDataLabel = "Category labels must be >= 0 or unknown";
inline constexpr const char* otherCount =
    "The number of the feature patterns must be equal to the number of category labels";
inline constexpr const char* otherSize =
    "Feature pattern must have the same number of measurements as the rest of the data.";
inline constexpr const char* differentPatternSizes = "Feature patterns must all have the same number of measurements";

// Costs, frequencies and results

inline constexpr const char* negativeCost = "Costs must be >= 0.0";
inline constexpr const char* equalLabels = "Category labels must be different";
inline constexpr const char* negativeLabel = "Category labels must be >= 0";
inline constexpr const char* notPositive = "Category frequencies must be > 0.0";
inline constexpr const char* badScore = "Scores must be >= 0.0 and <= 1.0";
inline constexpr const char* notUnique = "The category labels of the match results must be unique.";
inline constexpr const char* noClassScore = "At least one of the classification scores must be > 0.";
inline constexpr const char* noFrequency = "At least one of the category frequencies must be > 0.";
inline constexpr const char* noMatch = "At least one of the resulting classification scores must be > 0.";

// Techniques and the tool

inline constexpr const char* noData = "No valid data was provided for training.";
inline constexpr const char* notTrainedToRun = "Classifier tool must be trained before running.";
inline constexpr const char* notTrainedToRetrain = "Classifier tool must be trained before retraining.";
inline constexpr const char* notTrainedForParams =
    "Classifier tool must be trained before requesting the training parameters.";
inline constexpr const char* notAutomatic = "Classifier tool was not automatically trained.";
inline constexpr const char* toolOfOtherTechnique = "Cannot retrain with a different classification technique.";
inline constexpr const char* paramsOfOtherTechnique =
    "The training parameters are for a different classification technique.";

// Metrics and nearest neighbours

inline constexpr const char* badOrder = "Order of norm distance must be > 0";
inline constexpr const char* unequalSizes =
    "Pattern distance function requires the number of measurementsin the two patterns to be equal";
inline constexpr const char* invalidMeasurements =
    "K-nearest neighbor classification does not support invalid measurements";

// Distribution types and Bayesian classification

inline constexpr const char* misspeltNegativeLabel = "Cateogory labels must be >= 0";
inline constexpr const char* inASet =
    "Cannot override distribution type of a feature measurement that is already part of a dependency set.";
inline constexpr const char* otherTypes = "Cannot retrain a Bayesian classifier with different distribution types.";
inline constexpr const char* aboveMaximum = "Feature measurement must be <= specified maximum value";

}  // namespace kt_test
