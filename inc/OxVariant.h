#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "OxExport.h"

namespace oxil {

/**
 * The kinds of value that a Variant holds.
 *
 * The numbers are fixed: log messages show them, and serialized type lists store them, one byte
 * each.
 */
enum VariantType : std::int32_t {
    VARIANT_TYPE_NONE = 0,       ///< no value
    VARIANT_TYPE_INT = 1,        ///< signed 32-bit integer
    VARIANT_TYPE_UINT = 2,       ///< unsigned 32-bit integer
    VARIANT_TYPE_LONG = 3,       ///< signed `long` of the device: 32 bits
    VARIANT_TYPE_ULONG = 4,      ///< unsigned `long` of the device: 32 bits
    VARIANT_TYPE_LONGLONG = 5,   ///< signed 64-bit integer
    VARIANT_TYPE_ULONGLONG = 6,  ///< unsigned 64-bit integer
    VARIANT_TYPE_FLOAT = 7,      ///< IEEE 754 single
    VARIANT_TYPE_DOUBLE = 8,     ///< IEEE 754 double
    VARIANT_TYPE_BOOL = 9,       ///< one byte, 0 or 1
    VARIANT_TYPE_STRING = 10     ///< `std::string`, of any length and with any bytes
};

namespace internal {

// A table and no switch: the kinds of a record follow each other without a pattern.
inline constexpr std::int8_t NUMBER_SIZES[] = {-1, 4, 4, 4, 4, 8, 8, 4, 8, 1, -1};

}  // namespace internal

/**
 * One tagged value: nothing, a number of one of eight kinds, a boolean or a text.
 *
 * The kind is chosen at construction and changes only by assignment. Conversions are strict: what
 * isConvertible() refuses is logged at error priority and answered with a zero value. Integers
 * widen only within their signedness and never narrow; text is never parsed (see NumberParser for
 * that).
 *
 * A host where `long` has 64 bits holds VARIANT_TYPE_LONG and VARIANT_TYPE_ULONG in 32 bits, as the
 * device does, and logs a value that gets lost that way. Mind `std::int64_t` and `std::size_t`,
 * which are a `long` on such a host and a `long long` and an `unsigned int` on the device. An
 * application that defines OXIL_REFUSE_LONG before it includes any header has the compiler find
 * every `long` and `unsigned long` that becomes a Variant.
 *
 * @par Threads
 * No shared state, no locks. One instance belongs to one thread at a time.
 *
 * @par Exceptions
 * None of its own. Copying or making a text may throw `std::bad_alloc`; what was to be replaced is
 * then as it was.
 */
class OXIL_API Variant {
    template <typename T>
    static constexpr bool __isRefused()
    {
        return (std::is_pointer_v<T> && !std::is_convertible_v<T, const char*>) ||
               std::is_member_pointer_v<T>;
    }

    template <typename T>
    static constexpr bool __isLong()
    {
        return std::is_same_v<T, long> || std::is_same_v<T, unsigned long>;
    }

    /** Texts are looked at where they are. */
    template <typename T>
    using __Held = std::conditional_t<std::is_same_v<T, std::string>, const std::string&, T>;

public:
    /** Makes a value of kind VARIANT_TYPE_NONE. */
    Variant() noexcept : __type(VARIANT_TYPE_NONE) {}

    /** Makes a value of kind VARIANT_TYPE_INT. */
    Variant(int value) noexcept : __type(VARIANT_TYPE_INT), __number(value) {}

    /** Makes a value of kind VARIANT_TYPE_UINT. */
    Variant(unsigned int value) noexcept : __type(VARIANT_TYPE_UINT), __number(value) {}

#ifndef OXIL_REFUSE_LONG
    /**
     * Makes a value of kind VARIANT_TYPE_LONG.
     *
     * @param value  its low 32 bits are kept. Where `long` has 64 bits, a value that does not fit
     *               is logged as "Invalid value (%ld) for LONG".
     */
    Variant(long value) noexcept
        : __type(VARIANT_TYPE_LONG), __number(static_cast<std::int32_t>(value))
    {
        if (__number.asInt != value) {
            __logLoss(value);
        }
    }

