#include <Oxil.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>

#include "DecimalComma.h"

/** What a value offers besides the strict members: nothing is logged. */
namespace oxil::test {
namespace {

// Texts are looked at, numbers are handed out.
static_assert(std::is_same_v<decltype(Variant().get<std::string>()), const std::string&>);
static_assert(std::is_same_v<decltype(Variant().get<int>()), int>);
static_assert(noexcept(Variant().is<int>()) && noexcept(Variant().get<std::string>()));

using Types = std::tuple<int, unsigned int, long, unsigned long, long long, unsigned long long,
                         float, double, bool, std::string>;

/** Calls visit(T()) for each type, in the order of their kinds. */
template <typename Visit>
void forEachType(const Visit& visit)
{
    std::apply([&](const auto&... types) { (visit(types), ...); }, Types());
}

const Variant VALUES[] = {Variant(),     Variant(-7),    Variant(8u),    Variant(-9L),
                          Variant(10UL), Variant(-11LL), Variant(12ULL), Variant(0.5f),
                          Variant(-1.5), Variant(true),  Variant("13")};

TEST(ValueAccessTest, AValueIsOfOneKind)
{
    for (const Variant& value : VALUES) {
        forEachType([&](const auto& type) {
            using T = std::decay_t<decltype(type)>;
            EXPECT_EQ(value.is<T>(), value.getType() == Variant(type).getType());
        });
    }
}

TEST(ValueAccessTest, GetGivesWhatThereIsAndConvertsNothing)
{
    EXPECT_EQ(VALUES[1].get<int>(), -7);
    EXPECT_EQ(VALUES[2].get<unsigned int>(), 8u);
    EXPECT_EQ(VALUES[3].get<long>(), -9L);
    EXPECT_EQ(VALUES[4].get<unsigned long>(), 10UL);
    EXPECT_EQ(VALUES[5].get<long long>(), -11LL);
    EXPECT_EQ(VALUES[6].get<unsigned long long>(), 12ULL);
    EXPECT_EQ(VALUES[7].get<float>(), 0.5f);
    EXPECT_EQ(VALUES[8].get<double>(), -1.5);
    EXPECT_EQ(VALUES[9].get<bool>(), true);
    EXPECT_EQ(VALUES[10].get<std::string>(), "13");
    EXPECT_EQ(&VALUES[10].get<std::string>(), &VALUES[10].get<std::string>());

    for (const Variant& value : VALUES) {
        forEachType([&](const auto& type) {
            using T = std::decay_t<decltype(type)>;
            if (!value.is<T>()) {
                EXPECT_EQ(value.get<T>(), T());
            }
        });
    }
}

TEST(ValueAccessTest, ATextThatIsAssignedOverLeavesNothingBehind)
{
    Variant value("a text that stays in its memory when a number comes");
    value = Variant(1);
    EXPECT_EQ(value.get<std::string>(), "");
}

TEST(ValueAccessTest, ConvertFollowsTheTable)
{
    for (const Variant& value : VALUES) {
        forEachType([&](const auto& type) {
            using T = std::decay_t<decltype(type)>;
            const VariantType kind = Variant(type).getType();
            const std::optional<T> converted = value.convert<T>();
            if (value.isConvertible(kind)) {
                ASSERT_TRUE(converted.has_value()) << value.getTypeName() << " to " << kind;
                EXPECT_EQ(*converted, value.__to<T>());
            } else if (value.getType() != VARIANT_TYPE_STRING) {
                EXPECT_FALSE(converted.has_value()) << value.getTypeName() << " to " << kind;
            }
        });
    }
    EXPECT_EQ(Variant(-7).convert<double>(), -7.0);
    EXPECT_EQ(Variant(-7).convert<std::string>(), "-7");
    EXPECT_EQ(Variant(1LL << 40).convert<int>(), std::nullopt);
}

TEST(ValueAccessTest, ATextIsANumberAndNothingElse)
{
    EXPECT_EQ(Variant("42").convert<int>(), 42);
    EXPECT_EQ(Variant(" \t-42\n").convert<int>(), -42);
    EXPECT_EQ(Variant("+42").convert<unsigned int>(), 42u);
    EXPECT_EQ(Variant("010").convert<int>(), 10);
    for (const char* text : {"", " ", "x", "42x", "4 2", "0x10", "1e3", "4.2", "--4", "-"}) {
        EXPECT_EQ(Variant(text).convert<int>(), std::nullopt) << text;
        EXPECT_EQ(Variant(text).convert<unsigned long long>(), std::nullopt) << text;
    }
    EXPECT_EQ(Variant(std::string("42\0", 3)).convert<int>(), std::nullopt);

    EXPECT_EQ(Variant("1e-3").convert<double>(), 0.001);
    EXPECT_EQ(Variant(" 0x1p4 ").convert<float>(), 16.0f);
    EXPECT_EQ(Variant("inf").convert<double>(), std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(Variant("nan").convert<double>().value_or(0)));
    EXPECT_EQ(Variant("1.5x").convert<double>(), std::nullopt);
    EXPECT_EQ(Variant("").convert<float>(), std::nullopt);
}

TEST(ValueAccessTest, ATextThatDoesNotFitIsNoNumber)
{
    EXPECT_EQ(Variant("2147483647").convert<int>(), 2147483647);
    EXPECT_EQ(Variant("2147483648").convert<int>(), std::nullopt);
    EXPECT_EQ(Variant("-2147483648").convert<int>(), -2147483647 - 1);
    EXPECT_EQ(Variant("-2147483649").convert<int>(), std::nullopt);
    EXPECT_EQ(Variant("4294967295").convert<unsigned int>(), 4294967295u);
    EXPECT_EQ(Variant("4294967296").convert<unsigned int>(), std::nullopt);
    EXPECT_EQ(Variant("-1").convert<unsigned int>(), std::nullopt);
    EXPECT_EQ(Variant("-0").convert<unsigned int>(), 0u);

    // As everywhere in a Variant, a long has 32 bits.
    EXPECT_EQ(Variant("2147483647").convert<long>(), 2147483647L);
    EXPECT_EQ(Variant("2147483648").convert<long>(), std::nullopt);
    EXPECT_EQ(Variant("4294967295").convert<unsigned long>(), 4294967295UL);
    EXPECT_EQ(Variant("4294967296").convert<unsigned long>(), std::nullopt);

    EXPECT_EQ(Variant("9223372036854775807").convert<long long>(), 9223372036854775807LL);
    EXPECT_EQ(Variant("9223372036854775808").convert<long long>(), std::nullopt);
    EXPECT_EQ(Variant("18446744073709551615").convert<unsigned long long>(),
              18446744073709551615ULL);
    EXPECT_EQ(Variant("18446744073709551616").convert<unsigned long long>(), std::nullopt);
    EXPECT_EQ(Variant("-1").convert<unsigned long long>(), std::nullopt);

    EXPECT_EQ(Variant("1e39").convert<float>(), std::nullopt);
    EXPECT_EQ(Variant("1e39").convert<double>(), 1e39);
    EXPECT_EQ(Variant("1e309").convert<double>(), std::nullopt);
    EXPECT_EQ(Variant("1e-310").convert<double>(), 1e-310);
    EXPECT_EQ(Variant("1e-400").convert<double>(), 0.0);
}

TEST(ValueAccessTest, SixTextsAreTruthValues)
{
    for (const char* text : {"1", "true", "TRUE"}) {
        EXPECT_EQ(Variant(text).convert<bool>(), true) << text;
    }
    for (const char* text : {"0", "false", "FALSE"}) {
        EXPECT_EQ(Variant(text).convert<bool>(), false) << text;
    }
    for (const char* text : {"", "True", "yes", " 1", "2"}) {
        EXPECT_EQ(Variant(text).convert<bool>(), std::nullopt) << text;
    }
}

TEST(ValueAccessTest, TheDecimalPointIsTheLocales)
{
    const DecimalComma comma;
    if (!comma.isSelected()) {
        GTEST_SKIP() << "no locale with a decimal comma";
    }
    EXPECT_EQ(Variant("1,5").convert<double>(), 1.5);
    EXPECT_EQ(Variant("1.5").convert<double>(), std::nullopt);
}

}  // namespace
}  // namespace oxil::test
