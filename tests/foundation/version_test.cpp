#include "support/test.h"

// The preprocessor can ask, too.
#if KT_VERSION < 10000
#error "KT_VERSION is no number of this version"
#endif

TEST(Version, IsThatOfTheProject)
{
    EXPECT_STREQ(KT_VERSION_STRING, KT_PROJECT_VERSION);
}

TEST(Version, NumberAndTextSayTheSame)
{
    const std::string text = std::to_string(KT_VERSION / 10000) + "." + std::to_string(KT_VERSION / 100 % 100) + "." +
                             std::to_string(KT_VERSION % 100);
    EXPECT_EQ(text, KT_VERSION_STRING);
}
