#include "OxLog.h"

#include <gtest/gtest.h>

#include "OxLogMatchers.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::Field;

struct Talker {
    Talker() { OX_ERROR("constructed."); }
    ~Talker() { OX_ERROR("destroyed."); }

    void member() const { OX_ERROR("Invalid parameter (%d).", 5); }
    static void staticMember() { OX_ERROR("no arguments"); }

    bool operator==(const Talker&) const
    {
        OX_ERROR("compared.");
        return true;
    }

    template <typename T>
    void templated(T value) const
    {
        OX_ERROR("value (%s)", value);
    }
};

auto says(const std::string& function, const std::string& message)
{
    return testing::AllOf(Field(&LogLine::file, "LogTest.cpp"), Field(&LogLine::function, function),
                          Field(&LogLine::message, message));
}

TEST(LogTest, NamesTheFunctionItStandsInWithoutClassOrArguments)
{
    LogCapture log;
    {
        const Talker talker;
        talker.member();
        Talker::staticMember();
        talker.templated("text");
        EXPECT_TRUE(talker == talker);
    }
    EXPECT_THAT(
        log.lines(),
        ElementsAre(says("Talker", "constructed."), says("member", "Invalid parameter (5)."),
                    says("staticMember", "no arguments"), says("templated", "value (text)"),
                    says("operator==", "compared."), says("~Talker", "destroyed.")));
}

TEST(LogTest, WritesTheFrameToTheMainBufferWithTagAndPriority)
{
    LogCapture log;
    const int before = __LINE__;
    OX_ERROR("first");
    OX_LOG(internal::LOG_PRIORITY_INFO, "second %d of %s", 2, "two");

    ASSERT_EQ(log.lines().size(), 2u);
    for (const LogLine& line : log.lines()) {
        EXPECT_EQ(line.logId, 0);
        EXPECT_EQ(line.tag, "OX");
        EXPECT_TRUE(line.framed);
    }
    EXPECT_EQ(log.lines()[0].priority, 6);
    EXPECT_EQ(log.lines()[0].line, before + 1);
    EXPECT_EQ(log.lines()[1].priority, 4);
    EXPECT_EQ(log.lines()[1].message, "second 2 of two");
}

TEST(LogTest, TakesAPercentSignInAnArgumentAsItIs)
{
    LogCapture log;
    OX_ERROR("Invalid key (%s)", "100%d%s");
    EXPECT_THAT(log.lines(), ElementsAre(Field(&LogLine::message, "Invalid key (100%d%s)")));
}

}  // namespace
}  // namespace oxil::test
