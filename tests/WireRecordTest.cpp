// Records go into messages and come out of them without a SerializedData, and nobody can tell.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "AllocationFailure.h"
#include "OxLogMatchers.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "OxWireDecoder.h"
#include "OxWireEncoder.h"
#include "WireSamples.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Records = std::vector<KeyValues>;

/** What can be told of a call, but for where in the sources its lines come from. */
struct Outcome {
    int status = STATUS_SUCCESS;
    std::vector<std::string> lines;
    std::string message;
};

template <typename Call>
Outcome outcomeOf(Call&& call)
{
    Outcome outcome;
    const LogCapture log;
    outcome.status = call(outcome.message);
    for (const LogLine& line : log.lines()) {
        outcome.lines.push_back(line.message);
    }
    return outcome;
}

void expectSame(const Outcome& actual, const Outcome& expected)
{
    ASSERT_EQ(actual.status, expected.status);
    ASSERT_EQ(actual.lines, expected.lines);
    ASSERT_TRUE(actual.message == expected.message) << "the messages differ";
}

// ---- Encoding -----------------------------------------------------------------------------------

void expectSameMessage(const KeyValues& record)
{
    const Outcome detour = outcomeOf([&](std::string& message) {
        SerializedData data;
        const int status = record.serialize(data);
        return status == STATUS_SUCCESS ? WireEncoder::encode(data, message) : status;
    });
    const Outcome direct =
        outcomeOf([&](std::string& message) { return WireEncoder::encode(record, message); });

    expectSame(direct, detour);
}

void expectSameMessage(const Records& records)
{
    const Outcome detour = outcomeOf([&](std::string& message) {
        SerializedData data;
        const int status = Serializer::serialize(records, data, REPEATABLE);
        return status == STATUS_SUCCESS ? WireEncoder::encode(data, message) : status;
    });
    const Outcome direct = outcomeOf(
        [&](std::string& message) { return WireEncoder::encode(records, message, REPEATABLE); });

    expectSame(direct, detour);
}

TEST(WireRecordTest, ARecordGivesTheMessageOfItsSerializedData)
{
    Random random(1);
    for (int i = 0; i < 2000; ++i) {
        SCOPED_TRACE(i);
        ASSERT_NO_FATAL_FAILURE(expectSameMessage(oddRecord(random)));
    }
}

TEST(WireRecordTest, AListGivesTheMessageOfItsSerializedData)
{
    Random random(2);
    for (int i = 0; i < 500; ++i) {
        SCOPED_TRACE(i);
        Records records;
        const int count = 1 + random.below(6);
        const KeyValues shape = oddRecord(random);
        for (int j = 0; j < count; ++j) {
            records.push_back(random.oneIn(3) ? oddRecord(random) : shape);
        }
        ASSERT_NO_FATAL_FAILURE(expectSameMessage(records));
    }
}

TEST(WireRecordTest, ARecordOfMoreThanABlockGivesTheSameMessage)
{
    for (const int count : {999, 1000, 1001}) {
        SCOPED_TRACE(count);
        KeyValues record;
        for (int i = 0; i < count; ++i) {
            ASSERT_EQ(record.add("key " + std::to_string(i), i), STATUS_SUCCESS);
        }

        ASSERT_NO_FATAL_FAILURE(expectSameMessage(record));
        ASSERT_NO_FATAL_FAILURE(expectSameMessage(Records{record, record}));
    }
}

TEST(WireRecordTest, AListOfOneShapeMayHaveATextThatIsTooLong)
{
    for (const std::size_t length : {0u, 255u, 256u, 257u, 300u}) {
        SCOPED_TRACE(length);
        Records records(3);
        for (KeyValues& record : records) {
            ASSERT_EQ(record.add("text", "x"), STATUS_SUCCESS);
            ASSERT_EQ(record.add("number", 1), STATUS_SUCCESS);
        }
        ASSERT_EQ(records[1].update("text", std::string(length, 'y')), STATUS_SUCCESS);

        ASSERT_NO_FATAL_FAILURE(expectSameMessage(records));
    }
}

TEST(WireRecordTest, AnEmptyListIsOutOfRange)
{
    std::string message = "kept";

    EXPECT_THROW(WireEncoder::encode(Records(), message, REPEATABLE), std::out_of_range);

    EXPECT_EQ(message, "kept");
}

