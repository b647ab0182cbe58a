// Tables of comma-separated values.

#include "kit_kit.h"

#include <filesystem>

namespace {

using namespace kt_test;

using Names = std::vector<std::string>;
using Labels = std::vector<long>;
using Values = std::vector<double>;

TEST(KitCsv, ReadsNamesLabelsAndNumbers)
{
    ktKit::Table table = readText("kind,width,height\nbad,1.5,-2\ngood,+3e2,.25\nbad,0,1e-3\n");
    EXPECT_EQ(table.columns, (Names{"width", "height"}));
    EXPECT_EQ(table.labelNames, (Names{"bad", "good"}));
    EXPECT_EQ(labelsOf(table.data), (Labels{0, 1, 0}));
    EXPECT_EQ(measurementsOf(table.data).at(0), (Values{1.5, -2.0}));
    EXPECT_EQ(measurementsOf(table.data).at(1), (Values{300.0, 0.25}));
    EXPECT_EQ(measurementsOf(table.data).at(2), (Values{0.0, 0.001}));
}

TEST(KitCsv, WholeNumbersAreLabelsAsTheyAre)
{
    const ktKit::Table table = readText("kind,width\n7,1\n0,1\n2147483647,1\n007,1\n");
    EXPECT_TRUE(table.labelNames.empty());
    EXPECT_EQ(labelsOf(table.data), (Labels{7, 0, 2147483647, 7}));
    for (const std::string other : {"-1", "1.0", "2147483648", "x", "1e3"}) {
        const ktKit::Table texts = readText("kind,width\n7,1\n" + other + ",1\n");
        EXPECT_EQ(texts.labelNames, (Names{"7", other}));
        EXPECT_EQ(labelsOf(texts.data), (Labels{0, 1}));
    }
}

TEST(KitCsv, TheLabelColumnIsFoundByNameOrNumber)
{
    const std::string text = "width,kind,1\n1.5,a,2\n2.5,b,4\n";
    ktKit::Table byName = readText(text, {"kind"});
    ktKit::Table byNumber = readText("width,kind,height\n1.5,a,2\n2.5,b,4\n", {"1"});
    for (ktKit::Table* const table : {&byName, &byNumber}) {
        EXPECT_EQ(table->labelNames, (Names{"a", "b"}));
        EXPECT_EQ(measurementsOf(table->data).at(1), (Values{2.5, 4.0}));
    }
    // A column that is called so comes first.
    EXPECT_EQ(labelsOf(readText("width,kind,1\n1.5,3,2\n2.5,3,4\n", {"1"}).data), (Labels{2, 4}));
    ktKit::CsvOptions none;
    none.isLabelled = false;
    ktKit::Table unlabelled = readText("width,height\n1.5,2\n2.5,4\n", none);
    EXPECT_EQ(unlabelled.columns, (Names{"width", "height"}));
    EXPECT_EQ(labelsOf(unlabelled.data), (Labels{-1, -1}));
    EXPECT_EQ(measurementsOf(unlabelled.data).at(0), (Values{1.5, 2.0}));
}

TEST(KitCsv, NumbersMayHaveASign)
{
    EXPECT_EQ(measurementsOf(readText("kind,a,b,c\nx,+1,-2,+1.5e+1\n").data).at(0), (Values{1.0, -2.0, 15.0}));
}

TEST(KitCsv, WhatIsMissingIsInvalid)
{
    ktKit::Table table =
        readText("kind,a,b,c,d,e,f,g\nx,,NA,NaN,nan, na ,inf,1\nNA,1,1,1,1,1,1,-Infinity\n,1,1,1,1,1,1,1\n");
    const auto pattern = table.data.featurePattern(0);
    EXPECT_EQ(pattern->numInvalid(), 6);
    EXPECT_TRUE(pattern->isValid(6));
    EXPECT_FALSE(table.data.featurePattern(1)->isValid(6));
    EXPECT_EQ(labelsOf(table.data), (Labels{0, -1, -1}));
}

TEST(KitCsv, CellsInQuotesMayHoldAnything)
{
    ktKit::Table table = readText(
        "\xEF\xBB\xBF\"the \"\"kind\"\"\"; \"width \r\n\r\n\"x; y\";\" 1.5 \"\r\"x; y\";\t2.5\n"
        "\"line\r\nend\";3\n\n\"\";\"4\"",
        {"the \"kind\"", ';'});
    EXPECT_EQ(table.columns, (Names{"\"width"}));
    EXPECT_EQ(table.labelNames, (Names{"x; y", "line\r\nend"}));
    EXPECT_EQ(labelsOf(table.data), (Labels{0, 0, 1, -1}));
    EXPECT_EQ(measurementsOf(table.data).at(0), (Values{1.5}));
    EXPECT_EQ(measurementsOf(table.data).at(1), (Values{2.5}));
    EXPECT_EQ(measurementsOf(table.data).at(3), (Values{4.0}));
}

TEST(KitCsv, OtherSeparators)
{
    for (const char separator : {';', '\t', ' ', '|'}) {
        std::string text = "kind,width,height\na,1,2\n";
        std::replace(text.begin(), text.end(), ',', separator);
        ktKit::Table table = readText(text, {"", separator});
        EXPECT_EQ(table.columns, (Names{"width", "height"}));
        EXPECT_EQ(measurementsOf(table.data).at(0), (Values{1.0, 2.0}));
    }
    for (const char separator : std::string("\"\r\n+-.059")) {
        expectThrows<ktClassifierDefs::BadParams>(
            "The separator must not be a quote, a line end, or a character of numbers", [&] {
                readText("", {"", separator});
            });
    }
    expectThrows<ktClassifierDefs::BadParams>(
        "The separator must not be a quote, a line end, or a character of numbers", [] {
            ktKit::readCsv("no such file", {"", '"'});
        });
}

TEST(KitCsv, LinesOfBlanksAreEmpty)
{
    ktKit::Table table = readText(" \t\nkind,width\n  \na,1\n\t \r\n\nb,2\n ");
    EXPECT_EQ(labelsOf(table.data), (Labels{0, 1}));
    EXPECT_EQ(measurementsOf(table.data).at(1), (Values{2.0}));
    // Where blanks part cells, such a line has cells.
    ktKit::Table tabs = readText("kind\twidth\n\t\n", {"", '\t'});
    EXPECT_EQ(labelsOf(tabs.data), (Labels{-1}));
    expectCsvRefused("kind width\n  \n", "line 2: 3 cells, but 2 columns", {"", ' '});
    expectCsvRefused("a,b\nx,1\n \n x\n", "line 4: 1 cells, but 2 columns");
}

TEST(KitCsv, NoRowsGiveNoPatterns)
{
    const ktKit::Table table = readText("kind,width");
    EXPECT_EQ(table.columns, (Names{"width"}));
    EXPECT_EQ(table.data.numPatterns(), 0);
}

// The compiler's own conversion judges.
TEST(KitCsv, NumbersAreRoundedToTheNearest)
{
    const std::vector<std::pair<std::string, double>> numbers = {{"0.1", 0.1},
                                                                 {"1e22", 1e22},
                                                                 {"1e23", 1e23},
                                                                 {"8.5e-320", 8.5e-320},
                                                                 {"4.9406564584124654e-324", 4.9406564584124654e-324},
                                                                 {"1.7976931348623157e308", 1.7976931348623157e308},
                                                                 {"-0.0", -0.0},
                                                                 {"3.", 3.},
                                                                 {"0.30000000000000004", 0.30000000000000004},
                                                                 {"9007199254740993", 9007199254740993.0},
                                                                 {"2.2250738585072011e-308", 2.2250738585072011e-308},
                                                                 {"179769313486231570e291", 179769313486231570e291},
                                                                 {"1e-400", 0.0},
                                                                 {"-3e-324", -4.9406564584124654e-324},
                                                                 {"-2e-324", -0.0},
                                                                 {"0." + std::string(400, '0') + "7", 0.0},
                                                                 {std::string(300, '9') + "e-299", 10.0}};
    std::string file = "kind,x\n";
    for (const auto& number : numbers) {
        file += "0," + number.first + "\n";
    }
    ktKit::Table table = readText(file);
    const std::vector<Values> rows = measurementsOf(table.data);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        EXPECT_EQ(rows.at(i)[0], numbers[i].second) << numbers[i].first;
    }
    EXPECT_TRUE(std::signbit(rows.at(6)[0]));
    EXPECT_TRUE(std::signbit(rows.at(14)[0]));
}

