#include "nightlight.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include <OxLogMatchers.h>

namespace {

using namespace std::chrono_literals;
using oxil::test::LogCapture;
using oxil::test::Logged;
using oxil::test::Printed;
using testing::ElementsAre;

//! [capture]
TEST(NightlightTest, DimsTheLampAndSaysGoodNight)
{
    LogCapture log;
    oxil::WaitingLoop loop;
    std::vector<int> seen;
    Lamp lamp(80, [&](int brightness) {
        seen.push_back(brightness);
        if (brightness == 0) {
            loop.quit();
        }
    });
    Nightlight nightlight(lamp, SCRIPT);

    ASSERT_TRUE(nightlight.start(1ms));
    loop.run(5s);

    EXPECT_THAT(seen, ElementsAre(60, 40, 20, 0));
    EXPECT_THAT(log.lines(), ElementsAre(Printed("good night")));
}
//! [capture]

TEST(NightlightTest, ReportsAScriptThatIsMissing)
{
    LogCapture log;
    Lamp lamp(80, [](int) {});
    Nightlight nightlight(lamp, "none.lua");

    EXPECT_FALSE(nightlight.start(1ms));

    EXPECT_THAT(log.lines(),
                ElementsAre(Logged("onLoading",
                                   "filePath(none.lua) (1) "
                                   "(cannot open none.lua: No such file or directory).")));
}

// No line is logged here: it would fail the test.
TEST(NightlightTest, HasALampThatRefusesWhatIsNoBrightness)
{
    Lamp lamp(80, [](int) {});
    EXPECT_THROW(lamp.setBrightness(101), std::out_of_range);
    EXPECT_EQ(lamp.getBrightness(), 80);
}

}  // namespace
