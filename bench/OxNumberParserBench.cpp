// Turning text into numbers.

#include "OxNumberParser.h"

#include <charconv>
#include <cstdlib>
#include <string>
#include <system_error>
#include <type_traits>
#include <vector>

#include "Bench.h"

namespace oxil::bench {
namespace {

constexpr int DECIMAL = 10;

using Texts = std::vector<std::string>;

const Texts INTEGERS = {"0",        "7",         "-1",   "42",       "1920",      "-273",
                        "65535",    "8080",      "1080", "86400000", "16777216",  "299792458",
                        "31536000", "123456789", "+12",  " 600",     "-90000000", "2147483647"};
const Texts UNSIGNED = {"0",        "7",         "1",    "42",       "1920",     "273",
                        "65535",    "8080",      "1080", "86400000", "16777216", "299792458",
                        "31536000", "123456789", "+12",  " 600",     "90000000", "4294967295"};
const Texts LONG_INTEGERS = {"0",          "-1",         "1700000000000",   "-9007199254740993",
                             "4294967296", "1000000000", "281474976710656", "9223372036854775807"};
const Texts LONG_UNSIGNED = {"0",          "1",          "1700000000000",   "9007199254740993",
                             "4294967296", "1000000000", "281474976710656", "18446744073709551615"};
const Texts FRACTIONS = {"0",    "1.5",       "-0.25",  "3.14159", "100.0",
                         "1e-3", "-2.5e10",   "0.1",    "65.5",    "299792.458",
                         "1024", "0.3333333", "-12.75", "6.02e23", "1.0"};

/** One round over all texts; the numbers are added up, wrapping, so that each has to be made. */
template <typename Parse>
auto sum(const Texts& texts, const Parse& parse)
{
    using Number = decltype(parse(texts[0]));
    std::conditional_t<std::is_integral_v<Number>, unsigned long long, Number> total{};
    for (const std::string& text : texts) {
        total += static_cast<decltype(total)>(parse(text));
    }
    return total;
}

/** The member is an argument of the template, so that it is called as it is in an application. */
template <auto OXIL, typename Parse>
void addParser(const std::string& type, const std::string& contender, const Texts& texts,
               const Parse& parse)
{
    add("number from text: " + type, contender, [&texts, parse](benchmark::State& state) {
        for (const std::string& text : texts) {
            expect(state, parse(text) == OXIL(text));
        }
        for (auto _ : state) {
            benchmark::DoNotOptimize(sum(texts, parse));
        }
        state.SetItemsProcessed(state.iterations() * static_cast<int>(texts.size()));
    });
}

/** @param standard  the function of the C library that tells what the text means */
template <auto OXIL, typename Standard>
void addIntegers(const std::string& type, const Texts& texts, const Standard& standard)
{
    using Number = decltype(standard(texts[0]));

    addParser<OXIL>(type, "floor: std::from_chars", texts, [standard](const std::string& text) {
        Number number = 0;
        const bool isPlain =
            std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
        return isPlain ? number : standard(text);  // blanks, say, or a plus sign
    });
    addParser<OXIL>(type, "oxil", texts, OXIL);
    addParser<OXIL>(type, "C library", texts, standard);
}

template <auto OXIL, typename Standard>
void addFractions(const std::string& type, const Standard& standard)
{
    addParser<OXIL>(type, "floor: C library", FRACTIONS, standard);
    addParser<OXIL>(type, "oxil", FRACTIONS, OXIL);
}

}  // namespace
}  // namespace oxil::bench

int main(int argc, char** argv)
{
    using namespace oxil::bench;
    using oxil::NumberParser;

    addIntegers<NumberParser::toInt>("int", INTEGERS, [](const std::string& text) {
        return static_cast<int>(std::strtol(text.c_str(), nullptr, DECIMAL));
    });
    addIntegers<NumberParser::toUInt>("unsigned int", UNSIGNED, [](const std::string& text) {
        return static_cast<unsigned int>(std::strtoul(text.c_str(), nullptr, DECIMAL));
    });
    addIntegers<NumberParser::toLong>("long", INTEGERS, [](const std::string& text) {
        return std::strtol(text.c_str(), nullptr, DECIMAL);
    });
    addIntegers<NumberParser::toULong>("unsigned long", UNSIGNED, [](const std::string& text) {
        return std::strtoul(text.c_str(), nullptr, DECIMAL);
    });
    addIntegers<NumberParser::toLongLong>("long long", LONG_INTEGERS, [](const std::string& text) {
        return std::strtoll(text.c_str(), nullptr, DECIMAL);
    });
    addIntegers<NumberParser::toULongLong>(
        "unsigned long long", LONG_UNSIGNED,
        [](const std::string& text) { return std::strtoull(text.c_str(), nullptr, DECIMAL); });
    addFractions<NumberParser::toFloat>(
        "float", [](const std::string& text) { return std::strtof(text.c_str(), nullptr); });
    addFractions<NumberParser::toDouble>(
        "double", [](const std::string& text) { return std::strtod(text.c_str(), nullptr); });
    return run(argc, argv);
}
