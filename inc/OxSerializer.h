#pragma once

#include <string>
#include <type_traits>
#include <vector>

#include "OxExport.h"
#include "OxIBidirectionalIterator.h"
#include "OxKeyValue.h"
#include "OxKeyValues.h"
#include "OxSerializedData.h"
#include "OxVariant.h"

namespace oxil {

/**
 * Packs the payloads that applications exchange into a SerializedData, and unpacks them.
 *
 * Every payload has its own blocks:
 *
 * | payload                            | block 0           | block 1      | block 2    | block 3 |
 * |------------------------------------|-------------------|--------------|------------|---------|
 * | entry; record                      | entries           |              |            |         |
 * | record and entry                   | entries           | entry        |            |         |
 * | record and method call             | entries           | method name  | parameters |         |
 * | method call                        | method name       | parameters   |            |         |
 * | method call and text               | method name       | parameters   | text       |         |
 * | names, method call and text        | names             | method name  | parameters | text    |
 * | list of records                    | entries per record| all entries  |            |         |
 * | list of records of one shape (Repeatable) | first record's types, data of all | | |         |
 *
 * All texts take slots of 256 bytes and are cut to 255 characters and at their first NUL byte. A
 * parameter with a text of more than 256 bytes can't be written: Variant::toRaw() logs it, and what
 * follows lands 257 bytes early. Neither is a failure: ask validate() first where a text may be too
 * long.
 *
 * Every byte of a data area that no value is written to is zero: the bytes depend on the values
 * alone, and nothing else of this process's memory travels with them.
 *
 * @par Results of serialize
 * STATUS_SUCCESS, with a new data area owned by @p data. The first description step that is refused
 * (a value of kind VARIANT_TYPE_NONE, a full type list) is logged as "r (%d)." with its code, which
 * is returned: STATUS_INVALID_PARAMETER or STATUS_CAPACITY_EXCEEDED. STATUS_OUT_OF_MEMORY after
 * logging "Memory allocation failed.", also when more than INT_MAX bytes are described, repetitions
 * included. After a failure, an exception of an iterator included, the block count and the type
 * entries added so far stay, and there is no data area: the one that was there would be too short
 * for them. A borrowed one is forgotten and stays with its owner. Type entries are appended, so the
 * target should be a fresh object.
 *
 * @par Results of deserialize
 * STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging "Invalid block count (%d)." with the count
 * found, or "values is nullptr." when a block can't be decoded or a text block does not hold
 * exactly one value. Outputs read before a failure keep what was read. A description from outside
 * has to pass SerializedData::validate() first.
 *
 * @par Threads
 * The members share no state; one SerializedData belongs to one thread at a time.
 *
 * @par Exceptions
 * `std::out_of_range` where stated; `std::bad_alloc` when memory for outputs runs out.
 */
class OXIL_API Serializer {
public:
    /**
     * Whether an entry arrives as it is; to be asked before it is packed.
     *
     * What doesn't: a text (a key, a value, or one beside a record) of more than 255 characters or
     * with a NUL byte inside, a value of kind VARIANT_TYPE_NONE, an empty key. Packing cuts such a
     * text, or with more than 256 characters in a value or parameter spoils all that follows it,
     * and returns success; cutText() makes any text fit.
     *
     * Costs one pass over the texts and, if all is well, no allocation.
     *
     * @param where  gets what doesn't arrive, unless it is null: the key of the first such entry,
     *               or "method", "params[i]", "names[i]" (i counts from 0) or "extra" for what
     *               stands beside records; untouched if everything does
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging "Not serializable (%s)." with
     *         what @p where gets
     */
    [[nodiscard]] static int validate(const KeyValue& entry, std::string* where = nullptr);

    /** The same for a record. */
    [[nodiscard]] static int validate(const KeyValues& record, std::string* where = nullptr);

    /** The same for a record and one extra entry. */
    [[nodiscard]] static int validate(const KeyValues& record, const KeyValue& extra,
                                      std::string* where = nullptr);

    /** The same for a record and a method call. */
    [[nodiscard]] static int validate(const KeyValues& record, const std::string& method,
                                      const std::vector<Variant>& params,
                                      std::string* where = nullptr);