    /** The same for VARIANT_TYPE_ULONG, with "Invalid value (%lu) for ULONG". */
    Variant(unsigned long value) noexcept
        : __type(VARIANT_TYPE_ULONG), __number(static_cast<std::uint32_t>(value))
    {
        if (__number.asUInt != value) {
            __logLoss(value);
        }
    }
#else
    /** Refused, as the application has asked for. */
    template <typename Long, std::enable_if_t<__isLong<Long>(), int> = 0>
    Variant(Long)
    {
        static_assert(!__isLong<Long>(),
                      "a long has 32 bits on the device and 64 on many hosts: "
                      "write int or long long, unsigned or not");
    }
#endif

    /** Makes a value of kind VARIANT_TYPE_LONGLONG. */
    Variant(long long value) noexcept : __type(VARIANT_TYPE_LONGLONG), __number(value) {}

    /** Makes a value of kind VARIANT_TYPE_ULONGLONG. */
    Variant(unsigned long long value) noexcept : __type(VARIANT_TYPE_ULONGLONG), __number(value) {}

    /** Makes a value of kind VARIANT_TYPE_FLOAT. */
    Variant(float value) noexcept : __type(VARIANT_TYPE_FLOAT), __number(value) {}

    /** Makes a value of kind VARIANT_TYPE_DOUBLE. */
    Variant(double value) noexcept : __type(VARIANT_TYPE_DOUBLE), __number(value) {}

    /** Makes a value of kind VARIANT_TYPE_BOOL. */
    Variant(bool value) noexcept : __type(VARIANT_TYPE_BOOL), __number(value) {}

    /** Makes a value of kind VARIANT_TYPE_STRING with a copy of @p text, NUL bytes included. */
    Variant(const std::string& text) : __type(VARIANT_TYPE_STRING), __text(text) {}

    /** The same, taking over @p text. */
    Variant(std::string&& text) noexcept : __type(VARIANT_TYPE_STRING), __text(std::move(text)) {}

    /**
     * Makes a value of kind VARIANT_TYPE_STRING from a NUL-terminated text.
     *
     * @throws std::logic_error  if @p text is null (from `std::string`)
     */
    Variant(const char* text) : Variant(std::string(text)) {}

    /** Refused: any other pointer would silently become a boolean. */
    template <typename Pointer, typename = std::enable_if_t<__isRefused<Pointer>()>>
    Variant(Pointer) = delete;

    /** Copies kind and value. */
    Variant(const Variant& other)
        : __type(other.__type),
          __number(other.__number),
          __text(__type == VARIANT_TYPE_STRING ? other.__text : std::string())
    {
    }

    /** Takes over kind and value. @p other keeps its kind; what text it holds is unspecified. */
    Variant(Variant&& other) noexcept
        : __type(other.__type),
          __number(other.__number),
          __text(__type == VARIANT_TYPE_STRING ? std::move(other.__text) : std::string())
    {
    }

    /** Releases the text. */
    ~Variant() = default;

    /** Replaces kind and value; assigning an object to itself does nothing. */
    Variant& operator=(const Variant& other)
    {
        if (this != &other) {
            __copy(other);
        }
        return *this;
    }

    /** Takes over kind and value. @p other keeps its kind; what text it holds is unspecified. */
    Variant& operator=(Variant&& other) noexcept
    {
        if (this != &other) {
            __type = other.__type;
            if (__type == VARIANT_TYPE_STRING) {
                __text = std::move(other.__text);
            } else {
                __number = other.__number;
            }
        }
        return *this;
    }

