#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "OxExport.h"
#include "OxVariant.h"

namespace oxil {

/** Overload tag: asks for the repeating form of an operation. Its value is never looked at. */
enum Repeatable : std::int32_t { REPEATABLE = 0 };

/** Overload tag: the callee takes over the buffer. Its value is never looked at. */
enum TransferOwnership : std::int32_t { TRANSFER_OWNERSHIP = 0 };

/** The number of block slots of a SerializationInfo. */
inline constexpr int MAX_BLOCK_COUNT = 5;

/** The number of type entries that one block can have. */
inline constexpr int MAX_TYPE_COUNT = 2000;

/** The number of characters (bytes) of a text that arrive; a text slot holds them and a NUL. */
inline constexpr int MAX_TEXT_LENGTH = 255;

/**
 * The description that travels beside a data area: 50064 bytes, copied as they are.
 *
 * All integers are in host byte order. Only SerializedData::validate() looks at a description with
 * suspicion; pass one that crossed a trust boundary through it first.
 */
struct SerializationInfo {
    std::int32_t blockCount;                                  ///< blocks in use
    std::int32_t typeCount[MAX_BLOCK_COUNT];                  ///< type entries of each block
    std::int32_t dataSize[MAX_BLOCK_COUNT];                   ///< bytes of one repetition
    std::int32_t repeatCount[MAX_BLOCK_COUNT];                ///< repetitions; below 1 means one
    std::uint8_t types[MAX_BLOCK_COUNT][MAX_TYPE_COUNT];      ///< a VariantType for each entry
    std::int32_t typeSizes[MAX_BLOCK_COUNT][MAX_TYPE_COUNT];  ///< bytes of each entry
};

static_assert(sizeof(SerializationInfo) == 50064, "the description has one layout everywhere");
static_assert(offsetof(SerializationInfo, blockCount) == 0, "fixed place");
static_assert(offsetof(SerializationInfo, typeCount) == 4, "fixed place");
static_assert(offsetof(SerializationInfo, dataSize) == 24, "fixed place");
static_assert(offsetof(SerializationInfo, repeatCount) == 44, "fixed place");
static_assert(offsetof(SerializationInfo, types) == 64, "fixed place");
static_assert(offsetof(SerializationInfo, typeSizes) == 10064, "fixed place");

/**
 * What decoding a message may take; see SerializedData::validate().
 *
 * Memory is counted by one rule on every host, which none exceeds: 48 bytes for a value, and 272
 * more for a text, because it may be 255 characters long whatever the size of its slot.
 */
struct DecodingLimits {
    long long values;  ///< values of all blocks, repetitions included
    long long bytes;   ///< memory of these values when they are decoded
};

/**
 * A typed binary buffer: a description of up to five blocks of typed values, and a data area.
 *
 * The data area holds the values block after block, entry after entry, without padding, tags or
 * lengths; a block with a repeat count of at least 1 holds its type list that many times. A text
 * takes a slot: NUL-terminated, at most 255 characters; what is behind the terminator is zero in
 * what the library writes, and is not looked at where it reads.
 *
 * A writer sets the block count, adds types, fills getTotalDataSize() bytes from `malloc` and hands
 * them over with setData(void*, TransferOwnership); Serializer does all of that. A reader builds an
 * object from the description it received, lends it the bytes with setData(const void*) and calls
 * getValues().
 *
 * @warning Description and data area are two things. What describes more (addType(),
 * setBlockCount(), setRepeatCount(), setSerializationInfo(), setSerializedDataInfo() of a record)
 * doesn't make a data area longer that is there already: give a new one before anything is read or
 * sent. Serializer and the serialize() members always do, or leave none.
 *
 * A bad block below is one that is negative, not less than getBlockCount(), or not less than
 * MAX_BLOCK_COUNT; it is logged as "Invalid parameter (%d)." with its number.
 *
 * When the description can't be allocated, the constructor logs "Memory allocation failed." and the
 * object is good for nothing but destruction: calling any member is the caller's mistake.
 *
 * @par Threads
 * No locks. getValues() and getSerializationInfo() complete an object that is const, so two threads
 * must not even read one object at the same time.
 *
 * @par Exceptions
 * None of its own. Decoding may throw `std::bad_alloc`; the block is then as undecoded as before.
 */
class OXIL_API SerializedData {
public:
    /** The same as `SerializedData(1)`. */
    SerializedData();

    /**
     * Makes an empty buffer. Explicit: the number in `KeyValue(5)` is a value.
     *
     * @param blockCount  at most 4 here (setBlockCount() takes 5), else "Invalid block count (%d)."
     *                    is logged and the count stays 0; zero and negative counts are stored
     */
    explicit SerializedData(int blockCount);