    /** The same for a method call. */
    [[nodiscard]] static int validate(const std::string& method, const std::vector<Variant>& params,
                                      std::string* where = nullptr);

    /** The same for a method call and an extra text. */
    [[nodiscard]] static int validate(const std::string& method, const std::vector<Variant>& params,
                                      const std::string& extra, std::string* where = nullptr);

    /** The same for a list of names, a method call and an extra text. */
    [[nodiscard]] static int validate(const std::vector<std::string>& names,
                                      const std::string& method, const std::vector<Variant>& params,
                                      const std::string& extra, std::string* where = nullptr);

    /** The same for the records of a list, of one shape or not. That all are of one shape, and
     *  that empty ones are lost, is not looked at. */
    [[nodiscard]] static int validate(const std::vector<KeyValues>& records,
                                      std::string* where = nullptr);

    /** The same for pointers; null ones are skipped. */
    [[nodiscard]] static int validate(const std::vector<KeyValues*>& records,
                                      std::string* where = nullptr);

    /**
     * As much of a text as arrives: up to its first NUL byte and at most 255 characters (bytes),
     * but no part of a UTF-8 character.
     *
     * Of a text that is no UTF-8 where it is cut, up to three bytes less may be left.
     */
    static std::string cutText(const std::string& text);

    /** Packs one entry, as KeyValue::serialize() with its results. */
    static int serialize(const KeyValue& entry, SerializedData& data);

    /** Packs one record, as KeyValues::serialize() with its results. */
    static int serialize(const KeyValues& record, SerializedData& data);

    /**
     * Packs `KeyValue(key, value)`, as KeyValue::serialize() with its results.
     *
     * @note `serialize("name", {Variant(1)}, data)` means this one, not a method call with one
     * parameter; for that write `std::vector<Variant>{Variant(1)}`.
     */
    static int serialize(const std::string& key, const Variant& value, SerializedData& data);

    /** The same for a text that is there already, which would convert to a KeyValue as well as to a
     *  Variant: `serialize({}, text, data)` would also mean a record and an entry. */
    template <typename Text, std::enable_if_t<std::is_same_v<Text, std::string>, int> = 0>
    static int serialize(const std::string& key, const Text& value, SerializedData& data)
    {
        return serialize(key, Variant(value), data);
    }

    /** Packs a record and one extra entry. */
    static int serialize(const KeyValues& record, const KeyValue& extra, SerializedData& data);

    /** Packs a record and a method call. */
    static int serialize(const KeyValues& record, const std::string& method,
                         const std::vector<Variant>& params, SerializedData& data);

    /** Packs a method call: a name and its parameters in order. */
    static int serialize(const std::string& method, const std::vector<Variant>& params,
                         SerializedData& data);

    /** Packs a method call and an extra text. */
    static int serialize(const std::string& method, const std::vector<Variant>& params,
                         const std::string& extra, SerializedData& data);

    /** Packs a list of names, a method call and an extra text. */
    static int serialize(const std::vector<std::string>& names, const std::string& method,
                         const std::vector<Variant>& params, const std::string& extra,
                         SerializedData& data);

    /** Packs a list of records. An empty list gives an empty description and an empty data area;
     *  empty records in the list are lost when it is read. */
    static int serialize(const std::vector<KeyValues>& records, SerializedData& data);

    /** The same for pointers, which stay the caller's; null ones are skipped. */
    static int serialize(const std::vector<KeyValues*>& records, SerializedData& data);

    /**
     * Packs a list of records of one shape, describing only the first.
     *
     * All records should have the same keys in the same order with values of the same kinds.
     * Nothing checks it: every record is written as it is, one behind the other, and read with the
     * types of the first. What smaller records leave at the end is zero.
     *
     * @throws std::out_of_range  if the list is empty; @p data then has one block without types
     */
    static int serialize(const std::vector<KeyValues>& records, SerializedData& data, Repeatable);

    /** The same for pointers, which stay the caller's; null ones are skipped. */
    static int serialize(const std::vector<KeyValues*>& records, SerializedData& data, Repeatable);

