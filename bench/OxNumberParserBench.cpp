// Turning text into numbers.

#include "OxNumberParser.h"

#include <cstdlib>
#include <string>
#include <vector>

#include "Contender.h"

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
template <typename Number, typename Parse>
Number sum(const Texts& texts, const Parse& parse)
{
    Number total{};
    for (const std::string& text : texts) {
        total += static_cast<Number>(parse(text));
    }
    return total;
}

/** The member is an argument of the template, so that it is called as it is in an application. */
template <auto OXIL, typename Number, typename Parse>
void addParser(const std::string& type, const Texts& texts, const Parse& parse)
{
    const std::string operation = "number from text: " + type;
    const int count = static_cast<int>(texts.size());
    for (const std::string& text : texts) {
        require(OXIL(text) == parse(text), operation.c_str());
    }

    const auto floor = [&texts, parse] { return sum<Number>(texts, parse); };
    const auto oxil = [&texts] { return sum<Number>(texts, OXIL); };
    const Number expected = floor();
    compete(operation, "floor", floor, expected, count);
    compete(operation, "oxil", oxil, expected, count);
}

}  // namespace
}  // namespace oxil::bench

int main(int argc, char** argv)
{
    using namespace oxil::bench;
    using oxil::NumberParser;

    addParser<NumberParser::toInt, long long>("int", INTEGERS, [](const std::string& text) {
        return static_cast<int>(std::strtol(text.c_str(), nullptr, DECIMAL));
    });
    addParser<NumberParser::toUInt, unsigned long long>(
        "unsigned int", UNSIGNED, [](const std::string& text) {
            return static_cast<unsigned int>(std::strtoul(text.c_str(), nullptr, DECIMAL));
        });
    addParser<NumberParser::toLong, unsigned long>("long", INTEGERS, [](const std::string& text) {
        return std::strtol(text.c_str(), nullptr, DECIMAL);
    });
    addParser<NumberParser::toULong, unsigned long>(
        "unsigned long", UNSIGNED,
        [](const std::string& text) { return std::strtoul(text.c_str(), nullptr, DECIMAL); });
    addParser<NumberParser::toLongLong, unsigned long long>(
        "long long", LONG_INTEGERS,
        [](const std::string& text) { return std::strtoll(text.c_str(), nullptr, DECIMAL); });
    addParser<NumberParser::toULongLong, unsigned long long>(
        "unsigned long long", LONG_UNSIGNED,
        [](const std::string& text) { return std::strtoull(text.c_str(), nullptr, DECIMAL); });
    addParser<NumberParser::toFloat, float>("float", FRACTIONS, [](const std::string& text) {
        return std::strtof(text.c_str(), nullptr);
    });
    addParser<NumberParser::toDouble, double>("double", FRACTIONS, [](const std::string& text) {
        return std::strtod(text.c_str(), nullptr);
    });
    return run(argc, argv);
}
