#include "OxPayload.h"

#include "OxSerializer.h"
#include "OxStatus.h"
#include "OxWireEncoder.h"

namespace oxil {
namespace {

/** For payloads that have no shorter way. */
template <typename Pack>
int encodePacked(std::string& message, const Pack& pack)
{
    SerializedData data;
    const int r = data.__isUsable() ? pack(data) : STATUS_OUT_OF_MEMORY;
    return r == STATUS_SUCCESS ? WireEncoder::encode(data, message) : r;
}

}  // namespace

int Payload::encode(std::string& message) const
{
    using Records = std::vector<KeyValues>;

    switch (__kind) {
        case Kind::DATA:
            return WireEncoder::encode(*static_cast<const SerializedData*>(__subject), message);
        case Kind::RECORD:
            return WireEncoder::encode(*static_cast<const KeyValues*>(__subject), message);
        case Kind::RECORDS:
            return encodePacked(message, [&](SerializedData& data) {
                return Serializer::serialize(*static_cast<const Records*>(__subject), data);
            });
        case Kind::REPEATED_RECORDS:
            return WireEncoder::encode(*static_cast<const Records*>(__subject), message,
                                       REPEATABLE);
        case Kind::CALL:
            break;
    }
    return encodePacked(message, [&](SerializedData& data) {
        return Serializer::serialize(*static_cast<const std::string*>(__subject), *__params, data);
    });
}

}  // namespace oxil