    /** The copy step of assignment; meant for the class itself. */
    void __copy(const Variant& other)
    {
        // The kind follows the text, which may not fit into memory.
        if (other.__type == VARIANT_TYPE_STRING) {
            __text = other.__text;
        } else {
            __number = other.__number;
        }
        __type = other.__type;
    }

    /** The kind. */
    VariantType getType() const noexcept
    {
        return __type;
    }

    /** The kind's name: "NONE", "INT", "UINT", "LONG", "ULONG", "LONGLONG", "ULONGLONG", "FLOAT",
     *  "DOUBLE", "BOOL" or "STRING". */
    std::string getTypeName() const;

    /** Whether the kind is VARIANT_TYPE_NONE. A text of length 0 is not empty in this sense. */
    bool empty() const noexcept
    {
        return __type == VARIANT_TYPE_NONE;
    }

    /**
     * Whether the conversion function for @p target will carry out the conversion.
     *
     * | from       | to                                                                  |
     * |------------|---------------------------------------------------------------------|
     * | NONE       | NONE, STRING                                                        |
     * | INT        | INT, LONG, LONGLONG, FLOAT, DOUBLE, BOOL, STRING                    |
     * | UINT       | UINT, ULONG, ULONGLONG, FLOAT, DOUBLE, BOOL, STRING                 |
     * | LONG       | LONG, LONGLONG, FLOAT, DOUBLE, BOOL, STRING                         |
     * | ULONG      | ULONG, ULONGLONG, FLOAT, DOUBLE, BOOL, STRING                       |
     * | LONGLONG   | LONGLONG, DOUBLE, BOOL, STRING                                      |
     * | ULONGLONG  | ULONGLONG, DOUBLE, BOOL, STRING                                     |
     * | FLOAT      | FLOAT, DOUBLE, BOOL, STRING                                         |
     * | DOUBLE     | DOUBLE, BOOL, STRING                                                |
     * | BOOL       | everything but NONE                                                 |
     * | STRING     | STRING                                                              |
     *
     * @param target  one of the eleven kinds; the answer for any other number means nothing
     */
    bool isConvertible(VariantType target) const noexcept;

    /** Bytes of the value: 4, 8 or 1 by kind (LONG and ULONG take 4 everywhere), the length of a
     *  text without terminator, -1 for VARIANT_TYPE_NONE. */
    int getValueSize() const noexcept
    {
        return __type == VARIANT_TYPE_STRING ? static_cast<int>(__text.length())
                                             : __getNumberSize(__type);
    }

    /** @return the value of INT, 0 or 1 of BOOL; else 0 after logging "Invalid conversion (%d) to
     *  INT" with the kind's number */
    int toInt() const;

    /** @return the value of UINT, 0 or 1 of BOOL; else 0 after logging "Invalid conversion (%d) to
     *  UINT" with the kind's number */
    unsigned int toUInt() const;

    /** @return the value of INT or LONG, 0 or 1 of BOOL; else 0 after logging "Invalid conversion
     *  (%d) to LONG" with the kind's number */
    long toLong() const;

    /** @return the value of UINT or ULONG, 0 or 1 of BOOL; else 0 after logging "Invalid conversion
     *  (%d) to ULONG" with the kind's number */
    unsigned long toULong() const;

    /** @return the value of INT, LONG or LONGLONG, 0 or 1 of BOOL; else 0 after logging "Invalid
     *  conversion (%d) to LONGLONG" with the kind's number */
    long long toLongLong() const;

    /** @return the value of UINT, ULONG or ULONGLONG, 0 or 1 of BOOL; else 0 after logging "Invalid
     *  conversion (%d) to ULONGLONG" with the kind's number */
    unsigned long long toULongLong() const;

    /** @return the value of INT, UINT, LONG or ULONG rounded to single precision, of FLOAT as it
     *  is, 0 or 1 of BOOL; else 0 after logging "Invalid conversion (%d) to FLOAT" with the kind's
     *  number (64-bit integers and DOUBLE are refused) */
    float toFloat() const;

