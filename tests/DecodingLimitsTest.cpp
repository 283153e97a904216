// What reading a message may take: values, memory and lines of the log, against what arrived.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "AllocationFailure.h"
#include "OxLogMatchers.h"
#include "OxSerializer.h"
#include "OxStatus.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr long long VALUE = 48;
constexpr long long TEXT = 48 + 272;
constexpr long long PAGE = 4096;

/** A block that holds each of these kinds in the fewest bytes, so many times. */
struct Block {
    std::vector<VariantType> types;
    int repeatCount = 1;
};

/** One byte is enough, but for a number whose text is long. */
int sizeOf(VariantType type)
{
    return type == VARIANT_TYPE_FLOAT || type == VARIANT_TYPE_DOUBLE
               ? Variant::__getNumberSize(type)
               : 1;
}

SerializationInfo described(const std::vector<Block>& blocks)
{
    SerializedData data;
    data.setBlockCount(static_cast<int>(blocks.size()));
    for (std::size_t b = 0; b < blocks.size(); ++b) {
        for (const VariantType type : blocks[b].types) {
            EXPECT_EQ(data.addType(static_cast<int>(b), type, sizeOf(type)), STATUS_SUCCESS);
        }
        data.setRepeatCount(static_cast<int>(b), blocks[b].repeatCount);
    }
    return data.getSerializationInfo();
}

int validated(const SerializationInfo& info, std::size_t size)
{
    return SerializedData::validate(info, size);
}

// ---- The limits ---------------------------------------------------------------------------------

TEST(DecodingLimitsTest, DefaultsAreAFactorOfWhatArrivedAndAConstant)
{
    EXPECT_EQ(SerializedData::getDefaultLimits(0).bytes, 4 * 1024 * 1024);
    EXPECT_EQ(SerializedData::getDefaultLimits(1000).bytes, 4 * 1024 * 1024 + 16 * 1000);
    EXPECT_EQ(SerializedData::getDefaultLimits(0).values, INT_MAX);

    // There is no message of more bytes than an int can tell.
    EXPECT_EQ(SerializedData::getDefaultLimits(SIZE_MAX).bytes, 4 * 1024 * 1024 + 16LL * INT_MAX);
}

TEST(DecodingLimitsTest, ValuesAreCountedInAllBlocksAndRepetitions)
{
    const SerializationInfo info = described(
        {{{VARIANT_TYPE_BOOL}, 1}, {{VARIANT_TYPE_BOOL, VARIANT_TYPE_BOOL}, 3}, {{}, 1000}});
    LogCapture log;

    EXPECT_EQ(SerializedData::validate(info, 7, {7, LLONG_MAX}), STATUS_SUCCESS);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(SerializedData::validate(info, 7, {6, LLONG_MAX}), STATUS_CAPACITY_EXCEEDED);
    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn("OxSerializedData.cpp", "validate", "Too many values (7).")));
}

TEST(DecodingLimitsTest, BytesAreCountedAsTheyAreWhenDecoded)
{
    const SerializationInfo info =
        described({{{VARIANT_TYPE_INT, VARIANT_TYPE_STRING}, 2}, {{VARIANT_TYPE_LONGLONG}, 1}});
    constexpr long long BYTES = 3 * VALUE + 2 * TEXT;
    LogCapture log;

    EXPECT_EQ(SerializedData::validate(info, 300, {INT_MAX, BYTES}), STATUS_SUCCESS);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(SerializedData::validate(info, 300, {INT_MAX, BYTES - 1}), STATUS_CAPACITY_EXCEEDED);
    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn("OxSerializedData.cpp", "validate",
                                     "Too large when decoded (" + std::to_string(BYTES) + ").")));
}

