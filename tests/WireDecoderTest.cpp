#include "OxWireDecoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "AllocationFailure.h"
#include "FreeObserver.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"
#include "OxWireEncoder.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Records = std::vector<KeyValues>;

/** Bytes, written as numbers. */
std::string bytes(const std::vector<int>& numbers)
{
    std::string text;
    for (const int number : numbers) {
        text += static_cast<char>(number);
    }
    return text;
}

/** The message of these bytes behind the length: the fifth byte and on. */
std::string messageOf(const std::vector<int>& body)
{
    std::string message = bytes({0x4F, 0x78, 1, static_cast<int>(body.size())});
    EXPECT_LT(body.size(), 128u);
    return message + bytes(body);
}

std::string recordMessage()
{
    KeyValues record;
    EXPECT_EQ(record.add("id", 7), STATUS_SUCCESS);
    EXPECT_EQ(record.add("name", "ok"), STATUS_SUCCESS);
    std::string message;
    EXPECT_EQ(WireEncoder::encode(record, message), STATUS_SUCCESS);
    return message;
}

int decode(const std::string& message, SerializedData& data, const WireLimits& limits = {})
{
    // Of just this size, so that a sanitizer sees a step beyond.
    const std::vector<char> exact(message.begin(), message.end());
    return WireDecoder::decode(exact.data(), exact.size(), data, limits);
}

int decode(const std::string& message, KeyValues& record, const WireLimits& limits = {})
{
    const std::vector<char> exact(message.begin(), message.end());
    return WireDecoder::decode(exact.data(), exact.size(), record, limits);
}

int decode(const std::string& message, Records& records, const WireLimits& limits = {})
{
    const std::vector<char> exact(message.begin(), message.end());
    return WireDecoder::decode(exact.data(), exact.size(), records, REPEATABLE, limits);
}

// ---- What is refused ----------------------------------------------------------------------------

struct Refusal {
    std::string name;
    std::string message;
    int status;
    std::string reason;
    WireLimits limits;
};

void PrintTo(const Refusal& refusal, std::ostream* stream)
{
    *stream << refusal.name;
}

Refusal invalid(const std::string& name, const std::string& message, const std::string& reason)
{
    return {name, message, STATUS_INVALID_PARAMETER, reason, {}};
}

