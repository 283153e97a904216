// Texts and numbers: what is made of them is what the C library makes of them, or a plain rewrite of
// the rule where it has none.

#include <OxNumberParser.h>
#include <OxSerializer.h>
#include <OxStatus.h>
#include <OxStringUtil.h>
#include <OxVariant.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "Fuzz.h"
#include "Input.h"
#include "Values.h"

namespace {

using namespace oxil;
using fuzz::Input;
using fuzz::isSame;

/** Whether two numbers are the same, also if they are none. */
template <typename Number>
bool isSameNumber(Number one, Number other)
{
    return isSame(Variant(one), Variant(other)) || (std::isnan(one) && std::isnan(other));
}

// ---- Numbers in texts

/** An integer as strtol() and strtoul() of 32 bits read it, digit by digit. */
struct Decimal {
    explicit Decimal(const char* text)
    {
        while (std::isspace(static_cast<unsigned char>(*text)) != 0) {
            ++text;
        }
        isNegative = *text == '-';
        if (*text == '-' || *text == '+') {
            ++text;
        }
        for (; *text >= '0' && *text <= '9'; ++text) {
            magnitude = std::min<std::uint64_t>(
                10 * magnitude + static_cast<std::uint64_t>(*text - '0'), UINT64_C(1) << 40);
        }
    }

    int toInt() const
    {
        const auto value = static_cast<long long>(magnitude);
        return static_cast<int>(
            std::clamp<long long>(isNegative ? -value : value, INT_MIN, INT_MAX));
    }

    unsigned int toUInt() const
    {
        if (magnitude > UINT_MAX) {
            return UINT_MAX;
        }
        const auto value = static_cast<unsigned int>(magnitude);
        return isNegative ? 0 - value : value;
    }

