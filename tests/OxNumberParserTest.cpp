#include "OxNumberParser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cfloat>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "DecimalComma.h"
#include "OxLogMatchers.h"

namespace oxil::test {
namespace {

using namespace std::string_literals;

using testing::ElementsAre;

constexpr double INFINITE = std::numeric_limits<double>::infinity();

template <typename Number>
std::vector<unsigned char> bytesOf(Number number)
{
    std::vector<unsigned char> bytes(sizeof number);
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

/** Tells negative zero from zero, and a number that is none from another one. */
template <typename Number>
void expectSameBits(Number number, Number expected)
{
    EXPECT_EQ(bytesOf(number), bytesOf(expected)) << number << " instead of " << expected;
}

// ---- What the interface looks like --------------------------------------------------------------

template <typename Result>
using Member = Result (*)(const std::string&);

// Each initializer names exactly one type, so an overload or another result is refused here.
constexpr Member<int> TO_INT = &NumberParser::toInt;
constexpr Member<unsigned int> TO_UINT = &NumberParser::toUInt;
constexpr Member<long> TO_LONG = &NumberParser::toLong;
constexpr Member<unsigned long> TO_ULONG = &NumberParser::toULong;
constexpr Member<long long> TO_LONG_LONG = &NumberParser::toLongLong;
constexpr Member<unsigned long long> TO_ULONG_LONG = &NumberParser::toULongLong;
constexpr Member<float> TO_FLOAT = &NumberParser::toFloat;
constexpr Member<double> TO_DOUBLE = &NumberParser::toDouble;
constexpr Member<bool> TO_BOOL = &NumberParser::toBool;

static_assert(!std::is_default_constructible_v<NumberParser>);
static_assert(std::is_empty_v<NumberParser>);

// ---- Empty text ---------------------------------------------------------------------------------

template <typename Result>
void expectRefusesEmptyText(Member<Result> member, const std::string& name)
{
    SCOPED_TRACE(name);
    LogCapture log;

    expectSameBits(member(""), Result());

    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn("OxNumberParser.cpp", name, "Invalid parameter.")));
}

TEST(NumberParserTest, EmptyTextIsZeroAndIsLoggedUnderTheNameOfTheMember)
{
    expectRefusesEmptyText(TO_INT, "toInt");
    expectRefusesEmptyText(TO_UINT, "toUInt");
    expectRefusesEmptyText(TO_LONG, "toLong");
    expectRefusesEmptyText(TO_ULONG, "toULong");
    expectRefusesEmptyText(TO_LONG_LONG, "toLongLong");
    expectRefusesEmptyText(TO_ULONG_LONG, "toULongLong");
    expectRefusesEmptyText(TO_FLOAT, "toFloat");
    expectRefusesEmptyText(TO_DOUBLE, "toDouble");
    expectRefusesEmptyText(TO_BOOL, "toBool");
}

TEST(NumberParserTest, EveryEmptyTextIsLoggedAgain)
{
    LogCapture log;

    NumberParser::toInt("");
    NumberParser::toInt("");

    EXPECT_THAT(log.lines(), ElementsAre(Logged("toInt", "Invalid parameter."),
                                         Logged("toInt", "Invalid parameter.")));
}

TEST(NumberParserTest, TextThatBeginsWithNulIsNotEmpty)
{
    const std::string text = "\0001"s;

    EXPECT_EQ(NumberParser::toInt(text), 0);
    EXPECT_EQ(NumberParser::toUInt(text), 0U);
    EXPECT_EQ(NumberParser::toLong(text), 0L);
    EXPECT_EQ(NumberParser::toULong(text), 0UL);
    EXPECT_EQ(NumberParser::toLongLong(text), 0LL);
    EXPECT_EQ(NumberParser::toULongLong(text), 0ULL);
    expectSameBits(NumberParser::toFloat(text), 0.0f);
    expectSameBits(NumberParser::toDouble(text), 0.0);
    EXPECT_FALSE(NumberParser::toBool(text));
}

// ---- The conversion functions' answers ----------------------------------------------------------

std::vector<std::string> textsOfAnyKind()
{
    return {
        // plain ones, blanks and signs
        "0", "1", "42", " 42", "42 ", "\t42", "\n\v\f\r42", "  \t 42", "+42", "-42", " +42", " -42",
        "+ 42", "- 42", "+-5", "-+5", "--5", "++5", "+", "-", " ", "\t", "-0", "+0", "007", "010",
        "00000000000000000000000000000000000012",
        // what follows or is no number
        "12abc", "12 34", "1,234", "1.9", "-1.9", "x", "abc12", "#1", "\24042", "4\xb2", "1_000",
        "1'000", "½", "4"s + '\0' + "2", " \0 4"s, "٣",
        // other bases
        "0x10", "0X1F", "-0x10", "0x", "0xg", "0b11", "0o17", "1F", "z",
        // limits of 32 bits, and beyond
        "2147483646", "2147483647", "2147483648", "-2147483647", "-2147483648", "-2147483649",
        "4294967294", "4294967295", "4294967296", "4294967297", "-4294967294", "-4294967295",
        "-4294967296", "-4294967297", "3000000000", "-3000000000", "5000000000",
        // limits of 64 bits, and beyond
        "9223372036854775806", "9223372036854775807", "9223372036854775808", "-9223372036854775807",
        "-9223372036854775808", "-9223372036854775809", "18446744073709551614",
        "18446744073709551615", "18446744073709551616", "-18446744073709551614",
        "-18446744073709551615", "-18446744073709551616", std::string(400, '9'),
        "-" + std::string(400, '9'), std::string(400, '0') + "7", std::string(400, ' ') + "7",
        // floating point
        "1.5", "-1.5", "+1.5", ".5", "-.5", "5.", ".", "-.", "1e3", "1E3", "1e+3", "1e-3", "1e",
        "1e+", "1e 3", "e3", ".e3", "1.e2", ".5e1", "1.5.5", "1,5", "-0.0", "0e99999", "0.1", "0.3",
        "1d3", "1.5f", "123456789.123456789", "1.000000059604644775390625",
        "1.000000059604644775390626", "1.00000005960464477539062500000001",
        "0." + std::string(400, '3'), "1" + std::string(38, '0'), "1" + std::string(39, '0'),
        "1e99999999999999999999", "1e-99999999999999999999",
        // hexadecimal floating point
        "0x1p3", "0x1.8p1", "0X.8P-1", "-0x1p-1", "0x1p", "0x1.p1", "0x.p1", "0x1.000001p0",
        "0x1.0000010000001p0", "0x1.fffffffffffff8p0", "0x1p-149", "0x1p-1074", "0x1p1024",
        "0x1p-150",
        // limits and denormal numbers
        "3.4028234e38", "3.4028235e38", "3.4028236e38", "-3.4028236e38", "1.17549435e-38",
        "1.1e-38", "1e-45", "7e-46", "8e-46", "-1e-45", "1.7976931348623157e308",
        "1.7976931348623159e308", "-1.7976931348623159e308", "2.2250738585072014e-308",
        "2.2250738585072011e-308", "4.9e-324", "2e-324", "3e-324", "-3e-324", "1e400", "-1e400",
        "1e-400", "-1e-400",
        // no numbers
        "inf", "INF", "-inf", "+Inf", " infinity", "-INFINITY", "infinit", "inff", "in", "nan",
        "NaN", "-nan", "nan(", "nan()", "nan(123)", "nan(0x5)", "nan(abc_1)", "-nan(7)", "nan(*)",
        "na",
        // truth values
        "true", "TRUE", "false", "yes"};
}

TEST(NumberParserTest, AnswersAreThoseOfTheConversionFunctions)
{
    for (const std::string& text : textsOfAnyKind()) {
        SCOPED_TRACE(testing::PrintToString(text));
        const char* const start = text.c_str();

        EXPECT_EQ(NumberParser::toLong(text), std::strtol(start, nullptr, 10));
        EXPECT_EQ(NumberParser::toULong(text), std::strtoul(start, nullptr, 10));
        EXPECT_EQ(NumberParser::toLongLong(text), std::strtoll(start, nullptr, 10));
        EXPECT_EQ(NumberParser::toULongLong(text), std::strtoull(start, nullptr, 10));
        expectSameBits(NumberParser::toFloat(text), std::strtof(start, nullptr));
        expectSameBits(NumberParser::toDouble(text), std::strtod(start, nullptr));
    }
}

TEST(NumberParserTest, AnswersDoNotDependOnAnEarlierError)
{
    errno = ERANGE;
    EXPECT_EQ(NumberParser::toInt("5"), 5);
    EXPECT_EQ(NumberParser::toUInt("5"), 5U);
    EXPECT_EQ(NumberParser::toLong("5"), 5L);
    EXPECT_EQ(NumberParser::toULong("5"), 5UL);
    EXPECT_EQ(NumberParser::toLongLong("5"), 5LL);
    EXPECT_EQ(NumberParser::toULongLong("5"), 5ULL);
    expectSameBits(NumberParser::toFloat("5"), 5.0f);
    expectSameBits(NumberParser::toDouble("5"), 5.0);
    errno = 0;
}

// ---- Integers -----------------------------------------------------------------------------------

TEST(NumberParserTest, IntegersAreReadAfterBlanksAndASignAndUpToWhatIsNoDigit)
{
    struct Row {
        std::string text;
        int number;
    };
    const std::vector<Row> rows = {
        {"42", 42},    {" 42", 42},  {"42 ", 42},    {"\t\n\v\f\r 42", 42},
        {"+42", 42},   {"007", 7},   {" +42", 42},   {"12abc", 12},
        {"12 34", 12}, {"1.9", 1},   {"1e3", 1},     {"1,234", 1},
        {"x", 0},      {"abc12", 0}, {"+-5", 0},     {"- 5", 0},
        {"+", 0},      {"-", 0},     {" ", 0},       {"\t", 0},
        {"010", 10},   {"0x10", 0},  {"1F", 1},      {"0b11", 0},
        {"inf", 0},    {"\x80", 0},  {"4\0002"s, 4}, {"\0004"s, 0},
        {"true", 0},   {"-0", 0},    {"00000", 0},   {"--1", 0},
        {"++1", 0},    {"1-1", 1},   {"\2407", 0},
    };

    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text));
        EXPECT_EQ(NumberParser::toInt(row.text), row.number);
        EXPECT_EQ(NumberParser::toUInt(row.text), static_cast<unsigned int>(row.number));
        EXPECT_EQ(NumberParser::toLong(row.text), row.number);
        EXPECT_EQ(NumberParser::toULong(row.text), static_cast<unsigned long>(row.number));
        EXPECT_EQ(NumberParser::toLongLong(row.text), row.number);
        EXPECT_EQ(NumberParser::toULongLong(row.text), static_cast<unsigned long long>(row.number));
    }
}

