// The members of KeyValue and KeyValues that write into a SerializedData and read it back.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "FreeObserver.h"
#include "OxKeyValue.h"
#include "OxKeyValues.h"
#include "OxLogMatchers.h"
#include "OxSerializedData.h"
#include "OxStatus.h"
#include "OxVariant.h"
#include "Records.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using Bytes = std::vector<std::uint8_t>;  // exactly sized on the heap, so a step beyond is seen

constexpr std::uint8_t UNTOUCHED = 0xA5;

/** A value of every kind that can be stored, and its bytes. */
struct Sample {
    Variant value;
    Bytes bytes;
};

const std::vector<Sample>& samples()
{
    static const std::vector<Sample> SAMPLES = {
        {Variant(-2), {0xFE, 0xFF, 0xFF, 0xFF}},
        {Variant(3000000000u), {0x00, 0x5E, 0xD0, 0xB2}},
        {Variant(-3L), {0xFD, 0xFF, 0xFF, 0xFF}},
        {Variant(4294967295uL), {0xFF, 0xFF, 0xFF, 0xFF}},
        {Variant(0x0102030405060708LL), {8, 7, 6, 5, 4, 3, 2, 1}},
        {Variant(~0uLL), {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
        {Variant(1.5f), {0x00, 0x00, 0xC0, 0x3F}},
        {Variant(-2.5), {0, 0, 0, 0, 0, 0, 0x04, 0xC0}},
        {Variant(true), {1}},
        {Variant(false), {0}},
        {Variant("ok"), {'o', 'k', 0}},
        {Variant(""), {0}},
    };
    return SAMPLES;
}

int sizeOf(const Variant& value)
{
    return value.getType() == VARIANT_TYPE_STRING ? 256 : value.getValueSize();
}

/** What @p size bytes at @p offset are. */
Bytes part(const Bytes& bytes, std::size_t offset, std::size_t size)
{
    EXPECT_LE(offset + size, bytes.size());
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
    return Bytes(first, first + static_cast<std::ptrdiff_t>(size));
}

Bytes textBytes(const std::string& text)
{
    Bytes bytes(text.begin(), text.end());
    bytes.push_back(0);
    return bytes;
}

/** These bytes at @p offset, and zeros behind them up to the end of their field. */
void expectField(const Bytes& bytes, std::size_t offset, const Bytes& expected, std::size_t size)
{
    SCOPED_TRACE(testing::Message() << "field at " << offset);
    EXPECT_EQ(part(bytes, offset, expected.size()), expected);
    EXPECT_EQ(part(bytes, offset + expected.size(), size - expected.size()),
              Bytes(size - expected.size()));
}

std::vector<int> typesOf(const SerializedData& data, int block)
{
    const SerializationInfo& info = data.getSerializationInfo();
    return std::vector<int>(info.types[block], info.types[block] + info.typeCount[block]);
}

std::vector<int> sizesOf(const SerializedData& data, int block)
{
    const SerializationInfo& info = data.getSerializationInfo();
    return std::vector<int>(info.typeSizes[block], info.typeSizes[block] + info.typeCount[block]);
}

/** Adds entries until @p room more would fill the block's type list. */
void fillBlock(SerializedData& data, int block, int room)
{
    while (data.getTypeCount(block) < MAX_TYPE_COUNT - room) {
        ASSERT_EQ(data.addType(block, VARIANT_TYPE_BOOL), STATUS_SUCCESS);
    }
}

/** A reader's object with these values in this block; @p bytes has to outlive it. */
void describeValues(SerializedData& data, int block, const std::vector<Variant>& values,
                    Bytes& bytes)
{
    data.setBlockCount(block + 1);
    for (const Variant& value : values) {
        ASSERT_EQ(data.addType(block, value.getType()), STATUS_SUCCESS);
        const std::size_t offset = bytes.size();
        bytes.resize(offset + static_cast<std::size_t>(sizeOf(value)));
        ASSERT_GT(value.toRaw(&bytes[offset], sizeOf(value)), 0);
    }
    bytes.resize(bytes.size() + 1);  // also a block without values needs data to be decoded
    ASSERT_EQ(data.setData(bytes.data()), STATUS_SUCCESS);
}

// ---- Describing ---------------------------------------------------------------------------------

TEST(RecordSerializationTest, AnEntryIsDescribedAsATextSlotAndItsValue)
{
    for (const Sample& sample : samples()) {
        SCOPED_TRACE(sample.value.getTypeName());
        const KeyValue entry("key", sample.value);
        const int type = sample.value.getType();
        SerializedData data(3);

        EXPECT_EQ(entry.setSerializedDataInfo(data), STATUS_SUCCESS);
        EXPECT_EQ(entry.setSerializedDataInfo(2, data), STATUS_SUCCESS);

        for (const int block : {0, 2}) {
            EXPECT_THAT(typesOf(data, block), ElementsAre(10, type));
            EXPECT_THAT(sizesOf(data, block), ElementsAre(256, sizeOf(sample.value)));
            EXPECT_EQ(data.getDataSize(block), 256 + sizeOf(sample.value));
        }
        EXPECT_EQ(data.getTypeCount(1), 0);
        EXPECT_EQ(data.getData(), nullptr);
    }
}

TEST(RecordSerializationTest, ARecordIsDescribedEntryByEntry)
{
    const KeyValues record =
        recordOf({KeyValue("a", Variant(1)), KeyValue("b", Variant("x")), KeyValue("c", true)});
    SerializedData data(2);

    EXPECT_EQ(record.setSerializedDataInfo(data), STATUS_SUCCESS);
    EXPECT_EQ(record.setSerializedDataInfo(1, data), STATUS_SUCCESS);
    EXPECT_EQ(KeyValues().setSerializedDataInfo(data), STATUS_SUCCESS);
    EXPECT_EQ(KeyValues().setSerializedDataInfo(7, data), STATUS_SUCCESS);

    for (const int block : {0, 1}) {
        EXPECT_THAT(typesOf(data, block), ElementsAre(10, 1, 10, 10, 10, 9));
        EXPECT_THAT(sizesOf(data, block), ElementsAre(256, 4, 256, 256, 256, 1));
    }
}

TEST(RecordSerializationTest, AnEntryWithoutValueLeavesItsKeyDescribed)
{
    SerializedData data;
    LogCapture log;

    EXPECT_EQ(KeyValue("key", Variant()).setSerializedDataInfo(data), STATUS_INVALID_PARAMETER);

    EXPECT_THAT(typesOf(data, 0), ElementsAre(10));
    EXPECT_THAT(log.lines(),
                ElementsAre(Logged("addType", "Invalid parameter (-1)."),
                            LoggedIn("OxKeyValue.cpp", "setSerializedDataInfo", "r (-22).")));
}

TEST(RecordSerializationTest, ARefusalDeepInsideIsLoggedOnEveryLevel)
{
    const KeyValues record =
        recordOf({KeyValue("a", Variant(1)), KeyValue("b", Variant()), KeyValue("c", 2)});
    SerializedData data;
    LogCapture log;

    EXPECT_EQ(record.setSerializedDataInfo(data), STATUS_INVALID_PARAMETER);

    EXPECT_THAT(typesOf(data, 0), ElementsAre(10, 1, 10));
    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn("OxSerializedData.cpp", "addType", "Invalid parameter (-1)."),
                            LoggedIn("OxKeyValue.cpp", "setSerializedDataInfo", "r (-22)."),
                            LoggedIn("OxKeyValues.cpp", "setSerializedDataInfo", "r (-22).")));
}

