#pragma once

#include <charconv>
#include <ostream>
#include <string>

#include "OxKeyValue.h"
#include "OxKeyValues.h"
#include "OxVariant.h"

/**
 * @file
 * Values, entries and records as text for people, for those who include this header: `Oxil.h`
 * doesn't.
 *
 * `{"name": "hall", "brightness": 80, "on": true}` shows what there is as C++ would write it, so
 * that values of different kinds look different: `80`, `80u`, `80L`, `80uL`, `80LL`, `80uLL`,
 * `0.5f`, `0.5`, `true`, `"80"`, and `NONE` for no value. Floating-point numbers have as few digits
 * as tell them from others, whatever the locale; in texts `"`, `\` and bytes below 32 are escaped.
 * What a stream is set to (a width, a base) counts for nothing here.
 */

namespace oxil {

namespace internal {

/** The shortest text that is read as the same number, with a point if it would look like an
 *  integer. */
template <typename Float>
std::string toShortest(Float number)
{
    char digits[32];
    std::string text(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
    if (text.find_first_not_of("-0123456789") == std::string::npos) {
        text += ".0";
    }
    return text;
}

inline std::string toQuoted(const std::string& text)
{
    constexpr char HEX[] = "0123456789abcdef";
    std::string quoted = "\"";
    for (const char character : text) {
        const auto code = static_cast<unsigned char>(character);
        if (character == '"' || character == '\\') {
            quoted += '\\';
            quoted += character;
        } else if (character == '\n') {
            quoted += "\\n";
        } else if (character == '\t') {
            quoted += "\\t";
        } else if (code < 0x20) {
            quoted += "\\x";
            quoted += HEX[code >> 4];
            quoted += HEX[code & 0xF];
        } else {
            quoted += character;
        }
    }
    return quoted + '"';
}

inline std::string toLiteral(const Variant& value)
{
    switch (value.getType()) {
        case VARIANT_TYPE_INT:
            return value.toString();
        case VARIANT_TYPE_UINT:
            return value.toString() + "u";
        case VARIANT_TYPE_LONG:
            return value.toString() + "L";
        case VARIANT_TYPE_ULONG:
            return value.toString() + "uL";
        case VARIANT_TYPE_LONGLONG:
            return value.toString() + "LL";
        case VARIANT_TYPE_ULONGLONG:
            return value.toString() + "uLL";
        case VARIANT_TYPE_FLOAT:
            return toShortest(value.get<float>()) + "f";
        case VARIANT_TYPE_DOUBLE:
            return toShortest(value.get<double>());
        case VARIANT_TYPE_BOOL:
            return value.get<bool>() ? "true" : "false";
        case VARIANT_TYPE_STRING:
            return toQuoted(value.get<std::string>());
        case VARIANT_TYPE_NONE:
            break;
    }
    return "NONE";
}

}  // namespace internal

/** The value, as above. */
inline std::ostream& operator<<(std::ostream& output, const Variant& value)
{
    const std::string text = internal::toLiteral(value);
    return output.write(text.data(), static_cast<std::streamsize>(text.size()));
}

/** `"key": value` */
inline std::ostream& operator<<(std::ostream& output, const KeyValue& entry)
{
    const auto& [key, value] = entry;
    const std::string text = internal::toQuoted(key) + ": " + internal::toLiteral(value);
    return output.write(text.data(), static_cast<std::streamsize>(text.size()));
}

/** `{entry, entry}` */
inline std::ostream& operator<<(std::ostream& output, const KeyValues& record)
{
    const char* separator = "{";
    for (const KeyValue& entry : record) {
        output.write(separator, *separator == '{' ? 1 : 2) << entry;
        separator = ", ";
    }
    return record.getCount() == 0 ? output.write("{}", 2) : output.write("}", 1);
}

}  // namespace oxil
