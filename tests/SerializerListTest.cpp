#include "OxSerializer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "AllocationFailure.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"
#include "Records.h"
#include "SerializedBytes.h"
#include "SerializerCases.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

class SerializerListTest : public testing::TestWithParam<ListForm> {
protected:
    Unpacked unpackList(const SerializedData& data) { return unpack(data, GetParam(), false); }
    Unpacked unpackRepeated(const SerializedData& data) { return unpack(data, GetParam(), true); }

    void expectList(const SerializedData& data, const Records& expected)
    {
        const Unpacked out = unpackList(data);
        EXPECT_EQ(out.result, STATUS_SUCCESS);
        EXPECT_TRUE(sameRecords(out.records, expected));
    }

    void expectRepeated(const SerializedData& data, const Records& expected)
    {
        const Unpacked out = unpackRepeated(data);
        EXPECT_EQ(out.result, STATUS_SUCCESS);
        EXPECT_TRUE(sameRecords(out.records, expected));
    }

    int packRepeated(Records records, SerializedData& data)
    {
        return GetParam() == ListForm::Copies
                   ? Serializer::serialize(records, data, REPEATABLE)
                   : Serializer::serialize(pointersTo(records), data, REPEATABLE);
    }

    int packList(Records records, SerializedData& data)
    {
        return GetParam() == ListForm::Copies ? Serializer::serialize(records, data)
                                              : Serializer::serialize(pointersTo(records), data);
    }
};

std::string formNameOf(const testing::TestParamInfo<ListForm>& info)
{
    return info.param == ListForm::Copies ? "copies" : "on_heap";
}

INSTANTIATE_TEST_SUITE_P(Forms, SerializerListTest,
                         testing::Values(ListForm::Copies, ListForm::OnHeap), formNameOf);

// ---- Lists of records ---------------------------------------------------------------------------

TEST(SerializerAnyListTest, PacksCountsAndThenTheEntriesOfAllRecords)
{
    const Records records = {recordOf({{"a", 1}, {"b", 2}}),
                             recordOf({{"a", 3}, {"b", "t"}, {"c", true}})};
    SerializedData data;
    ASSERT_EQ(Serializer::serialize(records, data), STATUS_SUCCESS);

    EXPECT_EQ(blocksOf(data),
              (std::vector<Types>{{INT, INT},
                                  {TEXT, INT, TEXT, INT, TEXT, INT, TEXT, TEXT, TEXT, BOOL}}));
    EXPECT_EQ(data.getDataSize(0), 8);
    EXPECT_EQ(intAt(data, 0), 2);
    EXPECT_EQ(intAt(data, 4), 3);
    EXPECT_EQ(textAt(data, 8), "a");
    EXPECT_EQ(intAt(data, 8 + 256), 1);
    EXPECT_EQ(textAt(data, 8 + 520), "a");
    EXPECT_EQ(intAt(data, 8 + 520 + 256), 3);
}

TEST_P(SerializerListTest, PassesRecordsOfAnyShape)
{
    SerializedData data;
    ASSERT_EQ(packList(sampleRecords(), data), STATUS_SUCCESS);

    expectList(data, sampleRecords());
}

TEST_P(SerializerListTest, LosesEmptyRecords)
{
    SerializedData data;
    ASSERT_EQ(
        packList({KeyValues(), small("a", 1), KeyValues(), KeyValues(), small("b", 2), KeyValues()},
                 data),
        STATUS_SUCCESS);

    EXPECT_EQ(valuesOf(data, 0), (Values{0, 1, 0, 0, 1, 0}));
    expectList(data, {small("a", 1), small("b", 2)});

    SerializedData onlyEmpty;
    ASSERT_EQ(packList({KeyValues(), KeyValues()}, onlyEmpty), STATUS_SUCCESS);
    EXPECT_EQ(blocksOf(onlyEmpty), (std::vector<Types>{{INT, INT}, {}}));
    expectList(onlyEmpty, {});
}

TEST_P(SerializerListTest, PassesAListWithoutRecords)
{
    SerializedData data(4);
    EXPECT_EQ(packList({}, data), STATUS_SUCCESS);

    EXPECT_EQ(blocksOf(data), (std::vector<Types>{{}, {}}));
    EXPECT_EQ(data.getTotalDataSize(), 0);
    expectList(data, {});
}