std::vector<Refusal> refusals()
{
    std::vector<Refusal> all = {
        invalid("Nothing", "", "Invalid message (0)."),
        invalid("HalfOfTheMagic", "O", "Invalid message (1)."),
        invalid("FirstByteOfTheMagic", "ox\1\1", "Invalid magic."),
        invalid("SecondByteOfTheMagic", "OX\1\1", "Invalid magic."),
        invalid("NoVersion", "Ox", "Invalid message (2)."),
        invalid("VersionZero", bytes({0x4F, 0x78, 0, 2, 1, 0}), "Invalid version (0)."),
        invalid("LaterVersion", bytes({0x4F, 0x78, 2, 1, 0}), "Invalid version (2)."),
        invalid("VersionOfAllBits", bytes({0x4F, 0x78, 255, 1, 0}), "Invalid version (255)."),
        invalid("NoLength", bytes({0x4F, 0x78, 1}), "Invalid message (3)."),
        invalid("HalfOfALength", bytes({0x4F, 0x78, 1, 0x81}), "Invalid message (4)."),
        invalid("LengthOfSixBytes",
                bytes({0x4F, 0x78, 1, 0x81, 0x80, 0x80, 0x80, 0x80, 0, 0, 0, 0, 0}),
                "Invalid message (8)."),
        invalid("LengthOfMoreThan32Bits",
                bytes({0x4F, 0x78, 1, 0x81, 0x80, 0x80, 0x80, 0x10, 0, 0, 0}),
                "Invalid message (8)."),
        invalid("NoBlockCount", messageOf({}), "Invalid message (4)."),
        invalid("BytesBehindNoBlocks", messageOf({0, 0}), "Invalid message (5)."),
        invalid("NoShape", messageOf({1}), "Invalid message (5)."),
        invalid("NoRepeatCount", messageOf({1, 2}), "Invalid message (6)."),
        invalid("NoKinds", messageOf({1, 2, 0}), "Invalid message (7)."),
        invalid("NoEntries", messageOf({1, 2, 0, 9}), "Invalid message (8)."),
        invalid("TooManyTypes", messageOf({1, 0xA2, 0x1F, 0, 1}), "Invalid message (8)."),
        invalid("OddRecords", messageOf({1, 3, 0, 1, 0}), "Invalid message (7)."),
        invalid("ShapeOfSixBytes", messageOf({1, 0x80, 0x80, 0x80, 0x80, 0x80, 0, 0}),
                "Invalid message (10)."),
        invalid("KindNone", messageOf({1, 2, 0, 0, 1}), "Invalid message (8)."),
        invalid("KindNoneOfARecord", messageOf({1, 5, 0, 0, 1, 'k', 1}), "Invalid message (8)."),
        invalid("KindAboveAllOfARecord", messageOf({1, 5, 0, 11, 1, 'k', 1}),
                "Invalid message (8)."),
        invalid("SecondKindNone", messageOf({1, 4, 0, 0x09, 1, 1}), "Invalid message (8)."),
        invalid("BitsThatAreLeftOver", messageOf({1, 2, 0, 0x19, 1}), "Invalid message (8)."),
        invalid("BitsThatAreLeftOverOfRecords", messageOf({1, 5, 0, 0x19, 0, 1}),
                "Invalid message (8)."),
        invalid("NoToldKind", messageOf({1, 2, 0, 15}), "Invalid message (8)."),
        invalid("NoToldSize", messageOf({1, 2, 0, 15, 1}), "Invalid message (9)."),
        invalid("SizeZero", messageOf({1, 2, 0, 15, 1, 0, 1}), "Invalid message (10)."),
        invalid("SizeOf32Bits",
                messageOf({1, 2, 0, 15, 10, 0x80, 0x80, 0x80, 0x80, 0x08, 1}),
                "Invalid message (14)."),
        invalid("TooWide", messageOf({1, 2, 0, 15, 1, 5, 1, 2, 3, 4, 5}),
                "Invalid type size (5)."),
        invalid("UnknownKind", messageOf({1, 2, 0, 15, 11, 1, 1}), "Invalid type (11)."),
        invalid("KindNoneTold", messageOf({1, 2, 0, 15, 0, 1, 1}), "Invalid type (0)."),
        invalid("TextMark", messageOf({1, 2, 0, 15, 10, 2, 4, 1, 1, 1, 1}),
                "Invalid message (11)."),
        invalid("TextCutShort", messageOf({1, 2, 0, 10, 3, 1, 1}), "Invalid message (9)."),
        invalid("SlotCutShort", messageOf({1, 2, 0, 15, 10, 2, 3, 1}), "Invalid message (11)."),
        invalid("NumberCutShort", messageOf({1, 4, 0, 0x91, 1, 2, 3, 4}),
                "Invalid message (8)."),
        invalid("BytesLeftOver", messageOf({1, 2, 0, 9, 1, 1}), "Invalid message (9)."),
        invalid("MoreRepetitionsThanBytes", messageOf({1, 2, 0x08, 9, 1, 1, 1}),
                "Invalid message (8)."),
        // 4 x (2^31 - 1) x (2^31 - 1) bytes, which 64 bits can't count.
        invalid("MoreBlocksThanBytes",
                messageOf({4, 2, 0xFE, 0xFF, 0xFF, 0xFF, 0x0F, 15, 1, 0xFF, 0xFF, 0xFF, 0xFF, 0x07,
                           2, 0xFE, 0xFF, 0xFF, 0xFF, 0x0F, 15, 1, 0xFF, 0xFF, 0xFF, 0xFF, 0x07,
                           2, 0xFE, 0xFF, 0xFF, 0xFF, 0x0F, 15, 1, 0xFF, 0xFF, 0xFF, 0xFF, 0x07,
                           2, 0xFE, 0xFF, 0xFF, 0xFF, 0x0F, 15, 1, 0xFF, 0xFF, 0xFF, 0xFF, 0x07}),
                "Invalid message (18)."),
        // 2 x (2^31 - 1) bytes in one block, which a description can't count.
        invalid("MoreInABlockThan31Bits",
                messageOf({1, 4, 0, 0xFF, 10, 0xFF, 0xFF, 0xFF, 0xFF, 0x07, 10, 0xFF, 0xFF, 0xFF,
                           0xFF, 0x07, 0, 0}),
                "Invalid message (20)."),
        invalid("MoreInTwoBlocksThan31Bits",
                messageOf({2, 2, 0, 15, 10, 0xFF, 0xFF, 0xFF, 0xFF, 0x07, 2, 0, 15, 10, 0xFF, 0xFF,
                           0xFF, 0xFF, 0x07, 0, 0}),
                "Data is too short (1)."),
        invalid("BytesBehindTheMessage", recordMessage() + '\0', "Invalid message (23)."),
        invalid("LastByteMissing", recordMessage().substr(0, 22), "Invalid message (22)."),
        {"LongerThanTheLimit", recordMessage(), STATUS_CAPACITY_EXCEEDED,
         "Message is too long (23).", [] {
             WireLimits limits;
             limits.bytes = 22;
             return limits;
         }()},
        {"SixBlocks", messageOf({6, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}), STATUS_CAPACITY_EXCEEDED,
         "Too many blocks (6).", [] {
             WireLimits limits;
             limits.blocks = 255;
             return limits;
         }()},
        {"MoreBlocksThanTheLimit", messageOf({2, 0, 0, 0, 0}), STATUS_CAPACITY_EXCEEDED,
         "Too many blocks (2).", [] {
             WireLimits limits;
             limits.blocks = 1;
             return limits;
         }()},
        {"MoreValuesThanTheLimit", messageOf({2, 2, 0x06, 9, 2, 2, 9, 1, 1, 1, 0}),
         STATUS_CAPACITY_EXCEEDED, "Too many values (4).", [] {
             WireLimits limits;
             limits.values = 3;
             return limits;
         }()},
        {"MoreMemoryThanTheLimit", messageOf({1, 2, 0, 10, 0}), STATUS_CAPACITY_EXCEEDED,
         "Too large when decoded (320).", [] {
             WireLimits limits;
             limits.memory = 319;
             return limits;
         }()},
        {"MoreMemoryOfRecordsThanTheLimit", messageOf({1, 5, 0, 9, 0, 1}), STATUS_CAPACITY_EXCEEDED,
         "Too large when decoded (368).", [] {
             WireLimits limits;
             limits.memory = 367;
             return limits;
         }()},
        {"MoreValuesOfRecordsThanTheLimit", messageOf({1, 5, 4, 9, 0, 1, 0, 1}),
         STATUS_CAPACITY_EXCEEDED, "Too many values (4).", [] {
             WireLimits limits;
             limits.values = 3;
             return limits;
         }()},
    };
    return all;
}

