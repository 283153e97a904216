#include "OxLogCapture.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <sstream>

#include "OxKeyValues.h"
#include "OxLog.h"
#include "OxLogMatchers.h"
#include "OxPlatform.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/** As an application meets it: the library logs. */
void ask(const std::string& key)
{
    EXPECT_TRUE(KeyValues().getKeyValue(key).getKey().empty());
}

TEST(LogCaptureTest, TheInnermostGetsTheLine)
{
    LogCapture outer;
    ask("a");
    {
        LogCapture inner;
        ask("b");
        EXPECT_THAT(inner.lines(), ElementsAre(Logged("getKeyValue", "Invalid key (b)")));
    }
    ask("c");
    EXPECT_THAT(outer.lines(), ElementsAre(Logged("getKeyValue", "Invalid key (a)"),
                                           Logged("getKeyValue", "Invalid key (c)")));
}

TEST(LogCaptureTest, CountsAlsoWhatItDoesNotKeep)
{
    LogCapture log(1);
    ask("a");
    ask("b");
    EXPECT_THAT(log.lines(), ElementsAre(Logged("getKeyValue", "Invalid key (a)")));
    EXPECT_EQ(log.count(), 2);

    log.clear();
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(log.count(), 2);
    ask("c");
    EXPECT_THAT(log.lines(), ElementsAre(Logged("getKeyValue", "Invalid key (c)")));
}

TEST(LogCaptureTest, LinesOfTheApplicationAreCollectedAsTheyAre)
{
    LogCapture log;
    __dlog_print(2, 4, "LAMP", "%d of %s", 3, "four");
    __dlog_print(2, 4, nullptr, "no tag");

    ASSERT_EQ(log.lines().size(), 2u);
    const LogLine& line = log.lines().front();
    EXPECT_EQ(line.logId, 2);
    EXPECT_EQ(line.priority, 4);
    EXPECT_EQ(line.tag, "LAMP");
    EXPECT_FALSE(line.framed);
    EXPECT_EQ(line.file, "");
    EXPECT_EQ(line.function, "");
    EXPECT_EQ(line.message, "3 of four");
    EXPECT_EQ(log.lines().back().tag, "(null)");
}

TEST(LogCaptureTest, ALineIsShownWithAllThatIsKnownOfIt)
{
    LogCapture log;
    const int line = __LINE__ + 1;
    OX_ERROR("Invalid key (a)");
    __dlog_print(2, 4, "LAMP", "on");

    ASSERT_EQ(log.lines().size(), 2u);
    std::ostringstream shown;
    shown << log.lines().front() << '\n' << log.lines().back();
    EXPECT_EQ(shown.str(), "[log 0, priority 6, tag OX] LogCaptureTest.cpp: TestBody(" +
                               std::to_string(line) +
                               ") > Invalid key (a)\n"
                               "[log 2, priority 4, tag LAMP, without frame] : (0) > on");
}

TEST(LogCaptureTest, AMatcherTellsLinesApart)
{
    LogCapture log;
    ask("a");

    ASSERT_EQ(log.lines().size(), 1u);
    const LogLine& line = log.lines().front();
    const LoggedBy logged("OxKeyValues.cpp");
    const LoggedBy loggedElsewhere("OxVariant.cpp");
    EXPECT_THAT(line, logged("getKeyValue", "Invalid key (a)"));
    EXPECT_THAT(line, testing::Not(loggedElsewhere("getKeyValue", "Invalid key (a)")));
    EXPECT_THAT(line, testing::Not(Logged("getValue", "Invalid key (a)")));
    EXPECT_THAT(line, testing::Not(Logged("getKeyValue", "Invalid key")));
    EXPECT_THAT(line, testing::Not(Printed("Invalid key (a)")));
}

TEST(LogCaptureTest, AnUnexpectedLineFailsTheRunningTest)
{
    EXPECT_NONFATAL_FAILURE(ask("a"), "getKeyValue");
    EXPECT_NONFATAL_FAILURE(__dlog_print(0, 6, "LAMP", "off"), "unexpected log line");
}

TEST(LogCaptureDeathTest, AnUnexpectedLineEndsTheProcessWhereNobodyIsTold)
{
    const LogCapture::UnexpectedLine before = LogCapture::onUnexpected(nullptr);
    EXPECT_EQ(before, failUnexpected);
    EXPECT_DEATH(ask("a"), "unexpected log line: .*getKeyValue.*Invalid key .a.");
    EXPECT_EQ(LogCapture::onUnexpected(before), nullptr);
}

TEST(LogCaptureTest, WhoIsToldOfAnUnexpectedLineMayLogItself)
{
    static int told = 0;
    const auto before = LogCapture::onUnexpected([](const LogLine& line) {
        LogCapture log;
        ask(line.message);
        told += log.count();
    });
    ask("a");
    LogCapture::onUnexpected(before);
    EXPECT_EQ(told, 1);
}

}  // namespace
}  // namespace oxil::test
