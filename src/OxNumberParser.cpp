#include "OxNumberParser.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <limits>

#include "OxLog.h"

namespace oxil {
namespace {

constexpr int DECIMAL = 10;

/**
 * Reads what is a number from its first character on and fits, which is nearly every text, in half
 * the time of the C library; false for any other text.
 */
template <typename Number>
bool readPlain(const std::string& text, Number& number)
{
    return std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
}

}  // namespace

int NumberParser::toInt(const std::string& text)
{
    if (text.empty()) {
        OX_ERROR("Invalid parameter.");
        return 0;
    }
    int plain = 0;
    if (readPlain(text, plain)) {
        return plain;
    }
    // A long has 32 bits on the device, where this is all of it.
    constexpr long LEAST = std::numeric_limits<int>::min();
    constexpr long MOST = std::numeric_limits<int>::max();
    return static_cast<int>(std::clamp(std::strtol(text.c_str(), nullptr, DECIMAL), LEAST, MOST));
}

unsigned int NumberParser::toUInt(const std::string& text)
{
    if (text.empty()) {
        OX_ERROR("Invalid parameter.");
        return 0;
    }
    unsigned int plain = 0;
    if (readPlain(text, plain)) {
        return plain;
    }
    // strtoul() with 32 bits: the limit is that of the digits, and a minus sign wraps what is
    // within.
    constexpr long long MOST = std::numeric_limits<unsigned int>::max();
    const long long value = std::strtoll(text.c_str(), nullptr, DECIMAL);
    return static_cast<unsigned int>(value < -MOST || value > MOST ? MOST : value);
}

long NumberParser::toLong(const std::string& text)
{
    if (text.empty()) {
        OX_ERROR("Invalid parameter.");
        return 0;
    }
    long plain = 0;
    if (readPlain(text, plain)) {
        return plain;
    }
    return std::strtol(text.c_str(), nullptr, DECIMAL);
}

unsigned long NumberParser::toULong(const std::string& text)
{
    if (text.empty()) {
        OX_ERROR("Invalid parameter.");
        return 0;
    }
    unsigned long plain = 0;
    if (readPlain(text, plain)) {
        return plain;
    }
    return std::strtoul(text.c_str(), nullptr, DECIMAL);
}

long long NumberParser::toLongLong(const std::string& text)
{
    if (text.empty()) {
        OX_ERROR("Invalid parameter.");
        return 0;
    }
    long long plain = 0;
    if (readPlain(text, plain)) {
        return plain;
    }
    return std::strtoll(text.c_str(), nullptr, DECIMAL);
}

unsigned long long NumberParser::toULongLong(const std::string& text)
{
    if (text.empty()) {
        OX_ERROR("Invalid parameter.");
        return 0;
    }
    unsigned long long plain = 0;
    if (readPlain(text, plain)) {
        return plain;
    }
    return std::strtoull(text.c_str(), nullptr, DECIMAL);
}

float NumberParser::toFloat(const std::string& text)
{
    if (text.empty()) {
        OX_ERROR("Invalid parameter.");
        return 0.0f;
    }
    return std::strtof(text.c_str(), nullptr);
}

double NumberParser::toDouble(const std::string& text)
{
    if (text.empty()) {
        OX_ERROR("Invalid parameter.");
        return 0.0;
    }
    return std::strtod(text.c_str(), nullptr);
}

bool NumberParser::toBool(const std::string& text)
{
    if (text.empty()) {
        OX_ERROR("Invalid parameter.");
        return false;
    }
    return text == "1" || text == "true" || text == "TRUE";
}

}  // namespace oxil