class WireRefusalTest : public testing::TestWithParam<Refusal> {};

TEST_P(WireRefusalTest, IsLoggedOnceWithItsStatus)
{
    const Refusal& refusal = GetParam();
    LogCapture log;
    SerializedData data;
    KeyValues record;
    Records records;

    EXPECT_EQ(decode(refusal.message, data, refusal.limits), refusal.status);
    EXPECT_EQ(decode(refusal.message, record, refusal.limits), refusal.status);
    EXPECT_EQ(decode(refusal.message, records, refusal.limits), refusal.status);

    ASSERT_EQ(log.count(), 3);
    for (const LogLine& line : log.lines()) {
        EXPECT_EQ(line.message, refusal.reason);
    }
    EXPECT_EQ(record.getCount(), 0);
    EXPECT_THAT(records, IsEmpty());
}

TEST_P(WireRefusalTest, LeavesNothingInTheTarget)
{
    const Refusal& refusal = GetParam();
    LogCapture log;
    SerializedData data;
    ASSERT_EQ(decode(recordMessage(), data), STATUS_SUCCESS);
    ASSERT_NE(data.getValues(), nullptr);
    data.setContextId(17);
    data.setRemained(true);
    {
        const FreeObserver released(data.getData());
        EXPECT_EQ(decode(refusal.message, data, refusal.limits), refusal.status);
        EXPECT_EQ(released.count(), 1);
    }

    EXPECT_EQ(data.getData(), nullptr);
    const SerializationInfo nothing = {};
    EXPECT_EQ(std::memcmp(&data.getSerializationInfo(), &nothing, sizeof nothing), 0);
    EXPECT_EQ(data.getContextId(), 17u);
    EXPECT_TRUE(data.isRemained());

    // Usable, and the values of before are gone.
    data.setBlockCount(1);
    log.clear();
    EXPECT_EQ(data.getValues(0), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(Logged("getValues", "__data is nullptr.")));
}

