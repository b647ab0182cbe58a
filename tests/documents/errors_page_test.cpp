#include "errors_page.h"
#include "provocations.h"

#include <filesystem>

// docs/errors.md against the library: class, number and text of every row, and every text that the sources hold.

namespace {

using namespace documents;

TEST(ErrorsPage, EveryRowHasTheClassTheNumberAndTheTextOfAnError)
{
    std::set<ErrorRow> unseen = rowsOfPage();
    for (const Provocation& provocation : allProvocations()) {
        try {
            provocation.operation();
            ADD_FAILURE() << "no exception: " << provocation.text;
        } catch (const ktException& error) {
            EXPECT_TRUE(isText(error.message(), provocation.text)) << error.message() << "\n" << provocation.text;
            const ErrorRow row{className(error), error.errorNumber(), provocation.text};
            EXPECT_EQ(unseen.erase(row), 1u) << "not on the page: " << row;
        }
    }
    for (const ErrorRow& row : unseen) {
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
    const std::set<ErrorRow> rows = rowsOfPage();
    const std::string project = kt_test::projectFolder() + "/";
    int found = 0;
    for (const char* folder : {"foundation/src", "clss/clastool"}) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(project + folder)) {
            const std::string source = entry.is_regular_file() ? kt_test::fileBytes(entry.path().string()) : "";
            for (const auto& [call, errorClass] : calls) {
                for (auto at = source.find(call); at != std::string::npos; at = source.find(call, at + 1)) {
                    std::string literal;
                    if (!literalBehind(source, at + call.size(), literal)) {
                        continue;
                    }
                    ++found;
                    const std::string& wanted = errorClass;
                    EXPECT_TRUE(std::any_of(rows.begin(), rows.end(),
                                            [&](const ErrorRow& row) {
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