TEST_P(SerializerListTest, TakesAThousandRecordsOfOneEntryAndNoMore)
{
    const Records thousand(1000, small("k", 1));
    SerializedData data;
    EXPECT_EQ(packList(thousand, data), STATUS_SUCCESS);
    EXPECT_EQ(data.getTypeCount(0), 1000);
    EXPECT_EQ(data.getTypeCount(1), 2000);
    expectList(data, thousand);

    LogCapture log;
    SerializedData tooSmall;
    EXPECT_EQ(packList(Records(1001, small("k", 1)), tooSmall), STATUS_CAPACITY_EXCEEDED);
    EXPECT_THAT(log.lines(), ElementsAreArray(refused(-524268, {ENTRY_FILE, RECORD_FILE})));
    EXPECT_EQ(tooSmall.getTypeCount(0), 1001);
    EXPECT_EQ(tooSmall.getTypeCount(1), 2000);
    EXPECT_EQ(tooSmall.getData(), nullptr);
}

TEST(SerializerAnyListTest, SkipsNullRecordsOfAList)
{
    KeyValues first = small("a", 1);
    KeyValues second = small("b", 2);
    const Pointers pointers = {nullptr, &first, nullptr, &second, nullptr};

    SerializedData data;
    EXPECT_EQ(Serializer::serialize(pointers, data), STATUS_SUCCESS);
    EXPECT_EQ(blocksOf(data), (std::vector<Types>{{INT, INT}, {TEXT, INT, TEXT, INT}}));
    Records records;
    EXPECT_EQ(Serializer::deserialize(data, records), STATUS_SUCCESS);
    EXPECT_TRUE(sameRecords(records, {first, second}));

    SerializedData repeated;
    EXPECT_EQ(Serializer::serialize(pointers, repeated, REPEATABLE), STATUS_SUCCESS);
    EXPECT_EQ(blocksOf(repeated), (std::vector<Types>{{TEXT, INT}}));
    EXPECT_EQ(repeated.getRepeatCount(0), 2);
    records.clear();
    EXPECT_EQ(Serializer::deserialize(repeated, records, REPEATABLE), STATUS_SUCCESS);
    EXPECT_TRUE(sameRecords(records, {first, second}));

    const Pointers nothing = {nullptr, nullptr};
    SerializedData none;
    EXPECT_EQ(Serializer::serialize(nothing, none), STATUS_SUCCESS);
    EXPECT_EQ(blocksOf(none), (std::vector<Types>{{}, {}}));
    SerializedData repeatedNone;
    EXPECT_EQ(Serializer::serialize(nothing, repeatedNone, REPEATABLE), STATUS_SUCCESS);
    EXPECT_EQ(blocksOf(repeatedNone), (std::vector<Types>{{}}));
    EXPECT_EQ(repeatedNone.getTotalDataSize(), 0);
}

TEST_P(SerializerListTest, ReadsNoMoreEntriesThanThereAre)
{
    struct Row {
        std::string name;
        Values counts;
        Values entries;
        Records records;
        bool promisedTooMuch;
    };
    const Values pair = {"a", 1};
    const Values twoPairs = {"a", 1, "b", 2};
    const std::vector<Row> rows = {
        {"the first promises too much", {3, 1}, twoPairs, {}, true},
        {"a later one promises too much", {1, 2}, twoPairs, {small("a", 1)}, true},
        {"one too many", {1, 1, 1}, twoPairs, {small("a", 1), small("b", 2)}, true},
        {"nothing there", {1}, {}, {}, true},
        {"half an entry", {1}, {"a"}, {}, true},
        {"an entry and a half", {1, 1}, {"a", 1, "b"}, {small("a", 1)}, true},
        {"the greatest count", {INT_MAX}, twoPairs, {}, true},
        {"twice the count is too great for an int", {1 << 30}, twoPairs, {}, true},
        {"twice the count would come out as two", {INT_MIN + 1}, twoPairs, {}, false},
        {"counts below one",
         {0, -1, 1, INT_MIN, 1},
         twoPairs,
         {small("a", 1), small("b", 2)},
         false},
        {"entries left over", {1}, twoPairs, {small("a", 1)}, false},
        {"half an entry left over", {1}, {"a", 1, "b"}, {small("a", 1)}, false},
        {"no counts", {}, pair, {}, false},
        {"a boolean for one", {true}, pair, {small("a", 1)}, false},
    };

    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Sent sent({row.counts, row.entries});
        const auto data = sent.receive();
        LogCapture log;

        const Unpacked out = unpackList(*data);

        EXPECT_EQ(out.result, row.promisedTooMuch ? STATUS_INVALID_PARAMETER : STATUS_SUCCESS);
        EXPECT_TRUE(sameRecords(out.records, row.records));
        if (row.promisedTooMuch) {
            EXPECT_THAT(log.lines(), ElementsAre(failed("Invalid state.")));
        } else {
            EXPECT_THAT(log.lines(), IsEmpty());
        }
    }
}