TEST(NumberParserTest, MinusWrapsInUnsignedNumbers)
{
    EXPECT_EQ(NumberParser::toUInt("-1"), 4294967295U);
    EXPECT_EQ(NumberParser::toULong("-1"), ULONG_MAX);
    EXPECT_EQ(NumberParser::toULongLong("-1"), 18446744073709551615ULL);
    EXPECT_EQ(NumberParser::toULong(" -42x"), 0UL - 42);
    EXPECT_EQ(NumberParser::toULongLong(" -42x"), 18446744073709551574ULL);
}

TEST(NumberParserTest, NumbersOutOfRangeAreTheLimitOfTheirType)
{
    const std::string digits(400, '9');

    EXPECT_EQ(NumberParser::toLong(digits), LONG_MAX);
    EXPECT_EQ(NumberParser::toLong("-" + digits), LONG_MIN);
    EXPECT_EQ(NumberParser::toULong(digits), ULONG_MAX);
    EXPECT_EQ(NumberParser::toULong("-" + digits), ULONG_MAX);

    EXPECT_EQ(NumberParser::toLongLong("9223372036854775807"), 9223372036854775807LL);
    EXPECT_EQ(NumberParser::toLongLong("9223372036854775808"), 9223372036854775807LL);
    EXPECT_EQ(NumberParser::toLongLong("-9223372036854775809"), LLONG_MIN);
    EXPECT_EQ(NumberParser::toLongLong(digits), LLONG_MAX);
    EXPECT_EQ(NumberParser::toLongLong("-" + digits), LLONG_MIN);
    EXPECT_EQ(NumberParser::toULongLong("18446744073709551615"), 18446744073709551615ULL);
    EXPECT_EQ(NumberParser::toULongLong("18446744073709551616"), 18446744073709551615ULL);
    EXPECT_EQ(NumberParser::toULongLong("-18446744073709551615"), 1ULL);
    EXPECT_EQ(NumberParser::toULongLong("-18446744073709551616"), 18446744073709551615ULL);
    EXPECT_EQ(NumberParser::toULongLong("-" + digits), ULLONG_MAX);
}

