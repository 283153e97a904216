#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "OxExport.h"
#include "OxKeyValue.h"
#include "OxVariant.h"

namespace oxil {

namespace internal {
class KeyIndex;
class WantedKey;
}  // namespace internal

class SerializedData;

/**
 * A record: named values in the order in which they were added, with unique keys.
 *
 * An update keeps an entry in its place; a removal moves the later entries forward. Positions count
 * from 0. Keys compare by bytes, case-sensitively. Getters return copies, but for getKeyValues().
 *
 * An entry with an empty key can enter only through add(const KeyValue&). It is reachable by
 * position only, because every look-up by key refuses the empty key, and it can't be updated.
 *
 * An operation may be given a reference into its own record
 * (`record.update(record.getKeyValues()[2])`); it works as if the argument had been copied.
 *
 * @par Cost
 * Finding a key takes constant time on average in a record of any size, whoever has chosen the
 * keys: where keys are found by hash, the hashes depend on random numbers of the process. Removing
 * is linear in the number of entries.
 *
 * @par Threads
 * No shared state, no locks. One instance belongs to one thread at a time.
 *
 * @par Exceptions
 * `std::out_of_range` from the position getters and from update(int, const Variant&) for a negative
 * position, deliberately; only remove(int) refuses those with a code. `std::bad_alloc` when memory
 * runs out; the record is then as it was, but for deserialize(), which keeps what it added before.
 */
class OXIL_API KeyValues {
public:
    /** An entry as it is written in a list: `{"name", "hall"}`, and nothing else. */
    struct Pair {
        /** Copies both. */
        Pair(const std::string& newKey, const Variant& newValue) : key(newKey), value(newValue) {}

        std::string key;  ///< of the entry
        Variant value;    ///< of the entry
    };

    /** Makes an empty record. */
    KeyValues() noexcept;

    /**
     * Makes a record of a list: `KeyValues lamp = {{"name", "hall"}, {"brightness", 80}};`
     *
     * As add() for each of them: what that refuses is logged and left out.
     */
    KeyValues(std::initializer_list<Pair> entries);

    /**
     * Makes the record that block 0 of @p data holds, as deserialize() does.
     *
     * A failure is logged and otherwise lost: the record is then empty.
     */
    explicit KeyValues(const SerializedData& data);

    /** The same without being named, `KeyValues record = data;`, for this very type only. */
    template <typename Data, std::enable_if_t<std::is_same_v<Data, SerializedData>, int> = 0>
    KeyValues(const Data& data) : KeyValues(data)
    {
    }

    /** Copies the entries, in their order. */
    KeyValues(const KeyValues& other);

    /** Takes over the entries; @p other is left empty. */
    KeyValues(KeyValues&& other) noexcept;

    /** Releases the entries. */
    ~KeyValues();

    /** Copies the entries, in their order; assigning an object to itself does nothing. */
    KeyValues& operator=(const KeyValues& other);

    /** Takes over the entries; @p other is left empty. */
    KeyValues& operator=(KeyValues&& other) noexcept;

    /** Whether both hold equal entries in the same order. */
    bool operator==(const KeyValues& other) const noexcept;

    /** The negation of `operator==`. */
    bool operator!=(const KeyValues& other) const noexcept;

    /** The number of entries. */
    int getCount() const noexcept { return static_cast<int>(__entries.size()); }

    /**
     * The position of the entry with this key.
     *
     * @return the position; getCount() when there is no such entry, which is not logged; -1 after
     *         logging "Invalid parameter" for an empty key
     */
    int getIndex(const std::string& key) const;

    /**
     * A copy of the entry with this key.
     *
     * @return the entry; an empty one after logging "Invalid parameter" for an empty key or
     *         "Invalid key (%s)" for an absent one
     */
    KeyValue getKeyValue(const std::string& key) const;

    /**
     * A copy of the value with this key.
     *
     * @return the value; one of kind VARIANT_TYPE_NONE after logging "Invalid parameter" for an
     *         empty key or "Invalid key (%s)", under the name getKeyValue, for an absent one
     */
    Variant getValue(const std::string& key) const;

    /**
     * A copy of the entry at a position.
     *
     * @return the entry; an empty one after logging "Invalid parameter : index(%d)." when
     *         @p index is getCount() or more
     * @throws std::out_of_range  if @p index is negative
     */
    KeyValue getKeyValue(int index) const;