INSTANTIATE_TEST_SUITE_P(Messages, WireRefusalTest, testing::ValuesIn(refusals()),
                         [](const auto& each) { return each.param.name; });

// ---- What is accepted ---------------------------------------------------------------------------

TEST(WireDecoderTest, LimitsAreTheMostThatIsAccepted)
{
    SerializedData data;
    WireLimits limits;
    limits.bytes = 23;
    limits.blocks = 1;
    limits.values = 4;
    limits.memory = 4 * 48 + 3 * 272;

    // The values take more here than the data area.
    EXPECT_EQ(decode(recordMessage(), data, limits), STATUS_SUCCESS);

    EXPECT_EQ(data.getTotalDataSize(), 772);
}

TEST(WireDecoderTest, ADataAreaHasToFitTheLimitOfMemory)
{
    // A text of one character in a slot of 1,000 bytes, so that the slot is the larger one.
    const std::string message = messageOf({1, 2, 0, 15, 10, 0xE8, 0x07, 1, 'x'});
    WireLimits limits;
    SerializedData data;
    KeyValues record;

    limits.memory = 1000;
    EXPECT_EQ(decode(message, data, limits), STATUS_SUCCESS);

    limits.memory = 999;
    LogCapture log;
    EXPECT_EQ(decode(message, data, limits), STATUS_CAPACITY_EXCEEDED);
    EXPECT_EQ(decode(message, record, limits), STATUS_CAPACITY_EXCEEDED);
    ASSERT_EQ(log.count(), 2);
    EXPECT_EQ(log.lines()[0].message, "Too large when decoded (1000).");
    EXPECT_EQ(log.lines()[1].message, "Too large when decoded (1000).");
}

TEST(WireDecoderTest, AMessageOfNoBlocksIsOne)
{
    SerializedData data;

    EXPECT_EQ(decode(messageOf({0}), data), STATUS_SUCCESS);

    EXPECT_EQ(data.getBlockCount(), 0);
    EXPECT_EQ(data.getTotalDataSize(), 0);
    EXPECT_NE(data.getData(), nullptr);
}

/** Booleans, as many as are said, or as values of records; the first five bytes are its header. */
std::string messageOfBooleans(int typeCount, bool records)
{
    const int told = records ? typeCount / 2 : typeCount;
    const int shape = 2 * typeCount + (records ? 1 : 0);
    std::string body = bytes({1, shape % 128 + 128, shape / 128, 0});
    body += std::string(static_cast<std::size_t>(told / 2), '\x99');
    if (told % 2 != 0) {
        body += '\x09';
    }
    body += std::string(static_cast<std::size_t>(typeCount), '\0');  // also empty texts
    const int size = static_cast<int>(body.size());
    return bytes({0x4F, 0x78, 1, size % 128 + 128, size / 128}) + body;
}