// ---- 32 bits on every host ----------------------------------------------------------------------

TEST(NumberParserTest, IntAndUIntAreLimitedTo32Bits)
{
    struct Row {
        std::string text;
        int signedNumber;
        unsigned int unsignedNumber;
    };
    const std::string digits(400, '9');
    const std::vector<Row> rows = {
        {"2147483646", 2147483646, 2147483646U},
        {"2147483647", 2147483647, 2147483647U},
        {"2147483648", 2147483647, 2147483648U},
        {"3000000000", 2147483647, 3000000000U},
        {"4294967294", 2147483647, 4294967294U},
        {"4294967295", 2147483647, 4294967295U},
        {"4294967296", 2147483647, 4294967295U},
        {"4294967297", 2147483647, 4294967295U},
        {"5000000000", 2147483647, 4294967295U},
        {"9223372036854775807", 2147483647, 4294967295U},
        {"9223372036854775808", 2147483647, 4294967295U},
        {"18446744073709551615", 2147483647, 4294967295U},
        {"18446744073709551616", 2147483647, 4294967295U},
        {"18446744073709551617", 2147483647, 4294967295U},
        {digits, 2147483647, 4294967295U},
        {"-1", -1, 4294967295U},
        {"-5", -5, 4294967291U},
        {"-2147483647", -2147483647, 2147483649U},
        {"-2147483648", INT_MIN, 2147483648U},
        {"-2147483649", INT_MIN, 2147483647U},
        {"-3000000000", INT_MIN, 1294967296U},
        {"-4294967294", INT_MIN, 2U},
        {"-4294967295", INT_MIN, 1U},
        {"-4294967296", INT_MIN, 4294967295U},
        {"-4294967297", INT_MIN, 4294967295U},
        {"-9223372036854775808", INT_MIN, 4294967295U},
        {"-9223372036854775809", INT_MIN, 4294967295U},
        {"-18446744073709551611", INT_MIN, 4294967295U},
        {"-18446744073709551615", INT_MIN, 4294967295U},
        {"-18446744073709551616", INT_MIN, 4294967295U},
        {"-18446744073709551617", INT_MIN, 4294967295U},
        {"-" + digits, INT_MIN, 4294967295U},
    };

    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(NumberParser::toInt(row.text), row.signedNumber);
        EXPECT_EQ(NumberParser::toUInt(row.text), row.unsignedNumber);
        EXPECT_EQ(NumberParser::toInt(" \t" + row.text + "x"), row.signedNumber);
        EXPECT_EQ(NumberParser::toUInt(" \t" + row.text + "x"), row.unsignedNumber);
    }
}

