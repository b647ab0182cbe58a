#include "provocations.h"

#include "support/golden.h"

#include <filesystem>
#include <typeindex>

// docs/errors.md against the library: class, number and text of every row, and every text that the sources hold.

namespace {

using documents::Provocation;

const std::filesystem::path project = kt_test::projectFolder();

std::string contentsOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream contents;
    contents << file.rdbuf();
    return contents.str();
}

void replaceAll(std::string& text, const std::string& what, const std::string& with)
{
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size())) {
        text.replace(at, what.size(), with);
    }
}

/// A row of the page, under the heading of its class.
struct Row {
    std::string errorClass;
    long number;
    std::string text;
};

bool operator<(const Row& a, const Row& b)
{
    return std::tie(a.errorClass, a.number, a.text) < std::tie(b.errorClass, b.number, b.text);
}

std::ostream& operator<<(std::ostream& out, const Row& row)
{
    return out << row.errorClass << " 0x" << std::hex << row.number << std::dec << " \"" << row.text << "\"";
}

/// Headings are `### class, number`, rows begin with the text in backticks. A bar inside a text is written `\|`.
std::set<Row> rowsOfPage()
{
    std::set<Row> rows;
    std::istringstream page(contentsOf(project / "docs/errors.md"));
    Row row;
    for (std::string line; std::getline(page, line);) {
        const auto comma = line.find(", 0x");
        if (line.rfind("## ", 0) == 0) {
            row.errorClass.clear();
        } else if (line.rfind("### ", 0) == 0 && comma != std::string::npos) {
            row.errorClass = line.substr(4, comma - 4);
            row.number = std::strtol(line.c_str() + comma + 2, nullptr, 16);
        } else if (row.errorClass.empty()) {
            continue;
        } else if (line.rfind("| `", 0) == 0) {
            replaceAll(line, "\\|", "|");
            row.text = line.substr(3, line.find("` | ") - 3);
            rows.insert(row);
        } else if (line.rfind("| (no text) |", 0) == 0) {
            row.text.clear();
            rows.insert(row);
        }
    }
    return rows;
}

/// Whether the message is the text, where `<...>` stands for anything.
bool isText(const std::string& message, const std::string& text)
{
    const auto open = text.find('<');
    const auto close = text.find('>', open);
    if (open == std::string::npos || close == std::string::npos || text.find(' ', open) < close) {
        return message == text;
    }
    if (message.compare(0, open, text, 0, open) != 0) {
        return false;
    }
    const std::string rest = text.substr(close + 1);
    for (std::size_t end = open + 1; end <= message.size(); ++end) {
        if (isText(message.substr(end), rest)) {
            return true;
        }
    }
    return false;
}

/// The name of the error's class as a program writes it.
std::string className(const ktException& error)
{
    static const std::map<std::type_index, std::string> foundation = {
        {typeid(ktArchive::UnknownVersion), "ktArchive::UnknownVersion"},
        {typeid(ktArchive::Corrupt), "ktArchive::Corrupt"},
        {typeid(ktArchive::OutOfRange), "ktArchive::OutOfRange"},
        {typeid(ktArchive::TooDeep), "ktArchive::TooDeep"},
        {typeid(ktArchive::Conflict), "ktArchive::Conflict"},
        {typeid(ktArchive::StreamFailed), "ktArchive::StreamFailed"},
        {typeid(ktBadPointer), "ktBadPointer"},
        {typeid(ktFailure), "ktFailure"},
    };
    if (const kt_Instantiator* entry = kt_Instantiator::find(typeid(error))) {
        return entry->name();
    }
    const auto place = foundation.find(typeid(error));
    return place == foundation.end() ? "a class of another name" : place->second;
}

std::vector<Provocation> allProvocations()
{
    std::vector<Provocation> all = documents::provocationsOfClassification();
    const std::vector<Provocation> more = documents::provocationsOfFoundation();
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

/// What no test brings about.
bool isBeyondTesting(const Row& row)
{
    return row.text.find("more objects than 32 bits can count") != std::string::npos ||
           (LONG_MAX == 2147483647L && row.text.find("does not fit 32 bits") != std::string::npos);
}

TEST(ErrorsPage, EveryRowHasTheClassTheNumberAndTheTextOfAnError)
{
    std::set<Row> unseen = rowsOfPage();
    for (const Provocation& provocation : allProvocations()) {
        try {
            provocation.operation();
            ADD_FAILURE() << "no exception: " << provocation.text;
        } catch (const ktException& error) {
            EXPECT_TRUE(isText(error.message(), provocation.text)) << error.message() << "\n" << provocation.text;
            const Row row{className(error), error.errorNumber(), provocation.text};
            EXPECT_EQ(unseen.erase(row), 1u) << "not on the page: " << row;
        }
    }
    for (const Row& row : unseen) {
        EXPECT_TRUE(isBeyondTesting(row)) << "only on the page: " << row;
    }
}

/// The string that begins behind `name(` at a place in a source, with nothing but blanks and a conversion before it.
bool literalBehind(const std::string& source, std::size_t at, std::string& literal)
{
    at = source.find_first_not_of(" \n", at);
    const std::string conversion = "std::string(";
    at += source.compare(at, conversion.size(), conversion) == 0 ? conversion.size() : 0;
    if (at >= source.size() || source[at] != '"') {
        return false;
    }
    literal.clear();
    for (++at; source[at] != '"'; ++at) {
        at += source[at] == '\\' ? 1 : 0;
        literal += source[at];
    }
    return true;
}

TEST(ErrorsPage, EveryTextThatTheSourcesThrowIsOnIt)
{
    static const std::map<std::string, std::string> calls = {
        {"BadParams(", "ktClassifierDefs::BadParams"},
        {"NotTrained(", "ktClassifierDefs::NotTrained"},
        {"BadIndex(", "ktClassifierDefs::BadIndex"},
        {"BadLabel(", "ktClassifierDefs::BadLabel"},
        {"BadMethod(", "ktClassifierDefs::BadMethod"},
        {"NotImplemented(", "ktClassifierDefs::NotImplemented"},
        {"BadFeatures(", "ktClassifierDefs::BadFeatures"},
        {"InsufficientTrainData(", "ktClassifierDefs::InsufficientTrainData"},
        {"throwCorrupt(", "ktArchive::Corrupt"},
        {"throwOutOfRange(", "ktArchive::OutOfRange"},
        {"OutOfRange(", "ktArchive::OutOfRange"},
        {"TooDeep(", "ktArchive::TooDeep"},
        {"Conflict(", "ktArchive::Conflict"},
        {"StreamFailed(", "ktArchive::StreamFailed"},
    };
    const std::set<Row> rows = rowsOfPage();
    int found = 0;
    for (const char* folder : {"foundation/src", "clss/clastool"}) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(project / folder)) {
            const std::string source = entry.is_regular_file() ? contentsOf(entry.path()) : "";
            for (const auto& [call, errorClass] : calls) {
                for (auto at = source.find(call); at != std::string::npos; at = source.find(call, at + 1)) {
                    std::string literal;
                    if (!literalBehind(source, at + call.size(), literal)) {
                        continue;
                    }
                    ++found;
                    const std::string& wanted = errorClass;
                    EXPECT_TRUE(std::any_of(rows.begin(), rows.end(),
                                            [&](const Row& row) {
                                                return row.errorClass == wanted &&
                                                       row.text.find(literal) != std::string::npos;
                                            }))
                        << errorClass << " \"" << literal << "\"";
                }
            }
        }
    }
    EXPECT_GT(found, 80);
}

}  // namespace