TEST(RecordSerializationTest, ABadBlockEndsTheDescription)
{
    const KeyValue entry("a", Variant(1));
    SerializedData data;
    LogCapture log;

    EXPECT_EQ(entry.setSerializedDataInfo(1, data), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(recordOf({entry}).setSerializedDataInfo(-1, data), STATUS_INVALID_PARAMETER);

    EXPECT_EQ(data.getTypeCount(), 0);
    EXPECT_THAT(log.lines(), ElementsAre(Logged("addType", "Invalid parameter (1)."),
                                         Logged("setSerializedDataInfo", "r (-22)."),
                                         Logged("addType", "Invalid parameter (-1)."),
                                         Logged("setSerializedDataInfo", "r (-22)."),
                                         Logged("setSerializedDataInfo", "r (-22).")));
}

TEST(RecordSerializationTest, AFullTypeListEndsTheDescription)
{
    const KeyValues record = recordOf({KeyValue("a", Variant(1)), KeyValue("b", Variant(2))});
    for (const int room : {0, 1, 2, 3}) {
        SCOPED_TRACE(room);
        SerializedData data;
        fillBlock(data, 0, room);
        LogCapture log;

        EXPECT_EQ(record.setSerializedDataInfo(data), STATUS_CAPACITY_EXCEEDED);

        EXPECT_EQ(data.getTypeCount(), 2000);  // what found room stays
        EXPECT_THAT(
            log.lines(),
            ElementsAre(Logged("addType", "Max exceeded (2000)."),
                        LoggedIn("OxKeyValue.cpp", "setSerializedDataInfo", "r (-524268)."),
                        LoggedIn("OxKeyValues.cpp", "setSerializedDataInfo", "r (-524268).")));
    }
    SerializedData data;
    fillBlock(data, 0, 4);
    EXPECT_EQ(record.setSerializedDataInfo(data), STATUS_SUCCESS);
}

// ---- Copying an entry ---------------------------------------------------------------------------

TEST(RecordSerializationTest, AnEntryIsCopiedAsKeySlotAndValue)
{
    for (const Sample& sample : samples()) {
        SCOPED_TRACE(sample.value.getTypeName());
        const KeyValue entry("id", sample.value);
        const int needed = 256 + sizeOf(sample.value);
        const auto size = static_cast<std::size_t>(needed);
        Bytes unchecked(1 + size, UNTOUCHED);
        Bytes checked(1 + size, UNTOUCHED);

        EXPECT_EQ(entry.copySerializedData(&unchecked[1]), needed);
        EXPECT_EQ(entry.copySerializedData(&checked[1], needed), needed);

        EXPECT_EQ(unchecked[0], UNTOUCHED);
        expectField(unchecked, 1, {'i', 'd', 0}, 256);
        expectField(unchecked, 257, sample.bytes, size - 256);
        EXPECT_EQ(checked, unchecked);
    }
}

TEST(RecordSerializationTest, KeysAreCutTo255CharactersAndAtTheirFirstNul)
{
    const std::vector<std::pair<std::string, std::string>> keys = {
        {"", ""},
        {std::string(255, 'k'), std::string(255, 'k')},
        {std::string(256, 'k'), std::string(255, 'k')},
        {std::string(300, 'k'), std::string(255, 'k')},
        {std::string("ab\0cd", 5), "ab"},
        {"100%s %n", "100%s %n"},
    };
    for (const auto& [key, written] : keys) {
        Bytes bytes(257, UNTOUCHED);

        EXPECT_EQ(KeyValue(key, Variant(true)).copySerializedData(bytes.data()), 257);

        expectField(bytes, 0, textBytes(written), 256);
        EXPECT_EQ(bytes[256], 1);
    }
}

TEST(RecordSerializationTest, TextsAreCutTo255CharactersAndAtTheirFirstNul)
{
    const std::vector<std::pair<std::string, std::string>> texts = {
        {std::string(255, 't'), std::string(255, 't')},
        {std::string(256, 't'), std::string(255, 't')},
        {std::string("ab\0cd", 5), "ab"},
        {"100%s %n", "100%s %n"},
    };
    for (const auto& [text, written] : texts) {
        Bytes bytes(512, UNTOUCHED);

        EXPECT_EQ(KeyValue("k", Variant(text)).copySerializedData(bytes.data()), 512);

        expectField(bytes, 0, {'k', 0}, 256);
        expectField(bytes, 256, textBytes(written), 256);
    }
}

TEST(RecordSerializationTest, AnOverLongTextIsNotCopiedAndCountsMinusOne)
{
    for (const std::size_t length : {257u, 1000u}) {
        const KeyValue entry("k", Variant(std::string(length, 't')));
        Bytes bytes(512, UNTOUCHED);
        LogCapture log;

        EXPECT_EQ(entry.copySerializedData(bytes.data()), 255);
        EXPECT_EQ(entry.copySerializedData(bytes.data(), 512), 255);

        expectField(bytes, 0, {'k', 0}, 256);
        EXPECT_EQ(part(bytes, 256, 256), Bytes(256, UNTOUCHED));
        EXPECT_THAT(log.lines(), ElementsAre(Logged("toRaw", "destination is nullptr"),
                                             Logged("toRaw", "destination is nullptr")));
    }
}

TEST(RecordSerializationTest, AMissingValueIsNotCopiedAndCountsMinusOne)
{
    const KeyValue entry("k", Variant());
    Bytes bytes(256, UNTOUCHED);
    LogCapture log;

    EXPECT_EQ(entry.copySerializedData(bytes.data()), 255);
    EXPECT_EQ(entry.copySerializedData(bytes.data(), 255), 255);
    EXPECT_EQ(entry.copySerializedData(bytes.data(), 254), STATUS_FAILURE);

    expectField(bytes, 0, {'k', 0}, 256);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(Logged("toRaw", "Invalid type (0)."), Logged("toRaw", "Invalid type (0)."),
                    Logged("copySerializedData", "Invalid checkSize (255) size( 254)")));
}

