#pragma once

#include <string>

#include "OxExport.h"

namespace oxil {

/**
 * Turns decimal text into numbers and truth values.
 *
 * Lenient, as the C library's conversions are: leading white space and a sign are accepted, what
 * follows the number is ignored ("12abc" is 12), text without a number is 0, and a number out of
 * range gives the limit of its type, an infinity for a floating one. Only an empty text is an
 * error: it gives 0 (or false) after logging "Invalid parameter." under the member's name. So 0
 * alone does not tell whether the text was empty, "0" or no number.
 *
 * Integers are read in base 10 only: "0x1F" is 0 and "010" is 10. For the numbers a text ends at
 * its first NUL; toBool() compares it whole.
 *
 * All members are static; they may be called from any thread.
 */
class OXIL_API NumberParser {
public:
    NumberParser() = delete;

    /** Reads an `int`, limited to 32 bits on every host: "3000000000" is 2147483647. */
    static int toInt(const std::string& text);

    /**
     * Reads an `unsigned int`, limited to 32 bits on every host: "5000000000" is 4294967295.
     *
     * A minus sign wraps ("-1" is 4294967295), as it does for the other unsigned members.
     */
    static unsigned int toUInt(const std::string& text);

    /** Reads a `long`, which has 32 bits on the device and 64 on a 64-bit host; see `strtol`. */
    static long toLong(const std::string& text);

    /** Reads an `unsigned long`, which has 32 bits on the device and 64 on a 64-bit host; see
     *  `strtoul`. */
    static unsigned long toULong(const std::string& text);

    /** Reads a `long long`; see `strtoll`. */
    static long long toLongLong(const std::string& text);

    /** Reads an `unsigned long long`; see `strtoull`. */
    static unsigned long long toULongLong(const std::string& text);

    /**
     * Reads a `float`: decimal, hexadecimal, "inf" or "nan"; see `strtof`.
     *
     * @note The decimal point is that of the process's locale (`LC_NUMERIC`).
     */
    static float toFloat(const std::string& text);

    /** Reads a `double`, as toFloat() does; see `strtod`. */
    static double toDouble(const std::string& text);

    /** True for "1", "true" and "TRUE", false for every other text: "True", "yes" and " 1" too. */
    static bool toBool(const std::string& text);
};

}  // namespace oxil