TEST(WireRecordTest, AListOfEmptyRecordsIsAMessageOfNothing)
{
    ASSERT_NO_FATAL_FAILURE(expectSameMessage(Records(3)));
}

TEST(WireRecordTest, AnEmptyRecordIsRefused)
{
    std::string message = "kept";
    LogCapture log;

    EXPECT_EQ(WireEncoder::encode(KeyValues(), message), STATUS_INVALID_STATE);

    ASSERT_EQ(log.count(), 1);
    EXPECT_EQ(log.lines()[0].message, "Invalid data size (0).");
    EXPECT_EQ(message, "kept");
}

// ---- Decoding -----------------------------------------------------------------------------------

KeyValues used()
{
    KeyValues record;
    static_cast<void>(record.add("x0", "was here before"));
    static_cast<void>(record.add("id", 1));
    return record;
}

/** Whether they hold the same bytes: NaN is not equal to itself. */
bool isSame(const KeyValues& left, const KeyValues& right)
{
    const auto bytesOf = [](const KeyValues& record) {
        std::string bytes;
        for (const KeyValue& entry : record.getKeyValues()) {
            char raw[256] = {};
            const int size = entry.getValue().toRaw(raw, sizeof raw);
            bytes += entry.getKey() + '\0' + std::to_string(entry.getValue().getType());
            bytes.append(raw, static_cast<std::size_t>(std::max(size, 0)));
        }
        return bytes;
    };
    return left.getCount() == right.getCount() && bytesOf(left) == bytesOf(right);
}

void expectSameRecord(const std::string& bytes, const KeyValues& target, const WireLimits& limits)
{
    KeyValues detourRecord = target;
    const Outcome detour = outcomeOf([&](std::string&) {
        SerializedData data;
        const int status = WireDecoder::decode(bytes.data(), bytes.size(), data, limits);
        return status == STATUS_SUCCESS ? detourRecord.deserialize(data) : status;
    });
    KeyValues directRecord = target;
    const Outcome direct = outcomeOf([&](std::string&) {
        return WireDecoder::decode(bytes.data(), bytes.size(), directRecord, limits);
    });

    ASSERT_NO_FATAL_FAILURE(expectSame(direct, detour));
    ASSERT_TRUE(isSame(directRecord, detourRecord)) << "the records differ";
}

void expectSameList(const std::string& bytes, const Records& target, const WireLimits& limits)
{
    Records detourRecords = target;
    const Outcome detour = outcomeOf([&](std::string&) {
        SerializedData data;
        const int status = WireDecoder::decode(bytes.data(), bytes.size(), data, limits);
        return status == STATUS_SUCCESS ? Serializer::deserialize(data, detourRecords, REPEATABLE)
                                        : status;
    });
    Records directRecords = target;
    const Outcome direct = outcomeOf([&](std::string&) {
        return WireDecoder::decode(bytes.data(), bytes.size(), directRecords, REPEATABLE, limits);
    });

    ASSERT_NO_FATAL_FAILURE(expectSame(direct, detour));
    ASSERT_TRUE(std::equal(directRecords.begin(), directRecords.end(), detourRecords.begin(),
                           detourRecords.end(), isSame))
        << "the lists differ";
}

/** Decodes in every way, into what is empty and what isn't. */
void expectSameDecoded(const std::string& bytes)
{
    WireLimits liberal;
    liberal.unknownKinds = true;
    for (const WireLimits& limits : {WireLimits(), liberal}) {
        ASSERT_NO_FATAL_FAILURE(expectSameRecord(bytes, KeyValues(), limits));
        ASSERT_NO_FATAL_FAILURE(expectSameRecord(bytes, used(), limits));
        ASSERT_NO_FATAL_FAILURE(expectSameList(bytes, {}, limits));
        ASSERT_NO_FATAL_FAILURE(expectSameList(bytes, {used()}, limits));
    }
}

/** Messages of records, of lists of them, and of anything. */
std::vector<std::string> intactMessages()
{
    Random random(3);
    std::vector<std::string> messages;
    const LogCapture refusals;
    while (messages.size() < 200) {
        std::string message;
        SerializedData data;
        KeyValues record = oddRecord(random);
        switch (messages.size() % 4) {
            case 0:
                if (WireEncoder::encode(record, message) != STATUS_SUCCESS) {
                    continue;
                }
                break;
            case 1:
                if (WireEncoder::encode({record, record, record}, message, REPEATABLE) !=
                    STATUS_SUCCESS) {
                    continue;
                }
                break;
            default:
                fill(random, data, messages.size() % 4 == 2);
                if (WireEncoder::encode(data, message) != STATUS_SUCCESS) {
                    throw std::logic_error("no message");
                }
        }
        messages.push_back(message);
    }
    return messages;
}