TEST(RecordSerializationTest, AnEntryChecksTheSpaceBeforeItWrites)
{
    for (const Sample& sample : samples()) {
        SCOPED_TRACE(sample.value.getTypeName());
        const KeyValue entry("id", sample.value);
        const int needed = 256 + sizeOf(sample.value);
        Bytes bytes(512, UNTOUCHED);
        for (const int size : {1, 255, 256, needed - 1}) {
            LogCapture log;

            EXPECT_EQ(entry.copySerializedData(bytes.data(), size), STATUS_FAILURE);

            EXPECT_THAT(log.lines(),
                        ElementsAre(LoggedIn("OxKeyValue.cpp", "copySerializedData",
                                             "Invalid checkSize (" + std::to_string(needed) +
                                                 ") size( " + std::to_string(size) + ")")));
        }
        EXPECT_EQ(bytes, Bytes(512, UNTOUCHED));
        EXPECT_EQ(entry.copySerializedData(bytes.data(), needed), needed);
    }
}

template <typename T>
void expectUnusableSpaceRefused(const T& entries, const std::string& file)
{
    std::uint8_t byte = UNTOUCHED;
    LogCapture log;

    EXPECT_EQ(entries.copySerializedData(nullptr), STATUS_FAILURE);
    EXPECT_EQ(entries.copySerializedData(nullptr, 512), STATUS_FAILURE);
    EXPECT_EQ(entries.copySerializedData(nullptr, 0), STATUS_FAILURE);
    EXPECT_EQ(entries.copySerializedData(&byte, 0), STATUS_FAILURE);
    EXPECT_EQ(entries.copySerializedData(&byte, -7), STATUS_FAILURE);

    EXPECT_EQ(byte, UNTOUCHED);
    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn(file, "copySerializedData", "data is nullptr."),
                            LoggedIn(file, "copySerializedData", "data is nullptr."),
                            LoggedIn(file, "copySerializedData", "data is nullptr."),
                            LoggedIn(file, "copySerializedData", "Invalid size( 0)"),
                            LoggedIn(file, "copySerializedData", "Invalid size( -7)")));
}

TEST(RecordSerializationTest, ThereHasToBeSpaceToCopyTo)
{
    expectUnusableSpaceRefused(KeyValue("id", Variant(7)), "OxKeyValue.cpp");
    expectUnusableSpaceRefused(KeyValue(), "OxKeyValue.cpp");
    expectUnusableSpaceRefused(recordOf({KeyValue("id", Variant(7))}), "OxKeyValues.cpp");
    expectUnusableSpaceRefused(KeyValues(), "OxKeyValues.cpp");
}

// ---- Copying a record ---------------------------------------------------------------------------

TEST(RecordSerializationTest, ARecordIsCopiedWithoutGapsOrPadding)
{
    const KeyValues record =
        recordOf({KeyValue("b", Variant(true)), KeyValue("i", Variant(7)), KeyValue("t", "x")});
    constexpr int SIZE = 257 + 260 + 512;
    Bytes unchecked(SIZE, UNTOUCHED);
    Bytes checked(SIZE, UNTOUCHED);

    EXPECT_EQ(record.copySerializedData(unchecked.data()), SIZE);
    EXPECT_EQ(record.copySerializedData(checked.data(), SIZE), SIZE);

    expectField(unchecked, 0, {'b', 0}, 256);
    expectField(unchecked, 256, {1}, 1);
    expectField(unchecked, 257, {'i', 0}, 256);
    expectField(unchecked, 513, {7, 0, 0, 0}, 4);
    expectField(unchecked, 517, {'t', 0}, 256);
    expectField(unchecked, 773, {'x', 0}, 256);
    EXPECT_EQ(checked, unchecked);
}