    /** @return the value of any number (64-bit integers rounded to double precision), 0 or 1 of
     *  BOOL; else 0 after logging "Invalid conversion (%d) to Double" with the kind's number */
    double toDouble() const;

    /** @return whether the number is not zero (so a NaN is true), or the boolean itself; false
     *  after logging "Invalid conversion (%d) to BOOL" with the kind's number for NONE and STRING
     */
    bool toBool() const;

    /**
     * The value as text; every kind has one.
     *
     * NONE gives "null", integers their decimal digits, BOOL "1" or "0", FLOAT and DOUBLE six
     * decimals as `printf("%f")` writes them, STRING a copy of the text, whatever its length.
     *
     * The decimal point is that of the process's `LC_NUMERIC`, the last digit is rounded as the
     * thread's floating-point environment says, and what is longer than 255 characters is cut.
     *
     * @note Six decimals are few for a small number: 1e-9 becomes "0.000000".
     */
    std::string toString() const;

    /**
     * Writes the value's bytes in host order, without checking the space.
     *
     * A number or boolean takes getValueSize() bytes. A text is written up to its first NUL byte,
     * with a terminating NUL behind it.
     *
     * @param destination  getValueSize() bytes, one more for a text; any alignment
     * @return the bytes taken (for a text its length + 1); STATUS_FAILURE after logging
     *         "destination is nullptr", or "Invalid type (%d)." for VARIANT_TYPE_NONE
     */
    int toRaw(void* destination) const;

    /**
     * Writes the value's bytes in host order into at most @p size bytes.
     *
     * A text is cut to @p size - 1 characters and always terminated; because a buffer of exactly
     * the text's length is accepted, such a buffer loses the last character.
     *
     * @param destination  any alignment
     * @param size         bytes available
     * @return 4, 8 or 1 for a number or boolean; @p size itself for a text, however short it is;
     *         STATUS_FAILURE after logging "destination is nullptr", deliberately also when
     *         @p size is less than getValueSize(), or "Invalid type (%d)." for VARIANT_TYPE_NONE
     */
    int toRaw(void* destination, int size) const;

    /**
     * Whether the value is of the kind that a Variant made of a T has: `value.is<int>()`.
     *
     * T is `int`, `unsigned int`, `long`, `unsigned long`, `long long`, `unsigned long long`,
     * `float`, `double`, `bool` or `std::string`, here and below.
     */
    template <typename T>
    bool is() const noexcept
    {
        return __type == __kindOf<T>();
    }

    /**
     * The value, if it is of the kind of T, as it is: `value.get<int>()`. Nothing is converted, and
     * nothing is logged.
     *
     * @return the value, a text as a reference that lives until this object changes; 0, false or an
     *         empty text if the value is of another kind
     */
    template <typename T>
    __Held<T> get() const noexcept
    {
        if constexpr (std::is_same_v<T, std::string>) {
            static const std::string NONE;
            return is<T>() ? __text : NONE;
        } else {
            return is<T>() ? __get<T>() : T();
        }
    }

    /**
     * The value as a T, if there is a way: `std::optional<int> level = value.convert<int>()`.
     *
     * Numbers, booleans and text are what the `to...` members make of them, see isConvertible(). A
     * text becomes a number as NumberParser reads it, if it is a number and nothing else, blanks
     * around it aside, and fits; "1", "true", "TRUE", "0", "false" and "FALSE" become booleans.
     *
     * @return the value; nothing, without a log line, if it can't be converted
     */
    template <typename T>
    std::optional<T> convert() const
    {
        if (isConvertible(__kindOf<T>())) {
            return __to<T>();
        }
        if constexpr (!std::is_same_v<T, std::string>) {
            T number = T();
            if (__type == VARIANT_TYPE_STRING && __parse(__text, number)) {
                return number;
            }
        }
        return std::nullopt;
    }