TEST_P(SerializerListTest, TakesACountThatIsNoIntForNone)
{
    Sent sent({{"1", 1, 1u}, {"a", 1, "b", 2}});
    const auto data = sent.receive();
    LogCapture log;

    expectList(*data, {small("a", 1)});

    EXPECT_THAT(log.lines(), ElementsAre(Logged("toInt", "Invalid conversion (10) to INT"),
                                         Logged("toInt", "Invalid conversion (2) to INT")));
}

TEST_P(SerializerListTest, DropsEntriesThatARecordCannotTake)
{
    Sent sent({{3, 1}, {"a", 1, "a", 2, "", 3, 4, 5}});
    const auto data = sent.receive();
    LogCapture log;

    expectList(*data, {small("a", 1), small("4", 5)});

    EXPECT_THAT(log.lines(), ElementsAre(LoggedIn(RECORD_FILE, "add", "Key(a) already exist."),
                                         LoggedIn(RECORD_FILE, "add", "Invalid parameter.")));
}

// ---- Lists of records of one shape --------------------------------------------------------------

TEST_P(SerializerListTest, DescribesRecordsOfOneShapeOnce)
{
    SerializedData data(4);
    ASSERT_EQ(packRepeated(sampleRecordsOfOneShape(), data), STATUS_SUCCESS);

    EXPECT_EQ(blocksOf(data), (std::vector<Types>{{TEXT, INT, TEXT, BOOL}}));
    EXPECT_EQ(data.getRepeatCount(0), 3);
    EXPECT_EQ(data.getDataSize(), 3 * 517);
    EXPECT_EQ(intAt(data, 517 + 256), -1);
    expectRepeated(data, sampleRecordsOfOneShape());
}

TEST_P(SerializerListTest, TakesAnyNumberOfRecordsOfOneShape)
{
    for (const std::size_t count : {std::size_t{1}, std::size_t{1000}, std::size_t{3000}}) {
        Records records;
        for (std::size_t i = 0; i < count; ++i) {
            records.push_back(small("k", static_cast<int>(i)));
        }
        SerializedData data;
        EXPECT_EQ(packRepeated(records, data), STATUS_SUCCESS);
        EXPECT_EQ(data.getTypeCount(), 2);
        EXPECT_EQ(data.getRepeatCount(0), static_cast<int>(count));
        expectRepeated(data, records);
    }
}

TEST_P(SerializerListTest, NeedsOneRecordToRepeat)
{
    SerializedData data(3);

    EXPECT_THROW(packRepeated({}, data), std::out_of_range);

    EXPECT_EQ(blocksOf(data), (std::vector<Types>{{}}));
    EXPECT_EQ(data.getData(), nullptr);
}

TEST_P(SerializerListTest, ReadsRecordsThatDifferWithTheTypesOfTheFirst)
{
    // 260 bytes, then 512, then 260: each is written right behind the one before.
    SerializedData data;
    ASSERT_EQ(
        packRepeated(
            {small("first", 1), recordOf({{"second", "ABCDEFGHIJ"}}), small("0123third", 3)}, data),
        STATUS_SUCCESS);

    EXPECT_EQ(data.getTotalDataSize(), 3 * 260);
    EXPECT_EQ(textAt(data, 772), "0123third");
    EXPECT_EQ(intAt(data, 772 + 256), 3);
    expectRepeated(
        data, {small("first", 1), small("second", intOf("ABCD")), small("EFGHIJ", intOf("thir"))});
}

