// Messages that arrive in pieces.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "OxLogMatchers.h"
#include "OxStatus.h"
#include "OxWireDecoder.h"
#include "OxWireEncoder.h"
#include "WireSamples.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

KeyValues recordOf(int number)
{
    KeyValues record;
    EXPECT_EQ(record.add("number", number), STATUS_SUCCESS);
    EXPECT_EQ(record.add("text", std::string(static_cast<std::size_t>(number % 200), 'x')),
              STATUS_SUCCESS);
    return record;
}

std::string messageOf(const KeyValues& record)
{
    std::string message;
    EXPECT_EQ(WireEncoder::encode(record, message), STATUS_SUCCESS);
    return message;
}

/** The messages of recordOf(0), recordOf(1) ... in a row. */
std::string streamOf(int count)
{
    std::string stream;
    for (int i = 0; i < count; ++i) {
        stream += messageOf(recordOf(i));
    }
    return stream;
}

int append(WireDecoder& decoder, const std::string& bytes)
{
    // Of just this size, so that a sanitizer sees a step beyond.
    const std::vector<char> exact(bytes.begin(), bytes.end());
    return decoder.append(exact.data(), exact.size());
}

/** Decodes all that is there, and expects the records from this one on. */
void decodeAll(WireDecoder& decoder, int& next)
{
    while (decoder.hasMessage()) {
        KeyValues record;
        ASSERT_EQ(decoder.decode(record), STATUS_SUCCESS);
        ASSERT_EQ(record, recordOf(next));
        ++next;
    }
}

TEST(WireStreamTest, AnEmptyStreamHasNoMessage)
{
    WireDecoder decoder;
    SerializedData data;
    KeyValues record;
    std::vector<KeyValues> records;

    EXPECT_EQ(decoder.append(nullptr, 0), STATUS_SUCCESS);

    EXPECT_FALSE(decoder.hasMessage());
    EXPECT_EQ(decoder.decode(data), STATUS_NOT_FOUND);
    EXPECT_EQ(decoder.decode(record), STATUS_NOT_FOUND);
    EXPECT_EQ(decoder.decode(records, REPEATABLE), STATUS_NOT_FOUND);
}

TEST(WireStreamTest, AMessageThatIsNotThereLeavesItsTargetAlone)
{
    WireDecoder decoder;
    SerializedData data;
    ASSERT_EQ(recordOf(1).serialize(data), STATUS_SUCCESS);
    const void* area = data.getData();

    EXPECT_EQ(decoder.decode(data), STATUS_NOT_FOUND);

    EXPECT_EQ(data.getData(), area);
    EXPECT_EQ(data.getBlockCount(), 1);
}

TEST(WireStreamTest, BytesMayComeOneByOne)
{
    const std::string stream = streamOf(10);
    WireDecoder decoder;
    int next = 0;
    std::size_t end = 0;  // of the messages so far
    for (std::size_t i = 0; i < stream.size(); ++i) {
        ASSERT_EQ(append(decoder, stream.substr(i, 1)), STATUS_SUCCESS);
        if (i + 1 == end + messageOf(recordOf(next)).size()) {
            ASSERT_TRUE(decoder.hasMessage());
            end = i + 1;
        }
        const int before = next;
        ASSERT_NO_FATAL_FAILURE(decodeAll(decoder, next));
        ASSERT_EQ(next > before, end == i + 1);
    }

    EXPECT_EQ(next, 10);
}

TEST(WireStreamTest, ManyMessagesMayComeAtOnce)
{
    WireDecoder decoder;
    ASSERT_EQ(append(decoder, streamOf(300)), STATUS_SUCCESS);
    int next = 0;

    ASSERT_NO_FATAL_FAILURE(decodeAll(decoder, next));

    EXPECT_EQ(next, 300);
    SerializedData data;
    EXPECT_EQ(decoder.decode(data), STATUS_NOT_FOUND);
}

TEST(WireStreamTest, PiecesMayBeCutAnywhere)
{
    const std::string stream = streamOf(60);
    Random random(8);
    for (int run = 0; run < 30; ++run) {
        SCOPED_TRACE(run);
        WireDecoder decoder;
        int next = 0;
        for (std::size_t begin = 0; begin < stream.size();) {
            const auto size = static_cast<std::size_t>(random.below(run < 15 ? 20 : 900));
            ASSERT_EQ(append(decoder, stream.substr(begin, size)), STATUS_SUCCESS);
            begin += size;
            // Also when a few more have piled up.
            if (random.oneIn(3)) {
                ASSERT_NO_FATAL_FAILURE(decodeAll(decoder, next));
            }
        }
        ASSERT_NO_FATAL_FAILURE(decodeAll(decoder, next));
        EXPECT_EQ(next, 60);
    }
}

TEST(WireStreamTest, TargetsOfAllKindsTakeTurns)
{
    std::string list;
    ASSERT_EQ(WireEncoder::encode({recordOf(1), recordOf(1)}, list, REPEATABLE), STATUS_SUCCESS);
    WireDecoder decoder;
    ASSERT_EQ(append(decoder, streamOf(2) + list), STATUS_SUCCESS);
    SerializedData data;
    KeyValues record;
    std::vector<KeyValues> records;

    EXPECT_EQ(decoder.decode(data), STATUS_SUCCESS);
    EXPECT_EQ(decoder.decode(record), STATUS_SUCCESS);
    EXPECT_EQ(decoder.decode(records, REPEATABLE), STATUS_SUCCESS);

    EXPECT_EQ(KeyValues(data), recordOf(0));
    EXPECT_EQ(record, recordOf(1));
    EXPECT_THAT(records, ElementsAre(recordOf(1), recordOf(1)));
    EXPECT_FALSE(decoder.hasMessage());
}