    /** Makes a buffer without data from a description, which is copied and not checked. */
    SerializedData(const SerializationInfo& info);

    SerializedData(const SerializedData&) = delete;
    SerializedData& operator=(const SerializedData&) = delete;

    /** Releases the decoded values, then the data area with `free` if it is owned. */
    ~SerializedData();

    /**
     * Whether values can be read by a description that came from outside without leaving the data.
     *
     * To be asked before anything is decoded, with the number of bytes that really arrived. Looks
     * at block count, type counts, kinds and entry sizes, repeat counts, and every sum, without
     * overflow. A description that passes, with data of at least @p size bytes, can be given to
     * every getter and to every Serializer::deserialize() without an access out of bounds; what
     * roles its blocks play is still the reader's to check.
     *
     * An entry may be narrower than its kind, but not wider. A text slot may have any size as long
     * as the 255 bytes that reading it may touch are there.
     *
     * A few bytes can stand for many: each of many texts in narrow slots is read up to 255
     * characters, and a value of one byte takes 48 when it is decoded. What is refused is more than
     * getDefaultLimits() allows, 16 times what arrived and 4 MiB. So the worst that still passes
     * takes that much when it is decoded, twice as much while it is decoded, and four times as
     * much when a Serializer::deserialize() has made records, names or parameters of it (a number
     * where a key is expected becomes a text, which may be long).
     *
     * What passes can make a reader log one line for each value at most: a record's key that is
     * there already, a list's count that is no INT. Without validate() there is no such bound: an
     * entry of an unknown kind takes no bytes, and is logged in each of up to 2^31 repetitions.
     * Limits of the application's own, with the number of values that it expects, bound both.
     *
     * Costs one pass over the type lists and no allocation.
     *
     * @param info  the description received
     * @param size  bytes of data received
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging the first thing found, with
     *         the value that is wrong: "Invalid block count (%d).", "Invalid type count (%d).",
     *         "Invalid type (%d).", "Invalid type size (%d)." or "Invalid data size (%d).", or,
     *         with the number of the block, "Data is too short (%d)."; STATUS_CAPACITY_EXCEEDED
     *         after logging "Too many values (%lld)." or "Too large when decoded (%lld)." with the
     *         values or bytes up to the block that was too much
     */
    [[nodiscard]] static int validate(const SerializationInfo& info, std::size_t size);

    /** The same with limits for those who know their messages. */
    [[nodiscard]] static int validate(const SerializationInfo& info, std::size_t size,
                                      const DecodingLimits& limits);

    /**
     * What validate() allows by default: any number of values, and 16 bytes for each byte of data
     * that arrived and 4 MiB.
     *
     * That is enough for every description without repetitions, and for all that Serializer packs.
     * Of what other writers may send, it refuses long repetitions of numbers of fewer than three
     * bytes or texts in slots of fewer than 20.
     */
    static DecodingLimits getDefaultLimits(std::size_t size);

    /**
     * Sets the number of blocks; type lists already made stay.
     *
     * @param count  1 to 5; less is logged as "Invalid parameter (%d).", more as
     *               "Invalid block count (%d).", and changes nothing
     */
    void setBlockCount(int count);

    /** The number of blocks. */
    int getBlockCount() const;

    /**
     * Appends one type entry to a block.
     *
     * The kind is stored as its low byte, unchecked; getValues() skips what it does not know.
     *
     * @param size  bytes that the value takes in the data area, at least 1. A size wider than the
     *              kind (4, 8 or 1 bytes) can be described but makes getValues() abort the process.
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging "Invalid parameter (%d)." with
     *         a size below 1 or, if the size is good, with a bad block;
     *         STATUS_CAPACITY_EXCEEDED after logging "Max exceeded (%d)." with the entries there
     */
    int addType(int block, VariantType type, int size);

    /**
     * The same with the kind's default size: 4, 8 or 1 bytes, 256 for a text.
     *
     * The block is tested first; VARIANT_TYPE_NONE and unknown kinds have the size -1 and are
     * refused.
     */
    int addType(int block, VariantType type);

    /** The same for block 0. */
    int addType(VariantType type, int size);

    /** The same for block 0 with the kind's default size. */
    int addType(VariantType type);

    /** Sets a block's repeat count, unchecked; a bad block is logged and changes nothing. */
    void setRepeatCount(int block, int count);

    /** A block's repeat count; STATUS_FAILURE for a bad block. */
    int getRepeatCount(int block) const;

