#pragma once

#include <cstddef>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "OxExport.h"
#include "OxVariant.h"

namespace oxil {

class SerializedData;

/**
 * One named value: a text key and a Variant.
 *
 * The setters refuse an empty key; the constructors take any key, the empty one included.
 *
 * In a SerializedData an entry takes two places of one block: the key as a text slot of 256 bytes,
 * then the value with the default size of its kind (256 bytes for a text).
 *
 * @par Threads
 * No shared state, no locks. One instance belongs to one thread at a time.
 *
 * @par Exceptions
 * None of its own. Copying texts may throw `std::bad_alloc`; what was to be replaced is then as it
 * was.
 */
class OXIL_API KeyValue {
    template <typename T>
    static constexpr bool __isSource()
    {
        return std::is_same_v<T, std::string> || std::is_same_v<T, Variant> ||
               std::is_same_v<T, SerializedData>;
    }

    template <typename T>
    static constexpr bool __isCText()
    {
        return std::is_pointer_v<T> && std::is_convertible_v<T, const char*>;
    }

public:
    /** Makes an entry with an empty key and a value of kind VARIANT_TYPE_NONE. */
    KeyValue() noexcept = default;

    /** Makes an entry with this key, unchecked, and a value of kind VARIANT_TYPE_NONE. */
    explicit KeyValue(const std::string& key) : __key(key) {}

    /**
     * The same for a NUL-terminated key: `KeyValue("name")`.
     *
     * @throws std::logic_error  if @p key is null (from `std::string`)
     */
    template <typename Key, std::enable_if_t<__isCText<Key>(), int> = 0>
    explicit KeyValue(Key key) : __key(key)
    {
    }

    /** Makes an entry with an empty key and a copy of @p value. */
    explicit KeyValue(const Variant& value) : __value(value) {}

    /** Makes an entry with copies of both; the key is not checked. */
    KeyValue(const std::string& key, const Variant& value) : __key(key), __value(value) {}

    /** The same, taking over both. */
    KeyValue(std::string&& key, Variant&& value) noexcept
        : __key(std::move(key)), __value(std::move(value))
    {
    }

    /**
     * Makes the entry that block 0 of @p data holds, as deserialize() does.
     *
     * A failure is logged and otherwise lost: key and value then stay empty.
     */
    explicit KeyValue(const SerializedData& data);

    /**
     * The same as the explicit constructor for @p source, a `std::string`, a Variant or a
     * SerializedData, so that none need be named: `KeyValue entry = data;`,
     * `record.isIncluded(key)`.
     *
     * For these very types only. What merely converts to one of them may be meant otherwise:
     * `Serializer::serialize({&record}, data)` packs a list of records.
     */
    template <typename Source, std::enable_if_t<__isSource<Source>(), int> = 0>
    KeyValue(const Source& source) : KeyValue(source)
    {
    }

    /** Copies key and value. */
    KeyValue(const KeyValue& other) = default;

    /** Takes over key and value; what @p other holds then is valid but unspecified. */
    KeyValue(KeyValue&& other) noexcept = default;

    /** Releases both. */
    ~KeyValue() = default;

    /** Copies key and value; assigning an object to itself does nothing. */
    KeyValue& operator=(const KeyValue& other)
    {
        if (this != &other) {
            *this = KeyValue(other);
        }
        return *this;
    }

    /** Takes over key and value; what @p other holds then is valid but unspecified. */
    KeyValue& operator=(KeyValue&& other) noexcept
    {
        if (this != &other) {
            __key = std::move(other.__key);
            __value = std::move(other.__value);
        }
        return *this;
    }

    /** Whether the keys are the same bytes and the values are of the same kind and equal. */
    bool operator==(const KeyValue& other) const noexcept
    {
        return __key == other.__key && __value == other.__value;
    }

    /** The negation of `operator==`. */
    bool operator!=(const KeyValue& other) const noexcept { return !(*this == other); }

    /**
     * Replaces key and value.
     *
     * An empty key is refused: "Invalid parameter" is logged, and the value stays as well.
     */
    void set(const std::string& key, const Variant& value);

    /** Replaces the key. An empty key is refused: "Invalid parameter" is logged. */
    void setKey(const std::string& key);

    /** Replaces the value, by any value, also one of kind VARIANT_TYPE_NONE. */
    void setValue(const Variant& value) { __value = value; }