TEST(RecordSerializationTest, AnEmptyRecordCopiesNothing)
{
    std::uint8_t byte = UNTOUCHED;

    EXPECT_EQ(KeyValues().copySerializedData(&byte), 0);
    EXPECT_EQ(KeyValues().copySerializedData(&byte, 1), 0);

    EXPECT_EQ(byte, UNTOUCHED);
}

TEST(RecordSerializationTest, ARecordWritesTheEntryThatCrossesTheEndBeforeItStops)
{
    const KeyValues record =
        recordOf({KeyValue("a", Variant(1)), KeyValue("b", "two"), KeyValue("c", Variant(3))});
    struct Case {
        int size;
        int entriesWritten;
        std::string message;
    };
    const std::vector<Case> cases = {
        {1, 1, "Invalid copySize (260) size( 1)"},
        {259, 1, "Invalid copySize (260) size( 259)"},
        {260, 2, "Invalid copySize (512) size( 260)"},
        {771, 2, "Invalid copySize (512) size( 771)"},
        {772, 3, "Invalid copySize (260) size( 772)"},
        {1031, 3, "Invalid copySize (260) size( 1031)"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.size);
        Bytes bytes(1032, UNTOUCHED);
        LogCapture log;

        EXPECT_EQ(record.copySerializedData(bytes.data(), one.size), STATUS_FAILURE);

        EXPECT_THAT(log.lines(),
                    ElementsAre(LoggedIn("OxKeyValues.cpp", "copySerializedData", one.message)));
        Bytes expected(1032, UNTOUCHED);
        std::size_t offset = 0;
        for (int i = 0; i < one.entriesWritten; ++i) {
            const int size = record.getKeyValue(i).copySerializedData(&expected[offset]);
            offset += static_cast<std::size_t>(size);
        }
        EXPECT_EQ(bytes, expected);
    }
    Bytes bytes(1032);
    EXPECT_EQ(record.copySerializedData(bytes.data(), 1032), 1032);
}

TEST(RecordSerializationTest, WhatFollowsAnOverLongTextLands257BytesEarly)
{
    const KeyValues record = recordOf(
        {KeyValue("a", std::string(300, 't')), KeyValue("b", Variant(5)), KeyValue("c", true)});
    constexpr int SIZE = 255 + 260 + 257;
    Bytes bytes(512 + 260 + 257, UNTOUCHED);
    LogCapture log;

    EXPECT_EQ(record.copySerializedData(bytes.data()), SIZE);

    expectField(bytes, 0, {'a', 0}, 255);
    expectField(bytes, 255, {'b', 0}, 256);
    expectField(bytes, 511, {5, 0, 0, 0}, 4);
    expectField(bytes, 515, {'c', 0}, 256);
    EXPECT_EQ(bytes[771], 1);
    EXPECT_EQ(part(bytes, SIZE, bytes.size() - SIZE), Bytes(bytes.size() - SIZE, UNTOUCHED));
    EXPECT_THAT(log.lines(), ElementsAre(Logged("toRaw", "destination is nullptr")));

    // The check counts what was counted, so an over-long text makes room.
    log.clear();
    EXPECT_EQ(record.copySerializedData(bytes.data(), SIZE), SIZE);
    EXPECT_THAT(log.lines(), ElementsAre(Logged("toRaw", "destination is nullptr")));
    log.clear();
    EXPECT_EQ(record.copySerializedData(bytes.data(), 254), STATUS_FAILURE);
    EXPECT_THAT(log.lines(),
                ElementsAre(Logged("toRaw", "destination is nullptr"),
                            Logged("copySerializedData", "Invalid copySize (255) size( 254)")));
}

// ---- Serializing --------------------------------------------------------------------------------

TEST(RecordSerializationTest, TheSerializedFormIsFixedToTheByte)
{
    const KeyValues record = recordOf({KeyValue("id", Variant(7)), KeyValue("name", "ok")});
    SerializedData data;

    ASSERT_EQ(record.serialize(data), STATUS_SUCCESS);

    EXPECT_EQ(data.getBlockCount(), 1);
    EXPECT_EQ(data.getTypeCount(), 4);
    EXPECT_EQ(data.getDataSize(), 772);
    EXPECT_EQ(data.getTotalDataSize(), 772);
    EXPECT_EQ(data.getRepeatCount(0), 0);
    EXPECT_THAT(typesOf(data, 0), ElementsAre(10, 1, 10, 10));
    EXPECT_THAT(sizesOf(data, 0), ElementsAre(256, 4, 256, 256));
    EXPECT_THAT(data.getSerializationInfo().typeCount, ElementsAre(4, 0, 0, 0, 0));

    const auto* bytes = static_cast<const std::uint8_t*>(data.getData());
    ASSERT_NE(bytes, nullptr);
    const std::vector<std::pair<std::size_t, Bytes>> written = {
        {0, {0x69, 0x64, 0x00}},
        {256, {0x07, 0x00, 0x00, 0x00}},
        {260, {0x6E, 0x61, 0x6D, 0x65, 0x00}},
        {516, {0x6F, 0x6B, 0x00}},
    };
    for (const auto& [offset, expected] : written) {
        EXPECT_EQ(Bytes(bytes + offset, bytes + offset + expected.size()), expected);
    }

    ASSERT_NE(data.getValues(), nullptr);
    EXPECT_THAT(*data.getValues(),
                ElementsAre(Variant("id"), Variant(7), Variant("name"), Variant("ok")));
    EXPECT_EQ(KeyValues(data), record);
}

