// What every byte of a data area holds, and that there are as many as its description says.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "AllocationFailure.h"
#include "FreeObserver.h"
#include "OxLogMatchers.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "Records.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t UNTOUCHED = 0xA5;

Bytes bytesOf(const SerializedData& data)
{
    const auto* first = static_cast<const std::uint8_t*>(data.getData());
    return first != nullptr ? Bytes(first, first + data.getTotalDataSize()) : Bytes();
}

struct Piece {
    std::size_t offset;
    std::string bytes;
};

/** So many zeros, but for these pieces. */
Bytes zerosBut(std::size_t size, const std::vector<Piece>& pieces)
{
    Bytes bytes(size);
    for (const Piece& piece : pieces) {
        std::memcpy(&bytes.at(piece.offset), piece.bytes.data(), piece.bytes.size());
    }
    return bytes;
}

// Numbers with the same bytes on every host.
constexpr int ONES = 0x01010101;
constexpr int TWOS = 0x02020202;
const std::string ONES_BYTES(4, 1);
const std::string TWOS_BYTES(4, 2);

// ---- Bytes that nothing is written to -----------------------------------------------------------

TEST(DataAreaTest, WhatIsLeftOfASlotIsZero)
{
    const DirtyMemory dirty;
    SerializedData data;

    ASSERT_EQ(recordOf({KeyValue("id", ONES), KeyValue("name", "ok")}).serialize(data),
              STATUS_SUCCESS);

    EXPECT_EQ(bytesOf(data),
              zerosBut(772, {{0, "id"}, {256, ONES_BYTES}, {260, "name"}, {516, "ok"}}));
}

TEST(DataAreaTest, WhatIsLeftOfASlotInTheCallersBufferIsZero)
{
    const KeyValue entry("id", std::string("ok\0hidden", 9));
    Bytes one(514, UNTOUCHED);
    Bytes several(514, UNTOUCHED);

    EXPECT_EQ(entry.copySerializedData(&one[1]), 512);
    EXPECT_EQ(recordOf({entry}).copySerializedData(&several[1]), 512);

    Bytes expected = zerosBut(514, {{1, "id"}, {257, "ok"}});
    expected.front() = expected.back() = UNTOUCHED;
    EXPECT_EQ(one, expected);
    EXPECT_EQ(several, expected);
}

TEST(DataAreaTest, RawBytesOfATextAreNoMoreThanTheText)
{
    Bytes bytes(256, UNTOUCHED);

    EXPECT_EQ(Variant("ok").toRaw(bytes.data(), 256), 256);

    Bytes expected(256, UNTOUCHED);
    std::memcpy(expected.data(), "ok", 3);
    EXPECT_EQ(bytes, expected);
}

TEST(DataAreaTest, WhatASecondRecordDoesNotFillIsZero)
{
    const DirtyMemory dirty;
    SerializedData data;
    ASSERT_EQ(KeyValue("first", ONES).serialize(data), STATUS_SUCCESS);

    ASSERT_EQ(KeyValue("second", TWOS).serialize(data), STATUS_SUCCESS);

    EXPECT_EQ(bytesOf(data), zerosBut(520, {{0, "second"}, {256, TWOS_BYTES}}));
}

TEST(DataAreaTest, WhatASecondCallDoesNotFillIsZero)
{
    const DirtyMemory dirty;
    SerializedData data;
    ASSERT_EQ(Serializer::serialize("first", std::vector<Variant>{ONES}, data), STATUS_SUCCESS);

    ASSERT_EQ(Serializer::serialize("second", std::vector<Variant>{TWOS}, data), STATUS_SUCCESS);

    EXPECT_EQ(bytesOf(data), zerosBut(520, {{0, "second"}, {256, TWOS_BYTES}}));
}

TEST(DataAreaTest, WhatLaterRecordsOfOneShapeDoNotFillIsZero)
{
    const DirtyMemory dirty;
    const std::vector<KeyValues> records = {recordOf({KeyValue("first", "text")}),
                                            recordOf({KeyValue("second", ONES)}), KeyValues()};
    SerializedData data;

    ASSERT_EQ(Serializer::serialize(records, data, REPEATABLE), STATUS_SUCCESS);

    EXPECT_EQ(bytesOf(data),
              zerosBut(3 * 512, {{0, "first"}, {256, "text"}, {512, "second"}, {768, ONES_BYTES}}));
}