    /** The kind of a T; meant for the library itself. */
    template <typename T>
    static constexpr VariantType __kindOf() noexcept
    {
        if constexpr (std::is_same_v<T, int>) {
            return VARIANT_TYPE_INT;
        } else if constexpr (std::is_same_v<T, unsigned int>) {
            return VARIANT_TYPE_UINT;
        } else if constexpr (std::is_same_v<T, long>) {
            return VARIANT_TYPE_LONG;
        } else if constexpr (std::is_same_v<T, unsigned long>) {
            return VARIANT_TYPE_ULONG;
        } else if constexpr (std::is_same_v<T, long long>) {
            return VARIANT_TYPE_LONGLONG;
        } else if constexpr (std::is_same_v<T, unsigned long long>) {
            return VARIANT_TYPE_ULONGLONG;
        } else if constexpr (std::is_same_v<T, float>) {
            return VARIANT_TYPE_FLOAT;
        } else if constexpr (std::is_same_v<T, double>) {
            return VARIANT_TYPE_DOUBLE;
        } else if constexpr (std::is_same_v<T, bool>) {
            return VARIANT_TYPE_BOOL;
        } else {
            static_assert(std::is_same_v<T, std::string>,
                          "a value is an int, unsigned int, long, unsigned long, long long, "
                          "unsigned long long, float, double, bool or std::string");
            return VARIANT_TYPE_STRING;
        }
    }

    /** The value of the `to...` member for T; meant for the library itself. */
    template <typename T>
    T __to() const
    {
        if constexpr (std::is_same_v<T, int>) {
            return toInt();
        } else if constexpr (std::is_same_v<T, unsigned int>) {
            return toUInt();
        } else if constexpr (std::is_same_v<T, long>) {
            return toLong();
        } else if constexpr (std::is_same_v<T, unsigned long>) {
            return toULong();
        } else if constexpr (std::is_same_v<T, long long>) {
            return toLongLong();
        } else if constexpr (std::is_same_v<T, unsigned long long>) {
            return toULongLong();
        } else if constexpr (std::is_same_v<T, float>) {
            return toFloat();
        } else if constexpr (std::is_same_v<T, double>) {
            return toDouble();
        } else if constexpr (std::is_same_v<T, bool>) {
            return toBool();
        } else {
            return toString();
        }
    }

    /** Bytes of a number or boolean of this kind, -1 for any other kind. */
    static constexpr int __getNumberSize(VariantType type) noexcept
    {
        return type >= VARIANT_TYPE_NONE && type <= VARIANT_TYPE_STRING
                   ? internal::NUMBER_SIZES[type]
                   : -1;
    }

    /** Tells the constructor below from the others. */
    struct __Slice {};

    /** Makes a value of kind VARIANT_TYPE_STRING in its place; meant for the library itself. A
     *  template, because `{}` would do for the tag of a plain one. */
    template <typename Tag, typename = std::enable_if_t<std::is_same_v<Tag, __Slice>>>
    Variant(Tag, const char* text, std::size_t length)
        : __type(VARIANT_TYPE_STRING), __text(text, length)
    {
    }

    /** The text of a VARIANT_TYPE_STRING, without a copy; meant for the library itself. */
    const std::string& __getText() const noexcept
    {
        return __text;
    }

    /** Copies the bytes of a number or boolean and returns how many they are, or -1 for any other
     *  kind; meant for the library itself. */
    int __copyNumber(void* destination) const noexcept
    {
        // All members of the union start where it starts.
        switch (__getNumberSize(__type)) {
            case 4:
                std::memcpy(destination, &__number, 4);
                return 4;
            case 8:
                std::memcpy(destination, &__number, 8);
                return 8;
            case 1:
                std::memcpy(destination, &__number, 1);
                return 1;
            default:
                return -1;
        }
    }

    friend bool operator==(const Variant& left, const Variant& right) noexcept;

private:
    [[gnu::cold]] static void __logLoss(long value) noexcept;
    [[gnu::cold]] static void __logLoss(unsigned long value) noexcept;