/** A number as it stands in a text: its sign and its digits' worth, no more than a limit. */
struct Decimal {
    bool negative = false;
    std::uint64_t digits = 0;
};

Decimal readDecimal(const std::string& text)
{
    constexpr std::uint64_t LIMIT = std::uint64_t{1} << 40U;
    constexpr std::string_view BLANKS = " \t\n\v\f\r";

    Decimal decimal;
    std::size_t i = 0;
    while (i < text.size() && BLANKS.find(text[i]) != std::string_view::npos) {
        ++i;
    }
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        decimal.negative = text[i] == '-';
        ++i;
    }
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        decimal.digits = decimal.digits * 10 + static_cast<std::uint64_t>(text[i] - '0');
        decimal.digits = std::min(decimal.digits, LIMIT);
    }
    return decimal;
}

void expectWhatTheDeviceAnswers(const std::string& text)
{
    SCOPED_TRACE(testing::PrintToString(text));
    const Decimal decimal = readDecimal(text);

    const auto exact = static_cast<std::int64_t>(decimal.digits) * (decimal.negative ? -1 : 1);
    const std::int64_t limited = std::max<std::int64_t>(std::min<std::int64_t>(exact, 2147483647),
                                                        -std::int64_t{2147483648});
    EXPECT_EQ(NumberParser::toInt(text), limited);

    const std::uint64_t wrapped = static_cast<std::uint64_t>(exact) & 0xFFFFFFFFU;
    EXPECT_EQ(NumberParser::toUInt(text), decimal.digits > 0xFFFFFFFFU ? 0xFFFFFFFFU : wrapped);
}