TEST(DecodingLimitsTest, WhatIsWrongIsSaidBeforeWhatIsTooMuch)
{
    SerializationInfo info = described({{{VARIANT_TYPE_BOOL}, 1000}});
    LogCapture log;

    EXPECT_EQ(SerializedData::validate(info, 999, {0, 0}), STATUS_INVALID_PARAMETER);
    info.repeatCount[0] = INT_MAX;
    EXPECT_EQ(SerializedData::validate(info, 1000, {0, 0}), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(SerializedData::validate(described({{}}), 0, {0, 0}), STATUS_SUCCESS);

    EXPECT_THAT(log.lines(), ElementsAre(Logged("validate", "Data is too short (0)."),
                                         Logged("validate", "Data is too short (0).")));
}

// ---- What passes by default ---------------------------------------------------------------------

TEST(DecodingLimitsTest, WithoutRepetitionsEverythingPasses)
{
    const std::vector<VariantType> texts(MAX_TYPE_COUNT, VARIANT_TYPE_STRING);

    EXPECT_EQ(validated(described(std::vector<Block>(MAX_BLOCK_COUNT, {texts})),
                        MAX_BLOCK_COUNT * MAX_TYPE_COUNT + 255),
              STATUS_SUCCESS);
}

TEST(DecodingLimitsTest, FullMessagesOfThePackersPass)
{
    const std::vector<std::string> names(MAX_TYPE_COUNT, std::string(255, 'n'));
    const std::vector<Variant> params(MAX_TYPE_COUNT, Variant(true));
    KeyValues record;
    record.add("k", true);
    SerializedData data[3];
    ASSERT_EQ(Serializer::serialize(names, "method", params, "extra", data[0]), STATUS_SUCCESS);
    ASSERT_EQ(Serializer::serialize(std::vector<KeyValues>(1000, record), data[1]), STATUS_SUCCESS);
    ASSERT_EQ(Serializer::serialize(std::vector<KeyValues>(50000, record), data[2], REPEATABLE),
              STATUS_SUCCESS);

    for (const SerializedData& one : data) {
        EXPECT_EQ(
            validated(one.getSerializationInfo(), static_cast<std::size_t>(one.getTotalDataSize())),
            STATUS_SUCCESS);
    }
}

// ---- The worst that passes by default -----------------------------------------------------------

/** A hostile message in the fewest bytes. */
struct Hostile {
    const char* name;
    std::vector<Block> blocks;
    std::size_t large;  // the block that is repeated as often as it may be
    std::function<int(const SerializedData&)> unpack;
};

template <typename... Outputs>
int unpackList(const SerializedData& data, Outputs... kind)
{
    std::vector<KeyValues> records;
    return Serializer::deserialize(data, records, kind...);
}

template <typename... Outputs>
int unpackPointers(const SerializedData& data, Outputs... kind)
{
    std::vector<KeyValues*> records;
    const int result = Serializer::deserialize(data, records, kind...);
    std::for_each(records.begin(), records.end(), std::default_delete<KeyValues>());
    return result;
}

int unpackCall(const SerializedData& data)
{
    std::string method;
    std::vector<Variant> params;
    return Serializer::deserialize(data, method, params);
}

int unpackNames(const SerializedData& data)
{
    std::string method;
    std::string extra;
    std::vector<std::string> names;
    std::vector<Variant> params;
    return Serializer::deserialize(data, names, method, params, extra);
}

int unpackRecord(const SerializedData& data)
{
    KeyValues record;
    return Serializer::deserialize(data, record);
}

std::vector<Hostile> hostileMessages()
{
    const std::vector<VariantType> flag = {VARIANT_TYPE_BOOL};
    const std::vector<VariantType> text = {VARIANT_TYPE_STRING};
    const std::vector<VariantType> flags = {VARIANT_TYPE_BOOL, VARIANT_TYPE_BOOL};
    const std::vector<VariantType> entry = {VARIANT_TYPE_STRING, VARIANT_TYPE_BOOL};
    const std::vector<VariantType> number = {VARIANT_TYPE_FLOAT, VARIANT_TYPE_BOOL};
    const auto repeated = [](const SerializedData& data) { return unpackList(data, REPEATABLE); };
    const auto pointers = [](const SerializedData& data) {
        return unpackPointers(data, REPEATABLE);
    };
    return {
        {"parameters", {{text}, {flag}}, 1, unpackCall},
        {"texts", {{text}, {text}}, 1, unpackCall},
        {"names", {{flag}, {text}, {}, {text}}, 0, unpackNames},
        {"long names", {{text}, {text}, {}, {text}}, 0, unpackNames},
        {"a record", {{entry}}, 0, unpackRecord},
        {"records", {{flags}}, 0, repeated},
        {"records with texts", {{entry}}, 0, repeated},
        {"records of their own", {{flags}}, 0, pointers},
        {"records of their own with texts", {{entry}}, 0, pointers},
        {"records of their own with numbers as keys", {{number}}, 0, pointers},
    };
}

class WorstMessageTest : public testing::Test {
protected:
    static constexpr std::size_t ARRIVED = 1000 * 1000;

    /** With as many repetitions as pass. */
    static SerializationInfo worst(const Hostile& hostile)
    {
        std::vector<Block> blocks = hostile.blocks;
        int passes = 1;
        int fails = static_cast<int>(ARRIVED) + 1;
        while (fails - passes > 1) {
            LogCapture log;
            blocks[hostile.large].repeatCount = passes + (fails - passes) / 2;
            const bool good = validated(described(blocks), ARRIVED) == STATUS_SUCCESS;
            (good ? passes : fails) = blocks[hostile.large].repeatCount;
        }
        blocks[hostile.large].repeatCount = passes;
        return described(blocks);
    }
};

TEST_F(WorstMessageTest, StaysWithinTheBoundHoweverItIsMade)
{
    const long long bound = SerializedData::getDefaultLimits(ARRIVED).bytes;
    // Texts of 255 characters that differ, although each has only one byte of its own; and numbers
    // whose texts are as long.
    std::vector<std::uint8_t> bytes(ARRIVED);
    std::minstd_rand random;
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(0x7A + random() % 5);
    }

    for (const Hostile& hostile : hostileMessages()) {
        SCOPED_TRACE(hostile.name);
        const SerializationInfo info = worst(hostile);
        SerializedData data(info);
        ASSERT_EQ(data.setData(static_cast<const void*>(bytes.data())), STATUS_SUCCESS);
        const int large = static_cast<int>(hostile.large);

        long long decoded = 0;
        long long whileDecoding = 0;
        {
            const AllocationMeter meter;
            ASSERT_NE(data.getValues(large), nullptr);
            decoded = meter.held();
            whileDecoding = meter.peak();
        }
        const LogCapture log(0);  // keys that are there already
        const AllocationMeter meter;
        EXPECT_EQ(hostile.unpack(data), STATUS_SUCCESS);
        const long long unpacked = decoded + meter.peak();

        EXPECT_LE(decoded, bound + PAGE);  // malloc() rounds up
        EXPECT_LE(whileDecoding, 2 * bound);
        EXPECT_LE(unpacked, 4 * bound);
        // The bound is no wider than it has to be.
        EXPECT_GE(decoded, bound * (sizeof(void*) == 8 ? 95 : 70) / 100);
        RecordProperty(hostile.name, std::to_string(decoded) + " decoded, " +
                                         std::to_string(whileDecoding) + " while decoding, " +
                                         std::to_string(unpacked) + " unpacked");
    }
}