    /** What the kind says that there is. */
    template <typename T>
    T __get() const noexcept
    {
        if constexpr (std::is_same_v<T, int> || std::is_same_v<T, long>) {
            return __number.asInt;
        } else if constexpr (std::is_same_v<T, unsigned int> || std::is_same_v<T, unsigned long>) {
            return __number.asUInt;
        } else if constexpr (std::is_same_v<T, long long>) {
            return __number.asLongLong;
        } else if constexpr (std::is_same_v<T, unsigned long long>) {
            return __number.asULongLong;
        } else if constexpr (std::is_same_v<T, float>) {
            return __number.asFloat;
        } else if constexpr (std::is_same_v<T, double>) {
            return __number.asDouble;
        } else {
            return __number.asBool;
        }
    }

    // Texts that are numbers and nothing else, blanks around them aside.
    static bool __parse(const std::string& text, int& number);
    static bool __parse(const std::string& text, unsigned int& number);
    static bool __parse(const std::string& text, long& number);
    static bool __parse(const std::string& text, unsigned long& number);
    static bool __parse(const std::string& text, long long& number);
    static bool __parse(const std::string& text, unsigned long long& number);
    static bool __parse(const std::string& text, float& number);
    static bool __parse(const std::string& text, double& number);
    static bool __parse(const std::string& text, bool& value);

    // One member is in use, chosen by the kind. LONG and ULONG share those of INT and UINT.
    union Number {
        Number() noexcept : asULongLong(0) {}
        Number(std::int32_t value) noexcept : asInt(value) {}
        Number(std::uint32_t value) noexcept : asUInt(value) {}
        Number(long long value) noexcept : asLongLong(value) {}
        Number(unsigned long long value) noexcept : asULongLong(value) {}
        Number(float value) noexcept : asFloat(value) {}
        Number(double value) noexcept : asDouble(value) {}
        Number(bool value) noexcept : asBool(value) {}

        std::int32_t asInt;
        std::uint32_t asUInt;
        long long asLongLong;
        unsigned long long asULongLong;
        float asFloat;
        double asDouble;
        bool asBool;
    };

    VariantType __type;
    Number __number;
    std::string __text;  // of no meaning unless the kind is STRING
};

/**
 * Whether both are of the same kind and hold the same value.
 *
 * Never converts: `Variant(1)`, `Variant(1L)` and `Variant(1u)` all differ. Floating point compares
 * as IEEE 754 does (NaN differs from itself, 0.0 equals -0.0), texts byte by byte, NUL bytes
 * included. Two values of kind NONE are equal.
 */
inline bool operator==(const Variant& left, const Variant& right) noexcept
{
    if (left.__type != right.__type) {
        return false;
    }
    switch (left.__type) {
        case VARIANT_TYPE_NONE:
            return true;
        case VARIANT_TYPE_INT:
        case VARIANT_TYPE_LONG:
            return left.__number.asInt == right.__number.asInt;
        case VARIANT_TYPE_UINT:
        case VARIANT_TYPE_ULONG:
            return left.__number.asUInt == right.__number.asUInt;
        case VARIANT_TYPE_LONGLONG:
            return left.__number.asLongLong == right.__number.asLongLong;
        case VARIANT_TYPE_ULONGLONG:
            return left.__number.asULongLong == right.__number.asULongLong;
        case VARIANT_TYPE_FLOAT:
            return left.__number.asFloat == right.__number.asFloat;
        case VARIANT_TYPE_DOUBLE:
            return left.__number.asDouble == right.__number.asDouble;
        case VARIANT_TYPE_BOOL:
            return left.__number.asBool == right.__number.asBool;
        case VARIANT_TYPE_STRING:
            break;
    }
    return left.__text == right.__text;
}

/** The negation of `operator==`. */
inline bool operator!=(const Variant& left, const Variant& right) noexcept
{
    return !(left == right);
}

}  // namespace oxil
