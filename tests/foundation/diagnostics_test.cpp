#include "support/test.h"

namespace {

TEST(Diagnostics, NullStaysNull)
{
    unsigned long flags = 5;
    EXPECT_EQ(ktDiagObject::getRecordingDestination(nullptr, flags), nullptr);
    EXPECT_EQ(flags, 5u);
}

TEST(Diagnostics, ObjectIsItsOwnDestinationUnlessItSaysOtherwise)
{
    ktDiagObject object;
    unsigned long flags = 5;
    EXPECT_EQ(ktDiagObject::getRecordingDestination(&object, flags), &object);
    EXPECT_EQ(flags, 5u);
}

TEST(Diagnostics, ObjectChoosesDestinationAndFlags)
{
    class Redirecting : public ktDiagObject {
    public:
        explicit Redirecting(ktDiagObject* destination) : destination_(destination) {}

        ktDiagObject* recordingDestination(unsigned long& flags) override
        {
            flags |= 8;
            return destination_;
        }

    private:
        ktDiagObject* destination_;
    };
    ktDiagObject destination;
    Redirecting object(&destination);
    unsigned long flags = 5;
    EXPECT_EQ(ktDiagObject::getRecordingDestination(&object, flags), &destination);
    EXPECT_EQ(flags, 13u);
    Redirecting nowhere(nullptr);
    EXPECT_EQ(ktDiagObject::getRecordingDestination(&nowhere, flags), nullptr);
}

TEST(Diagnostics, IsDestroyedThroughItsBase)
{
    bool destroyed = false;
    class Watched : public ktDiagObject {
    public:
        explicit Watched(bool& destroyed) : destroyed_(destroyed) {}
        ~Watched() override { destroyed_ = true; }

    private:
        bool& destroyed_;
    };
    std::unique_ptr<ktDiagObject>(std::make_unique<Watched>(destroyed)).reset();
    EXPECT_TRUE(destroyed);
}

}  // namespace