TEST_P(SerializerListTest, WritesRecordsThatAreLargerThanTheFirst)
{
    SerializedData data;
    ASSERT_EQ(packRepeated({small("first", 1), wide(40), recordOf({{"last", "text"}})}, data),
              STATUS_SUCCESS);

    EXPECT_EQ(data.getTotalDataSize(), 3 * 260);
    EXPECT_EQ(textAt(data, 260 + 39 * 257), "key 39");
    EXPECT_EQ(textAt(data, 260 + 40 * 257), "last");
    EXPECT_EQ(textAt(data, 260 + 40 * 257 + 256), "text");
}

TEST_P(SerializerListTest, WritesRecordsThatAreSmallerThanTheFirst)
{
    SerializedData data;
    ASSERT_EQ(packRepeated({recordOf({{"first", "text"}}), small("second", intOf("ABCD")),
                            KeyValues(), small("EFGH", 7)},
                           data),
              STATUS_SUCCESS);

    EXPECT_EQ(data.getTotalDataSize(), 4 * 512);
    LogCapture log;  // what the smaller records left are empty keys
    const Unpacked out = unpackRepeated(data);
    EXPECT_EQ(out.result, STATUS_SUCCESS);
    ASSERT_GE(out.records.size(), 2u);
    EXPECT_TRUE(sameRecords({out.records[0], out.records[1]},
                            {recordOf({{"first", "text"}}), recordOf({{"second", "ABCDEFGH"}})}));
}

TEST_P(SerializerListTest, WritesWhatItCanOfLaterRecordsOfOneShape)
{
    SerializedData data;
    {
        LogCapture log;
        ASSERT_EQ(packRepeated({small("a", 1), recordOf({{"hole", Variant()}, {"b", 2}})}, data),
                  STATUS_SUCCESS);
        EXPECT_THAT(log.lines(), ElementsAre(Logged("toRaw", "Invalid type (0).")));
    }
    EXPECT_EQ(textAt(data, 260 + 255), "b");
    EXPECT_EQ(intAt(data, 260 + 255 + 256), 2);
}

TEST_P(SerializerListTest, PassesEmptyRecordsOfOneShapeAsNoRecords)
{
    SerializedData data;
    ASSERT_EQ(packRepeated({KeyValues(), KeyValues()}, data), STATUS_SUCCESS);
    EXPECT_EQ(blocksOf(data), (std::vector<Types>{{}}));
    EXPECT_EQ(data.getRepeatCount(0), 2);
    expectRepeated(data, {});

    SerializedData larger;
    ASSERT_EQ(packRepeated({KeyValues(), sampleRecord()}, larger), STATUS_SUCCESS);
    EXPECT_EQ(larger.getTotalDataSize(), 0);
    expectRepeated(larger, {});
}

TEST_P(SerializerListTest, ReadsOneRecordWithoutRepeatCount)
{
    for (const int repeatCount : {0, -1, INT_MIN, 1}) {
        Sent sent({{"a", 1}});
        sent.info.repeatCount[0] = repeatCount;
        expectRepeated(*sent.receive(), {small("a", 1)});
    }
}

TEST_P(SerializerListTest, ReadsNoRecordWithoutTypes)
{
    for (const int repeatCount : {0, 3, -1}) {
        Sent sent(std::vector<Values>(1));
        sent.info.repeatCount[0] = repeatCount;
        expectRepeated(*sent.receive(), {});
    }
}

TEST_P(SerializerListTest, RefusesHalfAnEntryToRepeat)
{
    for (const Values& types : {Values{"a"}, Values{"a", 1, "b"}}) {
        Sent sent({types});
        const auto data = sent.receive();
        LogCapture log;

        const Unpacked out = unpackRepeated(*data);

        EXPECT_EQ(out.result, STATUS_INVALID_PARAMETER);
        EXPECT_THAT(out.records, IsEmpty());
        EXPECT_THAT(log.lines(),
                    ElementsAre(recordFailed("Invalid key-value pair."), failed("Invalid state.")));
    }
}

