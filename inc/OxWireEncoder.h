#pragma once

#include <string>
#include <vector>

#include "OxExport.h"
#include "OxKeyValues.h"
#include "OxSerializedData.h"

namespace oxil {

/**
 * Turns serialized data and records into compact messages, which WireDecoder turns back.
 *
 * A message stands for a description and a data area, and takes what their values take: a record of
 * ten settings 160 bytes instead of 50,064 for the description and 3,000 for the data. It begins
 * with its own length, so that messages can follow each other in a stream, and is the same on every
 * machine. The page on the wire form tells what each byte means.
 *
 * Nothing is lost: WireDecoder makes the same description of what is in use (entries behind the
 * type counts and blocks behind the block count are zero there) and the same data area, byte for
 * byte. The marks of setContextId() and setRemained() are not part of a message, as they are not
 * part of a description.
 *
 * Messages are appended to what a text already holds. After a failure it holds what it held before.
 *
 * @par Threads
 * No shared state, no locks: any number of threads at once, with objects of their own.
 *
 * @par Exceptions
 * `std::bad_alloc` when there is no memory for the text; it is then as it was.
 */
class OXIL_API WireEncoder {
public:
    /**
     * Appends the message of description and data area.
     *
     * The data area has to be as long as its description says.
     *
     * @return STATUS_SUCCESS; STATUS_INVALID_STATE after logging "data is nullptr." when there is
     *         no data area, which even an empty payload has; STATUS_INVALID_PARAMETER after
     *         SerializedData::validate() has logged what is wrong with the description;
     *         STATUS_CAPACITY_EXCEEDED after logging "Message is too long (%llu)." with its length
     *         when that is more than INT_MAX. Entries of unknown kinds are sent, but see
     *         WireLimits::unknownKinds.
     */
    static int encode(const SerializedData& data, std::string& message);

    /**
     * Appends the message of a record: the same bytes, results and log lines as those of
     * KeyValues::serialize() and the function above one after the other, without the detour.
     *
     * @return also STATUS_OUT_OF_MEMORY, and STATUS_INVALID_STATE after logging
     *         "Invalid data size (%d)." for an empty record
     */
    static int encode(const KeyValues& record, std::string& message);

    /**
     * The same for a list of records of one shape, as Serializer::serialize() packs it.
     *
     * @throws std::out_of_range  if the list is empty
     */
    static int encode(const std::vector<KeyValues>& records, std::string& message, Repeatable);
};

}  // namespace oxil
