#pragma once

#include <string>
#include <vector>

#include "OxExport.h"
#include "OxKeyValues.h"
#include "OxSerializedData.h"
#include "OxVariant.h"

namespace oxil {

/**
 * What a Channel is given to send: one of the payloads that Serializer packs.
 *
 * It is made on the way into a call and only refers to what it is made of, so it must not be kept:
 *
 * @code{.cpp}
 * channel.send(record);
 * channel.send({"setVolume", {40, "soft"}});
 * @endcode
 *
 * For payloads of other layouts pack a SerializedData and send that.
 *
 * @par Threads
 * The thread of what it is made of: encode() reads that.
 */
class OXIL_API Payload {
public:
    /** Description and data area. */
    Payload(const SerializedData& data) noexcept : __kind(Kind::DATA), __subject(&data) {}

    /** A record. */
    Payload(const KeyValues& record) noexcept : __kind(Kind::RECORD), __subject(&record) {}

    /** A list of records. */
    Payload(const std::vector<KeyValues>& records) noexcept
        : __kind(Kind::RECORDS), __subject(&records)
    {
    }

    /** A list of records of one shape. */
    Payload(const std::vector<KeyValues>& records, Repeatable) noexcept
        : __kind(Kind::REPEATED_RECORDS), __subject(&records)
    {
    }

    /** A method call. */
    Payload(const std::string& method, const std::vector<Variant>& params) noexcept
        : __kind(Kind::CALL), __subject(&method), __params(&params)
    {
    }

    /**
     * Appends the message of the wire form.
     *
     * @return STATUS_SUCCESS, or what Serializer::serialize() and WireEncoder::encode() return and
     *         log; @p message is as it was then
     */
    int encode(std::string& message) const;

private:
    enum class Kind { DATA, RECORD, RECORDS, REPEATED_RECORDS, CALL };

    Kind __kind;
    const void* __subject;
    const std::vector<Variant>* __params = nullptr;
};

}  // namespace oxil