    bool isNegative;
    std::uint64_t magnitude = 0;  // what is beyond 2^40 counts as that
};

void parseNumbers(const std::string& text)
{
    const char* c = text.c_str();
    const Decimal decimal(c);
    fuzz::clearLog();
    FUZZ_REQUIRE(NumberParser::toInt(text) == decimal.toInt());
    FUZZ_REQUIRE(NumberParser::toUInt(text) == decimal.toUInt());
    FUZZ_REQUIRE(NumberParser::toLong(text) == std::strtol(c, nullptr, 10));
    FUZZ_REQUIRE(NumberParser::toULong(text) == std::strtoul(c, nullptr, 10));
    FUZZ_REQUIRE(NumberParser::toLongLong(text) == std::strtoll(c, nullptr, 10));
    FUZZ_REQUIRE(NumberParser::toULongLong(text) == std::strtoull(c, nullptr, 10));
    FUZZ_REQUIRE(isSameNumber(NumberParser::toFloat(text), std::strtof(c, nullptr)));
    FUZZ_REQUIRE(isSameNumber(NumberParser::toDouble(text), std::strtod(c, nullptr)));
    FUZZ_REQUIRE(NumberParser::toBool(text) == (text == "1" || text == "true" || text == "TRUE"));
    FUZZ_REQUIRE(fuzz::countLogged() == (text.empty() ? 9 : 0));
}

/** Where a number ends that has nothing but blanks behind it. */
bool isWhole(const std::string& text, const char* end)
{
    return end != text.c_str() &&
           end + std::strspn(end, " \t\n\v\f\r") == text.c_str() + text.size();
}

/** What there is for a text that is a number and nothing else, and fits. */
template <typename Number>
std::optional<Number> toNumber(const std::string& text)
{
    const char* c = text.c_str();
    char* end = nullptr;
    errno = 0;
    if constexpr (std::is_same_v<Number, float>) {
        const float value = std::strtof(c, &end);
        const bool fits = errno == 0 || std::fabs(value) < HUGE_VALF;
        return isWhole(text, end) && fits ? std::optional<float>(value) : std::nullopt;
    } else if constexpr (std::is_same_v<Number, double>) {
        const double value = std::strtod(c, &end);
        const bool fits = errno == 0 || std::fabs(value) < HUGE_VAL;
        return isWhole(text, end) && fits ? std::optional<double>(value) : std::nullopt;
    } else if constexpr (std::is_signed_v<Number>) {
        constexpr bool IS_WIDE = std::is_same_v<Number, long long>;
        const long long value = std::strtoll(c, &end, 10);
        const bool fits = errno == 0 && (IS_WIDE || (value >= INT_MIN && value <= INT_MAX));
        return isWhole(text, end) && fits ? std::optional<Number>(static_cast<Number>(value))
                                          : std::nullopt;
    } else {
        constexpr bool IS_WIDE = std::is_same_v<Number, unsigned long long>;
        const unsigned long long value = std::strtoull(c, &end, 10);
        const bool isNegative =
            std::string(c, static_cast<const char*>(end)).find('-') != std::string::npos;
        const bool fits =
            errno == 0 && (IS_WIDE || value <= UINT_MAX) && (!isNegative || value == 0);
        return isWhole(text, end) && fits ? std::optional<Number>(static_cast<Number>(value))
                                          : std::nullopt;
    }
}

template <typename Number>
void convertText(const std::string& text)
{
    const std::optional<Number> number = Variant(text).convert<Number>();
    const std::optional<Number> expected = toNumber<Number>(text);
    FUZZ_REQUIRE(number.has_value() == expected.has_value());
    FUZZ_REQUIRE(!number || isSameNumber(*number, *expected));
}

void convertText(const std::string& text)
{
    fuzz::clearLog();
    convertText<int>(text);
    convertText<unsigned int>(text);
    convertText<long>(text);
    convertText<unsigned long>(text);
    convertText<long long>(text);
    convertText<unsigned long long>(text);
    convertText<float>(text);
    convertText<double>(text);
    const std::optional<bool> truth = Variant(text).convert<bool>();
    const bool isTrue = text == "1" || text == "true" || text == "TRUE";
    const bool isFalse = text == "0" || text == "false" || text == "FALSE";
    FUZZ_REQUIRE(truth.has_value() == (isTrue || isFalse) && (!truth || *truth == isTrue));
    FUZZ_REQUIRE(Variant(text).convert<std::string>() == text);
    FUZZ_REQUIRE(fuzz::countLogged() == 0);
}

// ---- Tokens

void split(const std::string& text, const std::string& delimiters)
{
    std::vector<std::string> expected;
    if (!delimiters.empty()) {
        constexpr std::size_t NONE = std::string::npos;
        std::size_t start = text.find_first_not_of(delimiters);
        std::size_t end = text.find_first_of(delimiters, start);
        while (start != NONE || end != NONE) {
            expected.push_back(text.substr(start, end - start));
            start = text.find_first_not_of(delimiters, end);
            end = text.find_first_of(delimiters, start);
        }
    }
    fuzz::clearLog();
    FUZZ_REQUIRE(StringUtil::getTokens(text, delimiters) == expected);
    FUZZ_REQUIRE(fuzz::countLogged() == (text.empty() || delimiters.empty() ? 1 : 0));

    // Without NUL bytes, strtok_r() finds the same.
    if (text.find('\0') == std::string::npos && delimiters.find('\0') == std::string::npos &&
        !delimiters.empty()) {
        std::string copy = text;
        char* rest = copy.data();
        for (const std::string& token : expected) {
            FUZZ_REQUIRE(strtok_r(nullptr, delimiters.c_str(), &rest) == token);
        }
        FUZZ_REQUIRE(strtok_r(nullptr, delimiters.c_str(), &rest) == nullptr);
    }
}

// ---- What fits a slot

void cut(const std::string& text)
{
    const std::string cut = Serializer::cutText(text);
    FUZZ_REQUIRE(cut.size() <= MAX_TEXT_LENGTH && cut.find('\0') == std::string::npos);
    FUZZ_REQUIRE(text.compare(0, cut.size(), cut) == 0);
    const std::size_t possible = std::min<std::size_t>(std::strlen(text.c_str()), MAX_TEXT_LENGTH);
    FUZZ_REQUIRE(possible - cut.size() <= 3);
    if (possible == text.size()) {
        FUZZ_REQUIRE(cut == text);
    }
}

// ---- Values

/** As "%f" writes it; a Variant has 255 characters of it. */
std::string print(double number)
{
    char digits[400];
    std::snprintf(digits, sizeof digits, "%f", number);
    return std::string(digits).substr(0, 255);
}

/** Columns are the kinds to convert to, all eleven of them. */
constexpr const char* CONVERTIBLE[] = {
    "Y.........Y",  // NONE
    ".Y.Y.Y.YYYY",  // INT
    "..Y.Y.YYYYY",  // UINT
    "...Y.Y.YYYY",  // LONG
    "....Y.YYYYY",  // ULONG
    ".....Y..YYY",  // LONGLONG
    "......Y.YYY",  // ULONGLONG
    ".......YYYY",  // FLOAT
    "........YYY",  // DOUBLE
    ".YYYYYYYYYY",  // BOOL
    "..........Y",  // STRING
};

/** Calls a conversion that is allowed or not, and compares the result. */
template <typename Number, typename Convert>
void convert(const Variant& value, Number expected, const Convert& convert)
{
    const VariantType target = Variant(Number()).getType();
    const bool isAllowed = CONVERTIBLE[value.getType()][target] == 'Y';
    fuzz::clearLog();
    FUZZ_REQUIRE(value.isConvertible(target) == isAllowed);
    FUZZ_REQUIRE(isSameNumber<Number>(convert(), isAllowed ? expected : Number()));
    FUZZ_REQUIRE(fuzz::countLogged() == (isAllowed ? 0 : 1));

    const std::optional<Number> converted = value.convert<Number>();
    if (!value.is<std::string>()) {
        FUZZ_REQUIRE(converted.has_value() == isAllowed);
        FUZZ_REQUIRE(!converted || isSameNumber(*converted, expected));
    }
    FUZZ_REQUIRE(value.is<Number>() == (value.getType() == target));
    FUZZ_REQUIRE(
        isSameNumber<Number>(value.get<Number>(), value.is<Number>() ? expected : Number()));
}

/** @param number  of the value's own type */
template <typename Number>
void convertTo(const Variant& value, Number number, const std::string& text)
{
    constexpr bool IS_INTEGER = std::is_integral_v<Number>;
    // Of a conversion that is refused nobody looks at this.
    const auto wide = IS_INTEGER ? static_cast<unsigned long long>(number) : 0;
    convert<int>(value, static_cast<int>(wide), [&] { return value.toInt(); });
    convert<unsigned int>(value, static_cast<unsigned int>(wide), [&] { return value.toUInt(); });
    convert<long>(value, static_cast<std::int32_t>(wide), [&] { return value.toLong(); });
    convert<unsigned long>(value, static_cast<std::uint32_t>(wide),
                           [&] { return value.toULong(); });
    convert<long long>(value, static_cast<long long>(wide), [&] { return value.toLongLong(); });
    convert<unsigned long long>(value, wide, [&] { return value.toULongLong(); });
    if constexpr (std::is_same_v<Number, double>) {
        convert<float>(value, 0.0f, [&] { return value.toFloat(); });
    } else {
        convert<float>(value, static_cast<float>(number), [&] { return value.toFloat(); });
    }
    convert<double>(value, static_cast<double>(number), [&] { return value.toDouble(); });
    convert<bool>(value, number != Number(), [&] { return value.toBool(); });
    FUZZ_REQUIRE(value.toString() == text);

    // The bytes.
    unsigned char bytes[16];
    std::fill(std::begin(bytes), std::end(bytes), 0xEE);
    const int size = value.toRaw(bytes);
    FUZZ_REQUIRE(size == value.getValueSize() && bytes[size] == 0xEE);
    const bool isLong = value.is<long>() || value.is<unsigned long>();
    FUZZ_REQUIRE(isLong || size == static_cast<int>(sizeof number));
    FUZZ_REQUIRE(std::memcmp(bytes, &number, static_cast<std::size_t>(size)) == 0);
    FUZZ_REQUIRE(value.toRaw(bytes, size) == size && value.toRaw(bytes, size - 1) == -1);
}

void convertOther(const Variant& value)
{
    convert<int>(value, 0, [&] { return value.toInt(); });
    convert<unsigned long long>(value, 0, [&] { return value.toULongLong(); });
    convert<float>(value, 0, [&] { return value.toFloat(); });
    convert<bool>(value, false, [&] { return value.toBool(); });
    if (value.empty()) {
        FUZZ_REQUIRE(value.toString() == "null");
        char byte = 0;
        FUZZ_REQUIRE(value.toRaw(&byte) == -1);
        return;
    }
    const std::string text = value.toString();
    FUZZ_REQUIRE(text == value.get<std::string>());
    const std::string shown = text.c_str();
    std::vector<char> bytes(text.size() + 2, '\xEE');
    FUZZ_REQUIRE(value.toRaw(bytes.data()) == static_cast<int>(text.size()) + 1);
    FUZZ_REQUIRE(bytes.data() == shown && bytes.back() == '\xEE');
    const auto size = static_cast<int>(text.size());
    FUZZ_REQUIRE(value.toRaw(bytes.data(), size) == size);
    FUZZ_REQUIRE(size == 0 || bytes.data() == shown.substr(0, text.size() - 1));
    FUZZ_REQUIRE(value.toRaw(bytes.data(), size - 1) == -1);
}

void convert(const Variant& value)
{
    switch (value.getType()) {
        case VARIANT_TYPE_INT:
            convertTo(value, value.get<int>(), std::to_string(value.get<int>()));
            break;
        case VARIANT_TYPE_UINT:
            convertTo(value, value.get<unsigned int>(), std::to_string(value.get<unsigned int>()));
            break;
        case VARIANT_TYPE_LONG:
            convertTo(value, value.get<long>(), std::to_string(value.get<long>()));
            break;
        case VARIANT_TYPE_ULONG:
            convertTo(value, value.get<unsigned long>(),
                      std::to_string(value.get<unsigned long>()));
            break;
        case VARIANT_TYPE_LONGLONG:
            convertTo(value, value.get<long long>(), std::to_string(value.get<long long>()));
            break;
        case VARIANT_TYPE_ULONGLONG:
            convertTo(value, value.get<unsigned long long>(),
                      std::to_string(value.get<unsigned long long>()));
            break;
        case VARIANT_TYPE_FLOAT:
            convertTo(value, value.get<float>(), print(static_cast<double>(value.get<float>())));
            break;
        case VARIANT_TYPE_DOUBLE:
            convertTo(value, value.get<double>(), print(value.get<double>()));
            break;
        case VARIANT_TYPE_BOOL:
            convertTo(value, value.get<bool>(), value.get<bool>() ? "1" : "0");
            break;
        default:
            convertOther(value);
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    Input input(bytes, size);
    switch (input.below(4)) {
        case 0: {
            const std::string text(input.rest());
            parseNumbers(text);
            convertText(text);
            break;
        }
        case 1: {
            const std::string delimiters = input.text();
            split(std::string(input.rest()), delimiters);
            break;
        }
        case 2:
            cut(std::string(input.rest()));
            break;
        default:
            while (!input.isAtEnd()) {
                convert(fuzz::makeValue(input));
            }
            break;
    }
    return 0;
}
