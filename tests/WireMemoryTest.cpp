// What is left when there is no memory for a message, or for what it holds.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <string>
#include <vector>

#include "AllocationFailure.h"
#include "OxLogMatchers.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "OxWireDecoder.h"
#include "OxWireEncoder.h"

namespace oxil::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int THREW = 1;  // no status

constexpr Allocation ALL[] = {Allocation::Malloc, Allocation::NothrowNew, Allocation::ThrowingNew};

// Longer than what a text holds without memory of its own.
const std::string LONG(100, 'x');

KeyValues recordOf(int count, const std::string& text = LONG)
{
    KeyValues record;
    for (int i = 0; i < count; ++i) {
        EXPECT_EQ(record.add(LONG + std::to_string(i), text), STATUS_SUCCESS);
    }
    return record;
}

/** One whose entries are packed in the long way, because a text is too long for the short one. */
KeyValues oddRecord()
{
    KeyValues record = recordOf(3);
    EXPECT_EQ(record.add("too long", std::string(300, 'x')), STATUS_SUCCESS);
    return record;
}

std::string messageOf(const KeyValues& record)
{
    std::string message;
    EXPECT_EQ(WireEncoder::encode(record, message), STATUS_SUCCESS);
    return message;
}

/** A message that is decoded in the long way, because it has a second block. */
std::string messageOfTwoBlocks()
{
    SerializedData data;
    EXPECT_EQ(Serializer::serialize(recordOf(3), KeyValue("extra", 1), data), STATUS_SUCCESS);
    std::string message;
    EXPECT_EQ(WireEncoder::encode(data, message), STATUS_SUCCESS);
    return message;
}

/**
 * Lets the first, second ... allocation of each kind fail until none is left to fail. What is
 * thrown counts as THREW; check(status) sees each failure.
 */
template <typename Call, typename Check>
void failEach(const Call& call, const Check& check)
{
    int failures = 0;
    for (const Allocation kind : ALL) {
        for (int nth = 1;; ++nth) {
            SCOPED_TRACE(testing::Message() << static_cast<int>(kind) << ", " << nth);
            int status = STATUS_SUCCESS;
            bool happened = false;
            LogCapture log;
            try {
                const AllocationFailure failure(kind, nth);
                try {
                    status = call();
                } catch (const std::bad_alloc&) {
                    status = THREW;
                }
                happened = failure.happened();
            } catch (...) {
                FAIL();
            }
            if (!happened) {
                break;
            }
            ++failures;
            if (status == THREW) {
                EXPECT_EQ(kind, Allocation::ThrowingNew);
            } else {
                EXPECT_EQ(status, STATUS_OUT_OF_MEMORY);
                ASSERT_FALSE(log.lines().empty());
                EXPECT_EQ(log.lines().back().message, "Memory allocation failed.");
            }
            check(status);
        }
    }
    EXPECT_GT(failures, 0);
}

TEST(WireMemoryTest, EncodingLeavesTheTextAsItWas)
{
    SerializedData data;
    ASSERT_EQ(recordOf(5).serialize(data), STATUS_SUCCESS);
    const KeyValues plain = recordOf(5);
    const std::vector<KeyValues> list = {plain, plain};
    const std::vector<KeyValues> unlike = {plain, recordOf(2)};
    KeyValues odd = oddRecord();
    std::string message = "kept";

    const auto check = [&](int) {
        EXPECT_EQ(message, "kept");
        message = "kept";
    };
    const auto into = [&](auto encode) {
        return [&message, encode] {
            std::string("kept").swap(message);
            return encode();
        };
    };
    failEach(into([&] { return WireEncoder::encode(data, message); }), check);
    failEach(into([&] { return WireEncoder::encode(plain, message); }), check);
    failEach(into([&] { return WireEncoder::encode(list, message, REPEATABLE); }), check);
    failEach(into([&] { return WireEncoder::encode(unlike, message, REPEATABLE); }), check);
    failEach(into([&] { return WireEncoder::encode(odd, message); }), check);
}

TEST(WireMemoryTest, DecodingLeavesNoBlocksAndNoData)
{
    for (const std::string& message : {messageOf(recordOf(5)), messageOfTwoBlocks()}) {
        SerializedData data;

        failEach([&] { return WireDecoder::decode(message.data(), message.size(), data); },
                 [&](int status) {
                     EXPECT_EQ(status, STATUS_OUT_OF_MEMORY);
                     EXPECT_EQ(data.getBlockCount(), 0);
                     EXPECT_EQ(data.getData(), nullptr);
                 });

        EXPECT_NE(data.getData(), nullptr);
    }
}

