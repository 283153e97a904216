#include "OxVariant.h"

#include <algorithm>
#include <cerrno>
#include <cfenv>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include <langinfo.h>

#include "OxLog.h"
#include "OxStatus.h"
#include "internal/OxTextSlot.h"

namespace oxil {
namespace {

constexpr unsigned int TYPE_COUNT = 11;

constexpr const char* TYPE_NAMES[TYPE_COUNT] = {"NONE",   "INT",      "UINT",      "LONG",
                                                "ULONG",  "LONGLONG", "ULONGLONG", "FLOAT",
                                                "DOUBLE", "BOOL",     "STRING"};

// Rows are the kinds to convert from, columns the kinds to convert to, both in the order of
// VariantType.
constexpr bool CONVERTIBLE[TYPE_COUNT * TYPE_COUNT] = {
    // clang-format off
    1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1,  // NONE
    0, 1, 0, 1, 0, 1, 0, 1, 1, 1, 1,  // INT
    0, 0, 1, 0, 1, 0, 1, 1, 1, 1, 1,  // UINT
    0, 0, 0, 1, 0, 1, 0, 1, 1, 1, 1,  // LONG
    0, 0, 0, 0, 1, 0, 1, 1, 1, 1, 1,  // ULONG
    0, 0, 0, 0, 0, 1, 0, 0, 1, 1, 1,  // LONGLONG
    0, 0, 0, 0, 0, 0, 1, 0, 1, 1, 1,  // ULONGLONG
    0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1,  // FLOAT
    0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1,  // DOUBLE
    0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,  // BOOL
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1,  // STRING
    // clang-format on
};

// Room for any text form of a number; longer ones are cut.
constexpr std::size_t TEXT_SIZE = 256;

std::string toSixDecimals(double value)
{
    char digits[TEXT_SIZE];
    // The same digits in a quarter of the time, where numbers are rounded to the nearest and the
    // locale's decimal point is a point.
    if (std::fegetround() == FE_TONEAREST && std::strcmp(nl_langinfo(RADIXCHAR), ".") == 0) {
        const std::to_chars_result end =
            std::to_chars(digits, digits + sizeof digits - 1, value, std::chars_format::fixed, 6);
        if (end.ec == std::errc()) {
            return std::string(digits, end.ptr);
        }
    }
    const int length = std::snprintf(digits, sizeof digits, "%f", value);
    return std::string(digits, std::min(static_cast<std::size_t>(length), sizeof digits - 1));
}

/** Whether nothing but blanks is left. */
bool isBlank(const char* rest)
{
    return rest[std::strspn(rest, " \t\n\v\f\r")] == '\0';
}

/**
 * Reads a text with a function of the C library's family of strtol(), and tells whether there was a
 * number that fits, and nothing else.
 */
template <typename Wide, typename Number>
bool parse(const std::string& text, Wide (*read)(const char*, char**), Number& number)
{
    if (text.find('\0') != std::string::npos) {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    const Wide wide = read(text.c_str(), &end);
    number = static_cast<Number>(wide);
    if (end == text.c_str() || !isBlank(end)) {
        return false;
    }
    if constexpr (std::is_floating_point_v<Number>) {
        return errno != ERANGE || !std::isinf(number);  // what is nearly 0 is out of range, too
    } else {
        return errno != ERANGE && static_cast<Wide>(number) == wide;
    }
}

long long readSigned(const char* text, char** end)
{
    return std::strtoll(text, end, 10);
}

/** A number with a minus sign doesn't fit, where strtoull() would wrap. */
unsigned long long readUnsigned(const char* text, char** end)
{
    const unsigned long long number = std::strtoull(text, end, 10);
    if (number != 0 && std::memchr(text, '-', static_cast<std::size_t>(*end - text)) != nullptr) {
        errno = ERANGE;
    }
    return number;
}

}  // namespace

// What follows logs for the constructors, which are inline.

void Variant::__logLoss(long value) noexcept
{
    OX_ERROR_AS("Variant", "Invalid value (%ld) for LONG", value);
}

void Variant::__logLoss(unsigned long value) noexcept
{
    OX_ERROR_AS("Variant", "Invalid value (%lu) for ULONG", value);
}

std::string Variant::getTypeName() const
{
    const unsigned int type = static_cast<unsigned int>(__type);
    return type < TYPE_COUNT ? TYPE_NAMES[type] : "";
}

bool Variant::isConvertible(VariantType target) const noexcept
{
    const unsigned int index =
        static_cast<unsigned int>(__type) * TYPE_COUNT + static_cast<unsigned int>(target);
    return index < TYPE_COUNT * TYPE_COUNT && CONVERTIBLE[index];
}

int Variant::toInt() const
{
    if (!isConvertible(VARIANT_TYPE_INT)) {
        OX_ERROR("Invalid conversion (%d) to INT", __type);
        return 0;
    }
    return __type == VARIANT_TYPE_BOOL ? __number.asBool : __number.asInt;
}

unsigned int Variant::toUInt() const
{
    if (!isConvertible(VARIANT_TYPE_UINT)) {
        OX_ERROR("Invalid conversion (%d) to UINT", __type);
        return 0;
    }
    return __type == VARIANT_TYPE_BOOL ? __number.asBool : __number.asUInt;
}

long Variant::toLong() const
{
    if (!isConvertible(VARIANT_TYPE_LONG)) {
        OX_ERROR("Invalid conversion (%d) to LONG", __type);
        return 0;
    }
    return __type == VARIANT_TYPE_BOOL ? __number.asBool : __number.asInt;
}

unsigned long Variant::toULong() const
{
    if (!isConvertible(VARIANT_TYPE_ULONG)) {
        OX_ERROR("Invalid conversion (%d) to ULONG", __type);
        return 0;
    }
    return __type == VARIANT_TYPE_BOOL ? __number.asBool : __number.asUInt;
}

long long Variant::toLongLong() const
{
    if (!isConvertible(VARIANT_TYPE_LONGLONG)) {
        OX_ERROR("Invalid conversion (%d) to LONGLONG", __type);
        return 0;
    }
    switch (__type) {
        case VARIANT_TYPE_BOOL:
            return __number.asBool;
        case VARIANT_TYPE_LONGLONG:
            return __number.asLongLong;
        default:
            return __number.asInt;
    }
}

unsigned long long Variant::toULongLong() const
{
    if (!isConvertible(VARIANT_TYPE_ULONGLONG)) {
        OX_ERROR("Invalid conversion (%d) to ULONGLONG", __type);
        return 0;
    }
    switch (__type) {
        case VARIANT_TYPE_BOOL:
            return __number.asBool;
        case VARIANT_TYPE_ULONGLONG:
            return __number.asULongLong;
        default:
            return __number.asUInt;
    }
}

float Variant::toFloat() const
{
    if (!isConvertible(VARIANT_TYPE_FLOAT)) {
        OX_ERROR("Invalid conversion (%d) to FLOAT", __type);
        return 0.0f;
    }
    switch (__type) {
        case VARIANT_TYPE_BOOL:
            return __number.asBool ? 1.0f : 0.0f;
        case VARIANT_TYPE_FLOAT:
            return __number.asFloat;
        case VARIANT_TYPE_INT:
        case VARIANT_TYPE_LONG:
            return static_cast<float>(__number.asInt);
        default:
            return static_cast<float>(__number.asUInt);
    }
}

double Variant::toDouble() const
{
    if (!isConvertible(VARIANT_TYPE_DOUBLE)) {
        OX_ERROR("Invalid conversion (%d) to Double", __type);
        return 0.0;
    }
    switch (__type) {
        case VARIANT_TYPE_BOOL:
            return __number.asBool ? 1.0 : 0.0;
        case VARIANT_TYPE_DOUBLE:
            return __number.asDouble;
        case VARIANT_TYPE_FLOAT:
            return static_cast<double>(__number.asFloat);
        case VARIANT_TYPE_LONGLONG:
            return static_cast<double>(__number.asLongLong);
        case VARIANT_TYPE_ULONGLONG:
            return static_cast<double>(__number.asULongLong);
        case VARIANT_TYPE_INT:
        case VARIANT_TYPE_LONG:
            return __number.asInt;
        default:
            return __number.asUInt;
    }
}

bool Variant::toBool() const
{
    if (!isConvertible(VARIANT_TYPE_BOOL)) {
        OX_ERROR("Invalid conversion (%d) to BOOL", __type);
        return false;
    }
    switch (__type) {
        case VARIANT_TYPE_BOOL:
            return __number.asBool;
        case VARIANT_TYPE_DOUBLE:
            return __number.asDouble != 0.0;
        case VARIANT_TYPE_FLOAT:
            return __number.asFloat != 0.0f;
        case VARIANT_TYPE_LONGLONG:
            return __number.asLongLong != 0;
        case VARIANT_TYPE_ULONGLONG:
            return __number.asULongLong != 0;
        case VARIANT_TYPE_INT:
        case VARIANT_TYPE_LONG:
            return __number.asInt != 0;
        default:
            return __number.asUInt != 0;
    }
}

std::string Variant::toString() const
{
    if (!isConvertible(VARIANT_TYPE_STRING)) {
        OX_ERROR("Invalid conversion (%d) to STRING", __type);
        return std::string();
    }
    switch (__type) {
        case VARIANT_TYPE_INT:
        case VARIANT_TYPE_LONG:
            return std::to_string(__number.asInt);
        case VARIANT_TYPE_UINT:
        case VARIANT_TYPE_ULONG:
            return std::to_string(__number.asUInt);
        case VARIANT_TYPE_LONGLONG:
            return std::to_string(__number.asLongLong);
        case VARIANT_TYPE_ULONGLONG:
            return std::to_string(__number.asULongLong);
        case VARIANT_TYPE_FLOAT:
            return toSixDecimals(static_cast<double>(__number.asFloat));
        case VARIANT_TYPE_DOUBLE:
            return toSixDecimals(__number.asDouble);
        case VARIANT_TYPE_BOOL:
            return __number.asBool ? "1" : "0";
        case VARIANT_TYPE_STRING:
            return __text;
        default:
            return "null";
    }
}

bool Variant::__parse(const std::string& text, int& number)
{
    return parse(text, readSigned, number);
}

bool Variant::__parse(const std::string& text, unsigned int& number)
{
    return parse(text, readUnsigned, number);
}

// A long has 32 bits, here as in every Variant.
bool Variant::__parse(const std::string& text, long& number)
{
    int narrow = 0;
    const bool isNumber = __parse(text, narrow);
    number = narrow;
    return isNumber;
}

bool Variant::__parse(const std::string& text, unsigned long& number)
{
    unsigned int narrow = 0;
    const bool isNumber = __parse(text, narrow);
    number = narrow;
    return isNumber;
}

bool Variant::__parse(const std::string& text, long long& number)
{
    return parse(text, readSigned, number);
}

bool Variant::__parse(const std::string& text, unsigned long long& number)
{
    return parse(text, readUnsigned, number);
}

bool Variant::__parse(const std::string& text, float& number)
{
    return parse(text, std::strtof, number);
}

bool Variant::__parse(const std::string& text, double& number)
{
    return parse(text, std::strtod, number);
}

bool Variant::__parse(const std::string& text, bool& value)
{
    value = text == "1" || text == "true" || text == "TRUE";
    return value || text == "0" || text == "false" || text == "FALSE";
}

int Variant::toRaw(void* destination) const
{
    if (destination == nullptr) {
        OX_ERROR("destination is nullptr");
        return STATUS_FAILURE;
    }
    if (__type == VARIANT_TYPE_STRING) {
        // A text ends at its first NUL byte here, as it does for every reader of the bytes.
        std::memcpy(destination, __text.c_str(), std::strlen(__text.c_str()) + 1);
        return static_cast<int>(__text.length()) + 1;
    }

    const int size = __copyNumber(destination);
    if (size < 0) {
        OX_ERROR("Invalid type (%d).", __type);
    }
    return size;
}

int Variant::toRaw(void* destination, int size) const
{
    if (destination == nullptr) {
        OX_ERROR("destination is nullptr");
        return STATUS_FAILURE;
    }
    if (getValueSize() > size) {
        OX_ERROR("destination is nullptr");
        return STATUS_FAILURE;
    }
    if (__type == VARIANT_TYPE_STRING) {
        internal::copyText(destination, static_cast<std::size_t>(size), __text);
        return size;
    }

    const int copied = __copyNumber(destination);
    if (copied < 0) {
        OX_ERROR("Invalid type (%d).", __type);
    }
    return copied;
}

}  // namespace oxil