TEST(WireStreamTest, AMessageThatIsRefusedIsTakenOutAllTheSame)
{
    std::string damaged = messageOf(recordOf(5));
    damaged[4] = 9;  // the block count
    WireDecoder decoder;
    ASSERT_EQ(append(decoder, damaged + messageOf(recordOf(6))), STATUS_SUCCESS);
    KeyValues record;
    {
        LogCapture log;
        EXPECT_EQ(decoder.decode(record), STATUS_CAPACITY_EXCEEDED);
        EXPECT_THAT(log.lines(), ElementsAre(Logged("decode", "Too many blocks (9).")));
    }

    ASSERT_TRUE(decoder.hasMessage());
    EXPECT_EQ(decoder.decode(record), STATUS_SUCCESS);
    EXPECT_EQ(record, recordOf(6));
}

TEST(WireStreamTest, AStreamThatIsNoneIsRefusedOnceForAll)
{
    WireDecoder decoder;
    ASSERT_EQ(append(decoder, messageOf(recordOf(0)) + "O"), STATUS_SUCCESS);
    LogCapture log;

    // At once, though there is a message in front that nobody has taken.
    EXPECT_EQ(append(decoder, "xx"), STATUS_INVALID_PARAMETER);
    EXPECT_THAT(log.lines(), ElementsAre(Logged("getLength", "Invalid version (120).")));
    log.clear();

    EXPECT_EQ(append(decoder, messageOf(recordOf(1))), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(append(decoder, ""), STATUS_INVALID_PARAMETER);
    KeyValues record;
    EXPECT_EQ(decoder.decode(record), STATUS_SUCCESS);
    EXPECT_EQ(record, recordOf(0));
    EXPECT_FALSE(decoder.hasMessage());
    EXPECT_EQ(decoder.decode(record), STATUS_NOT_FOUND);
    EXPECT_EQ(append(decoder, ""), STATUS_INVALID_PARAMETER);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(WireStreamTest, MessagesInFrontOfADamagedOneAreDecoded)
{
    WireDecoder decoder;
    LogCapture log;

    EXPECT_EQ(append(decoder, streamOf(3) + "no message"), STATUS_INVALID_PARAMETER);

    EXPECT_THAT(log.lines(), ElementsAre(Logged("getLength", "Invalid magic.")));
    int next = 0;
    ASSERT_NO_FATAL_FAILURE(decodeAll(decoder, next));
    EXPECT_EQ(next, 3);
}

TEST(WireStreamTest, AMessageThatIsTooLongIsRefusedAsSoonAsThatIsKnown)
{
    WireLimits limits;
    limits.bytes = 1000;
    // 994 bytes and a header of 5 are the most, and a byte more is refused by the header alone.
    const std::string most("Ox\1\xE3\x07", 5);
    const std::string more("Ox\1\xE4\x07", 5);
    WireDecoder patient(limits);
    EXPECT_EQ(append(patient, most), STATUS_SUCCESS);

    WireDecoder decoder(limits);
    LogCapture log;
    EXPECT_EQ(append(decoder, more.substr(0, 4)), STATUS_SUCCESS);
    EXPECT_EQ(append(decoder, more.substr(4)), STATUS_CAPACITY_EXCEEDED);

    EXPECT_EQ(append(decoder, "x"), STATUS_CAPACITY_EXCEEDED);
    EXPECT_FALSE(decoder.hasMessage());
    ASSERT_EQ(log.count(), 1);
    EXPECT_EQ(log.lines()[0].message, "Message is too long (1001).");
}

TEST(WireStreamTest, LimitsHoldForWhatIsDecoded)
{
    WireLimits limits;
    limits.values = 3;
    WireDecoder decoder(limits);
    ASSERT_EQ(append(decoder, streamOf(1)), STATUS_SUCCESS);
    LogCapture log;
    KeyValues record;

    EXPECT_EQ(decoder.decode(record), STATUS_CAPACITY_EXCEEDED);

    ASSERT_EQ(log.count(), 1);
    EXPECT_EQ(log.lines()[0].message, "Too many values (4).");
}

TEST(WireStreamTest, AStreamCanBeCopiedAndGoesOnTwice)
{
    const std::string stream = streamOf(2);
    WireDecoder decoder;
    ASSERT_EQ(append(decoder, stream.substr(0, 30)), STATUS_SUCCESS);
    WireDecoder copy = decoder;

    ASSERT_EQ(append(decoder, stream.substr(30)), STATUS_SUCCESS);
    ASSERT_EQ(append(copy, stream.substr(30)), STATUS_SUCCESS);

    for (WireDecoder* each : {&decoder, &copy}) {
        int next = 0;
        ASSERT_NO_FATAL_FAILURE(decodeAll(*each, next));
        EXPECT_EQ(next, 2);
    }
}

}  // namespace
}  // namespace oxil::test
