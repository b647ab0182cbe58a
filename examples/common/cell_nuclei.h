#pragma once

#include <clastool/clastool.h>

#include <algorithm>
#include <fstream>
#include <locale>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

/// The data of examples/data/cell_nuclei.csv: reading them, and splitting them into training and test rows.
namespace examples {

constexpr long benign = 0;
constexpr long malignant = 1;

struct Sample {
    std::vector<double> measurements;
    long label;  // benign or malignant
};

struct CellNuclei {
    std::vector<std::string> names;  // of the measurements
    std::vector<Sample> samples;
};

/// A line that says what is wrong with the file, and where. The row is a line of the file, the heading being row 1.
inline std::runtime_error csvError(const std::string& path, std::size_t row, std::size_t column,
                                   const std::string& what)
{
    return std::runtime_error(path + ": row " + std::to_string(row) + ", column " + std::to_string(column) + ": " +
                              what);
}

inline std::vector<std::string> splitAtCommas(std::string line)
{
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();  // a file with the line ends of Windows
    }
    std::vector<std::string> cells;
    std::string::size_type begin = 0;
    for (auto comma = line.find(','); comma != std::string::npos; comma = line.find(',', begin)) {
        cells.push_back(line.substr(begin, comma - begin));
        begin = comma + 1;
    }
    cells.push_back(line.substr(begin));
    return cells;
}

/// Whether the whole text is one decimal number.
inline bool readNumber(const std::string& text, double& number)
{
    if (text.find_first_not_of("+-.0123456789eE") != std::string::npos) {
        return false;
    }
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());  // a point is a point, whatever the user's language
    return (stream >> number) && stream.peek() == std::istringstream::traits_type::eof();
}

/// Reads the whole file.
/// Throws: std::runtime_error with one line that names the file, the row and the column.
inline CellNuclei readCellNuclei(const std::string& path)
{
    std::ifstream file(path);
    std::string line;
    if (!std::getline(file, line)) {
        throw std::runtime_error(path + ": cannot be read");
    }
    const std::vector<std::string> heading = splitAtCommas(line);
    if (heading[0] != "diagnosis") {
        throw csvError(path, 1, 1, "the heading \"diagnosis\" is expected");
    }
    constexpr std::size_t numColumns = 31;
    if (heading.size() != numColumns) {
        throw csvError(path, 1, std::min(heading.size(), numColumns) + 1,
                       "a diagnosis and 30 measurements are expected");
    }

    CellNuclei data;
    data.names.assign(heading.begin() + 1, heading.end());
    std::size_t row = 1;
    while (std::getline(file, line)) {
        ++row;
        const std::vector<std::string> cells = splitAtCommas(line);
        Sample sample;
        if (cells[0] != "malignant" && cells[0] != "benign") {
            throw csvError(path, row, 1, "neither \"malignant\" nor \"benign\"");
        }
        sample.label = cells[0] == "malignant" ? malignant : benign;
        for (std::size_t i = 1; i < numColumns; ++i) {
            double measurement = 0.0;
            if (i == cells.size()) {
                throw csvError(path, row, i + 1, heading[i] + " is missing");
            }
            if (!readNumber(cells[i], measurement)) {
                throw csvError(path, row, i + 1, heading[i] + " is not a number");
            }
            sample.measurements.push_back(measurement);
        }
        if (cells.size() > numColumns) {
            throw csvError(path, row, numColumns + 1, "more cells than columns");
        }
        data.samples.push_back(sample);
    }
    if (file.bad()) {
        throw std::runtime_error(path + ": cannot be read to its end");
    }
    if (data.samples.size() < 3) {
        throw csvError(path, row + 1, 1, "at least 3 samples are needed");
    }
    return data;
}

struct Split {
    std::vector<Sample> training;
    std::vector<Sample> test;
};

/// Every third sample is for the test, so everyone who runs an example sees the same figures.
inline Split splitSamples(const std::vector<Sample>& samples)
{
    Split split;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        (i % 3 == 2 ? split.test : split.training).push_back(samples[i]);
    }
    return split;
}

/// The samples as the training set that a tool takes.
inline ktClassifierDataProviderMemory trainingSet(const std::vector<Sample>& samples)
{
    ktClassifierDataProviderMemory data;
    for (const Sample& sample : samples) {
        data.addData(new ktFeaturePattern(sample.measurements, {}), sample.label);
    }
    return data;
}

}  // namespace examples
