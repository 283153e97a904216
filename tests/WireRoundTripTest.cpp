// What comes back from a message is what went in, byte for byte, whatever it is.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "GoldenWireEncoder.h"
#include "OxLogMatchers.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "OxWireDecoder.h"
#include "OxWireEncoder.h"
#include "Payload.h"
#include "WireSamples.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;

testing::AssertionResult isSame(const SerializedData& actual, const SerializedData& expected)
{
    const SerializationInfo info = usedPartOf(expected.getSerializationInfo());
    if (std::memcmp(&actual.getSerializationInfo(), &info, sizeof info) != 0) {
        return testing::AssertionFailure() << "the descriptions differ";
    }
    const auto size = static_cast<std::size_t>(expected.getTotalDataSize());
    if (actual.getData() == nullptr ||
        std::memcmp(actual.getData(), expected.getData(), size) != 0) {
        return testing::AssertionFailure() << "the data areas differ";
    }
    return testing::AssertionSuccess();
}

/** The message has to be the witness's, and what comes of it what went in. */
void expectRoundTrip(const SerializedData& data, const WireLimits& limits = WireLimits())
{
    std::string message;
    ASSERT_EQ(WireEncoder::encode(data, message), STATUS_SUCCESS);
    ASSERT_TRUE(message == textOf(encodeWire(bytesOf(data))));

    SerializedData decoded;
    ASSERT_EQ(WireDecoder::decode(message.data(), message.size(), decoded, limits), STATUS_SUCCESS);
    ASSERT_TRUE(isSame(decoded, data));
}

/** Reads all that there is, so that a sanitizer sees a step beyond. */
void readAll(const SerializedData& data)
{
    for (int block = 0; block < data.getBlockCount(); ++block) {
        ASSERT_NE(data.getValues(block), nullptr);
    }
}

TEST(WireRoundTripTest, AnythingLegalComesBackAsItWas)
{
    Random random(20261122);
    for (int i = 0; i < 500; ++i) {
        SCOPED_TRACE(i);
        SerializedData data;
        fill(random, data);
        ASSERT_NO_FATAL_FAILURE(expectRoundTrip(data));
    }
}

TEST(WireRoundTripTest, WhatCameBackCanBeRead)
{
    Random random(7);
    for (int i = 0; i < 200; ++i) {
        SCOPED_TRACE(i);
        SerializedData data;
        fill(random, data);
        std::string message;
        ASSERT_EQ(WireEncoder::encode(data, message), STATUS_SUCCESS);
        SerializedData decoded;
        ASSERT_EQ(WireDecoder::decode(message.data(), message.size(), decoded), STATUS_SUCCESS);

        ASSERT_NO_FATAL_FAILURE(readAll(decoded));
    }
}

TEST(WireRoundTripTest, ANarrowTextAtTheEndIsReadUpToItsEnd)
{
    char area[] = {'a', 'b', 'c'};
    SerializedData data;
    data.addType(VARIANT_TYPE_STRING, 3);
    data.setData(static_cast<const void*>(area));
    std::string message;
    ASSERT_EQ(WireEncoder::encode(data, message), STATUS_SUCCESS);
    SerializedData decoded;
    ASSERT_EQ(WireDecoder::decode(message.data(), message.size(), decoded), STATUS_SUCCESS);

    EXPECT_THAT(*decoded.getValues(), ElementsAre(Variant("abc")));
}

TEST(WireRoundTripTest, UnknownKindsComeBackWhereTheyAreWanted)
{
    WireLimits limits;
    limits.unknownKinds = true;
    Random random(5);
    for (int i = 0; i < 200; ++i) {
        SCOPED_TRACE(i);
        SerializedData data;
        fill(random, data, true);
        ASSERT_NO_FATAL_FAILURE(expectRoundTrip(data, limits));
    }
}

TEST(WireRoundTripTest, UnknownKindsAreRefusedWhereTheyAreNotExpected)
{
    const char area[] = {1, 2, 3};
    SerializedData data;
    data.addType(static_cast<VariantType>(11), 3);
    data.setData(static_cast<const void*>(area));
    std::string message;
    ASSERT_EQ(WireEncoder::encode(data, message), STATUS_SUCCESS);
    LogCapture log;

    SerializedData decoded;
    EXPECT_EQ(WireDecoder::decode(message.data(), message.size(), decoded),
              STATUS_INVALID_PARAMETER);

    ASSERT_EQ(log.count(), 1);
    EXPECT_EQ(log.lines()[0].message, "Invalid type (11).");
}