TEST(NumberParserTest, ShortTextsOfAllShapesAreReadAsOnTheDevice)
{
    constexpr std::string_view ALPHABET = " \t+-09x.";

    std::vector<std::string> texts = {""};
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (!texts[i].empty()) {
            expectWhatTheDeviceAnswers(texts[i]);
        }
        if (texts[i].size() < 4) {
            for (const char character : ALPHABET) {
                texts.push_back(texts[i] + character);
            }
        }
    }
    EXPECT_EQ(texts.size(), 1U + 8 + 64 + 512 + 4096);
}

TEST(NumberParserTest, NumbersRoundTheLimitsAreReadAsOnTheDevice)
{
    for (const std::uint64_t limit :
         {0x7FFFFFFFULL, 0xFFFFFFFFULL, 0x17FFFFFFFULL, 0x1FFFFFFFFULL}) {
        for (std::uint64_t number = limit - 20; number <= limit + 20; ++number) {
            for (const std::string prefix : {"", "+", "-", " -000"}) {
                expectWhatTheDeviceAnswers(prefix + std::to_string(number));
            }
        }
    }
}

// ---- Floating point -----------------------------------------------------------------------------

TEST(NumberParserTest, FloatingPointIsReadInAllTheFormsOfTheConversionFunctions)
{
    struct Row {
        std::string text;
        double number;  // without loss as a float, too
    };
    const std::vector<Row> rows = {
        {"1.5", 1.5},
        {" \t-1.5x", -1.5},
        {"+2.25 ", 2.25},
        {".5", 0.5},
        {"5.", 5.0},
        {"1e3", 1000.0},
        {"1E+3", 1000.0},
        {"25e-2", 0.25},
        {"1e", 1.0},
        {"e5", 0.0},
        {".", 0.0},
        {"x", 0.0},
        {"-0", -0.0},
        {"-x", 0.0},
        {"0x10", 16.0},
        {"0x", 0.0},
        {"0x1p-3", 0.125},
        {"-0X1.8P1", -3.0},
        {"inf", INFINITE},
        {"-INF", -INFINITE},
        {"infinity", INFINITE},
        {"Infinit", INFINITE},
        {"1e400", INFINITE},
        {"-1e400", -INFINITE},
        {"1e-400", 0.0},
        {"-1e-400", -0.0},
        {"1,5", 1.0},
        {"1\0005"s, 1.0},
        {"1.5.5", 1.5},
        {"+-5", 0.0},
        {std::string(400, '9'), INFINITE},
        {"0." + std::string(400, '0') + "1", 0.0},
        {"1" + std::string(400, '0') + "e-400", 1.0},
    };

    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text));
        expectSameBits(NumberParser::toDouble(row.text), row.number);
        expectSameBits(NumberParser::toFloat(row.text), static_cast<float>(row.number));
    }
}

TEST(NumberParserTest, FloatingPointIsRoundedOnceToTheNearest)
{
    expectSameBits(NumberParser::toDouble("1e-3"), 0.001);
    expectSameBits(NumberParser::toFloat("1e-3"), 0.001f);
    expectSameBits(NumberParser::toDouble("0.1"), 0x1.999999999999ap-4);
    expectSameBits(NumberParser::toFloat("0.1"), 0x1.99999ap-4f);

    // A little more than half of a float's last digit, a double can't tell it from the half.
    const std::string text = "1.00000005960464477539062500000001";
    expectSameBits(NumberParser::toFloat(text), 0x1.000002p0f);
    expectSameBits(static_cast<float>(NumberParser::toDouble(text)), 1.0f);
}

