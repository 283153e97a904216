#include <dlfcn.h>
#include <gmock/gmock.h>

#include <memory>
#include <string>

namespace oxil::test {
namespace {

using testing::EndsWith;
using testing::NotNull;

class PlatformLibraryTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_THAT(__library, NotNull()) << dlerror(); }

    ~PlatformLibraryTest() override
    {
        if (__library != nullptr) {
            dlclose(__library);
        }
    }

    template <typename Function>
    Function* find(const char* name)
    {
        return reinterpret_cast<Function*>(dlsym(__library, name));
    }

private:
    void* __library = dlopen(OXIL_PLATFORM_LIBRARY, RTLD_NOW | RTLD_LOCAL);
};

TEST_F(PlatformLibraryTest, IsFoundByTheNameThatProgramsRecord)
{
    EXPECT_THAT(std::string(OXIL_PLATFORM_LIBRARY), EndsWith("/liboxil-platform.so.0"));
}

TEST_F(PlatformLibraryTest, OffersTheLogger)
{
    auto* const print = find<int(int, int, const char*, const char*, ...)>("__dlog_print");
    ASSERT_THAT(print, NotNull());

    EXPECT_EQ(print(0, 4, "OX", "%s", "hello"), 12);
}

TEST_F(PlatformLibraryTest, OffersTheSystemInformation)
{
    auto* const get = find<int(const char*, int*)>("system_info_get_platform_int");
    ASSERT_THAT(get, NotNull());

    int value = -7;
    EXPECT_EQ(get("/feature/unknown", &value), -22);
    EXPECT_EQ(value, -7);
}

}  // namespace
}  // namespace oxil::test