TEST(WireDecoderTest, ABlockHasAsManyTypesAsADescription)
{
    LogCapture log;
    for (const bool records : {false, true}) {
        SCOPED_TRACE(records);
        SerializedData data;
        KeyValues record;
        Records list;

        EXPECT_EQ(decode(messageOfBooleans(2000, records), data), STATUS_SUCCESS);
        EXPECT_EQ(data.getTypeCount(), 2000);

        log.clear();
        const std::string more = messageOfBooleans(records ? 2002 : 2001, records);
        EXPECT_EQ(decode(more, data), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(decode(more, record), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(decode(more, list), STATUS_INVALID_PARAMETER);
        EXPECT_THAT(log.lines(), testing::Each(Logged("decode", "Invalid message (9).")));
        EXPECT_EQ(log.lines().size(), 3u);
    }
}

TEST(WireDecoderTest, VarintsMayBeLongerThanNeeded)
{
    const std::string message = bytes({0x4F, 0x78, 1,    0x95, 0x80, 0x80, 0x80, 0x00,  // length 21
                                       1,                                               // block
                                       0x82, 0x80, 0x80, 0x80, 0x00,                    // one entry
                                       0x83, 0x80, 0x80, 0x80, 0x00,                    // -2
                                       10,                                              // text
                                       0x84, 0x80, 0x80, 0x80, 0x00, 'a',  'b',  'c',  'd'});
    SerializedData data;

    EXPECT_EQ(decode(message, data), STATUS_SUCCESS);

    EXPECT_EQ(data.getRepeatCount(0), -2);
    EXPECT_THAT(*data.getValues(), ElementsAre(Variant("abcd")));
}

TEST(WireDecoderTest, RepeatCountsHaveAll32Bits)
{
    SerializedData data;
    for (const auto& [last, count] :
         {std::pair(std::vector<int>{0xFF, 0xFF, 0xFF, 0xFF, 0x0F}, INT_MIN),
          std::pair(std::vector<int>{0xFE, 0xFF, 0xFF, 0xFF, 0x0F}, INT_MAX)}) {
        std::vector<int> body = {1, 1};
        body.insert(body.end(), last.begin(), last.end());
        ASSERT_EQ(decode(messageOf(body), data), STATUS_SUCCESS);
        EXPECT_EQ(data.getRepeatCount(0), count);
    }
}

TEST(WireDecoderTest, WhatATargetHadIsGone)
{
    SerializedData data(3);
    char area[4] = {1, 0, 0, 0};
    data.addType(1, VARIANT_TYPE_INT);
    data.addType(2, VARIANT_TYPE_INT, 1);
    data.setRepeatCount(2, 9);
    ASSERT_EQ(data.setData(static_cast<const void*>(area)), STATUS_SUCCESS);
    ASSERT_THAT(*data.getValues(1), ElementsAre(Variant(1)));
    data.setContextId(3);

    // Borrowed: it is not released, which a sanitizer would see.
    ASSERT_EQ(decode(messageOf({2, 2, 0, 9, 2, 0, 9, 1, 0}), data), STATUS_SUCCESS);

    EXPECT_THAT(*data.getValues(0), ElementsAre(Variant(true)));
    EXPECT_THAT(*data.getValues(1), ElementsAre(Variant(false)));
    EXPECT_EQ(data.getContextId(), 3u);
    EXPECT_EQ(area[0], 1);
}

TEST(WireDecoderTest, ABorrowedDataAreaIsNotReleased)
{
    char area[4] = {};
    SerializedData data;
    ASSERT_EQ(data.setData(static_cast<const void*>(area)), STATUS_SUCCESS);
    const FreeObserver released(area);
    LogCapture log;

    EXPECT_EQ(decode("", data), STATUS_INVALID_PARAMETER);

    EXPECT_EQ(released.count(), 0);
    EXPECT_EQ(log.count(), 1);
}

// ---- The length ---------------------------------------------------------------------------------

TEST(WireDecoderTest, ALengthIsKnownFromTheFirstBytes)
{
    const std::string message = bytes({0x4F, 0x78, 1, 0x81, 0x01}) + std::string(129, 'x');
    for (std::size_t size = 0; size <= message.size(); ++size) {
        SCOPED_TRACE(size);
        std::size_t length = 99;
        const std::vector<char> exact(message.begin(),
                                      message.begin() + static_cast<std::ptrdiff_t>(size));

        EXPECT_EQ(WireDecoder::getLength(exact.data(), exact.size(), length), STATUS_SUCCESS);

        EXPECT_EQ(length, size < 5 ? 0u : 134u);
    }
}

TEST(WireDecoderTest, ALengthIsRefusedAsSoonAsItCanBe)
{
    struct Row {
        std::string begin;
        int status;
        std::string reason;
    };
    const std::vector<Row> rows = {
        {"o", STATUS_INVALID_PARAMETER, "Invalid magic."},
        {"OX", STATUS_INVALID_PARAMETER, "Invalid magic."},
        {"Ox\2", STATUS_INVALID_PARAMETER, "Invalid version (2)."},
        {bytes({0x4F, 0x78, 1, 0x80, 0x80, 0x80, 0x80, 0x10}), STATUS_INVALID_PARAMETER,
         "Invalid message (8)."},
        {bytes({0x4F, 0x78, 1, 0x80, 0x80, 0x80, 0x80, 0x80}), STATUS_INVALID_PARAMETER,
         "Invalid message (8)."},
        {bytes({0x4F, 0x78, 1, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F}), STATUS_CAPACITY_EXCEEDED,
         "Message is too long (4294967303)."},
        {bytes({0x4F, 0x78, 1, 0x80, 0x80, 0x40}), STATUS_CAPACITY_EXCEEDED,
         "Message is too long (1048582)."},
    };
    for (const Row& row : rows) {
        LogCapture log;
        std::size_t length = 99;

        EXPECT_EQ(WireDecoder::getLength(row.begin.data(), row.begin.size(), length), row.status);

        ASSERT_EQ(log.count(), 1);
        EXPECT_THAT(log.lines(), ElementsAre(Logged("getLength", row.reason)));
        EXPECT_EQ(length, 0u);

        // One byte less is not enough to tell.
        std::size_t shorter = 99;
        EXPECT_EQ(WireDecoder::getLength(row.begin.data(), row.begin.size() - 1, shorter),
                  STATUS_SUCCESS);
        EXPECT_EQ(shorter, 0u);
    }
}

TEST(WireDecoderTest, TheLongestMessageByDefaultHasAMebibyte)
{
    const std::string longest = bytes({0x4F, 0x78, 1, 0xFA, 0xFF, 0x3F});
    std::size_t length = 0;

    EXPECT_EQ(WireDecoder::getLength(longest.data(), longest.size(), length), STATUS_SUCCESS);

    EXPECT_EQ(length, 1024u * 1024u);
}

// ---- Memory -------------------------------------------------------------------------------------

TEST(WireDecoderTest, NumbersThatNoBytesArrivedForAskForNoMemory)
{
    struct Row {
        std::string message;
        std::string reason;
    };
    const std::vector<Row> rows = {
        // 2,000 entries, 2^30 repetitions, 2^31 - 1 bytes of a slot, and of its text.
        {messageOf({1, 0xA0, 0x1F, 0, 9}), "Invalid message (8)."},
        {messageOf({1, 0xA1, 0x1F, 0, 9}), "Invalid message (8)."},
        {messageOf({1, 2, 0x80, 0x80, 0x80, 0x80, 0x08, 9, 1}), "Invalid message (12)."},
        {messageOf({1, 5, 0x80, 0x80, 0x80, 0x80, 0x08, 10, 0, 0}), "Invalid message (12)."},
        {messageOf({1, 2, 0, 15, 10, 0xFF, 0xFF, 0xFF, 0xFF, 0x07, 0}),
         "Too large when decoded (2147483647)."},
        {messageOf({1, 2, 0, 15, 10, 0xFF, 0xFF, 0xFF, 0x0F, 0xFF, 0xFF, 0xFF, 0x0F}),
         "Too large when decoded (33554431)."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.reason);
        const std::vector<char> exact(row.message.begin(), row.message.end());
        WireLimits limits;
        limits.memory = 20 * 1024 * 1024;
        SerializedData data;
        KeyValues record;
        Records records;
        LogCapture log;

        const AllocationMeter meter;
        EXPECT_LT(WireDecoder::decode(exact.data(), exact.size(), data, limits), 0);
        EXPECT_LT(WireDecoder::decode(exact.data(), exact.size(), record, limits), 0);
        EXPECT_LT(WireDecoder::decode(exact.data(), exact.size(), records, REPEATABLE, limits), 0);

        EXPECT_LT(meter.peak(), 60000);  // a description, and the captured lines
        ASSERT_EQ(log.count(), 3);
        for (const LogLine& line : log.lines()) {
            EXPECT_EQ(line.message, row.reason);
        }
    }
}

}  // namespace
}  // namespace oxil::test