// ---- Lines of the log ---------------------------------------------------------------------------

TEST_F(WorstMessageTest, LogsOneLineForEachValueAtMost)
{
    // Counts that are no INT: a line for each byte that arrived.
    const Hostile counts = {"counts", {{{VARIANT_TYPE_UINT}}, {{}}}, 0, nullptr};
    const std::vector<std::uint8_t> bytes(ARRIVED);
    const SerializationInfo info = worst(counts);
    SerializedData data(info);
    ASSERT_EQ(data.setData(static_cast<const void*>(bytes.data())), STATUS_SUCCESS);
    const LogCapture log(1);

    EXPECT_EQ(unpackList(data), STATUS_SUCCESS);

    EXPECT_THAT(log.lines(), ElementsAre(Logged("toInt", "Invalid conversion (2) to INT")));
    EXPECT_EQ(log.count(), info.repeatCount[0]);
    EXPECT_EQ(log.count(), SerializedData::getDefaultLimits(ARRIVED).bytes / VALUE);
}

TEST_F(WorstMessageTest, LogsOneLineForEachKeyThatIsThereAlready)
{
    const SerializationInfo info = described({{{VARIANT_TYPE_BOOL, VARIANT_TYPE_BOOL}, 5000}});
    const std::vector<std::uint8_t> bytes(10000);
    ASSERT_EQ(validated(info, bytes.size()), STATUS_SUCCESS);
    SerializedData data(info);
    ASSERT_EQ(data.setData(static_cast<const void*>(bytes.data())), STATUS_SUCCESS);
    const LogCapture log(1);

    EXPECT_EQ(unpackRecord(data), STATUS_SUCCESS);

    EXPECT_THAT(log.lines(), ElementsAre(Logged("add", "Key(0) already exist.")));
    EXPECT_EQ(log.count(), 4999);
}

TEST_F(WorstMessageTest, LogsNoMoreLinesThanTheLimitOfValues)
{
    const SerializationInfo info = described({{{VARIANT_TYPE_UINT}, 1000}, {{}}});
    const LogCapture log;

    EXPECT_EQ(SerializedData::validate(info, ARRIVED, {100, LLONG_MAX}), STATUS_CAPACITY_EXCEEDED);

    EXPECT_THAT(log.lines(), ElementsAre(Logged("validate", "Too many values (1000).")));
}

TEST_F(WorstMessageTest, LogsWithoutEndOnlyWhenItIsNotValidated)
{
    // Entries of an unknown kind take no bytes: the repetitions alone say how often they are met.
    SerializationInfo info = described({{{VARIANT_TYPE_BOOL, VARIANT_TYPE_BOOL}, 5000}});
    info.types[0][0] = info.types[0][1] = 99;
    const std::uint8_t byte = 0;
    SerializedData data(info);
    ASSERT_EQ(data.setData(static_cast<const void*>(&byte)), STATUS_SUCCESS);
    {
        const LogCapture log(1);
        EXPECT_THAT(*data.getValues(), IsEmpty());
        EXPECT_THAT(log.lines(), ElementsAre(Logged("getValues", "Invalid type (99).")));
        EXPECT_EQ(log.count(), 10000);
    }

    const LogCapture log;
    EXPECT_EQ(validated(info, 10000), STATUS_INVALID_PARAMETER);
    EXPECT_THAT(log.lines(), ElementsAre(Logged("validate", "Invalid type (99).")));
}

}  // namespace
}  // namespace oxil::test
