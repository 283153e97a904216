#include "OxNumberParser.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "OxLog.h"

namespace oxil {
namespace {

constexpr int DECIMAL = 10;

}  // namespace

int NumberParser::toInt(const std::string& text)
{
    if (text.empty()) {
        OX_ERROR("Invalid parameter.");
        return 0;
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
    return std::strtol(text.c_str(), nullptr, DECIMAL);
}

unsigned long NumberParser::toULong(const std::string& text)
{
    if (text.empty()) {
        OX_ERROR("Invalid parameter.");
        return 0;
    }
    return std::strtoul(text.c_str(), nullptr, DECIMAL);
}

long long NumberParser::toLongLong(const std::string& text)
{
    if (text.empty()) {
        OX_ERROR("Invalid parameter.");
        return 0;
    }
    return std::strtoll(text.c_str(), nullptr, DECIMAL);
}

unsigned long long NumberParser::toULongLong(const std::string& text)
{
    if (text.empty()) {
        OX_ERROR("Invalid parameter.");
        return 0;
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