TEST(WireRoundTripTest, AnUnknownKindLogsALineWhereItIsRead)
{
    const char area[] = {1, 2, 3, 7, 0, 0, 0};
    SerializedData data;
    data.addType(static_cast<VariantType>(11), 3);
    data.addType(VARIANT_TYPE_INT);
    data.setData(static_cast<const void*>(area));
    WireLimits limits;
    limits.unknownKinds = true;
    std::string message;
    ASSERT_EQ(WireEncoder::encode(data, message), STATUS_SUCCESS);
    SerializedData decoded;
    ASSERT_EQ(WireDecoder::decode(message.data(), message.size(), decoded, limits), STATUS_SUCCESS);
    LogCapture log;

    EXPECT_THAT(*decoded.getValues(), ElementsAre(Variant(0x07030201)));

    EXPECT_THAT(log.lines(), ElementsAre(Logged("getValues", "Invalid type (11).")));
}

// ---- What Serializer packs ----------------------------------------------------------------------

TEST(WireRoundTripTest, WhateverSerializerPacksComesBack)
{
    for (const GoldenPayload& golden : goldenPayloads()) {
        SCOPED_TRACE(golden.name);
        for (const Pack& pack : packsOf(golden.layout)) {
            Payload payload = payloadOf(golden);
            SerializedData data;
            ASSERT_EQ(pack(payload, data), STATUS_SUCCESS);
            ASSERT_NO_FATAL_FAILURE(expectRoundTrip(data));
        }
    }
}

TEST(WireRoundTripTest, ATextThatIsTooLongShiftsTheSameBytesHereAndThere)
{
    const LogCapture refusedTexts;
    for (const std::size_t length : {255u, 256u, 257u, 300u, 1000u}) {
        SCOPED_TRACE(length);
        const std::string text(length, 't');
        KeyValues record;
        ASSERT_EQ(record.add("before", 1), STATUS_SUCCESS);
        ASSERT_EQ(record.add(text, text), STATUS_SUCCESS);
        ASSERT_EQ(record.add("behind", 0x01020304), STATUS_SUCCESS);
        const std::vector<Variant> params = {1, text, 3.5, text, "behind"};

        SerializedData packed[10];
        ASSERT_EQ(Serializer::serialize(record, packed[0]), STATUS_SUCCESS);
        ASSERT_EQ(Serializer::serialize(KeyValue(text, text), packed[1]), STATUS_SUCCESS);
        ASSERT_EQ(Serializer::serialize(text, Variant(text), packed[2]), STATUS_SUCCESS);
        ASSERT_EQ(Serializer::serialize(record, KeyValue("k", text), packed[3]), STATUS_SUCCESS);
        ASSERT_EQ(Serializer::serialize(record, text, params, packed[4]), STATUS_SUCCESS);
        ASSERT_EQ(Serializer::serialize(text, params, packed[5]), STATUS_SUCCESS);
        ASSERT_EQ(Serializer::serialize(text, params, text, packed[6]), STATUS_SUCCESS);
        ASSERT_EQ(Serializer::serialize({text, "n"}, text, params, text, packed[7]),
                  STATUS_SUCCESS);
        const std::vector<KeyValues> records = {record, record, {}};
        ASSERT_EQ(Serializer::serialize(records, packed[8]), STATUS_SUCCESS);
        ASSERT_EQ(Serializer::serialize(records, packed[9], REPEATABLE), STATUS_SUCCESS);
        for (const SerializedData& data : packed) {
            ASSERT_NO_FATAL_FAILURE(expectRoundTrip(data));
        }
    }
}

TEST(WireRoundTripTest, RecordsSerializedTwiceComeBack)
{
    // The second half of the data area is zero, which is no text and no number of its own.
    KeyValues record;
    ASSERT_EQ(record.add("id", 7), STATUS_SUCCESS);
    SerializedData data;
    ASSERT_EQ(record.serialize(data), STATUS_SUCCESS);
    ASSERT_EQ(record.serialize(data), STATUS_SUCCESS);

    expectRoundTrip(data);
}

}  // namespace
}  // namespace oxil::test
