#include "OxVariant.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "DecimalComma.h"
#include "OxKeyValues.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int KIND_COUNT = 11;
constexpr std::nullopt_t REFUSED = std::nullopt;
constexpr float INFINITE = std::numeric_limits<float>::infinity();

// The numbers stand in log messages and in serialized data.
static_assert(std::is_same_v<std::underlying_type_t<VariantType>, std::int32_t>);
static_assert(std::is_convertible_v<VariantType, int>);
static_assert(VARIANT_TYPE_NONE == 0 && VARIANT_TYPE_INT == 1 && VARIANT_TYPE_UINT == 2 &&
              VARIANT_TYPE_LONG == 3 && VARIANT_TYPE_ULONG == 4 && VARIANT_TYPE_LONGLONG == 5 &&
              VARIANT_TYPE_ULONGLONG == 6 && VARIANT_TYPE_FLOAT == 7 && VARIANT_TYPE_DOUBLE == 8 &&
              VARIANT_TYPE_BOOL == 9 && VARIANT_TYPE_STRING == 10);

static_assert(std::is_nothrow_default_constructible_v<Variant>);
static_assert(std::is_nothrow_move_constructible_v<Variant>);
static_assert(std::is_nothrow_move_assignable_v<Variant>);
static_assert(std::is_nothrow_destructible_v<Variant>);
static_assert(std::is_nothrow_constructible_v<Variant, std::string&&>);
static_assert(noexcept(std::declval<const Variant&>() == std::declval<const Variant&>()));
static_assert(noexcept(std::declval<const Variant&>() != std::declval<const Variant&>()));

const LoggedBy logged("OxVariant.cpp");

std::string refusal(VariantType source, const std::string& target)
{
    return "Invalid conversion (" + std::to_string(source) + ") to " + target;
}