    /**
     * A copy of the key at a position.
     *
     * @return the key; an empty text after logging "Invalid parameter : index(%d)." when
     *         @p index is getCount() or more
     * @throws std::out_of_range  if @p index is negative
     */
    std::string getKey(int index) const;

    /**
     * A copy of the value at a position.
     *
     * @return the value; one of kind VARIANT_TYPE_NONE after logging
     *         "Invalid parameter : index(%d)." when @p index is getCount() or more
     * @throws std::out_of_range  if @p index is negative
     */
    Variant getValue(int index) const;

    /** The entries in their order, for `for (const auto& [key, value] : record)`. What is said of
     *  getKeyValues() holds here, too. */
    std::vector<KeyValue>::const_iterator begin() const noexcept { return __entries.begin(); }

    /** Behind the last entry. */
    std::vector<KeyValue>::const_iterator end() const noexcept { return __entries.end(); }

    /** Whether there is an entry with this key. Logs nothing, and makes no copy of @p key. */
    bool contains(std::string_view key) const noexcept { return __findValue(key) != nullptr; }

    /**
     * The value with this key as a T: `record.get("brightness", 50)`.
     *
     * Logs nothing, and makes no copy of @p key.
     *
     * @param fallback  says what T is: one of the types that Variant::is() names
     * @return what the `to...` member of the value for T makes of it; @p fallback if there is no
     *         such entry, or no such conversion (Variant::isConvertible())
     */
    template <typename T>
    T get(std::string_view key, const T& fallback) const
    {
        const Variant* value = __findValue(key);
        return value != nullptr && value->isConvertible(Variant::__kindOf<T>()) ? value->__to<T>()
                                                                                : fallback;
    }

    /** The same for text. */
    std::string get(std::string_view key, const char* fallback) const
    {
        return get(key, std::string(fallback));
    }

    /**
     * Replaces the value that has this key, or appends an entry.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging "Invalid parameter." for an
     *         empty key
     */
    int set(std::string_view key, const Variant& value);

    /** The entries themselves. The reference lives as long as the record; what it shows moves with
     *  every change, so iterators and element references don't outlive one. */
    const std::vector<KeyValue>& getKeyValues() const noexcept { return __entries; }

    /** Copies of the keys, in order. */
    std::vector<std::string> getKeys() const;

    /** Copies of the values, in order. */
    std::vector<Variant> getValues() const;

    /**
     * Whether the record holds this key with an equal value of the same kind.
     *
     * This is a look-up by key followed by a comparison of whole entries, with two consequences
     * that callers see: an absent key logs "Invalid key (%s)", and `isIncluded(KeyValue())` is true
     * for every record, after logging "Invalid parameter".
     */
    bool isIncluded(const KeyValue& entry) const;

    /** The same for `KeyValue(key, value)`. */
    bool isIncluded(const std::string& key, const Variant& value) const;

    /**
     * Appends a copy of the entry. The key is not checked for being empty.
     *
     * @return STATUS_SUCCESS; STATUS_ALREADY_EXISTS after logging "Key(%s) already exist."
     */
    int add(const KeyValue& entry);

    /** The same, taking over @p entry; after a failure it is untouched. */
    int add(KeyValue&& entry);

    /**
     * Appends an entry.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging "Invalid parameter." for an
     *         empty key; STATUS_ALREADY_EXISTS after logging "Key(%s) already exist."
     */
    int add(const std::string& key, const Variant& value);

    /**
     * Replaces the entry that has the key of @p entry, in its place. Never adds.
     *
     * The old and the new value may be of different kinds.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER for an empty or absent key, after logging
     *         "Invalid parameter" (empty key only), "Invalid parameter : index(%d)." under the name
     *         remove (with -1 or getCount()) and "Failed to remove (%s)."
     */
    int update(const KeyValue& entry);

    /**
     * Replaces the value that has this key.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER for an empty or absent key, after the log of
     *         getKeyValue() and those of update(const KeyValue&) for an empty key
     */
    int update(const std::string& key, const Variant& value);

