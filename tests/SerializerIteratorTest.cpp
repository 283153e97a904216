#include "OxSerializer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>
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
using testing::IsEmpty;

class SerializerIteratorTest : public testing::Test {
protected:
    Records records = {small("a", 1), small("b", 2), small("c", 3), small("d", 4)};
    const Pointers pointers = pointersTo(records);
    SerializedData data;

    Records unpacked(bool repeated)
    {
        Records result;
        EXPECT_EQ(repeated ? Serializer::deserialize(data, result, REPEATABLE)
                           : Serializer::deserialize(data, result),
                  STATUS_SUCCESS);
        return result;
    }
};

TEST_F(SerializerIteratorTest, IsWalkedThreeTimes)
{
    RecordingIterator iterator(pointers);

    EXPECT_EQ(Serializer::serialize(&iterator, 100, data), STATUS_SUCCESS);

    EXPECT_EQ(iterator.moves(), passes(3, "1000", 4));
    EXPECT_TRUE(sameRecords(unpacked(false), records));
}

TEST_F(SerializerIteratorTest, IsWalkedTwiceForRecordsOfOneShape)
{
    RecordingIterator iterator(pointers);

    EXPECT_EQ(Serializer::serialize(&iterator, 100, data, REPEATABLE), STATUS_SUCCESS);

    EXPECT_EQ(iterator.moves(), passes(2, "1000", 4));
    EXPECT_EQ(data.getRepeatCount(0), 4);
    EXPECT_TRUE(sameRecords(unpacked(true), records));
}

TEST_F(SerializerIteratorTest, IsWalkedFromWhereItStands)
{
    RecordingIterator iterator(pointers, 2);
    EXPECT_EQ(Serializer::serialize(&iterator, 100, data), STATUS_SUCCESS);
    EXPECT_EQ(iterator.moves(), passes(3, "980", 2));
    EXPECT_TRUE(sameRecords(unpacked(false), {records[2], records[3]}));

    RecordingIterator repeated(pointers, 2);
    SerializedData other;
    EXPECT_EQ(Serializer::serialize(&repeated, 100, other, REPEATABLE), STATUS_SUCCESS);
    EXPECT_EQ(repeated.moves(), passes(2, "980", 2));
    EXPECT_EQ(other.getRepeatCount(0), 2);
}

TEST_F(SerializerIteratorTest, GivesAtMostAsManyRecordsAsAskedFor)
{
    for (const int count : {1, 3, 4}) {
        const Records expected(records.begin(), records.begin() + count);
        {
            RecordingIterator iterator(pointers);
            SerializedData target;
            EXPECT_EQ(Serializer::serialize(&iterator, count, target), STATUS_SUCCESS);
            EXPECT_EQ(iterator.moves(), passes(3, "1000", count));
            Records out;
            EXPECT_EQ(Serializer::deserialize(target, out), STATUS_SUCCESS);
            EXPECT_TRUE(sameRecords(out, expected));
        }
        {
            RecordingIterator iterator(pointers);
            SerializedData target;
            EXPECT_EQ(Serializer::serialize(&iterator, count, target, REPEATABLE), STATUS_SUCCESS);
            EXPECT_EQ(iterator.moves(), passes(2, "1000", count));
            EXPECT_EQ(target.getRepeatCount(0), count);
            Records out;
            EXPECT_EQ(Serializer::deserialize(target, out, REPEATABLE), STATUS_SUCCESS);
            EXPECT_TRUE(sameRecords(out, expected));
        }
    }
}

TEST_F(SerializerIteratorTest, NeedNotGiveARecord)
{
    struct Row {
        Pointers records;
        int count;
        int nexts;
    };
    const std::vector<Row> rows = {
        {{}, 5, 0}, {pointers, 0, 0}, {pointers, -1, 0}, {{nullptr, nullptr}, 5, 2}};

    for (const Row& row : rows) {
        RecordingIterator iterator(row.records);
        SerializedData plain(4);
        EXPECT_EQ(Serializer::serialize(&iterator, row.count, plain), STATUS_SUCCESS);
        EXPECT_EQ(iterator.moves(), passes(3, "1000", row.nexts));
        EXPECT_EQ(blocksOf(plain), (std::vector<Types>{{}, {}}));
        EXPECT_EQ(plain.getTotalDataSize(), 0);
        Records out;
        EXPECT_EQ(Serializer::deserialize(plain, out), STATUS_SUCCESS);
        EXPECT_THAT(out, IsEmpty());

        RecordingIterator repeatedIterator(row.records);
        SerializedData repeated(4);
        EXPECT_EQ(Serializer::serialize(&repeatedIterator, row.count, repeated, REPEATABLE),
                  STATUS_SUCCESS);
        EXPECT_EQ(repeatedIterator.moves(), passes(2, "1000", row.nexts));
        EXPECT_EQ(blocksOf(repeated), (std::vector<Types>{{}}));
        EXPECT_EQ(repeated.getRepeatCount(0), 0);
        EXPECT_EQ(repeated.getTotalDataSize(), 0);
        EXPECT_EQ(Serializer::deserialize(repeated, out, REPEATABLE), STATUS_SUCCESS);
        EXPECT_THAT(out, IsEmpty());
    }
}

