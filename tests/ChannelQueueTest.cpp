#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ChannelEnd.h"
#include "MainLoop.h"
#include "OxChannel.h"
#include "OxLogMatchers.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "Records.h"
#include "StreamCalls.h"
#include "Streams.h"

namespace oxil::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

const LoggedBy logged("OxChannel.cpp");

/** A channel whose stream takes very little, and a peer that reads when the test says so. */
class ChannelQueueTest : public testing::Test {
protected:
    void open(std::size_t limit)
    {
        ChannelLimits limits;
        limits.queue = limit;
        Sockets sockets = makeSmallSockets();
        near.open(std::move(sockets.near), limits);
        peer = std::move(sockets.far);
    }

    /** Sends until something waits. */
    void fillStream()
    {
        while (near.channel.getQueueSize() == 0) {
            send();
        }
    }

    void send()
    {
        ASSERT_EQ(near.send(++sent), STATUS_SUCCESS);
        expected += frameOf(numbered(sent));
    }

    /** Reads all that was sent, and sees that it is that and nothing else. */
    void expectAllOfIt()
    {
        std::string received;
        EXPECT_TRUE(iterateUntil(
            [&] {
                received += readAvailable(peer.get());
                return received.size() >= expected.size();
            },
            20s));
        iterateFor(5ms);
        received += readAvailable(peer.get());
        EXPECT_TRUE(received == expected) << received.size() << " of " << expected.size();
        EXPECT_EQ(near.channel.getQueueSize(), 0u);
        expected.clear();
    }

    const std::size_t frameSize = frameOf(numbered(1)).size();
    int sent = 0;
    std::string expected;
    ChannelEnd near;
    Descriptor peer;
};

TEST_F(ChannelQueueTest, WhatIsNotReadWaitsAndGoesWhenThereIsRoom)
{
    open(1024 * 1024);
    fillStream();
    const std::size_t before = near.channel.getQueueSize();
    EXPECT_LE(before, frameSize);
    for (int i = 0; i < 100; ++i) {
        send();
    }
    EXPECT_EQ(near.channel.getQueueSize(), before + 100 * frameSize);

    expectAllOfIt();

    send();
    expectAllOfIt();
}

TEST_F(ChannelQueueTest, AFullQueueReportsAndEarlierMessagesAreUnharmed)
{
    open(1000);
    fillStream();
    while (near.channel.getQueueSize() + frameSize <= 1000) {
        send();
    }
    const std::size_t full = near.channel.getQueueSize();
    LogCapture log;
    const std::string line = "Queue is full (" + std::to_string(full + frameSize) + ").";

    EXPECT_EQ(near.send(0), STATUS_CAPACITY_EXCEEDED);
    EXPECT_EQ(near.channel.request(numbered(0), 5, near.onAnswer()), STATUS_CAPACITY_EXCEEDED);
    EXPECT_EQ(near.channel.answer(1, numbered(0)), STATUS_CAPACITY_EXCEEDED);

    EXPECT_THAT(log.lines(), ElementsAre(testing::Field(&LogLine::message, line),
                                         testing::Field(&LogLine::message, line),
                                         testing::Field(&LogLine::message, line)));
    EXPECT_EQ(near.channel.getQueueSize(), full);
    iterateFor(20ms);
    EXPECT_THAT(near.answers, IsEmpty());  // who was refused is not told again
    EXPECT_THAT(near.closed, IsEmpty());
    expectAllOfIt();
    send();
    expectAllOfIt();
}

TEST_F(ChannelQueueTest, TheLimitItselfIsAllowed)
{
    ChannelLimits limits;
    limits.queue = 3 * frameSize;
    Sockets sockets = makeSockets();
    StreamCalls calls({sockets.near.get()});
    calls.failWriting(EAGAIN);
    near.open(std::move(sockets.near), limits);
    LogCapture log;

    EXPECT_EQ(near.send(1), STATUS_SUCCESS);
    EXPECT_EQ(near.send(2), STATUS_SUCCESS);
    EXPECT_EQ(near.send(3), STATUS_SUCCESS);
    EXPECT_EQ(near.channel.getQueueSize(), limits.queue);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(near.send(4), STATUS_CAPACITY_EXCEEDED);
    EXPECT_EQ(near.channel.getQueueSize(), limits.queue);
}