    /** A copy of the key. */
    std::string getKey() const { return __key; }

    /** A copy of the value. */
    Variant getValue() const { return __value; }

    /**
     * Appends the two type entries of this entry to a block's description.
     *
     * @return STATUS_SUCCESS; the code of SerializedData::addType(), STATUS_INVALID_PARAMETER or
     *         STATUS_CAPACITY_EXCEEDED, after logging "r (%d)." with it. When only the value is
     *         refused (kind VARIANT_TYPE_NONE, say), the key's type entry stays.
     */
    int setSerializedDataInfo(int block, SerializedData& data) const;

    /** The same for block 0. */
    int setSerializedDataInfo(SerializedData& data) const;

    /**
     * Writes key slot and value, without checking the space.
     *
     * The key is cut to 255 characters and at its first NUL byte. What is left of a slot is zero.
     *
     * @param destination  256 bytes and those of the value (256 for a text); any alignment
     * @return the bytes taken. A value that can't be written (a text of more than 256 bytes, kind
     *         VARIANT_TYPE_NONE) is logged by Variant::toRaw() and counts -1, so that 255 is
     *         returned. STATUS_FAILURE after logging "data is nullptr.".
     */
    int copySerializedData(void* destination) const;

    /**
     * The same with a check of the space before anything is written; nothing is written beyond it.
     *
     * A value of kind VARIANT_TYPE_NONE counts -1 here, too, so that 255 bytes are enough for its
     * entry: they get the key's slot without its last byte, which is the NUL of a key of 255
     * characters.
     *
     * @param size  bytes available
     * @return as above; STATUS_FAILURE after logging "data is nullptr.", "Invalid size( %d)" for a
     *         size below 1, or "Invalid checkSize (%d) size( %d)" with the bytes needed and @p size
     */
    int copySerializedData(void* destination, int size) const;

    /**
     * Describes this entry in block 0 of @p data and gives it a newly allocated buffer.
     *
     * The buffer has the size of all blocks: what is described in others is there too, and zero.
     *
     * Type entries are appended, so @p data should be fresh: serializing a second time into the
     * same object leaves a description twice as long, and a buffer of that size of which the first
     * half is written and the second is zero. A value of kind VARIANT_TYPE_NONE can't be described;
     * the key alone is then serialized, with success, and can't be read back.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_STATE after logging "Invalid data size (%d).";
     *         STATUS_OUT_OF_MEMORY after logging "Memory allocation failed.", also when more than
     *         INT_MAX bytes are described, repetitions included. After a failure the type entries
     *         stay and @p data has no buffer: the one that it had would be too short for them. A
     *         borrowed one is forgotten and stays with its owner.
     */
    int serialize(SerializedData& data) const;

    /**
     * Takes key and value from the first two values of a block.
     *
     * The key becomes text (Variant::toString()); further values are ignored. A key that comes out
     * empty is refused by set(), which is logged there and still a success here.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_STATE after logging "values is nullptr." when the
     *         block can't be decoded, or "Invalid key-value pair." for an odd number of values or
     *         none
     */
    int deserialize(const SerializedData& data, int block);

    /** The same for block 0. */
    int deserialize(const SerializedData& data);

    /**
     * The key (0) or the value (1), without a copy, for structured bindings:
     * `for (const auto& [key, value] : record)`.
     */
    template <std::size_t I>
    const auto& get() const noexcept
    {
        static_assert(I < 2, "an entry has a key and a value");
        if constexpr (I == 0) {
            return __key;
        } else {
            return __value;
        }
    }

    /** The key, without a copy; meant for the library itself. */
    const std::string& __getKey() const noexcept { return __key; }

    /** The value, without a copy; meant for the library itself. */
    const Variant& __getValue() const noexcept { return __value; }

    /** Bytes that copySerializedData() may write; meant for the library itself. */
    OXIL_LOCAL std::size_t __getSpace() const noexcept;

private:
    std::string __key;
    Variant __value;
};

}  // namespace oxil

/// @cond  what structured bindings ask for
template <>
struct std::tuple_size<oxil::KeyValue> : std::integral_constant<std::size_t, 2> {
};

template <>
struct std::tuple_element<0, oxil::KeyValue> {
    using type = const std::string;
};

template <>
struct std::tuple_element<1, oxil::KeyValue> {
    using type = const oxil::Variant;
};
/// @endcond