TEST_F(SerializerIteratorTest, MayGiveNullRecordsWhichCount)
{
    const Pointers holed = {nullptr, &records[0], nullptr, &records[1], &records[2]};

    RecordingIterator iterator(holed);
    EXPECT_EQ(Serializer::serialize(&iterator, 4, data), STATUS_SUCCESS);
    EXPECT_EQ(iterator.moves(), passes(3, "1000", 4));
    EXPECT_EQ(blocksOf(data), (std::vector<Types>{{INT, INT}, {TEXT, INT, TEXT, INT}}));
    EXPECT_TRUE(sameRecords(unpacked(false), {records[0], records[1]}));

    RecordingIterator repeated(holed);
    SerializedData other;
    EXPECT_EQ(Serializer::serialize(&repeated, 4, other, REPEATABLE), STATUS_SUCCESS);
    EXPECT_EQ(repeated.moves(), passes(2, "1000", 4));
    EXPECT_EQ(blocksOf(other), (std::vector<Types>{{TEXT, INT}}));
    EXPECT_EQ(other.getRepeatCount(0), 2);
    Records out;
    EXPECT_EQ(Serializer::deserialize(other, out, REPEATABLE), STATUS_SUCCESS);
    EXPECT_TRUE(sameRecords(out, {records[0], records[1]}));
}

TEST_F(SerializerIteratorTest, MayGiveRecordsThatAreLargerThanTheFirst)
{
    KeyValues large = wide(40);
    KeyValues last = recordOf({{"last", "text"}});
    RecordingIterator iterator({&records[0], &large, &last});

    EXPECT_EQ(Serializer::serialize(&iterator, 100, data, REPEATABLE), STATUS_SUCCESS);

    EXPECT_EQ(data.getTotalDataSize(), 3 * 260);
    EXPECT_EQ(textAt(data, 260 + 40 * 257 + 256), "text");
}

TEST_F(SerializerIteratorTest, FailsWhenItDoesNotMove)
{
    for (const int result : {1, -1, -22, 524271}) {
        for (int pass = 1; pass <= 3; ++pass) {
            SCOPED_TRACE("pass " + std::to_string(pass) + ", " + std::to_string(result));
            RecordingIterator iterator(pointers);
            iterator.failMove(pass, result);
            SerializedData target;
            LogCapture log;

            EXPECT_EQ(Serializer::serialize(&iterator, 2, target), STATUS_INVALID_STATE);

            EXPECT_THAT(log.lines(),
                        ElementsAre(LoggedIn(SERIALIZER_FILE, "serialize", "Invalid state.")));
            Names moves = passes(pass - 1, "1000", 2);
            moves.push_back("moveTo 1000");
            EXPECT_EQ(iterator.moves(), moves);
            EXPECT_EQ(blocksOf(target),
                      pass == 1 ? (std::vector<Types>{{}, {}})
                                : (std::vector<Types>{{INT, INT}, {TEXT, INT, TEXT, INT}}));
            EXPECT_EQ(target.getData(), nullptr);
        }
        for (int pass = 1; pass <= 2; ++pass) {
            SCOPED_TRACE("repeated, pass " + std::to_string(pass) + ", " + std::to_string(result));
            RecordingIterator iterator(pointers);
            iterator.failMove(pass, result);
            SerializedData target;
            LogCapture log;

            EXPECT_EQ(Serializer::serialize(&iterator, 2, target, REPEATABLE),
                      STATUS_INVALID_STATE);

            EXPECT_THAT(log.lines(),
                        ElementsAre(LoggedIn(SERIALIZER_FILE, "serialize", "Invalid state.")));
            Names moves = passes(pass - 1, "1000", 2);
            moves.push_back("moveTo 1000");
            EXPECT_EQ(iterator.moves(), moves);
            EXPECT_EQ(blocksOf(target),
                      pass == 1 ? (std::vector<Types>{{}}) : (std::vector<Types>{{TEXT, INT}}));
            EXPECT_EQ(target.getData(), nullptr);
        }
    }
}

