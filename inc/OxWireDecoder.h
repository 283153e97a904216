#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "OxExport.h"
#include "OxKeyValues.h"
#include "OxSerializedData.h"
#include "OxStatus.h"

namespace oxil {

/**
 * What a message may take.
 *
 * The defaults suit messages between applications of one device; whoever expects less should say
 * so, because an empty text is one byte of a message and 320 of memory.
 */
struct WireLimits {
    std::size_t bytes = 1024 * 1024;        ///< of one message
    int blocks = MAX_BLOCK_COUNT;           ///< in one message
    long long values = 65536;               ///< in all blocks, repetitions included
    long long memory = 32LL * 1024 * 1024;  ///< bytes of the data area, and of the values when
                                            ///< they are decoded, counted as DecodingLimits do
    bool unknownKinds = false;              ///< whether entries of unknown kinds are accepted,
                                            ///< each of which logs a line when it is decoded
};

/**
 * Turns messages that WireEncoder has made back into serialized data and records.
 *
 * The static functions decode a message that is there as a whole. An object cuts a stream that
 * arrives in pieces into messages:
 *
 * @code{.cpp}
 * decoder.append(bytes, received);
 * while (decoder.hasMessage()) {
 *     decoder.decode(record);
 * }
 * @endcode
 *
 * Nothing in a message is trusted. No memory is asked for by a number that no bytes have arrived
 * for, but for the slots of texts, which WireLimits::memory bounds. What is accepted passes
 * SerializedData::validate() with the limits given and the size of the data area (but for unknown
 * kinds, where they are accepted), so that no getter leaves it; what roles the blocks play is still
 * the reader's to check.
 *
 * Every refusal is logged once:
 *
 * | message                                                        | status                   |
 * |----------------------------------------------------------------|--------------------------|
 * | "Invalid magic." "Invalid version (%d)."                       | STATUS_INVALID_PARAMETER |
 * | "Invalid message (%zu)." with the bytes read until it was seen | STATUS_INVALID_PARAMETER |
 * | "Message is too long (%llu)." with the length that it claims   | STATUS_CAPACITY_EXCEEDED |
 * | "Too many blocks (%d)."                                        | STATUS_CAPACITY_EXCEEDED |
 * | what SerializedData::validate() says                           | that one's               |
 * | "Memory allocation failed."                                    | STATUS_OUT_OF_MEMORY     |
 *
 * @par Threads
 * No shared state, no locks. One object belongs to one thread at a time.
 *
 * @par Exceptions
 * `std::bad_alloc`: from append(), which has then taken nothing; from the functions that decode
 * records, which keep what was added to them before.
 */
class OXIL_API WireDecoder {
public:
    /**
     * Makes description and data area of the message that is exactly these bytes.
     *
     * @param data  loses what it had, decoded values included, but for the marks of setContextId()
     *              and setRemained(). A borrowed data area is forgotten and stays with its owner.
     *              After a failure there are no blocks and no data.
     * @return STATUS_SUCCESS, or as above
     */
    static int decode(const void* bytes, std::size_t size, SerializedData& data,
                      const WireLimits& limits = WireLimits());

    /**
     * Adds the entries that block 0 of the message holds to a record: the same results and log
     * lines as those of the function above and KeyValues::deserialize() one after the other,
     * without the detour.
     */
    static int decode(const void* bytes, std::size_t size, KeyValues& record,
                      const WireLimits& limits = WireLimits());

    /** The same for a list of records of one shape, which are appended, as
     *  Serializer::deserialize() unpacks it. */
    static int decode(const void* bytes, std::size_t size, std::vector<KeyValues>& records,
                      Repeatable, const WireLimits& limits = WireLimits());

    /**
     * The length of the message that begins here, which is all that is looked at.
     *
     * @param size      bytes that are there, which may be fewer than the message has
     * @param length    0 as long as too few bytes are there to tell
     * @return STATUS_SUCCESS, or as above for magic, version and length
     */
    static int getLength(const void* bytes, std::size_t size, std::size_t& length,
                         const WireLimits& limits = WireLimits());

    /** Makes an empty stream. */
    explicit WireDecoder(const WireLimits& limits = WireLimits());

    /**
     * Appends bytes that have arrived; any number of them, also none.
     *
     * @return STATUS_SUCCESS; as soon as a message begins wrongly or is known to be too long, the
     *         status above, after the log line of getLength(): what follows can't be cut into
     *         messages, so every later call gives the same status, takes nothing and logs nothing.
     *         The messages in front of it can still be decoded.
     */
    int append(const void* bytes, std::size_t size);

    /** Whether the first message has arrived as a whole. */
    bool hasMessage() const noexcept;

    /**
     * Decodes the first message and takes it out of the stream, also when it is refused.
     *
     * @return as the static function; STATUS_NOT_FOUND, without a log line, when there is none
     */
    int decode(SerializedData& data);

    /** The same for a record. */
    int decode(KeyValues& record);

    /** The same for a list of records of one shape. */
    int decode(std::vector<KeyValues>& records, Repeatable);

private:
    template <typename... Target>
    OXIL_LOCAL int __decodeFirst(Target&&... target);

    WireLimits __limits;
    std::string __bytes;
    std::size_t __begin = 0;  // of the messages in them that are not decoded yet
    std::size_t __end = 0;    // of the last one that is whole
    int __status = STATUS_SUCCESS;
};

}  // namespace oxil