TEST_P(SerializerListTest, CutsTheLastRunShortWhereUnknownKindsYieldedNothing)
{
    const auto unknown = LoggedIn(DATA_FILE, "getValues", "Invalid type (11).");
    {
        Sent sent({{"a", 1, "b", "c", 2, "d"}});
        sent.info.typeCount[0] = 4;
        sent.info.types[0][3] = 11;
        sent.info.repeatCount[0] = 2;
        const auto data = sent.receive();
        LogCapture log;

        expectRepeated(*data, {recordOf({{"a", 1}, {"b", "c"}}), recordOf({{"2", "d"}})});

        EXPECT_THAT(log.lines(), ElementsAre(unknown, unknown));
    }
    {
        Sent sent({{"a", "b", "c"}});
        sent.info.typeCount[0] = 2;
        sent.info.types[0][1] = 11;
        sent.info.repeatCount[0] = 3;
        const auto data = sent.receive();
        LogCapture log;

        const Unpacked out = unpackRepeated(*data);

        EXPECT_EQ(out.result, STATUS_INVALID_PARAMETER);
        EXPECT_TRUE(sameRecords(out.records, {recordOf({{"a", "b"}})}));
        EXPECT_THAT(log.lines(),
                    ElementsAre(unknown, unknown, unknown, recordFailed("Invalid key-value pair."),
                                failed("Invalid state.")));
    }
}

// ---- Records on the heap ------------------------------------------------------------------------

TEST(SerializerAnyListTest, KeepsTheRecordsReadBeforeMemoryRanOut)
{
    struct Row {
        const char* name;
        int (*pack)(const Records&, SerializedData&);
        int (*unpack)(const SerializedData&, Pointers&);
    };
    const std::vector<Row> rows = {
        {"list", [](const Records& r, SerializedData& d) { return Serializer::serialize(r, d); },
         [](const SerializedData& d, Pointers& p) { return Serializer::deserialize(d, p); }},
        {"repeated list",
         [](const Records& r, SerializedData& d) {
             return Serializer::serialize(r, d, REPEATABLE);
         },
         [](const SerializedData& d, Pointers& p) {
             return Serializer::deserialize(d, p, REPEATABLE);
         }},
    };

    const Records records = {small("a", 1), small("a", 2), small("a", 3)};
    for (const Row& row : rows) {
        for (int n = 1; n <= 3; ++n) {
            SCOPED_TRACE(std::string(row.name) + ", record " + std::to_string(n));
            SerializedData data;
            ASSERT_EQ(row.pack(records, data), STATUS_SUCCESS);
            Pointers pointers;
            LogCapture log;
            int result = 0;

            {
                const AllocationFailure failure(Allocation::NothrowNew, n);
                result = row.unpack(data, pointers);
                EXPECT_TRUE(failure.happened());
            }

            EXPECT_EQ(result, STATUS_OUT_OF_MEMORY);
            EXPECT_THAT(log.lines(), ElementsAre(failed("Memory allocation failed.")));
            EXPECT_EQ(pointers.size(), static_cast<std::size_t>(n - 1));
            for (std::size_t i = 0; i < pointers.size(); ++i) {
                EXPECT_TRUE(sameRecords({*pointers[i]}, {records[i]}));
                delete pointers[i];
            }
        }
    }
}

TEST(SerializerAnyListTest, LosesNoMemoryWhenOutputsThrow)
{
    const Records records = {small("a", 1), small("a", 2), small("a", 3)};

    for (const bool repeated : {false, true}) {
        SerializedData packed;
        ASSERT_EQ(repeated ? Serializer::serialize(records, packed, REPEATABLE)
                           : Serializer::serialize(records, packed),
                  STATUS_SUCCESS);

        // Every allocation fails once; an output that holds something has to grow on the way.
        bool succeeded = false;
        for (int n = 1; !succeeded; ++n) {
            SCOPED_TRACE("allocation " + std::to_string(n));
            ASSERT_LT(n, 1000);
            SerializedData data(packed.getSerializationInfo());
            ASSERT_EQ(data.setData(static_cast<const void*>(packed.getData())), STATUS_SUCCESS);
            Pointers pointers = {new KeyValues(small("already", 1))};
            bool thrown = false;
            bool happened = false;

            {
                const AllocationFailure failure(Allocation::ThrowingNew, n);
                try {
                    succeeded = (repeated ? Serializer::deserialize(data, pointers, REPEATABLE)
                                          : Serializer::deserialize(data, pointers)) == 0;
                } catch (const std::bad_alloc&) {
                    thrown = true;
                }
                happened = failure.happened();
            }

            EXPECT_EQ(thrown, happened);
            EXPECT_EQ(succeeded, !happened);
            EXPECT_TRUE(happened || n > 1) << "nothing was asked for";
            for (KeyValues* const pointer : pointers) {
                EXPECT_NE(pointer, nullptr);
                delete pointer;
            }
        }
    }
}

}  // namespace
}  // namespace oxil::test