template <typename T>
std::string bytesOf(T value)
{
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

// The values stand at the positions that their kinds' numbers give.
std::vector<Variant> oneOfEachKind()
{
    return {Variant(),     Variant(1),    Variant(1u),  Variant(1L),   Variant(1UL), Variant(1LL),
            Variant(1ULL), Variant(1.0f), Variant(1.0), Variant(true), Variant("1")};
}

std::vector<Variant> zeroOfEachKind()
{
    return {Variant(),     Variant(0),    Variant(0u),  Variant(0L),    Variant(0UL), Variant(0LL),
            Variant(0ULL), Variant(0.0f), Variant(0.0), Variant(false), Variant("")};
}

struct NumberBytes {
    Variant value;
    std::string bytes;
};

std::vector<NumberBytes> numbersAndTheirBytes()
{
    return {
        {Variant(0x01020304), bytesOf(std::int32_t{0x01020304})},
        {Variant(-7), bytesOf(std::int32_t{-7})},
        {Variant(0xF1F2F3F4u), bytesOf(std::uint32_t{0xF1F2F3F4u})},
        {Variant(-123456789L), bytesOf(std::int32_t{-123456789})},
        {Variant(0xF4F3F2F1UL), bytesOf(std::uint32_t{0xF4F3F2F1u})},
        {Variant(0x0102030405060708LL), bytesOf(std::int64_t{0x0102030405060708})},
        {Variant(-2LL), bytesOf(std::int64_t{-2})},
        {Variant(0xF1F2F3F4F5F6F7F8ULL), bytesOf(std::uint64_t{0xF1F2F3F4F5F6F7F8u})},
        {Variant(-1.5f), bytesOf(-1.5f)},
        {Variant(0.1), bytesOf(0.1)},
        {Variant(true), "\x01"},
        {Variant(false), std::string(1, '\0')},
    };
}

TEST(VariantTest, TheDefaultHoldsNothing)
{
    const Variant value;

    EXPECT_EQ(value.getType(), VARIANT_TYPE_NONE);
    EXPECT_TRUE(value.empty());
}

TEST(VariantTest, TheArgumentChoosesTheKind)
{
    const std::string text = "text";
    char buffer[] = "text";

    EXPECT_EQ(Variant(1).getType(), VARIANT_TYPE_INT);
    EXPECT_EQ(Variant(1u).getType(), VARIANT_TYPE_UINT);
    EXPECT_EQ(Variant(1L).getType(), VARIANT_TYPE_LONG);
    EXPECT_EQ(Variant(1UL).getType(), VARIANT_TYPE_ULONG);
    EXPECT_EQ(Variant(1LL).getType(), VARIANT_TYPE_LONGLONG);
    EXPECT_EQ(Variant(1ULL).getType(), VARIANT_TYPE_ULONGLONG);
    EXPECT_EQ(Variant(1.0f).getType(), VARIANT_TYPE_FLOAT);
    EXPECT_EQ(Variant(1.0).getType(), VARIANT_TYPE_DOUBLE);
    EXPECT_EQ(Variant(true).getType(), VARIANT_TYPE_BOOL);
    EXPECT_EQ(Variant(text).getType(), VARIANT_TYPE_STRING);
    EXPECT_EQ(Variant(std::string("text")).getType(), VARIANT_TYPE_STRING);
    EXPECT_EQ(Variant("text").getType(), VARIANT_TYPE_STRING);
    EXPECT_EQ(Variant(text.c_str()).getType(), VARIANT_TYPE_STRING);
    EXPECT_EQ(Variant(buffer).getType(), VARIANT_TYPE_STRING);
    EXPECT_EQ(Variant(&buffer[0]).getType(), VARIANT_TYPE_STRING);
}

TEST(VariantTest, EveryArgumentConvertsToAValueWithoutBeingNamed)
{
    const auto kindOf = [](const Variant& value) { return value.getType(); };

    EXPECT_EQ(kindOf(1), VARIANT_TYPE_INT);
    EXPECT_EQ(kindOf(1UL), VARIANT_TYPE_ULONG);
    EXPECT_EQ(kindOf(false), VARIANT_TYPE_BOOL);
    EXPECT_EQ(kindOf(""), VARIANT_TYPE_STRING);
    EXPECT_EQ(kindOf(std::string()), VARIANT_TYPE_STRING);
}

TEST(VariantTest, APointerNeverBecomesABoolean)
{
    struct Any {
        int member;
    };

    EXPECT_FALSE((std::is_constructible_v<Variant, void*>));
    EXPECT_FALSE((std::is_constructible_v<Variant, const void*>));
    EXPECT_FALSE((std::is_constructible_v<Variant, int*>));
    EXPECT_FALSE((std::is_constructible_v<Variant, const unsigned char*>));
    EXPECT_FALSE((std::is_constructible_v<Variant, const signed char*>));
    EXPECT_FALSE((std::is_constructible_v<Variant, const wchar_t*>));
    EXPECT_FALSE((std::is_constructible_v<Variant, const char16_t*>));
    EXPECT_FALSE((std::is_constructible_v<Variant, volatile char*>));
    EXPECT_FALSE((std::is_constructible_v<Variant, const volatile char*>));
    EXPECT_FALSE((std::is_constructible_v<Variant, const char**>));
    EXPECT_FALSE((std::is_constructible_v<Variant, std::string*>));
    EXPECT_FALSE((std::is_constructible_v<Variant, Variant*>));
    EXPECT_FALSE((std::is_constructible_v<Variant, int(&)[2]>));
    EXPECT_FALSE((std::is_constructible_v<Variant, void (*)()>));
    EXPECT_FALSE((std::is_constructible_v<Variant, void (&)()>));
    EXPECT_FALSE((std::is_constructible_v<Variant, int Any::*>));
    EXPECT_FALSE((std::is_convertible_v<void*, Variant>));
    EXPECT_FALSE((std::is_assignable_v<Variant&, int*>));
}

TEST(VariantTest, ANullTextIsRejectedByTheStandardString)
{
    const char* text = nullptr;

    EXPECT_THROW(Variant{text}, std::logic_error);
}

TEST(VariantTest, EveryKindHasANameAndASize)
{
    const struct {
        const char* name;
        int size;
    } expected[] = {{"NONE", -1},  {"INT", 4},      {"UINT", 4},      {"LONG", 4},
                    {"ULONG", 4},  {"LONGLONG", 8}, {"ULONGLONG", 8}, {"FLOAT", 4},
                    {"DOUBLE", 8}, {"BOOL", 1},     {"STRING", 1}};
    const std::vector<Variant> values = oneOfEachKind();

    for (int kind = 0; kind < KIND_COUNT; ++kind) {
        const Variant& value = values[static_cast<std::size_t>(kind)];
        SCOPED_TRACE(kind);
        EXPECT_EQ(value.getType(), kind);
        EXPECT_EQ(value.getTypeName(), expected[kind].name);
        EXPECT_EQ(value.getValueSize(), expected[kind].size);
        EXPECT_EQ(value.empty(), kind == VARIANT_TYPE_NONE);
    }
}

TEST(VariantTest, TheSizeOfATextIsItsLength)
{
    EXPECT_EQ(Variant("abc").getValueSize(), 3);
    EXPECT_EQ(Variant(std::string()).getValueSize(), 0);
    EXPECT_EQ(Variant(std::string("a\0b\0", 4)).getValueSize(), 4);
    EXPECT_EQ(Variant(std::string(100000, 'x')).getValueSize(), 100000);
}

TEST(VariantTest, ATextOfLengthZeroIsNotEmpty)
{
    EXPECT_FALSE(Variant("").empty());
    EXPECT_FALSE(Variant(0).empty());
    EXPECT_FALSE(Variant(false).empty());
}

TEST(VariantTest, TheKindAloneDecidesWhatIsConvertible)
{
    // Rows are sources, columns are targets, both in the order of the kinds' numbers.
    const char* const table[KIND_COUNT] = {
        "Y---------Y",  // NONE
        "-Y-Y-Y-YYYY",  // INT
        "--Y-Y-YYYYY",  // UINT
        "---Y-Y-YYYY",  // LONG
        "----Y-YYYYY",  // ULONG
        "-----Y--YYY",  // LONGLONG
        "------Y-YYY",  // ULONGLONG
        "-------YYYY",  // FLOAT
        "--------YYY",  // DOUBLE
        "-YYYYYYYYYY",  // BOOL
        "----------Y",  // STRING
    };

    for (const std::vector<Variant>& values : {oneOfEachKind(), zeroOfEachKind()}) {
        for (int source = 0; source < KIND_COUNT; ++source) {
            std::string row;
            for (int target = 0; target < KIND_COUNT; ++target) {
                const auto kind = static_cast<VariantType>(target);
                row += values[static_cast<std::size_t>(source)].isConvertible(kind) ? 'Y' : '-';
            }
            EXPECT_EQ(row, table[source]) << "source kind " << source;
        }
    }
}

struct Conversions {
    Variant value;
    std::optional<int> asInt;
    std::optional<unsigned int> asUInt;
    std::optional<long> asLong;
    std::optional<unsigned long> asULong;
    std::optional<long long> asLongLong;
    std::optional<unsigned long long> asULongLong;
    std::optional<float> asFloat;
    std::optional<double> asDouble;
    std::optional<bool> asBool;
    std::string asText;
};

template <typename T>
void expectConversion(const Variant& value, VariantType target, const std::string& function,
                      const std::string& word, T (Variant::*convert)() const,
                      const std::optional<T>& expected)
{
    SCOPED_TRACE(function);
    LogCapture log;

    EXPECT_EQ(value.isConvertible(target), expected.has_value());
    EXPECT_THAT(log.lines(), IsEmpty());

    EXPECT_EQ((value.*convert)(), expected.value_or(T()));
    if (expected) {
        EXPECT_THAT(log.lines(), IsEmpty());
    } else {
        EXPECT_THAT(log.lines(), ElementsAre(logged(function, refusal(value.getType(), word))));
    }
}

void expectConversions(const std::vector<Conversions>& rows)
{
    for (const Conversions& row : rows) {
        const Variant& value = row.value;
        SCOPED_TRACE(value.getTypeName() + " " + row.asText);
        expectConversion(value, VARIANT_TYPE_INT, "toInt", "INT", &Variant::toInt, row.asInt);
        expectConversion(value, VARIANT_TYPE_UINT, "toUInt", "UINT", &Variant::toUInt, row.asUInt);
        expectConversion(value, VARIANT_TYPE_LONG, "toLong", "LONG", &Variant::toLong, row.asLong);
        expectConversion(value, VARIANT_TYPE_ULONG, "toULong", "ULONG", &Variant::toULong,
                         row.asULong);
        expectConversion(value, VARIANT_TYPE_LONGLONG, "toLongLong", "LONGLONG",
                         &Variant::toLongLong, row.asLongLong);
        expectConversion(value, VARIANT_TYPE_ULONGLONG, "toULongLong", "ULONGLONG",
                         &Variant::toULongLong, row.asULongLong);
        expectConversion(value, VARIANT_TYPE_FLOAT, "toFloat", "FLOAT", &Variant::toFloat,
                         row.asFloat);
        // "Double" and not "DOUBLE": the messages are kept to the letter.
        expectConversion(value, VARIANT_TYPE_DOUBLE, "toDouble", "Double", &Variant::toDouble,
                         row.asDouble);
        expectConversion(value, VARIANT_TYPE_BOOL, "toBool", "BOOL", &Variant::toBool, row.asBool);
        expectConversion(value, VARIANT_TYPE_STRING, "toString", "STRING", &Variant::toString,
                         std::optional<std::string>(row.asText));
    }
}

TEST(VariantTest, NothingConvertsOnlyToText)
{
    expectConversions({{Variant(), REFUSED, REFUSED, REFUSED, REFUSED, REFUSED, REFUSED, REFUSED,
                        REFUSED, REFUSED, "null"}});
}

TEST(VariantTest, SignedIntegersWidenToSignedOnes)
{
    const auto row = [](int value, float asFloat, double asDouble, const char* asText) {
        return Conversions{Variant(value), value,   REFUSED,  value,      REFUSED, value,
                           REFUSED,        asFloat, asDouble, value != 0, asText};
    };

    expectConversions({row(0, 0.0f, 0.0, "0"), row(1, 1.0f, 1.0, "1"), row(-5, -5.0f, -5.0, "-5"),
                       row(16777217, 16777216.0f, 16777217.0, "16777217"),
                       row(256, 256.0f, 256.0, "256"),
                       row(INT_MAX, 2147483648.0f, 2147483647.0, "2147483647"),
                       row(INT_MIN, -2147483648.0f, -2147483648.0, "-2147483648")});
}

TEST(VariantTest, UnsignedIntegersWidenToUnsignedOnes)
{
    const auto row = [](unsigned int value, float asFloat, double asDouble, const char* asText) {
        return Conversions{Variant(value), REFUSED, value,    REFUSED,    value, REFUSED,
                           value,          asFloat, asDouble, value != 0, asText};
    };

    expectConversions({row(0u, 0.0f, 0.0, "0"), row(12u, 12.0f, 12.0, "12"),
                       row(3000000000u, 3000000000.0f, 3000000000.0, "3000000000"),
                       row(0x80000000u, 2147483648.0f, 2147483648.0, "2147483648"),
                       row(UINT_MAX, 4294967296.0f, 4294967295.0, "4294967295")});
}

TEST(VariantTest, ALongIsNoIntAlthoughItIsAsWide)
{
    const auto row = [](long value, float asFloat, double asDouble, const char* asText) {
        return Conversions{Variant(value), REFUSED, REFUSED,  value,      REFUSED, value,
                           REFUSED,        asFloat, asDouble, value != 0, asText};
    };

    expectConversions({row(0L, 0.0f, 0.0, "0"), row(-1L, -1.0f, -1.0, "-1"),
                       row(16777217L, 16777216.0f, 16777217.0, "16777217"),
                       row(2147483647L, 2147483648.0f, 2147483647.0, "2147483647"),
                       row(-2147483647L - 1, -2147483648.0f, -2147483648.0, "-2147483648")});
}

TEST(VariantTest, AnUnsignedLongIsNoUnsignedIntAlthoughItIsAsWide)
{
    const auto row = [](unsigned long value, float asFloat, double asDouble, const char* asText) {
        return Conversions{Variant(value), REFUSED, REFUSED,  REFUSED,    value, REFUSED,
                           value,          asFloat, asDouble, value != 0, asText};
    };

    expectConversions({row(0UL, 0.0f, 0.0, "0"), row(1UL, 1.0f, 1.0, "1"),
                       row(3000000000UL, 3000000000.0f, 3000000000.0, "3000000000"),
                       row(4294967295UL, 4294967296.0f, 4294967295.0, "4294967295")});
}

TEST(VariantTest, LongLongsConvertToDoubleButNotToFloat)
{
    const auto row = [](long long value, double asDouble, const char* asText) {
        return Conversions{Variant(value), REFUSED, REFUSED,  REFUSED,    REFUSED, value,
                           REFUSED,        REFUSED, asDouble, value != 0, asText};
    };

    expectConversions({row(0LL, 0.0, "0"), row(1LL, 1.0, "1"), row(-1LL, -1.0, "-1"),
                       row(1LL << 32, 4294967296.0, "4294967296"),
                       row((1LL << 53) + 1, 9007199254740992.0, "9007199254740993"),
                       row(LLONG_MAX, 9223372036854775808.0, "9223372036854775807"),
                       row(LLONG_MIN, -9223372036854775808.0, "-9223372036854775808")});
}

TEST(VariantTest, UnsignedLongLongsConvertToDoubleButNotToFloat)
{
    const auto row = [](unsigned long long value, double asDouble, const char* asText) {
        return Conversions{Variant(value), REFUSED, REFUSED,  REFUSED,    REFUSED, REFUSED,
                           value,          REFUSED, asDouble, value != 0, asText};
    };

    expectConversions({row(0ULL, 0.0, "0"), row(7ULL, 7.0, "7"),
                       row(1ULL << 40, 1099511627776.0, "1099511627776"),
                       row(1ULL << 63, 9223372036854775808.0, "9223372036854775808"),
                       row(ULLONG_MAX, 18446744073709551616.0, "18446744073709551615")});
}

TEST(VariantTest, FloatsWidenToDouble)
{
    const auto row = [](float value, bool asBool, const char* asText) {
        return Conversions{Variant(value), REFUSED, REFUSED,
                           REFUSED,        REFUSED, REFUSED,
                           REFUSED,        value,   static_cast<double>(value),
                           asBool,         asText};
    };

    expectConversions({row(0.0f, false, "0.000000"), row(-0.0f, false, "-0.000000"),
                       row(1.5f, true, "1.500000"), row(-0.1f, true, "-0.100000"),
                       row(16777216.0f, true, "16777216.000000"),
                       row(std::numeric_limits<float>::denorm_min(), true, "0.000000"),
                       row(FLT_MAX, true, "340282346638528859811704183484516925440.000000"),
                       row(INFINITE, true, "inf"), row(-INFINITE, true, "-inf")});
}

TEST(VariantTest, DoublesConvertOnlyToBooleanAndText)
{
    const auto row = [](double value, bool asBool, const char* asText) {
        return Conversions{Variant(value), REFUSED, REFUSED, REFUSED, REFUSED, REFUSED,
                           REFUSED,        REFUSED, value,   asBool,  asText};
    };

    expectConversions({row(0.0, false, "0.000000"), row(-0.0, false, "-0.000000"),
                       row(2.5, true, "2.500000"), row(0.1234567, true, "0.123457"),
                       row(-1e-300, true, "-0.000000"),
                       row(std::numeric_limits<double>::denorm_min(), true, "0.000000"),
                       row(1e15, true, "1000000000000000.000000")});
}

TEST(VariantTest, ABooleanConvertsToEveryKindButNone)
{
    expectConversions({{Variant(true), 1, 1u, 1L, 1UL, 1LL, 1ULL, 1.0f, 1.0, true, "1"},
                       {Variant(false), 0, 0u, 0L, 0UL, 0LL, 0ULL, 0.0f, 0.0, false, "0"}});
}

TEST(VariantTest, TextIsNeverParsedAsANumber)
{
    for (const std::string& text :
         {std::string(), std::string("12"), std::string("1.5"), std::string("true"),
          std::string("null"), std::string("a\0b", 3), std::string(1000, '7')}) {
        expectConversions({{Variant(text), REFUSED, REFUSED, REFUSED, REFUSED, REFUSED, REFUSED,
                            REFUSED, REFUSED, REFUSED, text}});
    }
}

TEST(VariantTest, ANumberThatIsNoneIsTrueAndUnequalToItself)
{
    const Variant single(std::nanf(""));
    const Variant whole(std::nan(""));

    EXPECT_TRUE(single.toBool());
    EXPECT_TRUE(whole.toBool());
    EXPECT_TRUE(std::isnan(single.toFloat()));
    EXPECT_TRUE(std::isnan(single.toDouble()));
    EXPECT_TRUE(std::isnan(whole.toDouble()));
    EXPECT_EQ(single.toString(), "nan");
    EXPECT_EQ(whole.toString(), "nan");

    const Variant& sameSingle = single;
    const Variant& sameWhole = whole;
    EXPECT_FALSE(single == sameSingle);
    EXPECT_TRUE(single != sameSingle);
    EXPECT_FALSE(whole == sameWhole);
    EXPECT_TRUE(whole != sameWhole);
}

// What is logged for a `long` or `unsigned long` that becomes a value, as one text. Where they have
// 32 bits, as on the device, nothing can be lost.
template <typename Long>
std::string lossOf(Long value)
{
    if (value ==
        static_cast<std::conditional_t<std::is_signed_v<Long>, std::int32_t, std::uint32_t>>(
            value)) {
        return "";
    }
    return "Invalid value (" + std::to_string(value) + ") for " +
           (std::is_signed_v<Long> ? "LONG" : "ULONG");
}

template <typename Long>
void expectLossLogged(Long value)
{
    SCOPED_TRACE(value);
    std::vector<std::string> expected;
    LogCapture log;
    KeyValues record;

    const Variant made(value);
    Variant assigned;
    assigned = value;
    record.add("key", value);
    record.update("key", value);

    std::vector<testing::Matcher<const LogLine&>> lines;
    if (!lossOf(value).empty()) {
        lines.assign(4, logged("Variant", lossOf(value)));
    }
    EXPECT_THAT(log.lines(), testing::ElementsAreArray(lines));
}

TEST(VariantTest, ALongThatDoesNotFitIsLogged)
{
    for (const long value : {0L, 1L, -1L, 2147483647L, -2147483647L - 1, LONG_MAX, LONG_MIN}) {
        expectLossLogged(value);
    }
    for (const unsigned long value : {0UL, 1UL, 2147483648UL, 4294967295UL, ULONG_MAX}) {
        expectLossLogged(value);
    }
    if (sizeof(long) > 4) {
        EXPECT_EQ(lossOf(static_cast<long>(1LL << 40)), "Invalid value (1099511627776) for LONG");
        EXPECT_EQ(lossOf(static_cast<unsigned long>(1ULL << 32)),
                  "Invalid value (4294967296) for ULONG");
        expectLossLogged(static_cast<long>(1LL << 40));
        expectLossLogged(static_cast<unsigned long>(1ULL << 32));
    }
}

TEST(VariantTest, ATypeOfFixedWidthIsALongOnSomeHosts)
{
    const bool longIsWide = sizeof(long) > 4;

    EXPECT_EQ(Variant(std::int64_t{5}).getType(),
              longIsWide ? VARIANT_TYPE_LONG : VARIANT_TYPE_LONGLONG);
    EXPECT_EQ(Variant(std::size_t{5}).getType(),
              longIsWide ? VARIANT_TYPE_ULONG : VARIANT_TYPE_UINT);
    EXPECT_EQ(Variant(5L).getType(), VARIANT_TYPE_LONG);
}

TEST(VariantTest, ALongKeepsItsLow32Bits)
{
    // Where `long` has 32 bits itself, the casts already narrow.
    for (const long long wide :
         {0LL, 1LL, -1LL, 2147483647LL, 2147483648LL, 4294967295LL, 4294967296LL, 4294967301LL,
          -2147483648LL, -2147483649LL, -4294967296LL, -4294967291LL, LLONG_MAX, LLONG_MIN}) {
        SCOPED_TRACE(wide);
        LogCapture log;  // of what does not fit
        const auto low = static_cast<std::int32_t>(wide);
        const Variant value(static_cast<long>(wide));
        EXPECT_EQ(value.getType(), VARIANT_TYPE_LONG);
        EXPECT_EQ(value.getValueSize(), 4);
        EXPECT_EQ(value.toLong(), low);
        EXPECT_EQ(value.toLongLong(), low);
        EXPECT_EQ(value.toFloat(), static_cast<float>(low));
        EXPECT_EQ(value.toDouble(), low);
        EXPECT_EQ(value.toBool(), low != 0);
        EXPECT_EQ(value.toString(), std::to_string(low));
        EXPECT_TRUE(value == Variant(static_cast<long>(low)));

        const auto unsignedLow = static_cast<std::uint32_t>(wide);
        const Variant unsignedValue(static_cast<unsigned long>(wide));
        EXPECT_EQ(unsignedValue.getType(), VARIANT_TYPE_ULONG);
        EXPECT_EQ(unsignedValue.getValueSize(), 4);
        EXPECT_EQ(unsignedValue.toULong(), unsignedLow);
        EXPECT_EQ(unsignedValue.toULongLong(), unsignedLow);
        EXPECT_EQ(unsignedValue.toFloat(), static_cast<float>(unsignedLow));
        EXPECT_EQ(unsignedValue.toDouble(), unsignedLow);
        EXPECT_EQ(unsignedValue.toBool(), unsignedLow != 0);
        EXPECT_EQ(unsignedValue.toString(), std::to_string(unsignedLow));
        EXPECT_TRUE(unsignedValue == Variant(static_cast<unsigned long>(unsignedLow)));
    }
}

TEST(VariantTest, ADoubleAsTextIsCutTo255Characters)
{
    const struct {
        double value;
        int fullLength;
    } cases[] = {{2e246, 254}, {2e247, 255}, {-2e247, 256}, {2e248, 256}, {1e300, 308}};

    for (const auto& [value, fullLength] : cases) {
        SCOPED_TRACE(value);
        char full[400];
        ASSERT_EQ(std::snprintf(full, sizeof full, "%f", value), fullLength);
        EXPECT_EQ(Variant(value).toString(), std::string(full).substr(0, 255));
    }
    EXPECT_EQ(Variant(-DBL_MAX).toString().size(), 255u);
}

TEST(VariantTest, ATextIsCopiedWholeWhateverItHolds)
{
    for (const std::string& text : {std::string("a\0b\0", 4), std::string("%s%n%d"),
                                    std::string("\xC3\xA4\xFF\x80"), std::string(100000, 'x')}) {
        const Variant value(text);
        EXPECT_EQ(value.toString(), text);
        EXPECT_EQ(value, Variant(std::string(text)));
    }
    EXPECT_EQ(Variant("ab\0c").toString(), "ab");  // a literal ends at its first NUL
}

TEST(VariantTest, NumbersAsTextFollowTheDecimalPointOfTheLocale)
{
    const DecimalComma comma;
    if (!comma.isSelected()) {
        GTEST_SKIP() << "neither an installed locale with a decimal comma nor a working localedef";
    }

    EXPECT_EQ(Variant(1.5f).toString(), "1,500000");
    EXPECT_EQ(Variant(-1234567.25).toString(), "-1234567,250000");
    EXPECT_EQ(Variant(1234567).toString(), "1234567");
    EXPECT_EQ(Variant(1234567890123LL).toString(), "1234567890123");
    EXPECT_EQ(Variant("1.5").toString(), "1.5");
}

TEST(VariantTest, SixDecimalsHideWhatIsSmaller)
{
    EXPECT_EQ(Variant(1e-9).toString(), "0.000000");
    EXPECT_EQ(Variant(-1e-9).toString(), "-0.000000");
    EXPECT_EQ(Variant(0.12345678).toString(), "0.123457");
}

// Numbers are rounded in this direction while this lives.
class Rounding {
public:
    explicit Rounding(int direction) : __before(std::fegetround()) { std::fesetround(direction); }
    ~Rounding() { std::fesetround(__before); }

    Rounding(const Rounding&) = delete;
    Rounding& operator=(const Rounding&) = delete;

private:
    int __before;
};

TEST(VariantTest, NumbersAsTextAreRoundedAsTheProcessRounds)
{
    const struct {
        int direction;
        std::vector<std::string> texts;
    } cases[] = {
        {FE_TONEAREST, {"0.333333", "-0.666667", "0.000000", "-0.000000", "0.100000"}},
        {FE_UPWARD, {"0.333334", "-0.666666", "0.000001", "-0.000000", "0.100001"}},
        {FE_DOWNWARD, {"0.333333", "-0.666667", "0.000000", "-0.000001", "0.100000"}},
        {FE_TOWARDZERO, {"0.333333", "-0.666666", "0.000000", "-0.000000", "0.100000"}},
    };

    for (const auto& [direction, texts] : cases) {
        SCOPED_TRACE(direction);
        const std::vector<Variant> values = {Variant(1.0 / 3), Variant(-2.0 / 3), Variant(1e-9),
                                             Variant(-1e-9), Variant(0.1f)};
        std::vector<std::string> written;
        {
            const Rounding rounding(direction);
            for (const Variant& value : values) {
                written.push_back(value.toString());
            }
        }
        EXPECT_EQ(written, texts);
    }
}

// Writes the raw form at every alignment, between guard bytes, onto two backgrounds, and expects
// exactly these bytes to change. Without a size it is the form that doesn't check the space.
void expectRaw(const Variant& value, const std::optional<int>& size, int result,
               const std::string& bytes, const std::string& message = "")
{
    SCOPED_TRACE(value.getTypeName() + (size ? ", size " + std::to_string(*size) : ", no size"));
    constexpr std::size_t GUARD = 8;

    for (const char background : {'\x55', '\xAA'}) {
        for (std::size_t offset = 0; offset < 8; ++offset) {
            LogCapture log;
            std::vector<char> buffer(GUARD + offset + bytes.size() + 64, background);
            std::vector<char> expected = buffer;
            std::copy(bytes.begin(), bytes.end(),
                      expected.begin() + static_cast<std::ptrdiff_t>(GUARD + offset));

            char* destination = buffer.data() + GUARD + offset;
            EXPECT_EQ(size ? value.toRaw(destination, *size) : value.toRaw(destination), result);

            EXPECT_EQ(buffer, expected) << "offset " << offset;
            if (message.empty()) {
                EXPECT_THAT(log.lines(), IsEmpty());
            } else {
                EXPECT_THAT(log.lines(), ElementsAre(logged("toRaw", message)));
            }
        }
    }
}

TEST(VariantTest, ANumberIsWrittenInHostOrderAtAnyAddress)
{
    for (const NumberBytes& number : numbersAndTheirBytes()) {
        const int size = static_cast<int>(number.bytes.size());
        ASSERT_EQ(number.value.getValueSize(), size);
        expectRaw(number.value, std::nullopt, size, number.bytes);
    }
}

TEST(VariantTest, ANumberTakesItsOwnSizeOfALargerBuffer)
{
    for (const NumberBytes& number : numbersAndTheirBytes()) {
        const int size = static_cast<int>(number.bytes.size());
        for (const int available : {size, size + 1, size + 8, INT_MAX}) {
            expectRaw(number.value, available, size, number.bytes);
        }
    }
}

TEST(VariantTest, ANumberIsNotWrittenIntoABufferThatIsTooSmall)
{
    for (const NumberBytes& number : numbersAndTheirBytes()) {
        const int size = static_cast<int>(number.bytes.size());
        for (const int available : {size - 1, 0, -1, INT_MIN}) {
            expectRaw(number.value, available, STATUS_FAILURE, "", "destination is nullptr");
        }
    }
}

TEST(VariantTest, ATextIsWrittenWithItsTerminator)
{
    expectRaw(Variant("abc"), std::nullopt, 4, std::string("abc\0", 4));
    expectRaw(Variant(""), std::nullopt, 1, std::string(1, '\0'));
    expectRaw(Variant("%s%n%d"), std::nullopt, 7, std::string("%s%n%d\0", 7));
    expectRaw(Variant("\xFF\x80"), std::nullopt, 3, std::string("\xFF\x80\0", 3));
    expectRaw(Variant(std::string(1000, 'x')), std::nullopt, 1001,
              std::string(1000, 'x') + std::string(1, '\0'));
}

TEST(VariantTest, ATextIsWrittenUpToItsFirstNulButCountsWhole)
{
    expectRaw(Variant(std::string("a\0b", 3)), std::nullopt, 4, std::string("a\0", 2));
    expectRaw(Variant(std::string("\0ab", 3)), std::nullopt, 4, std::string(1, '\0'));
    expectRaw(Variant(std::string("a\0b", 3)), 3, 3, std::string("a\0", 2));
    expectRaw(Variant(std::string("a\0b", 3)), 8, 8, std::string("a\0", 2));
    expectRaw(Variant(std::string("a\0b", 3)), 2, STATUS_FAILURE, "", "destination is nullptr");
}

TEST(VariantTest, ABoundedTextReportsTheBufferNotTheBytesWritten)
{
    expectRaw(Variant("abc"), 4, 4, std::string("abc\0", 4));
    expectRaw(Variant("abc"), 5, 5, std::string("abc\0", 4));
    expectRaw(Variant("abc"), 60, 60, std::string("abc\0", 4));
    expectRaw(Variant(""), 1, 1, std::string(1, '\0'));
    expectRaw(Variant(""), 20, 20, std::string(1, '\0'));
    expectRaw(Variant("%s"), 3, 3, std::string("%s\0", 3));
}

TEST(VariantTest, ABufferOfATextsLengthLosesTheLastCharacter)
{
    expectRaw(Variant("abc"), 3, 3, std::string("ab\0", 3));
    expectRaw(Variant("a"), 1, 1, std::string(1, '\0'));
    expectRaw(Variant(""), 0, 0, "");
    expectRaw(Variant(std::string(300, 'x')), 300, 300,
              std::string(299, 'x') + std::string(1, '\0'));
}

TEST(VariantTest, ATextIsNotWrittenIntoABufferBelowItsLength)
{
    for (const int size : {2, 1, 0, -1, INT_MIN}) {
        expectRaw(Variant("abc"), size, STATUS_FAILURE, "", "destination is nullptr");
    }
    expectRaw(Variant(""), -1, STATUS_FAILURE, "", "destination is nullptr");
}

TEST(VariantTest, NothingHasNoRawForm)
{
    expectRaw(Variant(), std::nullopt, STATUS_FAILURE, "", "Invalid type (0).");
    for (const int size : {-1, 0, 1, 8, INT_MAX}) {
        expectRaw(Variant(), size, STATUS_FAILURE, "", "Invalid type (0).");
    }
    // Its size is -1, so that even less is refused for want of space.
    for (const int size : {-2, INT_MIN}) {
        expectRaw(Variant(), size, STATUS_FAILURE, "", "destination is nullptr");
    }
}

TEST(VariantTest, ARawFormNeedsADestination)
{
    for (const Variant& value : oneOfEachKind()) {
        SCOPED_TRACE(value.getTypeName());
        LogCapture log;
        EXPECT_EQ(value.toRaw(nullptr), STATUS_FAILURE);
        EXPECT_EQ(value.toRaw(nullptr, 100), STATUS_FAILURE);
        EXPECT_EQ(value.toRaw(nullptr, 0), STATUS_FAILURE);
        const auto line = logged("toRaw", "destination is nullptr");
        EXPECT_THAT(log.lines(), ElementsAre(line, line, line));
    }
}

// Expects each value to equal itself and none of the others.
void expectAllDifferent(const std::vector<Variant>& values)
{
    for (std::size_t left = 0; left < values.size(); ++left) {
        for (std::size_t right = 0; right < values.size(); ++right) {
            EXPECT_EQ(values[left] == values[right], left == right) << left << ", " << right;
            EXPECT_EQ(values[left] != values[right], left != right) << left << ", " << right;
        }
    }
}

TEST(VariantTest, EqualityNeverConverts)
{
    expectAllDifferent(oneOfEachKind());
    expectAllDifferent(zeroOfEachKind());
    EXPECT_TRUE(Variant(1) == Variant(1));
    EXPECT_TRUE(Variant(1) != Variant(1L));
    EXPECT_TRUE(Variant() == Variant());
}

TEST(VariantTest, EqualityComparesTheWholeValue)
{
    expectAllDifferent({Variant(16777216), Variant(16777217), Variant(-16777217), Variant(0)});
    expectAllDifferent({Variant(1u), Variant(0x80000001u), Variant(UINT_MAX)});
    expectAllDifferent({Variant(1L), Variant(-1L), Variant(65537L), Variant(-2147483647L)});
    expectAllDifferent({Variant(1UL), Variant(65537UL), Variant(0x80000001UL)});
    expectAllDifferent({Variant(1LL), Variant(1LL + (1LL << 32)), Variant(-1LL),
                        Variant((1LL << 53)), Variant((1LL << 53) + 1)});
    expectAllDifferent({Variant(1ULL), Variant(1ULL + (1ULL << 32)), Variant(ULLONG_MAX),
                        Variant(ULLONG_MAX - 1)});
    expectAllDifferent({Variant(0.1f), Variant(-0.1f), Variant(1.0f), Variant(INFINITE)});
    expectAllDifferent({Variant(1.0), Variant(1.0 + 1e-12), Variant(-1.0)});
    expectAllDifferent({Variant(false), Variant(true)});
    expectAllDifferent({Variant("a"), Variant("A"), Variant("ab"), Variant(""), Variant(" a")});
}

TEST(VariantTest, TextsAreComparedBeyondANulByte)
{
    expectAllDifferent({Variant(std::string("a\0b", 3)), Variant(std::string("a\0c", 3)),
                        Variant(std::string("a\0", 2)), Variant("a")});
    EXPECT_TRUE(Variant(std::string("a\0b", 3)) == Variant(std::string("a\0b", 3)));
}

TEST(VariantTest, ZeroEqualsNegativeZero)
{
    EXPECT_TRUE(Variant(0.0f) == Variant(-0.0f));
    EXPECT_TRUE(Variant(0.0) == Variant(-0.0));
    EXPECT_FALSE(Variant(0.0) != Variant(-0.0));
}

// Whether two values look the same through the whole interface.
void expectSame(const Variant& actual, const Variant& expected)
{
    EXPECT_EQ(actual.getType(), expected.getType());
    EXPECT_EQ(actual.getTypeName(), expected.getTypeName());
    EXPECT_EQ(actual.getValueSize(), expected.getValueSize());
    EXPECT_EQ(actual.empty(), expected.empty());
    EXPECT_EQ(actual.toString(), expected.toString());
    EXPECT_TRUE(actual == expected);
    EXPECT_FALSE(actual != expected);
}

std::vector<Variant> valuesToCopy()
{
    return {Variant(),
            Variant(INT_MIN),
            Variant(UINT_MAX),
            Variant(-77L),
            Variant(4000000000UL),
            Variant(LLONG_MIN),
            Variant(ULLONG_MAX),
            Variant(0.1f),
            Variant(1e300),
            Variant(true),
            Variant(false),
            Variant(""),
            Variant("short"),
            Variant(std::string("a\0b", 3)),
            Variant(std::string(500, 'x'))};
}

TEST(VariantTest, ACopyIsTheSameAndLeavesItsSource)
{
    for (const Variant& value : valuesToCopy()) {
        const Variant source = value;
        const Variant copy(source);
        expectSame(copy, value);
        expectSame(source, value);
    }
}

TEST(VariantTest, AssignmentReplacesEveryKindByEveryKind)
{
    for (const Variant& before : valuesToCopy()) {
        for (const Variant& after : valuesToCopy()) {
            SCOPED_TRACE(before.getTypeName() + " by " + after.getTypeName());

            Variant assigned = before;
            EXPECT_EQ(&(assigned = after), &assigned);
            expectSame(assigned, after);

            Variant copiedInto = before;
            copiedInto.__copy(after);
            expectSame(copiedInto, after);

            Variant moved = before;
            Variant source = after;
            EXPECT_EQ(&(moved = std::move(source)), &moved);
            expectSame(moved, after);
            EXPECT_EQ(source.getType(), after.getType());

            // Nothing of the long text or the wide number that was there shines through.
            assigned = before;
            expectSame(assigned, before);
        }
    }
}

TEST(VariantTest, MovingTakesTheValueOver)
{
    for (const Variant& value : valuesToCopy()) {
        Variant source = value;
        Variant moved(std::move(source));
        expectSame(moved, value);
        EXPECT_EQ(source.getType(), value.getType());
        source = Variant(5);
        expectSame(source, Variant(5));
    }
}

TEST(VariantTest, SelfAssignmentDoesNothing)
{
    for (const Variant& expected : valuesToCopy()) {
        Variant value = expected;
        const Variant& same = value;
        EXPECT_EQ(&(value = same), &value);
        expectSame(value, expected);
    }
}

TEST(VariantTest, ANumberReplacesAText)
{
    Variant value("a text that was here before");

    value = Variant(5);

    EXPECT_EQ(value.getType(), VARIANT_TYPE_INT);
    EXPECT_EQ(value.getValueSize(), 4);
    EXPECT_EQ(value.toInt(), 5);
}

TEST(VariantTest, ACopiedTextIsIndependent)
{
    std::string text = "abc";
    Variant value(text);
    Variant copy = value;

    text = "changed";
    value = Variant("other");
    copy.toString() += "tail";

    EXPECT_EQ(value.toString(), "other");
    EXPECT_EQ(copy.toString(), "abc");
}

// Makes the value where other bytes have been, and where nothing but its own is written over them.
template <typename T>
void expectOwnBytesOnly(T argument)
{
    const Variant expected(argument);
    for (const int filler : {0x00, 0xFF}) {
        SCOPED_TRACE(expected.getTypeName() + " over " + std::to_string(filler));
        alignas(Variant) unsigned char memory[sizeof(Variant)];
        // Volatile, or the compiler leaves out what a new object may forget.
        for (volatile unsigned char& byte : memory) {
            byte = static_cast<unsigned char>(filler);
        }
        Variant* value = new (memory) Variant(argument);

        expectSame(*value, expected);
        expectSame(Variant(*value), expected);
        EXPECT_EQ(value->toBool(), expected.toBool());
        EXPECT_EQ(value->toDouble(), expected.toDouble());
        if (expected.getType() == VARIANT_TYPE_BOOL) {
            EXPECT_EQ(value->toInt(), expected.toInt());
            EXPECT_EQ(value->toUInt(), expected.toUInt());
            EXPECT_EQ(value->toLong(), expected.toLong());
            EXPECT_EQ(value->toULong(), expected.toULong());
            EXPECT_EQ(value->toLongLong(), expected.toLongLong());
            EXPECT_EQ(value->toULongLong(), expected.toULongLong());
            EXPECT_EQ(value->toFloat(), expected.toFloat());
        }
        value->~Variant();
    }
}

TEST(VariantTest, WhatWasInMemoryBeforeDoesNotShow)
{
    expectOwnBytesOnly(true);
    expectOwnBytesOnly(false);
    expectOwnBytesOnly(0);
    expectOwnBytesOnly(0u);
    expectOwnBytesOnly(0L);
    expectOwnBytesOnly(0UL);
    expectOwnBytesOnly(0LL);
    expectOwnBytesOnly(0ULL);
    expectOwnBytesOnly(0.0f);
    expectOwnBytesOnly(0.0);
}

TEST(VariantTest, ConversionsAndComparisonsAllocateNothing)
{
    const std::vector<Variant> values = valuesToCopy();
    const std::vector<Variant> others = valuesToCopy();
    char buffer[8];

    const long before = allocationCount();
    long checks = 0;
    for (const Variant& value : values) {
        checks += value.isConvertible(VARIANT_TYPE_INT) && value.toInt() == 0;
        checks += value.isConvertible(VARIANT_TYPE_UINT) && value.toUInt() == 0;
        checks += value.isConvertible(VARIANT_TYPE_LONG) && value.toLong() == 0;
        checks += value.isConvertible(VARIANT_TYPE_ULONG) && value.toULong() == 0;
        checks += value.isConvertible(VARIANT_TYPE_LONGLONG) && value.toLongLong() == 0;
        checks += value.isConvertible(VARIANT_TYPE_ULONGLONG) && value.toULongLong() == 0;
        checks += value.isConvertible(VARIANT_TYPE_FLOAT) && value.toFloat() == 0.0f;
        checks += value.isConvertible(VARIANT_TYPE_DOUBLE) && value.toDouble() == 0.0;
        checks += value.isConvertible(VARIANT_TYPE_BOOL) && !value.toBool();
        checks += value.isConvertible(VARIANT_TYPE_BOOL) && value.toRaw(buffer) > 0;
        checks += value.isConvertible(VARIANT_TYPE_BOOL) && value.toRaw(buffer, 8) > 0;
        checks += value.empty() + value.getValueSize();
        for (const Variant& other : others) {
            checks += (value == other) + (value != other);
        }
    }

    EXPECT_EQ(allocationCount(), before);
    EXPECT_GT(checks, 0);
}

TEST(VariantTest, AMovedInTextIsNotCopied)
{
    const std::string expected(500, 'x');
    std::string text = expected;

    const long before = allocationCount();
    Variant value(std::move(text));
    Variant moved(std::move(value));
    Variant assigned;
    assigned = std::move(moved);
    const long after = allocationCount();

    EXPECT_EQ(after, before);
    EXPECT_EQ(assigned.toString(), expected);
}

TEST(VariantTest, AnAssignmentWithoutMemoryChangesNothing)
{
    const Variant text(std::string(500, 'x'));

    for (const Variant& before : {Variant(), Variant(5), Variant(2.5), Variant("short")}) {
        Variant value = before;
        bool thrown = false;
        {
            const AllocationFailure failure(Allocation::ThrowingNew);
            try {
                value = text;
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
        }

        EXPECT_TRUE(thrown);
        expectSame(value, before);
        expectSame(text, Variant(std::string(500, 'x')));
        value = text;
        expectSame(value, text);
    }
}

}  // namespace
}  // namespace oxil::test
