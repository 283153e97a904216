#include "system_info.h"

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "OxPlatform.h"
#include "OxStatus.h"
#include "display.h"

namespace oxil::platform {

bool operator==(const DisplaySize& left, const DisplaySize& right)
{
    return left.width == right.width && left.height == right.height;
}

void PrintTo(const DisplaySize& size, std::ostream* stream)
{
    *stream << size.width << "x" << size.height;
}

}  // namespace oxil::platform

namespace oxil::test {
namespace {

namespace fs = std::filesystem;

using platform::DisplaySize;
using platform::findDisplay;
using platform::getPlatformInt;
using testing::Eq;
using testing::Optional;

constexpr int UNTOUCHED = -7;
constexpr const char* WIDTH_KEY = OXIL_FEATURE_NAMESPACE "/feature/screen.width";
constexpr const char* HEIGHT_KEY = OXIL_FEATURE_NAMESPACE "/feature/screen.height";

/** What a query returned, and what the value was afterwards. */
using Answer = std::pair<int, int>;

/** A tree like the kernel's /sys, removed again at the end. */
class Sysfs {
public:
    Sysfs()
    {
        std::string pattern = testing::TempDir() + "/sysfs-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) {
            throw fs::filesystem_error("mkdtemp", pattern,
                                       std::error_code(errno, std::generic_category()));
        }
        __root = pattern;
    }

    ~Sysfs()
    {
        std::error_code ignored;
        fs::remove_all(__root, ignored);
    }

    Sysfs(const Sysfs&) = delete;
    Sysfs& operator=(const Sysfs&) = delete;

    const fs::path& root() const { return __root; }
    fs::path drm() const { return __root / "class/drm"; }
    fs::path framebuffer() const { return __root / "class/graphics/fb0/virtual_size"; }

    void write(const fs::path& file, const std::string& text) const
    {
        fs::create_directories(file.parent_path());
        std::ofstream stream(file, std::ios::binary);
        stream << text;
        if (!stream.flush()) {
            throw fs::filesystem_error("write", file, std::make_error_code(std::errc::io_error));
        }
    }

    void addConnector(const std::string& name, const std::string& status,
                      const std::string& modes) const
    {
        write(drm() / name / "status", status);
        write(drm() / name / "modes", modes);
    }

    void addFramebuffer(const std::string& size) const { write(framebuffer(), size); }