TEST(WireMemoryTest, ARecordKeepsWhatWasAddedBefore)
{
    for (const std::string& message : {messageOf(recordOf(40)), messageOfTwoBlocks()}) {
        KeyValues record;
        std::vector<int> counts;

        failEach(
            [&] {
                record = KeyValues();
                return WireDecoder::decode(message.data(), message.size(), record);
            },
            [&](int) {
                EXPECT_EQ(record, recordOf(record.getCount()));
                counts.push_back(record.getCount());
            });

        EXPECT_THAT(counts, testing::Contains(0));
        EXPECT_THAT(counts, testing::Contains(2));
    }
}

TEST(WireMemoryTest, AListKeepsWhatWasAppendedBefore)
{
    std::string message;
    ASSERT_EQ(WireEncoder::encode({recordOf(2), recordOf(2), recordOf(2)}, message, REPEATABLE),
              STATUS_SUCCESS);
    std::vector<KeyValues> records;
    std::vector<std::size_t> counts;

    failEach(
        [&] {
            records.clear();
            return WireDecoder::decode(message.data(), message.size(), records, REPEATABLE);
        },
        [&](int) {
            EXPECT_THAT(records, Each(recordOf(2)));
            counts.push_back(records.size());
        });

    EXPECT_THAT(counts, testing::Contains(0u));
    EXPECT_THAT(counts, testing::Contains(2u));
}

TEST(WireMemoryTest, AStreamThatCouldNotTakeBytesGoesOnWithoutThem)
{
    const std::string message = messageOf(recordOf(3));
    WireDecoder decoder;
    ASSERT_EQ(decoder.append(message.data(), 10), STATUS_SUCCESS);
    {
        const AllocationFailure failure(Allocation::ThrowingNew);
        EXPECT_THROW(decoder.append(message.data() + 10, message.size() - 10), std::bad_alloc);
        EXPECT_TRUE(failure.happened());
    }
    EXPECT_FALSE(decoder.hasMessage());

    ASSERT_EQ(decoder.append(message.data() + 10, message.size() - 10), STATUS_SUCCESS);

    KeyValues record;
    EXPECT_EQ(decoder.decode(record), STATUS_SUCCESS);
    EXPECT_EQ(record, recordOf(3));
}

TEST(WireMemoryTest, NothingIsKeptOfFailures)
{
    const std::string message = messageOf(recordOf(5));
    const std::string twoBlocks = messageOfTwoBlocks();
    const KeyValues odd = oddRecord();
    SerializedData data;
    const AllocationMeter meter;
    const auto check = [](int) {};

    for (const std::string* each : {&message, &twoBlocks}) {
        failEach([&] { return WireDecoder::decode(each->data(), each->size(), data); }, check);
        failEach(
            [&] {
                KeyValues record;
                return WireDecoder::decode(each->data(), each->size(), record);
            },
            check);
    }
    failEach(
        [&] {
            std::string text;
            return WireEncoder::encode(odd, text);
        },
        check);

    {
        const LogCapture refusal;
        EXPECT_EQ(WireDecoder::decode(nullptr, 0, data), STATUS_INVALID_PARAMETER);
    }
    EXPECT_EQ(meter.held(), 0);
}

TEST(WireMemoryTest, AStreamTakesNoMoreThanWhatIsNotDecodedYet)
{
    const std::string message = messageOf(recordOf(3));
    KeyValues record;
    const AllocationMeter meter;
    WireDecoder decoder;
    for (int i = 0; i < 1000; ++i) {
        // Never at the end of a message, so that there is always something left.
        const std::size_t cut = i % 2 == 0 ? message.size() / 2 : message.size();
        const std::size_t begin = i % 2 == 0 ? 0 : message.size() / 2;
        ASSERT_EQ(decoder.append(message.data() + begin, cut - begin), STATUS_SUCCESS);
        if (decoder.hasMessage()) {
            KeyValues decoded;
            ASSERT_EQ(decoder.decode(decoded), STATUS_SUCCESS);
        }
    }

    EXPECT_LT(meter.held(), 10 * static_cast<long long>(message.size()));
}

}  // namespace
}  // namespace oxil::test