/** Short ones that have a bit of everything, to be damaged in every place. */
std::vector<std::string> shortMessages()
{
    std::vector<std::string> messages;
    std::string message;

    KeyValues record;
    static_cast<void>(record.add("id", 7));
    static_cast<void>(record.add("name", "ok"));
    static_cast<void>(record.add("on", true));
    static_cast<void>(record.add("ratio", 0.5));
    static_cast<void>(WireEncoder::encode(record, message));
    messages.push_back(message);

    message.clear();
    static_cast<void>(WireEncoder::encode({record, record}, message, REPEATABLE));
    messages.push_back(message);

    message.clear();
    SerializedData call;
    static_cast<void>(Serializer::serialize("open", {1, "two", 3.0f}, call));
    static_cast<void>(WireEncoder::encode(call, message));
    messages.push_back(message);

    // Texts in slots of other sizes, as keys and as values, with something behind them.
    message.clear();
    const char area[] =
        "a\0b"  // more than a text
        "\1\2"
        "xy\0"
        "\3"
        "zz";
    SerializedData odd;
    odd.addType(VARIANT_TYPE_STRING, 3);
    odd.addType(VARIANT_TYPE_INT, 2);
    odd.addType(VARIANT_TYPE_STRING, 3);
    odd.addType(static_cast<VariantType>(77), 1);
    odd.addType(VARIANT_TYPE_STRING, 1);
    odd.addType(VARIANT_TYPE_STRING, 1);
    odd.setRepeatCount(0, -3);
    odd.setData(static_cast<const void*>(area));
    static_cast<void>(WireEncoder::encode(odd, message));
    messages.push_back(message);
    return messages;
}

TEST(WireRecordTest, IntactMessagesAreDecodedAlikeInBothWays)
{
    for (const std::string& message : intactMessages()) {
        ASSERT_NO_FATAL_FAILURE(expectSameDecoded(message));
    }
}

TEST(WireRecordTest, MessagesCutShortAreRefusedAlike)
{
    for (const std::string& message : shortMessages()) {
        ASSERT_FALSE(message.empty());
        for (std::size_t size = 0; size < message.size(); ++size) {
            SCOPED_TRACE(size);
            ASSERT_NO_FATAL_FAILURE(expectSameDecoded(message.substr(0, size)));
        }
    }
}

TEST(WireRecordTest, MessagesWithAnyByteChangedAreDecodedAlike)
{
    WireLimits limits;
    for (const std::string& message : shortMessages()) {
        for (std::size_t place = 0; place < message.size(); ++place) {
            for (int byte = 0; byte < 256; ++byte) {
                SCOPED_TRACE(std::to_string(byte) + " at " + std::to_string(place));
                std::string damaged = message;
                damaged[place] = static_cast<char>(byte);
                limits.unknownKinds = byte % 2 == 0;
                ASSERT_NO_FATAL_FAILURE(expectSameRecord(damaged, used(), limits));
                ASSERT_NO_FATAL_FAILURE(expectSameList(damaged, {used()}, limits));
            }
        }
    }
}

TEST(WireRecordTest, LongMessagesWithBytesChangedAreDecodedAlike)
{
    Random random(4);
    const std::vector<std::string> messages = intactMessages();
    for (int i = 0; i < 1000; ++i) {
        SCOPED_TRACE(i);
        std::string damaged = random.oneOf(messages);
        if (damaged.size() > 5000) {
            continue;
        }
        for (int changes = 1 + random.below(4); changes > 0; --changes) {
            const int size = static_cast<int>(damaged.size());
            // Heads are what decides.
            const int place = random.below(random.oneIn(2) ? std::min(size, 40) : size);
            damaged[static_cast<std::size_t>(place)] = static_cast<char>(random.byte());
        }
        ASSERT_NO_FATAL_FAILURE(expectSameDecoded(damaged));
    }
}

