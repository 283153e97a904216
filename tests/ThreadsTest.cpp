#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "FreshProcess.h"
#include "ManyThreads.h"
#include "OxCallQueue.h"
#include "OxColor.h"
#include "OxGeometry.h"
#include "OxKeyValues.h"
#include "OxLogMatchers.h"
#include "OxNumberParser.h"
#include "OxPayload.h"
#include "OxScript.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "OxStreamOutput.h"
#include "OxStringUtil.h"
#include "OxVariant.h"
#include "OxWaitingLoop.h"
#include "OxWireDecoder.h"
#include "OxWireEncoder.h"

// Objects that are not shared may live on as many threads as there are. What comes out is compared,
// but what these tests are there for is seen by the thread sanitizer alone: ./dev test --threads

namespace oxil::test {
namespace {

using testing::AllOf;
using testing::Each;
using testing::Field;
using testing::SizeIs;

constexpr int ROUNDS = 20;

/** Enough entries for an index, all of them different from one number to the next. */
KeyValues makeRecord(int number)
{
    KeyValues record;
    for (int i = 0; i < 40; ++i) {
        record.add("key" + std::to_string(i), number + i);
    }
    record.add("name", "hall " + std::to_string(number));
    record.add("level", 0.5 * number);
    record.add("on", number % 2 == 0);
    return record;
}

TEST(ThreadsTest, ValuesAndRecordsOfDifferentThreadsHaveNothingInCommon)
{
    const Variant text("not one but many characters");
    const std::vector<Variant> texts(MANY_THREADS, text);
    const std::vector<KeyValues> records(MANY_THREADS, makeRecord(1));

    onManyThreads([&](int number) {
        // Copies that were made of one and the same belong to whom they are given.
        Variant value = texts[static_cast<std::size_t>(number)];
        KeyValues record = records[static_cast<std::size_t>(number)];
        for (int i = 0; i < ROUNDS; ++i) {
            EXPECT_EQ(record.getValue("key7").toInt(), 8);
            EXPECT_EQ(record.update("key7", number), STATUS_SUCCESS);
            EXPECT_EQ(record.getValue("key7").toString(), std::to_string(number));
            EXPECT_EQ(record.remove("key8"), STATUS_SUCCESS);
            EXPECT_EQ(record.add("key8", value), STATUS_SUCCESS);
            EXPECT_EQ(record, KeyValues(record));
            record = makeRecord(1);
            value = Variant(number);
            EXPECT_EQ(value.convert<std::string>(), std::to_string(number));
            EXPECT_EQ(Variant(0.5 + number).toString(), std::to_string(number) + ".500000");
        }
    });
}

TEST(ThreadsTest, PackingAndUnpackingShareNothing)
{
    onManyThreads([](int number) {
        for (int i = 0; i < ROUNDS; ++i) {
            const KeyValues record = makeRecord(number + i);
            const std::vector<KeyValues> records(3, record);
            SerializedData data;
            EXPECT_EQ(Serializer::serialize(records, data, REPEATABLE), STATUS_SUCCESS);

            SerializedData received(data.getSerializationInfo());
            received.setData(static_cast<const void*>(data.getData()));
            EXPECT_EQ(SerializedData::validate(data.getSerializationInfo(),
                                               static_cast<std::size_t>(data.getTotalDataSize())),
                      STATUS_SUCCESS);
            std::vector<KeyValues> unpacked;
            EXPECT_EQ(Serializer::deserialize(received, unpacked, REPEATABLE), STATUS_SUCCESS);
            EXPECT_EQ(unpacked, records);

            SerializedData call;
            EXPECT_EQ(Serializer::serialize("setLevel", {number, "soft"}, call), STATUS_SUCCESS);
            std::string method;
            std::vector<Variant> params;
            EXPECT_EQ(Serializer::deserialize(call, method, params), STATUS_SUCCESS);
            EXPECT_EQ(params.at(0).toInt(), number);
        }
    });
}

TEST(ThreadsTest, MessagesAreMadeAndReadOnAnyThread)
{
    onManyThreads([](int number) {
        WireDecoder decoder;
        for (int i = 0; i < ROUNDS; ++i) {
            const KeyValues record = makeRecord(number + i);
            std::string message;
            EXPECT_EQ(WireEncoder::encode(record, message), STATUS_SUCCESS);
            EXPECT_EQ(Payload({record, record}, REPEATABLE).encode(message), STATUS_SUCCESS);
            EXPECT_EQ(Payload("setLevel", {number}).encode(message), STATUS_SUCCESS);

            EXPECT_EQ(decoder.append(message.data(), message.size()), STATUS_SUCCESS);
            KeyValues received;
            EXPECT_EQ(decoder.decode(received), STATUS_SUCCESS);
            EXPECT_EQ(received, record);
            std::vector<KeyValues> list;
            EXPECT_EQ(decoder.decode(list, REPEATABLE), STATUS_SUCCESS);
            EXPECT_THAT(list, SizeIs(2));
            SerializedData call;
            EXPECT_EQ(decoder.decode(call), STATUS_SUCCESS);
            EXPECT_EQ(call.getBlockCount(), 2);
        }
    });
}

TEST(ThreadsTest, TextIsReadAndWrittenOnAnyThread)
{
    onManyThreads([](int number) {
        const std::string digits = std::to_string(number);
        for (int i = 0; i < ROUNDS; ++i) {
            EXPECT_EQ(NumberParser::toInt(digits), number);
            EXPECT_EQ(NumberParser::toInt(" " + digits), number);
            EXPECT_EQ(NumberParser::toULongLong("+" + digits), static_cast<unsigned>(number));
            EXPECT_EQ(NumberParser::toDouble(digits + ".5"), number + 0.5);
            EXPECT_EQ(NumberParser::toFloat(digits + ".5e0"), static_cast<float>(number) + 0.5F);
            EXPECT_THAT(StringUtil::getTokens(digits + " " + digits + "," + digits, " ,"),
                        AllOf(SizeIs(3), Each(digits)));

            std::ostringstream stream;
            stream << makeRecord(number);
            EXPECT_THAT(stream.str(), testing::HasSubstr("\"hall " + digits + "\""));
        }
    });
}

TEST(ThreadsTest, PlacesAndColorsBelongToTheirThreads)
{
    onManyThreads([](int number) {
        Rectangle area(Point(number, 0), Dimension(100, 100));
        Color color(number, 100, 200);
        for (int i = 0; i < ROUNDS; ++i) {
            area.setPosition(number + i, i);
            EXPECT_TRUE(contains(area, Point(number + i, i)));
            EXPECT_FALSE(intersects(area, Rectangle(number + i + 100, i, 1, 1)));
            color.setRGB32(static_cast<unsigned int>(number), false);
            EXPECT_EQ(color.getBlue(), number);
            color.setHue(static_cast<float>(number));
            EXPECT_EQ(color, Color(color));
        }
    });
}

/** A script whose functions give their own name's length. */
class CountingScript : public Script {
public:
    int onLoading() override { return STATUS_SUCCESS; }