TEST(NumberParserTest, FloatingPointReachesToTheLimitsOfItsType)
{
    expectSameBits(NumberParser::toDouble("1.7976931348623157e308"), DBL_MAX);
    expectSameBits(NumberParser::toDouble("1.7976931348623159e308"), INFINITE);
    expectSameBits(NumberParser::toDouble("4.9e-324"), 0x1p-1074);
    expectSameBits(NumberParser::toDouble("2.2250738585072011e-308"), 0x0.fffffffffffffp-1022);
    expectSameBits(NumberParser::toDouble("2e-324"), 0.0);
    expectSameBits(NumberParser::toDouble("1e39"), 1e39);

    expectSameBits(NumberParser::toFloat("3.4028235e38"), FLT_MAX);
    expectSameBits(NumberParser::toFloat("1e39"), std::numeric_limits<float>::infinity());
    expectSameBits(NumberParser::toFloat("-1e39"), -std::numeric_limits<float>::infinity());
    expectSameBits(NumberParser::toFloat("1e-45"), 0x1p-149f);
    expectSameBits(NumberParser::toFloat("1.1e-38"), 0x77c786p-149f);
    expectSameBits(NumberParser::toFloat("7e-46"), 0.0f);
}

TEST(NumberParserTest, NanIsRead)
{
    for (const std::string text : {"nan", "NaN", " -nan", "nan(123)", "nan(", "nano"}) {
        SCOPED_TRACE(text);
        EXPECT_TRUE(std::isnan(NumberParser::toFloat(text)));
        EXPECT_TRUE(std::isnan(NumberParser::toDouble(text)));
    }
    EXPECT_TRUE(std::signbit(NumberParser::toFloat("-nan")));
    EXPECT_TRUE(std::signbit(NumberParser::toDouble("-nan")));
}

// ---- A decimal comma ----------------------------------------------------------------------------

TEST(NumberParserTest, DecimalPointIsThatOfTheLocale)
{
    const DecimalComma comma;
    if (!comma.isSelected()) {
        GTEST_SKIP() << "neither an installed locale with a decimal comma nor a working localedef";
    }

    expectSameBits(NumberParser::toDouble("1,5"), 1.5);
    expectSameBits(NumberParser::toFloat("1,5"), 1.5f);
    expectSameBits(NumberParser::toDouble("1.5"), 1.0);
    expectSameBits(NumberParser::toFloat("1.5"), 1.0f);
    EXPECT_EQ(NumberParser::toInt("1.234"), 1);
    EXPECT_EQ(NumberParser::toLongLong("1,5"), 1);
    for (const std::string text : {"1,5", "1.5", "1.234.567,8", "0x1,8p0", ",5", "1e3", "-,"}) {
        SCOPED_TRACE(text);
        expectSameBits(NumberParser::toDouble(text), std::strtod(text.c_str(), nullptr));
        expectSameBits(NumberParser::toFloat(text), std::strtof(text.c_str(), nullptr));
    }
}

TEST(NumberParserTest, DecimalPointIsAPointWithoutALocale)
{
    ASSERT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "C");

    expectSameBits(NumberParser::toDouble("1,5"), 1.0);
    expectSameBits(NumberParser::toDouble("1.5"), 1.5);
}

// ---- Truth values -------------------------------------------------------------------------------

TEST(NumberParserTest, ThreeTextsAreTrue)
{
    for (const std::string text : {"1", "true", "TRUE"}) {
        EXPECT_TRUE(NumberParser::toBool(text)) << text;
    }
}

TEST(NumberParserTest, EveryOtherTextIsFalse)
{
    const std::vector<std::string> texts = {
        "True",   "tRUE",    "TRUe",     "yes",  "on",  "0",   "false",    "FALSE", "2",
        "-1",     "+1",      "01",       "1.0",  "11",  " 1",  "1 ",       " true", "true ",
        "true1",  "TRUE\n",  "t",        "T",    "tru", "TRU", "truetrue", "\0"s,   "1\0"s,
        "\0001"s, "true\0"s, "TRUE\0x"s, "\x01", "x",   " ",   "ja"};

    for (const std::string& text : texts) {
        EXPECT_FALSE(NumberParser::toBool(text)) << testing::PrintToString(text);
    }
}

}  // namespace
}  // namespace oxil::test