    Answer get(const char* key) const
    {
        int value = UNTOUCHED;
        const int status = getPlatformInt(__root, key, &value);
        return {status, value};
    }

private:
    fs::path __root;
};

auto IsSize(int width, int height)
{
    return Optional(Eq(DisplaySize{width, height}));
}

// ---- The keys

TEST(SystemInfoTest, WidthAndHeightAreThoseOfTheDisplay)
{
    const Sysfs sysfs;
    sysfs.addConnector("card0-eDP-1", "connected\n", "1920x1080\n1280x720\n");

    EXPECT_EQ(sysfs.get(WIDTH_KEY), Answer(STATUS_SUCCESS, 1920));
    EXPECT_EQ(sysfs.get(HEIGHT_KEY), Answer(STATUS_SUCCESS, 1080));
}

TEST(SystemInfoTest, AnyOtherKeyIsRefused)
{
    const Sysfs sysfs;
    sysfs.addConnector("card0-eDP-1", "connected\n", "1920x1080\n");

    const std::string width = WIDTH_KEY;
    const std::string keys[] = {"",
                                "width",
                                "screen.width",
                                "/feature/screen",
                                OXIL_FEATURE_NAMESPACE,
                                "x" + width,
                                width + "x",
                                width.substr(0, width.size() - 1),
                                width + "/",
                                OXIL_FEATURE_NAMESPACE "/feature/screen.Width",
                                OXIL_FEATURE_NAMESPACE "/feature/screen.dpi"};
    for (const std::string& key : keys) {
        EXPECT_EQ(sysfs.get(key.c_str()), Answer(-22, UNTOUCHED)) << key;
    }
}

TEST(SystemInfoTest, NullPointersAreRefused)
{
    const Sysfs sysfs;
    sysfs.addConnector("card0-eDP-1", "connected\n", "1920x1080\n");

    EXPECT_EQ(sysfs.get(nullptr), Answer(-22, UNTOUCHED));
    EXPECT_EQ(getPlatformInt(sysfs.root(), WIDTH_KEY, nullptr), -22);
    EXPECT_EQ(getPlatformInt(sysfs.root(), nullptr, nullptr), -22);
}

TEST(SystemInfoTest, WithoutADisplayTheValueIsLeftAlone)
{
    const Sysfs sysfs;

    EXPECT_EQ(sysfs.get(WIDTH_KEY), Answer(-524270, UNTOUCHED));
    EXPECT_EQ(sysfs.get(HEIGHT_KEY), Answer(-524270, UNTOUCHED));
}

TEST(SystemInfoTest, ThePlatformsFunctionAsksThisMachine)
{
    for (const char* key : {WIDTH_KEY, HEIGHT_KEY, "/feature/unknown"}) {
        int expectedValue = UNTOUCHED;
        const int expectedStatus = getPlatformInt("/sys", key, &expectedValue);

        int value = UNTOUCHED;
        EXPECT_EQ(system_info_get_platform_int(key, &value), expectedStatus);
        EXPECT_EQ(value, expectedValue);
    }

    int value = UNTOUCHED;
    EXPECT_EQ(system_info_get_platform_int(nullptr, &value), -22);
    EXPECT_EQ(value, UNTOUCHED);
    EXPECT_EQ(system_info_get_platform_int(WIDTH_KEY, nullptr), -22);
}

/** Puts the tree in the place of /sys, for this process alone; returns whether it may. */
bool mountAsSys(const Sysfs& sysfs)
{
    return (unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) &&
           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount(sysfs.root().c_str(), "/sys", nullptr, MS_BIND, nullptr) == 0;
}

TEST(SystemInfoTest, ThePlatformsFunctionFindsTheDisplayOfTheKernelsTree)
{
    enum Outcome { FOUND, NOT_FOUND, NOT_ALLOWED };

    const Sysfs sysfs;
    sysfs.addConnector("card0-eDP-1", "connected\n", "1921x1081\n");

    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        Outcome outcome = NOT_ALLOWED;
        if (mountAsSys(sysfs)) {
            int width = UNTOUCHED;
            int height = UNTOUCHED;
            const bool found = system_info_get_platform_int(WIDTH_KEY, &width) == 0 &&
                               system_info_get_platform_int(HEIGHT_KEY, &height) == 0 &&
                               width == 1921 && height == 1081;
            outcome = found ? FOUND : NOT_FOUND;
        }
        _exit(outcome);
    }

    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << status;
    if (WEXITSTATUS(status) == NOT_ALLOWED) {
        GTEST_SKIP() << "no mount namespaces for this user";
    }
    EXPECT_EQ(WEXITSTATUS(status), FOUND);
}

TEST(SystemInfoTest, ExhaustedMemoryIsReportedAndNotThrown)
{
    int value = UNTOUCHED;
    int status = STATUS_SUCCESS;
    bool happened = false;
    {
        const AllocationFailure failure(Allocation::ThrowingNew);
        status = system_info_get_platform_int(WIDTH_KEY, &value);
        happened = failure.happened();
    }

    EXPECT_TRUE(happened);
    EXPECT_EQ(status, -12);
    EXPECT_EQ(value, UNTOUCHED);
}

// ---- Connectors of the graphics cards

TEST(DisplayTest, OnlyAConnectedConnectorCounts)
{
    const Sysfs sysfs;
    const char* const others[] = {"disconnected\n", "unknown\n",    "",           "\n",
                                  "connected2\n",   " connected\n", "Connected\n"};
    int number = 0;
    for (const char* status : others) {
        sysfs.addConnector("card0-DP-" + std::to_string(++number), status, "640x480\n");
    }
    EXPECT_EQ(findDisplay(sysfs.root()), std::nullopt);

    sysfs.addConnector("card0-DP-99", "connected\n", "1920x1080\n");
    EXPECT_THAT(findDisplay(sysfs.root()), IsSize(1920, 1080));
}