TEST(DataAreaTest, WhatAnEntryWithoutValueDoesNotFillIsZero)
{
    const DirtyMemory dirty;
    SerializedData data;
    data.setRepeatCount(0, 2);
    LogCapture log;

    ASSERT_EQ(KeyValue("key", Variant()).serialize(data), STATUS_SUCCESS);

    EXPECT_EQ(bytesOf(data), zerosBut(512, {{0, "key"}}));
}

TEST(DataAreaTest, TheSlotOfATextThatIsTooLongIsZeroWhereNothingElseLands)
{
    const DirtyMemory dirty;
    const std::string tooLong(257, 'x');
    LogCapture log;

    SerializedData entry;
    ASSERT_EQ(KeyValue("key", tooLong).serialize(entry), STATUS_SUCCESS);
    EXPECT_EQ(bytesOf(entry), zerosBut(512, {{0, "key"}}));

    SerializedData record;
    ASSERT_EQ(recordOf({KeyValue("key", tooLong), KeyValue("next", ONES)}).serialize(record),
              STATUS_SUCCESS);
    EXPECT_EQ(bytesOf(record), zerosBut(772, {{0, "key"}, {255, "next"}, {511, ONES_BYTES}}));

    SerializedData call;
    ASSERT_EQ(Serializer::serialize("m", {ONES, tooLong}, "extra", call), STATUS_SUCCESS);
    EXPECT_EQ(bytesOf(call), zerosBut(772, {{0, "m"}, {256, ONES_BYTES}, {259, "extra"}}));
}

TEST(DataAreaTest, ATextThatIsTooLongTakesNothingFromWhatIsInFrontOfIt)
{
    const DirtyMemory dirty;
    const std::string tooLong(257, 'x');
    SerializedData call;
    LogCapture log;

    ASSERT_EQ(Serializer::serialize("m", {ONES, tooLong, tooLong}, call), STATUS_SUCCESS);

    EXPECT_EQ(bytesOf(call), zerosBut(772, {{0, "m"}, {256, ONES_BYTES}}));
}

// ---- Bytes behind the end ------------------------------------------------------------------------

TEST(DataAreaTest, TheCheckedCopyOfAnEntryWithoutValueStopsAtTheSize)
{
    for (const std::size_t length : {2u, 254u, 255u, 256u, 300u}) {
        SCOPED_TRACE(length);
        const std::string key(length, 'k');
        Bytes bytes(256, UNTOUCHED);
        LogCapture log;

        EXPECT_EQ(KeyValue(key, Variant()).copySerializedData(bytes.data(), 255), 255);

        Bytes expected = zerosBut(256, {{0, key.substr(0, 255)}});
        expected.back() = UNTOUCHED;
        EXPECT_EQ(bytes, expected);
        EXPECT_THAT(log.lines(), ElementsAre(Logged("toRaw", "Invalid type (0).")));
    }
}

// ---- As many bytes as are described -------------------------------------------------------------

TEST(DataAreaTest, ASingleRecordComesWithTheBytesOfAllBlocks)
{
    for (const bool whole : {false, true}) {
        const DirtyMemory dirty;
        const KeyValue entry("key", ONES);
        SerializedData data(3);
        ASSERT_EQ(data.addType(1, VARIANT_TYPE_STRING), STATUS_SUCCESS);
        ASSERT_EQ(data.addType(2, VARIANT_TYPE_INT), STATUS_SUCCESS);
        data.setRepeatCount(2, 1000);

        ASSERT_EQ(whole ? recordOf({entry}).serialize(data) : entry.serialize(data),
                  STATUS_SUCCESS);

        EXPECT_EQ(bytesOf(data), zerosBut(260 + 256 + 4000, {{0, "key"}, {256, ONES_BYTES}}));
        ASSERT_NE(data.getValues(2), nullptr);
        EXPECT_EQ(*data.getValues(2), std::vector<Variant>(1000, Variant(0)));
    }
}