    /**
     * Replaces the value at a position.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER when @p index is getCount() or more or the
     *         entry there has an empty key, after the log of getKeyValue() and those of
     *         update(const KeyValue&) for an empty key
     * @throws std::out_of_range  if @p index is negative
     */
    int update(int index, const Variant& value);

    /**
     * Takes out the entry with this key, if there is one.
     *
     * @return STATUS_SUCCESS, also when there was none; STATUS_INVALID_PARAMETER after logging
     *         "Invalid parameter." for an empty key
     */
    int remove(const std::string& key);

    /** The same for the key of @p entry; its value does not count. */
    int remove(const KeyValue& entry);

    /**
     * Takes out the entry at a position.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging
     *         "Invalid parameter : index(%d)." when @p index is negative or getCount() or more
     */
    int remove(int index);

    /**
     * Appends the type entries of every entry, in order, to a block's description.
     *
     * @return STATUS_SUCCESS, also for an empty record; the first code of
     *         KeyValue::setSerializedDataInfo(), after logging "r (%d)." with it. What was appended
     *         before stays.
     */
    int setSerializedDataInfo(int block, SerializedData& data) const;

    /** The same for block 0. */
    int setSerializedDataInfo(SerializedData& data) const;

    /**
     * Writes the entries one behind the other, without checking the space.
     *
     * @return the sum of what KeyValue::copySerializedData() returned for each, 0 for an empty
     *         record; STATUS_FAILURE after logging "data is nullptr.". An entry with a text of more
     *         than 256 bytes counts 255, so that what follows lands 257 bytes early.
     */
    int copySerializedData(void* destination) const;

    /**
     * The same with a check of the space after each entry.
     *
     * @warning An entry that crosses the end is written before the check sees it, deliberately.
     *
     * @param size  bytes available
     * @return as above; STATUS_FAILURE after logging "data is nullptr.", "Invalid size( %d)" for a
     *         size below 1, or "Invalid copySize (%d) size( %d)" with the bytes of the entry that
     *         crossed the end and @p size
     */
    int copySerializedData(void* destination, int size) const;

    /**
     * Describes the record in block 0 of @p data and gives it a newly allocated buffer.
     *
     * As KeyValue::serialize(); an empty record has no bytes and is refused.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_STATE after logging "Invalid data size (%d).";
     *         STATUS_OUT_OF_MEMORY after logging "Memory allocation failed."
     */
    int serialize(SerializedData& data) const;

    /**
     * Adds the entries that a block holds to those already here.
     *
     * Keys become text. What add() refuses (a key already here, an empty key) is logged there,
     * dropped, and no failure.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging "values is nullptr." when the
     *         block can't be decoded or "Invalid key-value pair." for an odd number of values
     *         (KeyValue reports the same with STATUS_INVALID_STATE)
     */
    int deserialize(const SerializedData& data, int block);

    /** The same for block 0. */
    int deserialize(const SerializedData& data);

    /**
     * Adds the entries that a range of decoded values holds: key, value, key, value ...
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging "Invalid key-value pair." for
     *         an odd number of values
     */
    int deserialize(const std::vector<Variant>::const_iterator& first,
                    const std::vector<Variant>::const_iterator& last);

    /** Bytes that copySerializedData() may write; meant for the library itself. */
    OXIL_LOCAL std::size_t __getSpace() const noexcept;

    /** The value with this key, null if there is none or the key is empty; meant for the library
     *  itself. */
    const Variant* __findValue(std::string_view key) const noexcept;

    /** Makes room for so many entries if there are none yet; meant for the library itself. */
    OXIL_LOCAL void __reserve(std::size_t count);

private:
    OXIL_LOCAL KeyValue& __at(int index) noexcept;
    OXIL_LOCAL const KeyValue& __at(int index) const noexcept;
    OXIL_LOCAL int __find(std::string_view key) const noexcept;
    OXIL_LOCAL int __find(const internal::WantedKey& key) const noexcept;
    template <typename... Parts>
    OXIL_LOCAL bool __append(std::string_view key, Parts&&... parts);
    OXIL_LOCAL void __makeIndex();
    OXIL_LOCAL void __erase(int index);

    std::vector<KeyValue> __entries;
    std::unique_ptr<internal::KeyIndex> __index;  // none while the record is small
};

}  // namespace oxil