TEST(KitCsv, SaysWhereAndWhatIsWrong)
{
    expectCsvRefused("", "line 1: the names of the columns are missing");
    expectCsvRefused("\n\r\n", "line 3: the names of the columns are missing");
    expectCsvRefused("a,b\n", "line 1: no column is called \"c\"", {"c"});
    expectCsvRefused("a,b\n", "line 1: no column is called \"2\"", {"2"});
    expectCsvRefused("a,b\n", "line 1: no column is called \"1x\"", {"1x"});
    expectCsvRefused("a\nx\n", "line 1: there is no column of measurements");
    expectCsvRefused("a,b\n\nx,1\n\"x\n y,2\n", "line 4, column 1: the quote that begins here does not end");
    expectCsvRefused("a,b\nx,1\nx,\"1\"2\n", "line 3, column 2: something stands behind the closing quote");
    expectCsvRefused("a,b\nx,1,2\n", "line 2: 3 cells, but 2 columns");
    expectCsvRefused("a,b\nx\n", "line 2: 1 cells, but 2 columns");
    expectCsvRefused("a,b,c\nx,1,2\nx,1,\n,\n", "line 4: 2 cells, but 3 columns");
    expectCsvRefused("a,b,wide\nx,1,2\n\"two\nlines\",1,ten\n", "line 4, column 3 (wide): \"ten\" is not a number");
    for (const std::string cell : {"1,5", "0x10", "1e", "--1", "+-1", "+", "1 2", "1.2.3", "none", "nanx", "1e400x"}) {
        expectCsvRefused("a;b\nx;" + cell + "\n", "line 2, column 2 (b): \"" + cell + "\" is not a number", {"", ';'});
    }
    expectCsvRefused("a,b\nx," + std::string(50, 'y') + "\n",
                     "line 2, column 2 (b): \"" + std::string(40, 'y') + "\" is not a number");
    expectCsvRefused("a,b\nx,1e400\n", "line 2, column 2 (b): \"1e400\" is too large for a number");
    expectCsvRefused("a,b\nx,-2e308\n", "line 2, column 2 (b): \"-2e308\" is too large for a number");
}