TEST_F(SerializerIteratorTest, IsLeftAloneOnceSomethingFailed)
{
    KeyValues holed = recordOf({{"hole", Variant()}});
    {
        RecordingIterator iterator({&records[0], &holed, &records[1]});
        LogCapture log;
        EXPECT_EQ(Serializer::serialize(&iterator, 100, data), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(iterator.moves(), passes(1, "1000", 2));
    }
    {
        RecordingIterator iterator(pointers);
        SerializedData target;
        LogCapture log;
        {
            const AllocationFailure failure(Allocation::Malloc);
            EXPECT_EQ(Serializer::serialize(&iterator, 100, target), STATUS_OUT_OF_MEMORY);
        }
        EXPECT_EQ(iterator.moves(), passes(1, "1000", 4));
    }
    {
        RecordingIterator iterator(pointers);
        SerializedData target;
        LogCapture log;
        {
            const AllocationFailure failure(Allocation::Malloc);
            EXPECT_EQ(Serializer::serialize(&iterator, 100, target, REPEATABLE),
                      STATUS_OUT_OF_MEMORY);
        }
        EXPECT_EQ(iterator.moves(), passes(1, "1000", 4));
    }
}

TEST_F(SerializerIteratorTest, MayThrowAndNothingIsLost)
{
    for (int n = 1; n <= 12; ++n) {
        RecordingIterator iterator(pointers);
        iterator.throwAtNext(n);
        SerializedData target;
        ASSERT_EQ(Serializer::serialize("before", 1, target), STATUS_SUCCESS);
        EXPECT_THROW(Serializer::serialize(&iterator, 4, target), std::runtime_error);
        EXPECT_EQ(target.getData(), nullptr);
    }
    for (int n = 1; n <= 8; ++n) {
        RecordingIterator iterator(pointers);
        iterator.throwAtNext(n);
        SerializedData target;
        ASSERT_EQ(Serializer::serialize("before", 1, target), STATUS_SUCCESS);
        EXPECT_THROW(Serializer::serialize(&iterator, 4, target, REPEATABLE), std::runtime_error);
        EXPECT_EQ(target.getData(), nullptr);
    }
}

TEST_F(SerializerIteratorTest, MustBeThere)
{
    LogCapture log;

    EXPECT_EQ(Serializer::serialize(static_cast<RecordingIterator*>(nullptr), 1, data),
              STATUS_INVALID_PARAMETER);
    EXPECT_EQ(Serializer::serialize(static_cast<RecordingIterator*>(nullptr), 1, data, REPEATABLE),
              STATUS_INVALID_PARAMETER);

    EXPECT_THAT(log.lines(),
                ElementsAre(LoggedIn(SERIALIZER_FILE, "serialize", "Invalid parameter."),
                            LoggedIn(SERIALIZER_FILE, "serialize", "Invalid parameter.")));
    EXPECT_EQ(data.getData(), nullptr);
}

/** No more than an application has to write. */
class FourFunctionIterator : public IBidirectionalIterator<KeyValues*> {
public:
    int moveTo(int) override { return 0; }
    KeyValues* next() override { return nullptr; }
    int getPosition() override { return 0; }
    bool isEnd() override { return true; }
};

TEST_F(SerializerIteratorTest, ConsistsOfFourFunctionsAndThreeThatDoNothing)
{
    FourFunctionIterator iterator;
    IBidirectionalIterator<KeyValues*>& interface = iterator;

    EXPECT_EQ(interface.current(), nullptr);
    EXPECT_EQ(interface.previous(), nullptr);
    EXPECT_FALSE(interface.isBegin());
    EXPECT_TRUE(std::is_abstract_v<IBidirectionalIterator<KeyValues*>>);
    EXPECT_TRUE(std::has_virtual_destructor_v<IBidirectionalIterator<KeyValues*>>);
}

}  // namespace
}  // namespace oxil::test