    /**
     * Packs at most @p count records, taken from an iterator, as a list of records.
     *
     * The iterator is walked three times from where it stands, and has to yield the same records
     * each time. A null record is skipped but counts.
     *
     * @return as for every serialize; STATUS_INVALID_PARAMETER after logging "Invalid parameter."
     *         for a null iterator; STATUS_INVALID_STATE after logging "Invalid state." when
     *         moveTo() does not return 0
     */
    static int serialize(IBidirectionalIterator<KeyValues*>* iterator, int count,
                         SerializedData& data);

    /**
     * The same as a list of records of one shape, walked twice.
     *
     * The first record that is not null is described; the repeat count is the number of records
     * written. Without any record the description and the data area are empty.
     */
    static int serialize(IBidirectionalIterator<KeyValues*>* iterator, int count,
                         SerializedData& data, Repeatable);

    /** Unpacks one entry, as KeyValue::deserialize() on block 0 with its results. */
    static int deserialize(const SerializedData& data, KeyValue& entry);

    /** Adds the entries of a packed record, as KeyValues::deserialize() on block 0 with its
     *  results. */
    static int deserialize(const SerializedData& data, KeyValues& record);

    /** Unpacks one entry into key and value. Always returns STATUS_SUCCESS; after a failure, which
     *  is logged by KeyValue::deserialize(), both are empty. */
    static int deserialize(const SerializedData& data, std::string& key, Variant& value);

    /**
     * Unpacks a record and one extra entry (2 blocks).
     *
     * @return as for every deserialize; the code of KeyValues::deserialize() or
     *         KeyValue::deserialize() after logging "Invalid state."
     */
    static int deserialize(const SerializedData& data, KeyValues& record, KeyValue& extra);

    /**
     * Unpacks a record and a method call (3 blocks).
     *
     * @return as for every deserialize; the code of KeyValues::deserialize() after logging
     *         "Invalid state."
     */
    static int deserialize(const SerializedData& data, KeyValues& record, std::string& method,
                           std::vector<Variant>& params);

    /** Unpacks a method call (2 blocks). */
    static int deserialize(const SerializedData& data, std::string& method,
                           std::vector<Variant>& params);

    /** Unpacks a method call and an extra text (3 blocks). */
    static int deserialize(const SerializedData& data, std::string& method,
                           std::vector<Variant>& params, std::string& extra);

    /** Unpacks a list of names, which are appended, a method call and an extra text (4 blocks). */
    static int deserialize(const SerializedData& data, std::vector<std::string>& names,
                           std::string& method, std::vector<Variant>& params, std::string& extra);

    /**
     * Unpacks a list of records (2 blocks) and appends them.
     *
     * Records that were packed empty are dropped, deliberately.
     *
     * @return as for every deserialize; STATUS_INVALID_PARAMETER after logging "Invalid state."
     *         when a count promises more entries than are left. Records appended before stay.
     */
    static int deserialize(const SerializedData& data, std::vector<KeyValues>& records);

    /** The same with records from `new`, which belong to the caller.
     *
     * @return also STATUS_OUT_OF_MEMORY after logging "Memory allocation failed."; records appended
     *         before stay
     */
    static int deserialize(const SerializedData& data, std::vector<KeyValues*>& records);

    /**
     * Unpacks a list of records of one shape (1 block) and appends them.
     *
     * @return as for every deserialize; the code of KeyValues::deserialize() after logging
     *         "Invalid state." when the number of type entries is odd
     */
    static int deserialize(const SerializedData& data, std::vector<KeyValues>& records, Repeatable);

    /** The same with records from `new`, which belong to the caller.
     *
     * @return also STATUS_OUT_OF_MEMORY after logging "Memory allocation failed."; records appended
     *         before stay
     */
    static int deserialize(const SerializedData& data, std::vector<KeyValues*>& records,
                           Repeatable);

    /**
     * How many records of this shape fit into one block's type list.
     *
     * @param record  not empty: the count of its entries is a divisor, and that it is not zero is
     *                for the caller to see to
     */
    static int getSerializableCount(const KeyValues& record);
};

}  // namespace oxil
