#include "OxStreamOutput.h"

#include <gtest/gtest.h>

#include <cmath>
#include <iomanip>
#include <limits>
#include <sstream>

#include "DecimalComma.h"

namespace oxil::test {
namespace {

template <typename Subject>
std::string show(const Subject& subject)
{
    std::ostringstream output;
    output << subject;
    return output.str();
}

TEST(StreamOutputTest, EveryKindLooksDifferent)
{
    EXPECT_EQ(show(Variant()), "NONE");
    EXPECT_EQ(show(Variant(-80)), "-80");
    EXPECT_EQ(show(Variant(80u)), "80u");
    EXPECT_EQ(show(Variant(80L)), "80L");
    EXPECT_EQ(show(Variant(80UL)), "80uL");
    EXPECT_EQ(show(Variant(80LL)), "80LL");
    EXPECT_EQ(show(Variant(80ULL)), "80uLL");
    EXPECT_EQ(show(Variant(80.0f)), "80.0f");
    EXPECT_EQ(show(Variant(80.0)), "80.0");
    EXPECT_EQ(show(Variant(true)), "true");
    EXPECT_EQ(show(Variant(false)), "false");
    EXPECT_EQ(show(Variant("80")), "\"80\"");
}

TEST(StreamOutputTest, NumbersHaveAsFewDigitsAsTellThem)
{
    EXPECT_EQ(show(Variant(0.1)), "0.1");
    EXPECT_EQ(show(Variant(0.1f)), "0.1f");
    EXPECT_EQ(show(Variant(1e-9)), "1e-09");
    EXPECT_EQ(show(Variant(1.0 / 3)), "0.3333333333333333");
    EXPECT_EQ(show(Variant(-0.0)), "-0.0");
    EXPECT_EQ(show(Variant(std::numeric_limits<double>::infinity())), "inf");
    EXPECT_EQ(show(Variant(std::nanf(""))), "nanf");
}

TEST(StreamOutputTest, TextsShowWhatWouldNotBeSeen)
{
    EXPECT_EQ(show(Variant("a\"b\\c\n\t\x01\x1f")), "\"a\\\"b\\\\c\\n\\t\\x01\\x1f\"");
    EXPECT_EQ(show(Variant(std::string("a\0b", 3))), "\"a\\x00b\"");
    EXPECT_EQ(show(Variant("\xc3\xa4")), "\"\xc3\xa4\"");
    EXPECT_EQ(show(Variant("")), "\"\"");
}

TEST(StreamOutputTest, RecordsShowTheirEntriesInOrder)
{
    EXPECT_EQ(show(KeyValue("name", "hall")), "\"name\": \"hall\"");
    EXPECT_EQ(show(KeyValues()), "{}");
    EXPECT_EQ(show(KeyValues{{"b", 1}}), "{\"b\": 1}");
    EXPECT_EQ(show(KeyValues{{"b", 1}, {"a", true}, {"k\"", 0.5}}),
              "{\"b\": 1, \"a\": true, \"k\\\"\": 0.5}");
}

TEST(StreamOutputTest, TheStreamIsLeftAsItIs)
{
    std::ostringstream output;
    output << std::hex << std::showbase << std::setw(10) << std::setfill('*') << Variant(255)
           << KeyValues{{"a", 1.5}} << 16;
    EXPECT_EQ(output.str(), "255{\"a\": 1.5}******0x10");
}

TEST(StreamOutputTest, ThePointIsAPointInEveryLocale)
{
    const DecimalComma comma;
    if (!comma.isSelected()) {
        GTEST_SKIP() << "no locale with a decimal comma";
    }
    EXPECT_EQ(show(Variant(1.5)), "1.5");
}

}  // namespace
}  // namespace oxil::test
