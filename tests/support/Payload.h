#pragma once

#include <functional>
#include <string>
#include <vector>

#include "GoldenEncoder.h"
#include "OxKeyValues.h"
#include "OxSerializedData.h"
#include "OxVariant.h"

namespace oxil::test {

/** A payload in the library's own types. */
struct Payload {
    std::vector<KeyValues> records;
    KeyValue entry;
    std::vector<std::string> names;
    std::string method;
    std::vector<Variant> params;
    std::string text;
};

Payload payloadOf(const GoldenPayload& golden);

/** Says in which part what was unpacked differs from what was packed; empty if it does not. */
std::string difference(const GoldenPayload& golden, const Payload& unpacked);

using Pack = std::function<int(Payload&, SerializedData&)>;
using Unpack = std::function<int(const SerializedData&, Payload&)>;

/** Every overload of the Serializer that packs this layout. */
std::vector<Pack> packsOf(GoldenLayout layout);

/** Every overload of the Serializer that unpacks this layout. */
std::vector<Unpack> unpacksOf(GoldenLayout layout);

}  // namespace oxil::test
