// What would be written or read out of bounds, or for ever, if nothing kept it from that.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "AllocationFailure.h"
#include "OxIBidirectionalIterator.h"
#include "OxLogMatchers.h"
#include "OxSerializedData.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "Records.h"
#include "SerializedBytes.h"
#include "SerializerCases.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// ---- Records that change between the passes -----------------------------------------------------

/** Walks a list, which may be changed before each pass. */
class ChangingIterator : public IBidirectionalIterator<KeyValues*> {
public:
    explicit ChangingIterator(Records& records) : __records(records) {}

    int moveTo(int position) override
    {
        __index = static_cast<std::size_t>(position);
        beforePass(++__pass);
        return 0;
    }

    KeyValues* next() override { return &__records.at(__index++); }
    int getPosition() override { return static_cast<int>(__index); }
    bool isEnd() override { return __index == __records.size(); }

    std::function<void(int)> beforePass;  ///< the first one has the number 1

private:
    Records& __records;
    std::size_t __index = 0;
    int __pass = 0;
};

class ChangingRecordsTest : public testing::Test {
protected:
    /** Serializes with this change before a pass, which must be refused. */
    void expectRefused(bool repeated, int pass, const std::function<void()>& change)
    {
        records = {small("a", 1), small("b", 2)};
        ChangingIterator iterator(records);
        iterator.beforePass = [&](int number) {
            if (number == pass) {
                change();
            }
        };
        SerializedData data;
        LogCapture log;

        EXPECT_EQ(repeated ? Serializer::serialize(&iterator, INT_MAX, data, REPEATABLE)
                           : Serializer::serialize(&iterator, INT_MAX, data),
                  STATUS_INVALID_STATE);

        EXPECT_THAT(log.lines(), ElementsAre(failedToSerialize()));
        EXPECT_EQ(data.getData(), nullptr);
    }

    static testing::Matcher<const LogLine&> failedToSerialize()
    {
        return LoggedIn(SERIALIZER_FILE, "serialize", "Invalid state.");
    }

    Records records;
};

TEST_F(ChangingRecordsTest, ARecordThatGrowsIsNotWrittenBehindTheEnd)
{
    for (const bool repeated : {false, true}) {
        expectRefused(repeated, repeated ? 2 : 3, [this] { records[0] = wide(100); });
        expectRefused(repeated, repeated ? 2 : 3, [this] { records[1].add("one", true); });
    }
}

TEST_F(ChangingRecordsTest, RecordsThatJoinAreNotWrittenBehindTheEnd)
{
    expectRefused(true, 2, [this] { records.push_back(small("c", 3)); });
    // Their counts are, as long as there is room: so many are more than all of it.
    expectRefused(false, 2, [this] { records.resize(1000); });
    expectRefused(false, 3, [this] { records.push_back(small("c", 3)); });
}

TEST_F(ChangingRecordsTest, OfOnesThatLeaveThereAreZeros)
{
    records = {small("a", 1), small("b", 2)};
    ChangingIterator iterator(records);
    iterator.beforePass = [&](int number) {
        if (number == 3) {
            records.pop_back();
        }
    };
    const DirtyMemory dirty;
    SerializedData data;

    EXPECT_EQ(Serializer::serialize(&iterator, INT_MAX, data), STATUS_SUCCESS);

    EXPECT_EQ(valuesOf(data, 0), Values({1, 1}));
    EXPECT_EQ(valuesOf(data, 1), Values({"a", 1, "", 0}));
}

// ---- Descriptions that were there before --------------------------------------------------------

struct Shortage {
    const char* name;
    int block;
    int missing;  // bytes
    Pack pack;
};

TEST(ShortDescriptionTest, NothingIsWrittenBehindWhatItSays)
{
    const Values params = {1, "two"};
    const Records records = {small("a", 1), small("b", 2)};
    const Shortage shortages[] = {
        {"name", 0, 250,
         [&](SerializedData& data) { return Serializer::serialize("m", Values(), data); }},
        {"number", 1, 257,
         [&](SerializedData& data) { return Serializer::serialize("m", params, data); }},
        {"text", 1, 1,
         [&](SerializedData& data) { return Serializer::serialize("m", params, data); }},
        {"names", 0, 1,
         [&](SerializedData& data) {
             return Serializer::serialize(Names({"a", "b"}), "m", Values(), "extra", data);
         }},
        {"counts", 0, 1,
         [&](SerializedData& data) { return Serializer::serialize(Records(2), data); }},
        {"entries", 1, 1,
         [&](SerializedData& data) { return Serializer::serialize(records, data); }},
    };
    for (const Shortage& each : shortages) {
        SCOPED_TRACE(each.name);
        SerializationInfo before = {};
        before.dataSize[each.block] = -each.missing;
        SerializedData data(before);
        LogCapture log;

        EXPECT_EQ(each.pack(data), STATUS_INVALID_STATE);

        EXPECT_THAT(log.lines(),
                    ElementsAre(LoggedIn(SERIALIZER_FILE, "serialize", "Invalid state.")));
        EXPECT_EQ(data.getData(), nullptr);
    }
}

TEST(LargeDescriptionTest, WhatAnIntCannotCountIsNotAskedFor)
{
    SerializedData data;
    data.setRepeatCount(0, INT_MAX);
    LogCapture log;
    {
        // That it were granted would show nowhere else.
        const AllocationFailure failure(Allocation::Malloc);

        EXPECT_EQ(Serializer::serialize("m", Values{1}, data), STATUS_OUT_OF_MEMORY);

        EXPECT_FALSE(failure.happened());
    }
    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn(SERIALIZER_FILE, "serialize", "Memory allocation failed.")));
}

TEST(LongTextTest, WhatIsInFrontOfATextThatIsTooLongStays)
{
    constexpr int ONES = 0x01010101;
    SerializedData data;
    LogCapture log;

    EXPECT_EQ(Serializer::serialize("m", Values({ONES, std::string(300, 'x')}), data),
              STATUS_SUCCESS);

    EXPECT_EQ(intAt(data, 256), ONES);
    EXPECT_THAT(log.lines(), ElementsAre(tooLong()));
}

// ---- Descriptions that come later ---------------------------------------------------------------

TEST(LaterDescriptionTest, WithoutTypesThereAreNoRecords)
{
    SerializedData data;
    ASSERT_EQ(Serializer::serialize(Records({small("a", 1)}), data, REPEATABLE), STATUS_SUCCESS);
    ASSERT_NE(data.getValues(), nullptr);
    SerializationInfo empty = {};
    empty.blockCount = 1;
    data.setSerializationInfo(empty);
    Records records;

    EXPECT_EQ(Serializer::deserialize(data, records, REPEATABLE), STATUS_SUCCESS);

    EXPECT_THAT(records, IsEmpty());
}

TEST(LaterDescriptionTest, ABlockAtTheNullPointerIsNotRead)
{
    constexpr std::uintptr_t PLACE = 16;  // of data that is not there, and is not looked at
    SerializationInfo info = {};
    info.blockCount = 2;
    info.dataSize[0] = -static_cast<int>(PLACE);
    SerializedData data(info);
    ASSERT_EQ(data.addType(1, VARIANT_TYPE_INT), STATUS_SUCCESS);
    ASSERT_EQ(data.setData(reinterpret_cast<const void*>(PLACE)), STATUS_SUCCESS);
    LogCapture log;

    EXPECT_EQ(data.getValues(1), nullptr);

    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn(DATA_FILE, "getData", "Invalid ptr offset (-16)."),
                            LoggedIn(DATA_FILE, "getValues", "basePtr is nullptr.")));
}

}  // namespace
}  // namespace oxil::test