TEST(WireRecordTest, RandomBytesAreDecodedAlike)
{
    Random random(6);
    for (int i = 0; i < 5000; ++i) {
        SCOPED_TRACE(i);
        // Right up to the blocks, and random from there on; small numbers get furthest.
        const int size = 1 + random.below(60);
        std::string message("Ox\1", 3);
        message += static_cast<char>(size);
        for (int j = 0; j < size; ++j) {
            message += static_cast<char>(random.oneIn(2) ? random.below(12) : random.byte());
        }
        ASSERT_NO_FATAL_FAILURE(expectSameDecoded(message));
    }
}

/** A record of one text, each of the two in its slot and said by a mark. */
std::string messageWithSlots(std::size_t keyMark, const std::string& key, std::size_t valueMark,
                             const std::string& value)
{
    const auto mark = [](std::size_t number) {
        return std::string{static_cast<char>(number % 128 + 128), static_cast<char>(number / 128)};
    };
    const std::string body =
        std::string("\1\5\0\12", 4) + mark(keyMark) + key + mark(valueMark) + value;
    return std::string("Ox\1", 3) + mark(body.size()) + body;
}

TEST(WireRecordTest, SlotsThatAreFullAreDecodedAlike)
{
    const std::string text(256, 'x');
    const std::string slot = "text" + std::string(1, '\0') + std::string(251, 'x');
    const std::string shorter(255, 'y');
    // A mark of 257 is not the length of a text, nor is one of 256 what is read of it.
    ASSERT_NO_FATAL_FAILURE(expectSameDecoded(messageWithSlots(256, text, 256, text)));
    ASSERT_NO_FATAL_FAILURE(expectSameDecoded(messageWithSlots(255, shorter, 256, text)));
    ASSERT_NO_FATAL_FAILURE(expectSameDecoded(messageWithSlots(256, slot, 1, "x")));
    ASSERT_NO_FATAL_FAILURE(expectSameDecoded(messageWithSlots(257, slot, 257, slot)));
    ASSERT_NO_FATAL_FAILURE(expectSameDecoded(messageWithSlots(257, text + "x", 1, "x")));
    ASSERT_NO_FATAL_FAILURE(expectSameDecoded(messageWithSlots(1, "x", 257, text + "x")));
    ASSERT_NO_FATAL_FAILURE(expectSameDecoded(messageWithSlots(1, "x", 257, text)));

    KeyValues record;
    const std::string message = messageWithSlots(256, text, 257, slot);
    ASSERT_EQ(WireDecoder::decode(message.data(), message.size(), record), STATUS_SUCCESS);
    EXPECT_EQ(record.getKey(0), std::string(255, 'x'));
    EXPECT_EQ(record.getValue(0), Variant("text"));
}

TEST(WireRecordTest, RecordsNeedNoDescription)
{
    KeyValues record;
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(record.add("key " + std::to_string(i), i), STATUS_SUCCESS);
    }
    const Records records = {record, record};
    std::string message;
    std::string list;
    KeyValues decoded;
    Records decodedRecords;

    const AllocationMeter meter;
    EXPECT_EQ(WireEncoder::encode(record, message), STATUS_SUCCESS);
    EXPECT_EQ(WireEncoder::encode(records, list, REPEATABLE), STATUS_SUCCESS);
    EXPECT_EQ(WireDecoder::decode(message.data(), message.size(), decoded), STATUS_SUCCESS);
    EXPECT_EQ(WireDecoder::decode(list.data(), list.size(), decodedRecords, REPEATABLE),
              STATUS_SUCCESS);

    EXPECT_LT(meter.peak(), 20000);  // a description has 50,064 bytes
    EXPECT_EQ(decoded, record);
    EXPECT_EQ(decodedRecords, records);
}

TEST(WireRecordTest, ManyKeysThatAreThereAlreadyAreLoggedEach)
{
    KeyValues record = used();
    std::string message;
    ASSERT_EQ(WireEncoder::encode(record, message), STATUS_SUCCESS);
    LogCapture log;

    EXPECT_EQ(WireDecoder::decode(message.data(), message.size(), record), STATUS_SUCCESS);

    EXPECT_THAT(log.lines(), ElementsAre(Logged("add", "Key(x0) already exist."),
                                         Logged("add", "Key(id) already exist.")));
    EXPECT_EQ(record, used());
}

}  // namespace
}  // namespace oxil::test
