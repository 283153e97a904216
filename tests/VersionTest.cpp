#include <OxVersion.h>
#include <gtest/gtest.h>

#include <string>

namespace {

#define STRING_OF(text) #text
#define STRING(macro) STRING_OF(macro)

TEST(VersionTest, TheLibraryIsTheOneThatTheHeadersBelongTo)
{
    EXPECT_STREQ(OXIL_VERSION_TEXT, oxil::getVersion());
}

TEST(VersionTest, TheTextHasTheThreeNumbers)
{
    EXPECT_STREQ(
        STRING(OXIL_VERSION_MAJOR) "." STRING(OXIL_VERSION_MINOR) "." STRING(OXIL_VERSION_PATCH),
        OXIL_VERSION_TEXT);
}

TEST(VersionTest, ItIsTheProjects)
{
    EXPECT_STREQ(OXIL_PROJECT_VERSION, OXIL_VERSION_TEXT);
}

TEST(VersionTest, LaterOnesAreGreater)
{
    static_assert(OXIL_VERSION_OF(1, 0, 0) > OXIL_VERSION_OF(0, 999, 999), "major before minor");
    static_assert(OXIL_VERSION_OF(0, 1, 0) > OXIL_VERSION_OF(0, 0, 999), "minor before patch");
    static_assert(OXIL_VERSION_OF(0, 1, 1) > OXIL_VERSION_OF(0, 1, 0), "patch");
    static_assert(
        OXIL_VERSION == OXIL_VERSION_OF(OXIL_VERSION_MAJOR, OXIL_VERSION_MINOR, OXIL_VERSION_PATCH),
        "its own");

    // The preprocessor can do it, too.
#if OXIL_VERSION < OXIL_VERSION_OF(0, 1, 0)
    FAIL() << "there was none before";
#endif
}

}  // namespace