TEST(KitCsv, ReadsFiles)
{
    const std::string path = (std::filesystem::temp_directory_path() / "kit_csv_test.csv").string();
    std::string text = "kind,width\n";
    for (int i = 0; i < 200000; ++i) {
        text += std::to_string(i % 3) + "," + std::to_string(i) + ".5\n";
    }
    kt_test::writeBytes(path, text);
    ktKit::Table table = ktKit::readCsv(path);
    ASSERT_EQ(table.data.numPatterns(), 200000) << "more than is read at once";
    EXPECT_EQ(measurementsOf(table.data).at(199999), (Values{199999.5}));
    kt_test::writeBytes(path, "kind,width\nx,y\n");
    expectThrows<ktKit::FileError>(path + ": line 2, column 2 (width): \"y\" is not a number",
                                   [&] { ktKit::readCsv(path); });
    std::filesystem::remove(path);
    expectThrows<ktKit::FileError>(path + ": cannot be read", [&] { ktKit::readCsv(path); });
    const std::string folder = std::filesystem::temp_directory_path().string();
    expectThrows<ktKit::FileError>(folder + ": cannot be read", [&] { ktKit::readCsv(folder); });
}

TEST(KitCsv, AnyBytesEndInATableOrInAnError)
{
    const std::string whole = "kind,width,\"the height\"\r\nx,1.5,NA\n\"y, \"\"z\"\"\",-2e3,7\n\n0,,+1\n";
    const std::string pieces = "\"\",\n\r;x1e-+.\xEF\0";
    ktRandomUniform random(11);
    const auto drawn = [&random](std::size_t size) {
        return static_cast<std::size_t>(random.next(0.0, static_cast<double>(size)));
    };
    long read = 0;
    long refused = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string text = whole;
        for (std::size_t change = drawn(4) + 1; change-- > 0;) {
            text[drawn(text.size())] = pieces[drawn(pieces.size())];
        }
        text.resize(drawn(text.size() + 1));
        try {
            std::istringstream stream(text);
            const ktKit::Table table = ktKit::readCsv(stream);
            ++read;
            EXPECT_FALSE(table.columns.empty());
        } catch (const ktKit::FileError& error) {
            ++refused;
            EXPECT_EQ(error.message().rfind("stream: line ", 0), 0U) << error.message();
        }
    }
    EXPECT_GT(read, 1000);
    EXPECT_GT(refused, 1000);
}

TEST(KitCsv, RunsOutOfMemoryCleanly)
{
    EXPECT_GT(kt_test::failEachAllocation(
                  [] { readText("kind,a long name of a column\n\"a quoted label of some length\",1\ny,NA\n"); }),
              0);
}

}  // namespace