TEST(DataAreaTest, WhatIsMoreThanAnIntCanCountIsNotDescribedWithFewerBytes)
{
    constexpr int MANY = 1 << 30;  // INTs, which take 4 GiB: none, as an int counts them
    const KeyValue entry("key", ONES);
    const std::function<int(SerializedData&)> serializers[] = {
        [&](SerializedData& data) { return entry.serialize(data); },
        [&](SerializedData& data) { return recordOf({entry}).serialize(data); },
        [&](SerializedData& data) { return Serializer::serialize("m", {}, "extra", data); },
    };
    for (const auto& serialize : serializers) {
        SerializedData data(2);
        ASSERT_EQ(data.addType(1, VARIANT_TYPE_INT), STATUS_SUCCESS);
        data.setRepeatCount(1, MANY);
        LogCapture log;

        EXPECT_EQ(serialize(data), STATUS_OUT_OF_MEMORY);

        EXPECT_EQ(data.getData(), nullptr);
        EXPECT_THAT(log.lines(), ElementsAre(Logged("serialize", "Memory allocation failed.")));
    }
}

TEST(DataAreaTest, ALongListOfOneShapeIsNotDescribedWithFewerBytes)
{
    // 4 GiB, as the first record has 512 bytes; the others have none.
    KeyValues first = recordOf({KeyValue("key", "text")});
    KeyValues empty;
    std::vector<KeyValues*> records(1 << 23, &empty);
    records.front() = &first;
    SerializedData data;
    LogCapture log;

    EXPECT_EQ(Serializer::serialize(records, data, REPEATABLE), STATUS_OUT_OF_MEMORY);

    EXPECT_EQ(data.getData(), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(Logged("serialize", "Memory allocation failed.")));
}

/** A way to fail at serializing into an object that has 260 bytes of data. */
struct Failure {
    const char* name;
    std::function<int(SerializedData&)> serialize;
    int result;
};

std::vector<Failure> failures()
{
    const auto outOfMemory = [](const std::function<int(SerializedData&)>& serialize) {
        return [serialize](SerializedData& data) {
            const AllocationFailure failure(Allocation::Malloc);
            return serialize(data);
        };
    };
    static const KeyValue ENTRY("next", ONES);
    static const KeyValues RECORD = recordOf({ENTRY});
    static const std::vector<Variant> PARAMS = {ONES, Variant()};
    return {
        {"entry", outOfMemory([](SerializedData& data) { return ENTRY.serialize(data); }),
         STATUS_OUT_OF_MEMORY},
        {"record", outOfMemory([](SerializedData& data) { return RECORD.serialize(data); }),
         STATUS_OUT_OF_MEMORY},
        {"list", outOfMemory([](SerializedData& data) {
             return Serializer::serialize(std::vector<KeyValues>{RECORD}, data);
         }),
         STATUS_OUT_OF_MEMORY},
        {"call", [](SerializedData& data) { return Serializer::serialize("m", PARAMS, data); },
         STATUS_INVALID_PARAMETER},
    };
}

TEST(DataAreaTest, AfterAFailureNothingIsReadByTheNewDescriptionFromTheOldData)
{
    for (const Failure& failure : failures()) {
        SCOPED_TRACE(failure.name);
        SerializedData data;
        ASSERT_EQ(KeyValue("old", ONES).serialize(data), STATUS_SUCCESS);
        const FreeObserver observer(data.getData());
        LogCapture log;

        const int result = failure.serialize(data);
        const int freed = observer.count();

        EXPECT_EQ(result, failure.result);
        EXPECT_EQ(freed, 1);
        EXPECT_GT(data.getTotalDataSize(), 260);
        EXPECT_EQ(data.getData(), nullptr);
        log.clear();
        EXPECT_EQ(data.getValues(0), nullptr);
        EXPECT_THAT(log.lines(), ElementsAre(Logged("getValues", "__data is nullptr.")));
    }
}

TEST(DataAreaTest, AfterAFailureBorrowedDataIsForgottenAndStaysWithItsOwner)
{
    for (const Failure& failure : failures()) {
        SCOPED_TRACE(failure.name);
        const std::vector<char> owned(260);
        SerializedData data;
        ASSERT_EQ(data.setData(owned.data()), STATUS_SUCCESS);
        const FreeObserver observer(owned.data());
        LogCapture log;

        const int result = failure.serialize(data);
        const int freed = observer.count();

        EXPECT_EQ(result, failure.result);
        EXPECT_EQ(freed, 0);
        EXPECT_EQ(data.getData(), nullptr);
    }
}

}  // namespace
}  // namespace oxil::test