TEST_F(ChannelQueueTest, AFunctionThatWasRefusedIsLetGoOf)
{
    open(100);
    fillStream();
    while (near.channel.getQueueSize() + frameSize <= 100) {
        send();
    }
    LogCapture log;
    const auto captured = std::make_shared<int>(1);

    EXPECT_EQ(near.channel.request(numbered(0), 60000, [captured](int, const SerializedData&) {}),
              STATUS_CAPACITY_EXCEEDED);

    EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(ChannelQueueTest, WhatStillWaitsIsLostWithTheChannel)
{
    open(1024 * 1024);
    fillStream();
    for (int i = 0; i < 100; ++i) {
        send();
    }
    const std::size_t waiting = near.channel.getQueueSize();

    near.channel.close();

    EXPECT_EQ(near.channel.getQueueSize(), 0u);
    EXPECT_EQ(readBytes(peer.get(), expected.size()),
              expected.substr(0, expected.size() - waiting));
    EXPECT_TRUE(isAtEnd(peer.get()));
}

TEST_F(ChannelQueueTest, ANewConnectionStartsWithAnEmptyQueue)
{
    open(1024 * 1024);
    fillStream();
    sent = 0;
    expected.clear();

    open(1024 * 1024);

    EXPECT_EQ(near.channel.getQueueSize(), 0u);
    send();
    expectAllOfIt();
}

TEST_F(ChannelQueueTest, WhoeverClosesBeforeEverythingWasReadIsNoticed)
{
    open(1024 * 1024);
    fillStream();
    for (int i = 0; i < 100; ++i) {
        send();
    }
    LogCapture log;
    EXPECT_EQ(near.channel.request(numbered(1), 60000, near.onAnswer()), STATUS_SUCCESS);
    peer.close();

    ASSERT_TRUE(near.waitForClosed());
    EXPECT_THAT(near.closed, ElementsAre(STATUS_FAILURE));
    EXPECT_THAT(near.answers, ElementsAre("status -1"));
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(near.channel.getQueueSize(), 0u);
}

TEST_F(ChannelQueueTest, ASlowReaderGetsEverything)
{
    open(1024 * 1024);
    ChannelEnd far;
    far.open(std::move(peer));
    for (int i = 1; i <= 2000; ++i) {
        ASSERT_EQ(near.send(i), STATUS_SUCCESS);
    }
    ASSERT_TRUE(far.waitForMessages(2000));
    for (int i = 1; i <= 2000; ++i) {
        ASSERT_EQ(far.messages[static_cast<std::size_t>(i - 1)], std::to_string(i));
    }
}

// ---- Sizes --------------------------------------------------------------------------------------

class ChannelSizeTest : public testing::Test {
protected:
    ChannelEnd near;
    std::vector<SerializationInfo> infos;
    Channel channel;
};

/** A list with texts that takes exactly this many bytes on the way. */
Records listOf(std::size_t size)
{
    const auto length = [](const Records& records) {
        return frameOf({records, REPEATABLE}).size() - 5;
    };
    const Records two = {recordOf({{"t", std::string(255, 'x')}}), recordOf({{"t", ""}})};
    const std::size_t each = length({two[0], two[0]}) - length({two[0]});
    Records records(size / each + 1, two[0]);
    while (length(records) > size) {
        const std::size_t over = length(records) - size;
        const std::size_t text = records.back().getKeyValue("t").getValue().toString().size();
        if (over <= text) {
            records.back() = recordOf({{"t", std::string(text - over, 'x')}});
        } else {
            records.pop_back();
        }
    }
    return records;
}

TEST_F(ChannelSizeTest, TheLargestMessageAllowedArrives)
{
    const Records records = listOf(1024 * 1024);
    ASSERT_EQ(frameOf({records, REPEATABLE}).size(), 1024 * 1024u + 5);
    Sockets sockets = makeSockets();
    near.open(std::move(sockets.near));
    Records received;
    ASSERT_EQ(channel.open(
                  sockets.far.release(),
                  [&](const SerializedData& message) {
                      EXPECT_EQ(Serializer::deserialize(message, received, REPEATABLE),
                                STATUS_SUCCESS);
                  },
                  nullptr),
              STATUS_SUCCESS);

    ASSERT_EQ(near.channel.send({records, REPEATABLE}), STATUS_SUCCESS);

    ASSERT_TRUE(iterateUntil([&] { return !received.empty(); }, 20s));
    EXPECT_TRUE(sameRecords(received, records));
}

TEST_F(ChannelSizeTest, MessagesWithoutAnyValueArrive)
{
    Sockets sockets = makeSockets();
    near.open(std::move(sockets.near));
    std::vector<std::string> shapes;
    ASSERT_EQ(channel.open(
                  sockets.far.release(),
                  [&](const SerializedData& message) {
                      EXPECT_NE(message.getData(), nullptr);
                      shapes.push_back(std::to_string(message.getBlockCount()) + " " +
                                       std::to_string(message.getTotalDataSize()));
                  },
                  nullptr),
              STATUS_SUCCESS);
    SerializationInfo info{};
    SerializedData none(info);
    char byte = 0;
    ASSERT_EQ(none.setData(static_cast<const void*>(&byte)), STATUS_SUCCESS);

    ASSERT_EQ(near.channel.send(Records()), STATUS_SUCCESS);
    ASSERT_EQ(near.channel.send({"", {}}), STATUS_SUCCESS);
    ASSERT_EQ(near.channel.send(none), STATUS_SUCCESS);

    ASSERT_TRUE(iterateUntil([&] { return shapes.size() == 3; }, 10s));
    EXPECT_THAT(shapes, ElementsAre("2 0", "2 256", "0 0"));
}

}  // namespace
}  // namespace oxil::test
