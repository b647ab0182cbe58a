#include "support/golden.h"
#include "support/test.h"

namespace {

/// The class of the example in docs/archive-format.md.
class Point : public ktPersistent, public ktRepBase {
public:
    long number = 0;
    ktPtrHandle<Point> next;

    static ktPersistent* make() { return new Point; }

protected:
    void dispatchSerialize(ktArchive& archive) override
    {
        dispatchLayer(archive, this, sizeof *this, [&](unsigned char version) {
            ktArchive::checkVersion(version, "Point");
            archive || number || next;
        });
    }
};

const kt_Instantiator pointEntry(typeid(Point), &Point::make, "Point");

/// The bytes of the example: the first 24 characters of each line between the fences.
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

std::vector<ktPtrHandle<Point>> examplePoints()
{
    const ktPtrHandle<Point> first(new Point);
    const ktPtrHandle<Point> second(new Point);
    first->number = 1;
    first->next = second;
    second->number = -2;
    return {first, second};
}

TEST(ArchiveFormat, DocumentedExampleIsWhatIsStored)
{
    EXPECT_EQ(kt_test::toHex(documentedExample()), kt_test::toHex(kt_test::store(std::string("kt"), examplePoints())));
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

}  // namespace