TEST(DisplayTest, ConnectorsAreTakenInTheOrderOfTheirNames)
{
    const std::vector<std::string> ordered = {"card0-DP-2",  "card0-DP-10", "card0-HDMI-A-1",
                                              "card0-eDP-1", "card2-DP-1",  "card10-DP-1"};

    for (std::size_t first = 0; first < ordered.size(); ++first) {
        for (const bool ascending : {true, false}) {
            const Sysfs sysfs;
            std::vector<std::size_t> numbers;
            for (std::size_t number = first; number < ordered.size(); ++number) {
                numbers.push_back(number);
            }
            if (!ascending) {
                std::reverse(numbers.begin(), numbers.end());
            }
            for (const std::size_t number : numbers) {
                sysfs.addConnector(ordered[number], "connected\n",
                                   std::to_string(100 + number) + "x50\n");
            }

            EXPECT_THAT(findDisplay(sysfs.root()), IsSize(static_cast<int>(100 + first), 50));
        }
    }
}

TEST(DisplayTest, WhatIsNoConnectorIsPassedOver)
{
    const Sysfs sysfs;
    for (const char* name : {"card0", "renderD128", "version", "ttm-DP-1"}) {
        sysfs.addConnector(name, "connected\n", "640x480\n");
    }
    sysfs.write(sysfs.drm() / "card0-file", "connected\n");
    fs::create_directories(sysfs.drm() / "card0-empty");
    fs::create_directories(sysfs.drm() / "card0-directories/status");
    fs::create_directory_symlink("nowhere", sysfs.drm() / "card0-dangling");
    EXPECT_EQ(findDisplay(sysfs.root()), std::nullopt);

    sysfs.addConnector("card0-eDP-1", "connected\n", "1920x1080\n");
    EXPECT_THAT(findDisplay(sysfs.root()), IsSize(1920, 1080));
}

TEST(DisplayTest, ConnectorsMayBeLinksAsInTheKernelsTree)
{
    const Sysfs sysfs;
    const fs::path device = sysfs.root() / "devices/card0/card0-eDP-1";
    sysfs.write(device / "status", "connected\n");
    sysfs.write(device / "modes", "1280x800\n");
    fs::create_directories(sysfs.drm());
    fs::create_directory_symlink(device, sysfs.drm() / "card0-eDP-1");

    EXPECT_THAT(findDisplay(sysfs.root()), IsSize(1280, 800));
}

TEST(DisplayTest, TheFirstModeIsTheSize)
{
    const struct {
        const char* modes;
        int width;
        int height;
    } cases[] = {
        {"1920x1080\n", 1920, 1080},
        {"1920x1080", 1920, 1080},
        {"1920x1080i\n1920x1080\n", 1920, 1080},
        {"720x576i", 720, 576},
        {"1x1\n", 1, 1},
        {"0800x0600\n", 800, 600},
        {"2147483647x2147483647\n", INT_MAX, INT_MAX},
        {"480x800\nnonsense\n", 480, 800},
    };
    for (const auto& [modes, width, height] : cases) {
        const Sysfs sysfs;
        sysfs.addConnector("card0-eDP-1", "connected\n", modes);
        EXPECT_THAT(findDisplay(sysfs.root()), IsSize(width, height)) << modes;
    }
}