TEST(RecordSerializationTest, EveryKindComesBackAsItWas)
{
    KeyValues record;
    for (const Sample& sample : samples()) {
        // A byte before each, so that many stand at odd places.
        ASSERT_EQ(record.add("odd" + std::to_string(record.getCount()), Variant(true)),
                  STATUS_SUCCESS);
        ASSERT_EQ(record.add("key" + std::to_string(record.getCount()), sample.value),
                  STATUS_SUCCESS);

        SerializedData single;
        const KeyValue entry("key", sample.value);
        ASSERT_EQ(entry.serialize(single), STATUS_SUCCESS);
        EXPECT_EQ(single.getTotalDataSize(), 256 + sizeOf(sample.value));
        EXPECT_EQ(KeyValue(single), entry);
    }
    SerializedData data;
    ASSERT_EQ(record.serialize(data), STATUS_SUCCESS);

    // What a receiver does: build from the description, lend the bytes.
    const auto* first = static_cast<const std::uint8_t*>(data.getData());
    const Bytes received(first, first + data.getTotalDataSize());
    SerializedData reader(data.getSerializationInfo());
    ASSERT_EQ(SerializedData::validate(reader.getSerializationInfo(), received.size()),
              STATUS_SUCCESS);
    ASSERT_EQ(reader.setData(received.data()), STATUS_SUCCESS);
    KeyValues decoded;
    EXPECT_EQ(decoded.deserialize(reader), STATUS_SUCCESS);
    EXPECT_EQ(decoded, record);
}

TEST(RecordSerializationTest, ALongKeyComesBackAsItsFirst255Characters)
{
    SerializedData data;
    ASSERT_EQ(KeyValue(std::string(300, 'k'), Variant(1)).serialize(data), STATUS_SUCCESS);

    EXPECT_EQ(KeyValue(data), KeyValue(std::string(255, 'k'), Variant(1)));
}

TEST(RecordSerializationTest, TheBufferBelongsToTheTarget)
{
    for (const bool whole : {false, true}) {
        auto data = std::make_unique<SerializedData>();
        const KeyValue entry("id", Variant(7));
        ASSERT_EQ(whole ? recordOf({entry}).serialize(*data) : entry.serialize(*data),
                  STATUS_SUCCESS);
        const FreeObserver observer(data->getData());

        data.reset();

        EXPECT_EQ(observer.count(), 1);
    }
}

TEST(RecordSerializationTest, SerializingIsDoneInBlockZeroOfAnyTarget)
{
    SerializedData data(3);
    ASSERT_EQ(data.addType(2, VARIANT_TYPE_DOUBLE), STATUS_SUCCESS);
    ASSERT_EQ(KeyValue("id", Variant(7)).serialize(data), STATUS_SUCCESS);

    EXPECT_EQ(data.getBlockCount(), 3);
    EXPECT_EQ(data.getTypeCount(0), 2);
    EXPECT_EQ(data.getDataSize(0), 260);
    KeyValue entry;
    EXPECT_EQ(entry.deserialize(data, 0), STATUS_SUCCESS);
    EXPECT_EQ(entry, KeyValue("id", Variant(7)));
}

TEST(RecordSerializationTest, SerializingTwiceDoublesTheDescriptionAndWritesTheFirstHalf)
{
    const KeyValue first("first", Variant(1));
    const KeyValue second("second", Variant(2));
    for (const bool whole : {false, true}) {
        const auto serialize = [whole](const KeyValue& entry, SerializedData& target) {
            return whole ? recordOf({entry}).serialize(target) : entry.serialize(target);
        };
        SerializedData data;
        ASSERT_EQ(serialize(first, data), STATUS_SUCCESS);
        const FreeObserver observer(data.getData());

        const int result = serialize(second, data);
        const int freed = observer.count();

        EXPECT_EQ(result, STATUS_SUCCESS);
        EXPECT_EQ(freed, 1);
        EXPECT_THAT(typesOf(data, 0), ElementsAre(10, 1, 10, 1));
        EXPECT_EQ(data.getTotalDataSize(), 520);
        // The second half is there to be filled.
        auto* bytes = static_cast<std::uint8_t*>(data.getData());
        ASSERT_EQ(first.copySerializedData(bytes + 260), 260);
        KeyValues decoded;
        EXPECT_EQ(decoded.deserialize(data), STATUS_SUCCESS);
        EXPECT_EQ(decoded, recordOf({second, first}));
    }
}

TEST(RecordSerializationTest, WithRepetitionsTheBufferHoldsThemAll)
{
    SerializedData data;
    data.setRepeatCount(0, 3);
    ASSERT_EQ(KeyValue("id", Variant(7)).serialize(data), STATUS_SUCCESS);

    EXPECT_EQ(data.getDataSize(), 3 * 260);
    ASSERT_NE(data.getValues(), nullptr);
    EXPECT_THAT(*data.getValues(), ElementsAre(Variant("id"), Variant(7), Variant(""), Variant(0),
                                               Variant(""), Variant(0)));
}

TEST(RecordSerializationTest, NothingToSerializeIsAnInvalidState)
{
    const KeyValue entry("id", Variant(7));
    SerializedData data;
    SerializedData blockless(0);
    LogCapture log;

    EXPECT_EQ(KeyValues().serialize(data), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn("OxKeyValues.cpp", "serialize", "Invalid data size (0).")));
    EXPECT_EQ(data.getData(), nullptr);

    log.clear();
    EXPECT_EQ(entry.serialize(blockless), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(),
                ElementsAre(Logged("addType", "Invalid parameter (0)."),
                            Logged("setSerializedDataInfo", "r (-22)."),
                            Logged("getDataSize", "Invalid parameter (0)."),
                            LoggedIn("OxKeyValue.cpp", "serialize", "Invalid data size (-1).")));

    log.clear();
    EXPECT_EQ(recordOf({entry}).serialize(blockless), STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(),
                ElementsAre(Logged("addType", "Invalid parameter (0)."),
                            LoggedIn("OxKeyValue.cpp", "setSerializedDataInfo", "r (-22)."),
                            LoggedIn("OxKeyValues.cpp", "setSerializedDataInfo", "r (-22)."),
                            Logged("getDataSize", "Invalid parameter (0)."),
                            LoggedIn("OxKeyValues.cpp", "serialize", "Invalid data size (-1).")));
    EXPECT_EQ(blockless.getData(), nullptr);
}

