#include <clastool/clastool.h>

#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

// [load]
const std::string marker = "tool that sorts parts";

std::string reasonOf(const ktArchive::Errors& error)
{
    const auto begins = [text = error.message()](const char* beginning) { return text.rfind(beginning, 0) == 0; };
    if (begins("Corrupt archive: not an archive")) {
        return "another kind of file";
    }
    if (begins("Corrupt archive: unexpected end") || begins("Corrupt archive: impossible count")) {
        return "cut short or damaged";
    }
    return "damaged or something else";
}

/// Loads a tool that stands behind the marker. Returns why that cannot be, or nothing.
std::string load(ktClassifierTool& tool, std::istream& stream)
{
    try {
        ktArchive archive(stream);
        std::string found;
        archive || found;
        if (found != marker) {
            return "something else: no marker";
        }
        archive || tool;
    } catch (const ktArchive::StreamFailed& error) {
        return "cannot be read: " + error.message();
    } catch (const ktArchive::UnknownVersion& error) {
        const bool isNewer = error.where() != nullptr && error.where() == std::string("ktArchive");
        return (isNewer ? "stored by a newer library: " : "newer, or damaged: ") + error.message();
    } catch (const ktArchive::Errors& error) {  // Corrupt or TooDeep
        return reasonOf(error) + ": " + error.message();
    }
    if (stream.peek() != std::istream::traits_type::eof()) {
        return "something else: more than a tool";
    }
    return tool.isTrained() ? "" : "the stored tool is not trained";
}
// [load]

void print(const std::string& reason)
{
    std::cout << (reason.empty() ? "loaded" : reason) << "\n";
}

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

    const auto stored = [](auto&... values) {
        std::ostringstream out;
        ktArchive archive(out);
        (archive || ... || values);
        return out.str();
    };
    std::string mark = marker;
    const std::string good = stored(mark, tool);
    std::string newer = good;
    newer[4] = 2;  // the number of the encoding
    std::string newerTool = good;
    newerTool[12 + marker.size()] = 1;  // the version of the tool
    std::string other = "hello";
    for (const std::string& bytes :
         {good, std::string("PK and so on"), newer, newerTool, good.substr(0, good.size() - 1), good.substr(0, 12),
          std::string(), stored(other), stored(mark, tool, other)}) {
        std::istringstream stream(bytes);
        ktClassifierTool loaded;
        print(load(loaded, stream));
    }
    std::ifstream missing("no such file", std::ios::binary);
    ktClassifierTool loaded;
    print(load(loaded, missing));
}