    /** The number of a block's type entries; STATUS_FAILURE for a bad block. */
    int getTypeCount(int block) const;

    /** The same for block 0. */
    int getTypeCount() const;

    /** Bytes that a block takes in the data area, all repetitions; STATUS_FAILURE for a bad block.
     */
    int getDataSize(int block) const;

    /** The same for block 0. */
    int getDataSize() const;

    /** Bytes that all blocks take. */
    int getTotalDataSize() const;

    /**
     * Borrows a data area: the caller keeps it alive and releases it.
     *
     * Values decoded before stay in force.
     *
     * @warning The previous data area is passed to `free` at once, whether it was owned or
     * borrowed, deliberately; only the destructor makes the difference. Lend memory that did not
     * come from `malloc`, or that is still needed, at most once, and never set the same pointer
     * twice.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_PARAMETER after logging "Invalid parameter." for a
     *         null pointer, which changes nothing
     */
    int setData(const void* data);

    /**
     * Takes over a data area that came from `malloc`; otherwise the same, warning included.
     *
     * After a failure the caller still owns it.
     */
    int setData(void* data, TransferOwnership);

    /** The data area, null if there is none. */
    void* getData() const;

    /**
     * The place where a block starts.
     *
     * @return the place, which without data area is no more than the offset as an address; null
     *         after logging a bad block, or "Invalid ptr offset (%d)." with the offset when the
     *         place comes out as null
     */
    void* getData(int block) const;

    /** Copies a description over this one, unchecked. Decoded values stay in force. Returns
     *  STATUS_SUCCESS. */
    int setSerializationInfo(const SerializationInfo& info);

    /** The description itself; the reference lives as long as this object. */
    const SerializationInfo& getSerializationInfo() const;

    /** The kind's default size in bytes, -1 for VARIANT_TYPE_NONE and unknown kinds. */
    int __getTypeSize(VariantType type) const;

    /** Keeps a mark for the application; no operation here reads it, and it does not travel. */
    void setRemained(bool remained);

    /** The mark of setRemained(), false at first. */
    bool isRemained() const;

    /** Keeps a number for the application; no operation here reads it, and it does not travel. */
    void setContextId(unsigned int contextId);

    /** The number of setContextId(), 0 at first. */
    unsigned int getContextId() const;

    /**
     * The values of a block, decoded at the first call and kept.
     *
     * A block is decoded once: later calls return the same list even after setData() or
     * setSerializationInfo(). A failure midway keeps what was decoded before it, and the next call
     * returns that.
     *
     * A text is read up to its first NUL, at most 255 characters. An entry of an unknown kind logs
     * "Invalid type (%d).", yields nothing, and the next entry is read from the same place.
     *
     * @warning Neither the description nor the length of the data is checked here; see validate().
     * An entry size wider than its kind aborts the process.
     *
     * @return the list, owned by this object; null after logging a bad block, "__data is nullptr.",
     *         "basePtr is nullptr.", "Max exceeded (%d)." for more type entries than a block can
     *         have, "Invalid copySize (%d)." for an entry size below 1, or "ptr is nullptr."
     */
    const std::vector<Variant>* getValues(int block) const;

    /** The same for block 0. */
    const std::vector<Variant>* getValues() const;

    /** Whether there is a description; meant for the library itself. */
    OXIL_LOCAL bool __isUsable() const noexcept { return __info != nullptr; }

    /** The description with whatever stands in entries that are not in use; meant for the library
     *  itself. */
    OXIL_LOCAL const SerializationInfo& __getInfo() const noexcept { return *__info; }

    /** The same, to be changed. */
    OXIL_LOCAL SerializationInfo& __getInfo() noexcept { return *__info; }

    /** Leaves neither blocks nor data, and gives the description to be written; meant for the
     *  library itself. */
    OXIL_LOCAL SerializationInfo& __restart() noexcept;

    /** Whether there is such a block; meant for the library itself. */
    OXIL_LOCAL bool __isValidBlock(int block) const noexcept;

    /** Releases the data area if it is owned, and forgets it in any case; meant for the library
     *  itself. */
    OXIL_LOCAL void __dropData() noexcept;

private:
    using Release = void (*)(void*);

    OXIL_LOCAL int __getOffset(int block) const;
    OXIL_LOCAL void __replaceData(void* data, bool owned);

    SerializationInfo* __info;
    Release __release = std::free;
    void* __data = nullptr;
    bool __ownsData = false;
    mutable std::vector<Variant> __values[MAX_BLOCK_COUNT];
    bool __remained = false;
    unsigned int __contextId = 0;
};

}  // namespace oxil
