#include <clastool/clastool.h>

#include <exception>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <stdexcept>
#include <string>

const long sound = 0;
const long broken = 1;

ktClassifierDataProviderMemory trainingData()
{
    ktClassifierDataProviderMemory parts;  // of each part its length in mm and its weight in g
    parts.addData(new ktFeaturePattern({10.0, 20.0}, {}), sound);
    parts.addData(new ktFeaturePattern({10.2, 19.8}, {}), sound);
    parts.addData(new ktFeaturePattern({9.9, 20.4}, {}), sound);
    parts.addData(new ktFeaturePattern({10.9, 21.2}, {}), broken);
    parts.addData(new ktFeaturePattern({11.2, 20.9}, {}), broken);
    return parts;
}

void print(const ktClassifierResult& result)
{
    for (const ktClassifierCategoryResult& category : result.categoryResults()) {
        std::cout << "  " << (category.categoryLabel() == broken ? "broken" : "sound ") << "  match score "
                  << category.matchScore() << "  expected cost " << category.expectedCost() << "\n";
    }
}

void store(ktClassifierTool& tool, const std::string& path)
{
    const std::string beside = path + ".new";  // a store that fails half way leaves the old file alone
    std::ofstream file(beside, std::ios::binary);
    ktArchive archive(file);
    archive || tool;
    file.close();  // only now does it show whether the disk took everything
    if (!file) {
        throw std::runtime_error(beside + ": cannot be written");
    }
    std::filesystem::rename(beside, path);  // takes the place of the old one
}

void load(ktClassifierTool& tool, const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    ktArchive archive(file);
    archive || tool;
    if (!tool.isTrained()) {
        throw std::runtime_error(path + ": the stored tool is not trained");
    }
    tool.retrain(*tool.trainParams());  // a loaded nearest-neighbour tool takes up its parameters
}

int main()
{
    try {
        ktClassifierCosts costs(1.0);
        costs.misclassificationCostOverride(broken, sound, 10.0);  // a broken part called sound

        ktClassifierTool tool;
        tool.train(trainingData(), ktClassifierTrainParamsKNN(3, ktPatternDistanceMetricNorm(2.0), costs));

        const ktFeaturePattern part({10.4, 20.6}, {});
        ktClassifierResult result;
        tool.run(part, result);
        std::cout << std::fixed << std::setprecision(3) << "Trained:\n";
        print(result);

        store(tool, "parts.tool");
        ktClassifierTool loaded;
        load(loaded, "parts.tool");
        loaded.run(part, result);
        std::cout << "Loaded:\n";
        print(result);
        return 0;
    } catch (const ktException& error) {
        std::cerr << "error 0x" << std::hex << error.errorNumber() << ": " << error.message() << "\n";
    } catch (const std::exception& error) {
        std::cerr << "error: " << error.what() << "\n";
    }
    return 1;
}
