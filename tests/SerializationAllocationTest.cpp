// What each allocation that fails leaves of data areas, payloads and messages.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "AllocationSweep.h"
#include "OxPayload.h"
#include "OxSerializedData.h"
#include "OxSerializer.h"
#include "OxWireDecoder.h"
#include "OxWireEncoder.h"
#include "Records.h"
#include "SerializerCases.h"

namespace oxil::test {
namespace {

const std::string LONG(100, 'x');

KeyValues sample()
{
    return recordOf({{"name", LONG}, {LONG, 7}, {"half", 0.5}});
}

// ---- SerializedData

TEST(SerializationAllocationTest, ADescriptionIsThereOrTheObjectSaysSo)
{
    failEachAllocation([](Attempt& attempt) {
        const SerializationInfo info = {};
        attempt.mayGoOn();

        attempt.run([&] {
            const SerializedData plain;
            const SerializedData counted(3);
            const SerializedData described(info);
            return STATUS_SUCCESS;
        });

        EXPECT_EQ(attempt.lines().size(), attempt.hasFailed() ? 1u : 0u);
    });
}

TEST(SerializationAllocationTest, ABlockThatCannotBeDecodedIsAsBefore)
{
    failEachAllocation([](Attempt& attempt) {
        SerializedData data;
        EXPECT_EQ(sample().serialize(data), STATUS_SUCCESS);
        const Values* values = nullptr;

        attempt.run([&] {
            values = data.getValues();
            return STATUS_SUCCESS;
        });

        values = data.getValues();
        ASSERT_NE(values, nullptr);
        EXPECT_EQ(*values, Values({"name", LONG, LONG, 7, "half", 0.5}));
    });
}

// ---- Serializer

TEST(SerializationAllocationTest, EveryPayloadIsWrittenOrThereIsNoData)
{
    for (const PackCase& each : packCases()) {
        SCOPED_TRACE(each.name);
        const int failures = failEachAllocation([&](Attempt& attempt) {
            SerializedData data;

            const int r = attempt.run([&] { return each.pack(data); });

            EXPECT_EQ(data.getData() != nullptr, r == STATUS_SUCCESS);
            SerializedData again;
            EXPECT_EQ(each.pack(again), STATUS_SUCCESS);
        });
        EXPECT_GT(failures, 0);
    }
}

TEST(SerializationAllocationTest, ARecordIsReadAsFarAsThereIsMemory)
{
    failEachAllocation([](Attempt& attempt) {
        SerializedData data;
        EXPECT_EQ(sample().serialize(data), STATUS_SUCCESS);
        KeyValues record;

        const int r = attempt.run([&] { return Serializer::deserialize(data, record); });

        if (r == STATUS_SUCCESS) {
            EXPECT_EQ(record, sample());
        }
        KeyValues again;
        EXPECT_EQ(Serializer::deserialize(data, again), STATUS_SUCCESS);
        EXPECT_EQ(again, sample());
    });
}

TEST(SerializationAllocationTest, ListsAreReadAsFarAsThereIsMemory)
{
    const Records list = {sample(), sample(), sample()};
    for (const bool repeated : {false, true}) {
        failEachAllocation([&](Attempt& attempt) {
            SerializedData data;
            EXPECT_EQ(repeated ? Serializer::serialize(list, data, REPEATABLE)
                               : Serializer::serialize(list, data),
                      STATUS_SUCCESS);
            Records records;
            std::vector<KeyValues*> pointers;

            const int r = attempt.run([&] {
                const int first = repeated ? Serializer::deserialize(data, records, REPEATABLE)
                                           : Serializer::deserialize(data, records);
                return first != STATUS_SUCCESS ? first
                       : repeated              ? Serializer::deserialize(data, pointers, REPEATABLE)
                                               : Serializer::deserialize(data, pointers);
            });

            for (KeyValues* each : pointers) {
                records.push_back(*each);
                delete each;
            }
            EXPECT_THAT(records, testing::Each(sample()));
            if (r == STATUS_SUCCESS) {
                EXPECT_EQ(records.size(), 2 * list.size());
            }
        });
    }
}

TEST(SerializationAllocationTest, AMethodCallIsReadOrNot)
{
    failEachAllocation([](Attempt& attempt) {
        SerializedData data;
        EXPECT_EQ(Serializer::serialize({LONG, "b"}, LONG, {1, LONG}, LONG, data), STATUS_SUCCESS);
        Names names;
        std::string method;
        Values params;
        std::string extra;

        const int r = attempt.run(
            [&] { return Serializer::deserialize(data, names, method, params, extra); });

        if (r == STATUS_SUCCESS) {
            EXPECT_EQ(names, Names({LONG, "b"}));
            EXPECT_EQ(method, LONG);
            EXPECT_EQ(params, Values({1, LONG}));
            EXPECT_EQ(extra, LONG);
        }
    });
}

TEST(SerializationAllocationTest, WhatIsNotSerializableIsSaidOrThrown)
{
    failEachAllocation([](Attempt& attempt) {
        const KeyValues record = recordOf({{LONG + LONG + LONG, 1}});
        std::string where;
        attempt.mayGoOn();

        const int r = attempt.run([&] {
            return Serializer::validate(record, &where) == STATUS_INVALID_PARAMETER
                       ? STATUS_SUCCESS
                       : STATUS_FAILURE;
        });

        if (r == STATUS_SUCCESS) {
            EXPECT_EQ(where, LONG + LONG + LONG);
        }
    });
}

// ---- The wire form

TEST(SerializationAllocationTest, EveryPayloadIsEncodedOrTheTextIsAsItWas)
{
    SerializedData data;
    ASSERT_EQ(sample().serialize(data), STATUS_SUCCESS);
    const KeyValues record = sample();
    const Records list = {record, record};
    const std::string method = LONG;
    const Values params = {1, LONG};
    const Payload payloads[] = {data, record, list, {list, REPEATABLE}, {method, params}};
    for (const Payload& payload : payloads) {
        failEachAllocation([&](Attempt& attempt) {
            std::string message = "before";

            const int r = attempt.run([&] { return payload.encode(message); });

            EXPECT_EQ(message == "before", r != STATUS_SUCCESS);
            EXPECT_EQ(message.substr(0, 6), "before");
        });
    }
}

TEST(SerializationAllocationTest, AMessageThatCouldNotBeDecodedIsTakenOutOfTheStream)
{
    std::string message;
    ASSERT_EQ(WireEncoder::encode(sample(), message), STATUS_SUCCESS);
    failEachAllocation([&](Attempt& attempt) {
        WireDecoder decoder;
        KeyValues record;
        bool isAppended = false;

        const int r = attempt.run([&] {
            int status = decoder.append(message.data(), message.size());
            isAppended = true;
            if (status == STATUS_SUCCESS) {
                status = decoder.decode(record);
            }
            return status;
        });

        if (r == STATUS_SUCCESS) {
            EXPECT_EQ(record, sample());
        }
        EXPECT_FALSE(decoder.hasMessage());
        EXPECT_TRUE(isAppended || r == Attempt::THREW);
        EXPECT_EQ(decoder.append(message.data(), message.size()), STATUS_SUCCESS);
        KeyValues again;
        EXPECT_EQ(decoder.decode(again), STATUS_SUCCESS);
        EXPECT_EQ(again, sample());
    });
}

}  // namespace
}  // namespace oxil::test
