#include "toys.h"

#include "support/golden.h"

namespace {

using toys::Point;

/// The bytes of the example: the first 24 characters of each line between the fences.
std::string documentedExample();

TEST(ArchiveFormat, DocumentedExampleIsWhatIsStored)
{
    const ktPtrHandle<Point> first(new Point);
    const ktPtrHandle<Point> second(new Point);
    first->number = 1;
    first->next = second;
    second->number = -2;
    const std::vector<ktPtrHandle<Point>> points = {first, second};
    EXPECT_EQ(kt_test::toHex(documentedExample()), kt_test::toHex(kt_test::store(std::string("kt"), points)));
}

TEST(ArchiveFormat, DocumentedExampleLoads)
{
    kt_test::LoadingArchive archive(documentedExample());
    std::string text;
    std::vector<ktPtrHandle<Point>> points;
    archive || text || points;
    EXPECT_EQ(text, "kt");
    ASSERT_EQ(points.size(), 2u);
    EXPECT_EQ(points[0]->number, 1);
    EXPECT_EQ(points[1]->number, -2);
    EXPECT_EQ(points[0]->next, points[1]);
    EXPECT_TRUE(points[1]->next.isNull());
}

std::string documentedExample()
{
    std::ifstream file(kt_test::projectFolder() + "/docs/archive-format.md");
    std::string bytes;
    bool inside = false;
    for (std::string line; std::getline(file, line);) {
        if (line == "```") {
            inside = !inside;
        } else if (inside) {
            bytes += kt_test::fromHex(line.substr(0, 24));
        }
    }
    return bytes;
}

}  // namespace
