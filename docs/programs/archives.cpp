#include <clastool/clastool.h>

#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>

// [load]
/// Loads a tool, or says on one line why that cannot be.
bool load(ktClassifierTool& tool, std::istream& stream)
{
    try {
        ktArchive archive(stream);
        archive || tool;
    } catch (const ktArchive::UnknownVersion& error) {
        std::cout << "stored by a newer program: " << error.message() << "\n";
        return false;
    } catch (const ktArchive::StreamFailed& error) {
        std::cout << "the file cannot be read: " << error.message() << "\n";
        return false;
    } catch (const ktArchive::Errors& error) {  // Corrupt or TooDeep: nothing that this library stored
        std::cout << "damaged or something else: " << error.message() << "\n";
        return false;
    }
    if (!tool.isTrained()) {
        std::cout << "the stored tool is not trained\n";
        return false;
    }
    std::cout << "loaded\n";
    return true;
}
// [load]

int main()
{
    ktClassifierDataProviderMemory parts;
    parts.addData(new ktFeaturePattern({10.0, 20.0}, {}), 0);
    parts.addData(new ktFeaturePattern({12.0, 21.0}, {}), 1);
    ktClassifierTool tool;
    tool.train(parts, ktClassifierTrainParamsKNN(1));

    // [several]
    // Several values in one archive: stored and loaded in the same order.
    std::string text = "measured on machine 3";
    {
        std::ofstream file("parts.tool", std::ios::binary);
        ktArchive archive(file);
        archive || text || tool;
    }
    {
        std::ifstream file("parts.tool", std::ios::binary);
        ktArchive archive(file);
        std::string loadedText;
        ktClassifierTool loadedTool;
        archive || loadedText || loadedTool;
        std::cout << loadedText << ": " << (loadedTool == tool ? "an equal tool" : "another tool") << "\n";
    }
    // [several]

    // [stream]
    std::ostringstream out;
    {
        ktArchive archive(out);
        archive || tool;
    }
    const std::string bytes = out.str();
    std::istringstream in(bytes);
    ktClassifierTool loaded;
    load(loaded, in);
    // [stream]

    std::string newer = bytes;
    newer[4] = 2;  // the number of the encoding
    for (const std::string& damaged :
         {std::string("PK and so on"), newer, bytes.substr(0, bytes.size() - 1), bytes.substr(0, 12), std::string()}) {
        std::istringstream stream(damaged);
        load(loaded, stream);
    }
    std::ifstream missing("no such file", std::ios::binary);
    load(loaded, missing);
}