TEST(DisplayTest, AConnectorWithoutAUsableFirstModeIsPassedOver)
{
    const std::string unusable[] = {"",
                                    "\n",
                                    "\n1920x1080\n",
                                    "nonsense\n1920x1080\n",
                                    "x",
                                    "x1080",
                                    "1920",
                                    "1920x",
                                    "1920xi",
                                    "1920,1080",
                                    "1920X1080",
                                    "1920 x 1080",
                                    " 1920x1080",
                                    "1920x1080 ",
                                    "1920x1080\r\n",
                                    "1920x1080i60",
                                    "1920x1080.5",
                                    "1920.5x1080",
                                    "+1920x1080",
                                    "1920x+1080",
                                    "-1920x1080",
                                    "1920x-1080",
                                    "0x1080",
                                    "1920x0",
                                    "0x0",
                                    "0x780x438",
                                    "2147483648x1080",
                                    "1920x2147483648",
                                    "4294967297x1080",
                                    "1920x18446744073709551617",
                                    std::string(100000, '9') + "x1080",
                                    std::string("1920\0x1080", 10),
                                    std::string("1920x1080\0", 10),
                                    "\xff\xfe"};
    for (const std::string& modes : unusable) {
        const Sysfs sysfs;
        sysfs.addConnector("card0-DP-1", "connected\n", modes);
        EXPECT_EQ(findDisplay(sysfs.root()), std::nullopt) << modes;

        sysfs.addConnector("card0-eDP-1", "connected\n", "800x480\n");
        EXPECT_THAT(findDisplay(sysfs.root()), IsSize(800, 480)) << modes;
    }
}

TEST(DisplayTest, AConnectorWhoseModesCannotBeReadIsPassedOver)
{
    const Sysfs sysfs;
    sysfs.write(sysfs.drm() / "card0-DP-1/status", "connected\n");
    sysfs.write(sysfs.drm() / "card0-DP-2/status", "connected\n");
    fs::create_directories(sysfs.drm() / "card0-DP-2/modes");
    EXPECT_EQ(findDisplay(sysfs.root()), std::nullopt);

    sysfs.addConnector("card0-eDP-1", "connected\n", "800x480\n");
    EXPECT_THAT(findDisplay(sysfs.root()), IsSize(800, 480));
}

// ---- The framebuffer

TEST(DisplayTest, TheFramebufferStandsInForMissingConnectors)
{
    const Sysfs sysfs;
    sysfs.addFramebuffer("1024,768\n");
    EXPECT_THAT(findDisplay(sysfs.root()), IsSize(1024, 768));

    sysfs.addConnector("card0-DP-1", "disconnected\n", "");
    sysfs.addConnector("card0-DP-2", "connected\n", "nonsense\n");
    EXPECT_THAT(findDisplay(sysfs.root()), IsSize(1024, 768));

    sysfs.addConnector("card0-eDP-1", "connected\n", "1920x1080\n");
    EXPECT_THAT(findDisplay(sysfs.root()), IsSize(1920, 1080));
}

TEST(DisplayTest, TheFramebufferCountsAlsoWhereNoDirectoryOfCardsCanBeRead)
{
    const Sysfs sysfs;
    sysfs.addFramebuffer("1024,768");
    sysfs.write(sysfs.drm(), "a file");

    EXPECT_THAT(findDisplay(sysfs.root()), IsSize(1024, 768));
}

TEST(DisplayTest, AFramebufferWithoutAUsableSizeIsNoDisplay)
{
    for (const char* size : {"", "\n", ",", "1024", "1024,", ",768", "1024x768", "1024, 768", "0,0",
                             "0,768", "1024,0", "-1,768", "1024,2147483648", "nonsense"}) {
        const Sysfs sysfs;
        sysfs.addFramebuffer(size);
        EXPECT_EQ(findDisplay(sysfs.root()), std::nullopt) << size;
    }

    const Sysfs sysfs;
    fs::create_directories(sysfs.framebuffer());
    EXPECT_EQ(findDisplay(sysfs.root()), std::nullopt);
}

TEST(DisplayTest, AMissingTreeHoldsNoDisplay)
{
    const Sysfs sysfs;
    EXPECT_EQ(findDisplay(sysfs.root() / "missing"), std::nullopt);
}

}  // namespace
}  // namespace oxil::test