    int onMethodCalled(const std::string& methodName) override
    {
        __length = static_cast<int>(methodName.size());
        return STATUS_SUCCESS;
    }

    using Script::onGetReturnValue;
    int onGetReturnValue(int& value) const override
    {
        value = __length;
        return STATUS_SUCCESS;
    }

private:
    int __length = 0;
};

TEST(ThreadsTest, AScriptOfAnApplicationsOwnKindMayBelongToAnyThread)
{
    onManyThreads([](int number) {
        const std::string name(static_cast<std::size_t>(number) + 1, 'f');
        for (int i = 0; i < ROUNDS; ++i) {
            CountingScript script;
            EXPECT_EQ(script.load(), STATUS_SUCCESS);
            int length = 0;
            EXPECT_EQ(script.callMethod(name, std::tie(length), number), STATUS_SUCCESS);
            EXPECT_EQ(length, number + 1);
        }
    });
}

TEST(ThreadsTest, EachThreadsFailuresAreLogged)
{
    // One by one: the lock of the log keeps apart what comes behind it.
    const std::pair<std::function<void()>, std::string> failures[] = {
        {[] { Variant("7").toInt(); }, "Invalid conversion (10) to INT"},
        {[] { NumberParser::toInt(""); }, "Invalid parameter."},
        {[] { KeyValues().getValue("key"); }, "Invalid key (key)"},
        {[] { CountingScript().callMethod("", 0); }, "Invalid parameter."},
        {[] { SerializedData(9); }, "Invalid block count (9)."}};
    for (const auto& [fail, message] : failures) {
        LogCapture log;
        onManyThreads([&fail = fail](int) { fail(); });
        EXPECT_THAT(log.lines(),
                    AllOf(SizeIs(MANY_THREADS), Each(Field(&LogLine::message, message))));
    }
}

// ---- From one thread to another -----------------------------------------------------------------

TEST(ThreadsTest, WhatIsHandedOverArrivesAsItWas)
{
    CallQueue queue;
    WaitingLoop loop;
    std::vector<KeyValues> received;
    std::thread main([sender = queue.getSender(), &received, &loop] {
        onManyThreads([&](int number) {
            for (int i = 0; i < ROUNDS; ++i) {
                // Made here, read there, and destroyed there.
                sender.post([&received, record = makeRecord(number)]() mutable {
                    received.push_back(std::move(record));
                });
            }
        });
        sender.post([&loop] { loop.quit(); });
    });
    loop.run();
    main.join();

    EXPECT_THAT(received, SizeIs(ROUNDS * MANY_THREADS));
    for (const KeyValues& record : received) {
        EXPECT_EQ(record, makeRecord(record.get("key0", -1)));
    }
}

TEST(ThreadsTest, ASenderMayBeTheLastThatKnowsOfItsQueue)
{
    for (int i = 0; i < ROUNDS; ++i) {
        std::vector<CallQueue::Sender> senders;
        {
            CallQueue queue;
            senders.assign(MANY_THREADS, queue.getSender());
        }
        onManyThreads([&senders](int number) {
            CallQueue::Sender sender = std::move(senders[static_cast<std::size_t>(number)]);
            EXPECT_EQ(sender.post([] {}), STATUS_INVALID_STATE);
        });
    }
}

// ---- What is made at first use ------------------------------------------------------------------

TEST(ThreadsTest, TheFirstRecordsOfAProcessMayBeMadeByManyThreads)
{
    inFreshProcess([] {
        onManyThreads([](int number) {
            EXPECT_EQ(makeRecord(number).getValue("key39").toInt(), number + 39);
        });
    });
}

}  // namespace
}  // namespace oxil::test