TEST(RecordSerializationTest, OutOfMemoryKeepsTheDescriptionAndLeavesNoBuffer)
{
    const KeyValue entry("id", Variant(7));
    const KeyValues record = recordOf({entry});
    for (const bool whole : {false, true}) {
        for (const bool used : {false, true}) {
            SCOPED_TRACE(testing::Message() << "whole: " << whole << ", used: " << used);
            SerializedData data;
            if (used) {
                ASSERT_EQ(data.setData(std::malloc(1), TRANSFER_OWNERSHIP), STATUS_SUCCESS);
            }
            LogCapture log;
            int result = 0;
            bool happened = false;
            {
                const AllocationFailure failure(Allocation::Malloc);
                result = whole ? record.serialize(data) : entry.serialize(data);
                happened = failure.happened();
            }

            EXPECT_TRUE(happened);
            EXPECT_EQ(result, STATUS_OUT_OF_MEMORY);
            EXPECT_THAT(log.lines(),
                        ElementsAre(LoggedIn(whole ? "OxKeyValues.cpp" : "OxKeyValue.cpp",
                                             "serialize", "Memory allocation failed.")));
            EXPECT_EQ(data.getData(), nullptr);
            EXPECT_EQ(data.getTypeCount(), 2);
        }
    }
}

TEST(RecordSerializationTest, AnEntryWithoutValueIsSerializedAsItsKeyAlone)
{
    const KeyValue entry("key", Variant());
    for (const bool whole : {false, true}) {
        SerializedData data;
        LogCapture log;

        EXPECT_EQ(whole ? recordOf({entry}).serialize(data) : entry.serialize(data),
                  STATUS_SUCCESS);

        EXPECT_EQ(data.getDataSize(), 256);
        ASSERT_NE(data.getValues(), nullptr);
        EXPECT_THAT(*data.getValues(), ElementsAre(Variant("key")));
        std::vector<testing::Matcher<const LogLine&>> expected = {
            Logged("addType", "Invalid parameter (-1)."),
            Logged("setSerializedDataInfo", "r (-22)."), Logged("toRaw", "Invalid type (0).")};
        if (whole) {
            expected.insert(expected.begin() + 1, Logged("setSerializedDataInfo", "r (-22)."));
        }
        EXPECT_THAT(log.lines(), ElementsAreArray(expected));

        log.clear();
        KeyValue decoded("old", Variant(1));
        EXPECT_EQ(decoded.deserialize(data), STATUS_INVALID_STATE);
        EXPECT_EQ(decoded, KeyValue("old", Variant(1)));
        EXPECT_THAT(log.lines(), ElementsAre(Logged("deserialize", "Invalid key-value pair.")));
    }
}

TEST(RecordSerializationTest, MoreThanWasDescribedIsNeverWrittenBeyondTheBuffer)
{
    // The description ends at "none", but the entries behind it are written as well.
    const KeyValues record = recordOf({KeyValue("a", Variant(1)), KeyValue("none", Variant()),
                                       KeyValue("b", "text"), KeyValue("c", Variant(3))});
    SerializedData data;
    LogCapture log;

    EXPECT_EQ(record.serialize(data), STATUS_SUCCESS);

    EXPECT_EQ(data.getDataSize(), 260 + 256);
    EXPECT_THAT(log.lines(), ElementsAre(Logged("addType", "Invalid parameter (-1)."),
                                         Logged("setSerializedDataInfo", "r (-22)."),
                                         Logged("setSerializedDataInfo", "r (-22)."),
                                         Logged("toRaw", "Invalid type (0).")));
    ASSERT_NE(data.getValues(), nullptr);
    EXPECT_THAT(*data.getValues(), ElementsAre(Variant("a"), Variant(1), Variant("none")));
}

TEST(RecordSerializationTest, ARecordTooLargeForItsBlockIsSerializedAsFarAsItWasDescribed)
{
    KeyValues record;
    for (int i = 0; i < 1002; ++i) {
        ASSERT_EQ(record.add("key" + std::to_string(i), Variant(i % 2 == 0)), STATUS_SUCCESS);
    }
    SerializedData data;
    LogCapture log;

    EXPECT_EQ(record.serialize(data), STATUS_SUCCESS);

    EXPECT_EQ(data.getTypeCount(), 2000);
    EXPECT_EQ(data.getDataSize(), 1000 * 257);
    EXPECT_THAT(log.lines(), ElementsAre(Logged("addType", "Max exceeded (2000)."),
                                         Logged("setSerializedDataInfo", "r (-524268)."),
                                         Logged("setSerializedDataInfo", "r (-524268).")));
    ASSERT_EQ(record.remove(1001), STATUS_SUCCESS);
    ASSERT_EQ(record.remove(1000), STATUS_SUCCESS);
    EXPECT_EQ(KeyValues(data), record);
}

TEST(RecordSerializationTest, AnEntryGoesIntoAFullBlockWithoutBeingDescribed)
{
    SerializedData data;
    fillBlock(data, 0, 0);
    LogCapture log;

    EXPECT_EQ(KeyValue("id", Variant(7)).serialize(data), STATUS_SUCCESS);

    EXPECT_EQ(data.getTypeCount(), 2000);
    EXPECT_THAT(log.lines(), ElementsAre(Logged("addType", "Max exceeded (2000)."),
                                         Logged("setSerializedDataInfo", "r (-524268).")));
    ASSERT_NE(data.getData(), nullptr);
    EXPECT_EQ(std::memcmp(data.getData(), "id", 3), 0);
}

TEST(RecordSerializationTest, AnOverLongTextSpoilsWhatFollowsIt)
{
    const KeyValues record = recordOf({KeyValue("a", std::string(300, 't')), KeyValue("b", 5)});
    SerializedData data;
    LogCapture log;

    EXPECT_EQ(record.serialize(data), STATUS_SUCCESS);

    EXPECT_THAT(log.lines(), ElementsAre(Logged("toRaw", "destination is nullptr")));
    EXPECT_EQ(data.getDataSize(), 512 + 260);
    const auto* bytes = static_cast<const std::uint8_t*>(data.getData());
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(Bytes(bytes + 255, bytes + 257), (Bytes{'b', 0}));
    EXPECT_EQ(Bytes(bytes + 511, bytes + 515), (Bytes{5, 0, 0, 0}));

    // Read by the description, "a" holds the end of the slot of "b", and the second key is empty.
    log.clear();
    KeyValues decoded;
    EXPECT_EQ(decoded.deserialize(data), STATUS_SUCCESS);
    EXPECT_EQ(decoded, recordOf({KeyValue("a", "")}));
    EXPECT_THAT(log.lines(), ElementsAre(Logged("add", "Invalid parameter.")));
}

// ---- Deserializing an entry ---------------------------------------------------------------------

TEST(RecordSerializationTest, AnEntryTakesTheFirstTwoValuesOfItsBlock)
{
    Bytes bytes;
    SerializedData data;
    describeValues(data, 2, {Variant("key"), Variant(7), Variant("more"), Variant(8)}, bytes);
    KeyValue entry("old", Variant(1));

    EXPECT_EQ(entry.deserialize(data, 2), STATUS_SUCCESS);

    EXPECT_EQ(entry, KeyValue("key", Variant(7)));
}

TEST(RecordSerializationTest, KeysOfOtherKindsBecomeText)
{
    const std::vector<std::pair<Variant, std::string>> keys = {
        {Variant(-5), "-5"}, {Variant(true), "1"}, {Variant(1.5f), "1.500000"}};
    for (const auto& [key, text] : keys) {
        Bytes bytes;
        SerializedData data;
        describeValues(data, 0, {key, Variant("value")}, bytes);

        EXPECT_EQ(KeyValue(data), KeyValue(text, Variant("value")));
        EXPECT_EQ(KeyValues(data), recordOf({KeyValue(text, Variant("value"))}));
    }
}

TEST(RecordSerializationTest, AnEmptyKeyIsRefusedAndStillASuccess)
{
    Bytes bytes;
    SerializedData data;
    describeValues(data, 0, {Variant(""), Variant(7), Variant("b"), Variant(8)}, bytes);
    LogCapture log;

    KeyValue entry("old", Variant(1));
    EXPECT_EQ(entry.deserialize(data), STATUS_SUCCESS);
    EXPECT_EQ(entry, KeyValue("old", Variant(1)));
    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxKeyValue.cpp", "set", "Invalid parameter")));

    log.clear();
    KeyValues record;
    EXPECT_EQ(record.deserialize(data), STATUS_SUCCESS);
    EXPECT_EQ(record, recordOf({KeyValue("b", Variant(8))}));
    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxKeyValues.cpp", "add", "Invalid parameter.")));
}

TEST(RecordSerializationTest, ABlockThatCannotBeDecodedIsReportedWithEachRecordTypesOwnCode)
{
    SerializedData data;
    ASSERT_EQ(data.addType(VARIANT_TYPE_INT), STATUS_SUCCESS);
    const KeyValue old("old", Variant(1));
    KeyValue entry = old;
    KeyValues record = recordOf({old});
    LogCapture log;

    EXPECT_EQ(entry.deserialize(data), -524271);
    EXPECT_EQ(entry.deserialize(data, 1), -524271);
    EXPECT_EQ(record.deserialize(data), -22);
    EXPECT_EQ(record.deserialize(data, -1), -22);

    EXPECT_EQ(entry, old);
    EXPECT_EQ(record, recordOf({old}));
    EXPECT_THAT(log.lines(),
                ElementsAre(Logged("getValues", "__data is nullptr."),
                            LoggedIn("OxKeyValue.cpp", "deserialize", "values is nullptr."),
                            Logged("getValues", "Invalid parameter (1)."),
                            LoggedIn("OxKeyValue.cpp", "deserialize", "values is nullptr."),
                            Logged("getValues", "__data is nullptr."),
                            LoggedIn("OxKeyValues.cpp", "deserialize", "values is nullptr."),
                            Logged("getValues", "Invalid parameter (-1)."),
                            LoggedIn("OxKeyValues.cpp", "deserialize", "values is nullptr.")));
}

TEST(RecordSerializationTest, AnOddNumberOfValuesIsReportedWithEachRecordTypesOwnCode)
{
    const KeyValue old("old", Variant(1));
    for (const std::vector<Variant>& values :
         {std::vector<Variant>{Variant("a")},
          std::vector<Variant>{Variant("a"), Variant(1), Variant("b")}}) {
        Bytes bytes;
        SerializedData data;
        describeValues(data, 0, values, bytes);
        KeyValue entry = old;
        KeyValues record = recordOf({old});
        LogCapture log;

        EXPECT_EQ(entry.deserialize(data), -524271);
        EXPECT_EQ(record.deserialize(data), -22);

        EXPECT_EQ(entry, old);
        EXPECT_EQ(record, recordOf({old}));
        EXPECT_THAT(
            log.lines(),
            ElementsAre(LoggedIn("OxKeyValue.cpp", "deserialize", "Invalid key-value pair."),
                        LoggedIn("OxKeyValues.cpp", "deserialize", "Invalid key-value pair.")));
    }
}

TEST(RecordSerializationTest, ABlockWithoutValuesHoldsAnEmptyRecordButNoEntry)
{
    Bytes bytes;
    SerializedData data;
    describeValues(data, 0, {}, bytes);
    const KeyValue old("old", Variant(1));
    KeyValue entry = old;
    KeyValues record = recordOf({old});
    LogCapture log;

    EXPECT_EQ(record.deserialize(data), STATUS_SUCCESS);
    EXPECT_EQ(record, recordOf({old}));
    EXPECT_THAT(log.lines(), IsEmpty());

    EXPECT_EQ(entry.deserialize(data), STATUS_INVALID_STATE);
    EXPECT_EQ(entry, old);
    EXPECT_THAT(log.lines(), ElementsAre(Logged("deserialize", "Invalid key-value pair.")));
}

TEST(RecordSerializationTest, WhatCannotBeReadMakesAnEmptyEntryOrRecord)
{
    const SerializedData data;
    LogCapture log;

    EXPECT_EQ(KeyValue(data), KeyValue());
    EXPECT_EQ(KeyValues(data), KeyValues());

    EXPECT_THAT(log.lines(),
                ElementsAre(Logged("getValues", "__data is nullptr."),
                            LoggedIn("OxKeyValue.cpp", "deserialize", "values is nullptr."),
                            Logged("getValues", "__data is nullptr."),
                            LoggedIn("OxKeyValues.cpp", "deserialize", "values is nullptr.")));
}

// ---- Deserializing a record ---------------------------------------------------------------------

TEST(RecordSerializationTest, ARecordAddsTheEntriesOfABlockInOrder)
{
    Bytes bytes;
    SerializedData data;
    describeValues(data, 1, {Variant("b"), Variant(1), Variant("a"), Variant("x")}, bytes);
    KeyValues record = recordOf({KeyValue("z", Variant(0))});

    EXPECT_EQ(record.deserialize(data, 1), STATUS_SUCCESS);

    EXPECT_EQ(record, recordOf({KeyValue("z", Variant(0)), KeyValue("b", Variant(1)),
                                KeyValue("a", Variant("x"))}));
    EXPECT_EQ(record.getValue("a"), Variant("x"));
}

TEST(RecordSerializationTest, AKeyThatIsThereKeepsItsValue)
{
    Bytes bytes;
    SerializedData data;
    describeValues(data, 0,
                   {Variant("new"), Variant(1), Variant("id"), Variant(2), Variant("new"),
                    Variant(3), Variant("last"), Variant(4)},
                   bytes);
    KeyValues record = recordOf({KeyValue("id", Variant(7))});
    LogCapture log;

    EXPECT_EQ(record.deserialize(data), STATUS_SUCCESS);

    EXPECT_EQ(record, recordOf({KeyValue("id", Variant(7)), KeyValue("new", Variant(1)),
                                KeyValue("last", Variant(4))}));
    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn("OxKeyValues.cpp", "add", "Key(id) already exist."),
                            LoggedIn("OxKeyValues.cpp", "add", "Key(new) already exist.")));
}

TEST(RecordSerializationTest, ARangeOfValuesIsTakenTwoByTwo)
{
    const std::vector<Variant> values = {Variant("skipped"), Variant("a"),  Variant(1),
                                         Variant(2),         Variant(true), Variant("skipped")};
    KeyValues record = recordOf({KeyValue("z", Variant(0))});

    EXPECT_EQ(record.deserialize(values.begin() + 1, values.begin() + 5), STATUS_SUCCESS);
    EXPECT_EQ(record.deserialize(values.begin() + 5, values.begin() + 5), STATUS_SUCCESS);
    EXPECT_EQ(record.deserialize(values.end(), values.end()), STATUS_SUCCESS);

    EXPECT_EQ(record, recordOf({KeyValue("z", Variant(0)), KeyValue("a", Variant(1)),
                                KeyValue("2", Variant(true))}));
}

TEST(RecordSerializationTest, ARangeDropsWhatARecordCannotAdd)
{
    const std::vector<Variant> values = {Variant("a"), Variant(1), Variant(""), Variant(2),
                                         Variant("a"), Variant(3), Variant(),   Variant()};
    KeyValues record;
    LogCapture log;

    EXPECT_EQ(record.deserialize(values.begin(), values.end()), STATUS_SUCCESS);

    EXPECT_EQ(record, recordOf({KeyValue("a", Variant(1)), KeyValue("null", Variant())}));
    EXPECT_THAT(log.lines(), ElementsAre(Logged("add", "Invalid parameter."),
                                         Logged("add", "Key(a) already exist.")));
}

TEST(RecordSerializationTest, ARangeOfOddLengthIsRefusedWhole)
{
    const std::vector<Variant> values = {Variant("a"), Variant(1), Variant("b")};
    for (const int length : {1, 3}) {
        KeyValues record;
        LogCapture log;

        EXPECT_EQ(record.deserialize(values.begin(), values.begin() + length),
                  STATUS_INVALID_PARAMETER);

        EXPECT_EQ(record.getCount(), 0);
        EXPECT_THAT(log.lines(), ElementsAre(LoggedIn("OxKeyValues.cpp", "deserialize",
                                                      "Invalid key-value pair.")));
    }
}

}  // namespace
}  // namespace oxil::test
