#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "ChannelEnd.h"
#include "MainLoop.h"
#include "OxChannel.h"
#include "OxLogMatchers.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "Records.h"
#include "Streams.h"

namespace oxil::test {
namespace {

using namespace std::chrono_literals;
using testing::AnyOf;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

const LoggedBy logged("OxChannel.cpp");

const std::string GREETING = frameOf({"hello", {1, "world"}});

/** A channel, and a peer that sends what it likes. */
class ChannelHostileTest : public testing::Test {
protected:
    void connect(const ChannelLimits& limits = ChannelLimits())
    {
        Sockets sockets = makeSockets();
        peer = std::move(sockets.far);
        ASSERT_EQ(channel.open(
                      sockets.near.release(), [this](const SerializedData&) { ++messages; },
                      [this](int status) {
                          EXPECT_FALSE(channel.isOpen());
                          closed.push_back(status);
                      },
                      limits),
                  STATUS_SUCCESS);
        messages = 0;
        closed.clear();
    }

    /** Sends these bytes and waits for the end, which the peer brings about if nothing else does. */
    void receive(const std::string& bytes)
    {
        ASSERT_TRUE(writeAll(peer.get(), bytes));
        peer.close();
        ASSERT_TRUE(iterateUntil([this] { return !closed.empty(); }, 10s));
        while (g_main_context_iteration(nullptr, FALSE)) {
        }
    }

    int messages = 0;
    std::vector<int> closed;
    Descriptor peer;
    Channel channel;
};

// ---- The five bytes in front of a message -------------------------------------------------------

TEST_F(ChannelHostileTest, AKindThatThereIsNot)
{
    for (const int kind : {3, 4, 127, 128, 255}) {
        connect();
        LogCapture log;
        std::string frame = GREETING;
        frame[0] = static_cast<char>(kind);

        receive(GREETING + frame + GREETING);

        EXPECT_EQ(messages, 1);
        EXPECT_THAT(closed, ElementsAre(STATUS_INVALID_PARAMETER));
        EXPECT_THAT(
            log.lines(),
            ElementsAre(Field(&LogLine::message, "Invalid kind (" + std::to_string(kind) + ").")));
    }
}

TEST_F(ChannelHostileTest, AContextIdThatDoesNotBelongToTheKind)
{
    struct Case {
        Kind kind;
        std::uint32_t number;
        std::string line;
    };
    const Case cases[] = {{Kind::MESSAGE, 1, "Invalid context id (1)."},
                          {Kind::MESSAGE, 0xFFFFFFFF, "Invalid context id (4294967295)."},
                          {Kind::MESSAGE, 0x01000000, "Invalid context id (16777216)."},
                          {Kind::REQUEST, 0, "Invalid context id (0)."},
                          {Kind::ANSWER, 0, "Invalid context id (0)."}};
    for (const Case& test : cases) {
        connect();
        LogCapture log;

        receive(frameOf({"hello", {}}, test.kind, test.number) + GREETING);

        EXPECT_EQ(messages, 0);
        EXPECT_THAT(closed, ElementsAre(STATUS_INVALID_PARAMETER));
        EXPECT_THAT(log.lines(), ElementsAre(Field(&LogLine::message, test.line)));
    }
}

// ---- Messages -----------------------------------------------------------------------------------

TEST_F(ChannelHostileTest, AMessageThatIsNone)
{
    connect();
    LogCapture log;

    receive(GREETING + framed("GET / HTTP/1.1\r\n"));

    EXPECT_EQ(messages, 1);
    EXPECT_THAT(closed, ElementsAre(STATUS_INVALID_PARAMETER));
    EXPECT_THAT(log.lines(), ElementsAre(Field(&LogLine::message, "Invalid magic.")));
}

TEST_F(ChannelHostileTest, AMessageOfAnotherVersion)
{
    connect();
    LogCapture log;
    std::string frame = GREETING;
    frame[7] = 2;

    receive(frame);

    EXPECT_THAT(closed, ElementsAre(STATUS_INVALID_PARAMETER));
    EXPECT_THAT(log.lines(), ElementsAre(Field(&LogLine::message, "Invalid version (2).")));
}

TEST_F(ChannelHostileTest, AMessageThatIsTooLong)
{
    ChannelLimits limits;
    limits.message.bytes = GREETING.size() - 5;
    connect(limits);
    receive(GREETING);
    EXPECT_EQ(messages, 1);
    EXPECT_THAT(closed, ElementsAre(STATUS_SUCCESS));

    --limits.message.bytes;
    connect(limits);
    LogCapture log;
    receive(GREETING);
    EXPECT_EQ(messages, 0);
    EXPECT_THAT(closed, ElementsAre(STATUS_CAPACITY_EXCEEDED));
    EXPECT_THAT(log.lines(), ElementsAre(Field(&LogLine::message,
                                               "Message is too long (" +
                                                   std::to_string(GREETING.size() - 5) + ").")));
}

TEST_F(ChannelHostileTest, AMessageThatClaimsToBeLongIsRefusedAtItsHead)
{
    connect();
    LogCapture log;
    std::string frame(5, '\0');
    frame += "Ox\x01";
    frame += "\xFF\xFF\xFF\xFF\x0F";  // 4 GB

    ASSERT_TRUE(writeAll(peer.get(), frame));  // and no more
    ASSERT_TRUE(iterateUntil([this] { return !closed.empty(); }, 10s));

    EXPECT_THAT(closed, ElementsAre(STATUS_CAPACITY_EXCEEDED));
    EXPECT_THAT(log.lines(), SizeIs(1));
    EXPECT_TRUE(isAtEnd(peer.get()));
}

TEST_F(ChannelHostileTest, WhatIsTooLongForTheApplicationIsRefusedAtItsHead)
{
    ChannelLimits limits;
    limits.message.bytes = 100;
    connect(limits);
    LogCapture log;
    std::string frame(5, '\0');
    frame += "Ox\x01";
    frame += "\x60";  // 96 bytes follow, which makes 100
    ASSERT_TRUE(writeAll(peer.get(), frame));
    iterateFor(5ms);
    EXPECT_THAT(closed, IsEmpty());

    connect(limits);
    ++frame.back();
    ASSERT_TRUE(writeAll(peer.get(), frame));
    ASSERT_TRUE(iterateUntil([this] { return !closed.empty(); }, 10s));
    EXPECT_THAT(closed, ElementsAre(STATUS_CAPACITY_EXCEEDED));
    EXPECT_THAT(log.lines(), ElementsAre(Field(&LogLine::message, "Message is too long (101).")));
}

TEST_F(ChannelHostileTest, AMessageThatTakesTooMuchMemory)
{
    ChannelLimits limits;
    limits.message.memory = 1000;
    connect(limits);
    LogCapture log;

    receive(frameOf({"f", {1}}) + frameOf({"f", {"a", "b", "c", "d"}}));

    EXPECT_EQ(messages, 1);
    EXPECT_THAT(closed, ElementsAre(STATUS_CAPACITY_EXCEEDED));
    EXPECT_THAT(log.lines(), SizeIs(1));
}

TEST_F(ChannelHostileTest, MemoryIsNotTakenForWhatIsOnlyClaimed)
{
    connect();
    std::string frame(5, '\0');
    frame += "Ox\x01";
    frame += "\x80\x80\x20";  // half a megabyte
    long long peak = 0;

    {
        const AllocationMeter meter;
        ASSERT_TRUE(writeAll(peer.get(), frame));
        iterateFor(20ms);
        peak = meter.peak();
    }

    EXPECT_TRUE(channel.isOpen());
    EXPECT_LT(peak, 200 * 1024);
}

TEST_F(ChannelHostileTest, ValuesOfAnUnknownKindAreTheApplicationsDecision)
{
    SerializationInfo info{};
    info.blockCount = 1;
    info.typeCount[0] = 1;
    info.dataSize[0] = 4;
    info.types[0][0] = 77;
    info.typeSizes[0][0] = 4;
    SerializedData data(info);
    char bytes[4] = {1, 2, 3, 4};
    ASSERT_EQ(data.setData(static_cast<const void*>(bytes)), STATUS_SUCCESS);
    const std::string frame = frameOf(data);

    ChannelLimits limits;
    limits.message.unknownKinds = true;
    connect(limits);
    receive(frame);
    EXPECT_EQ(messages, 1);
    EXPECT_THAT(closed, ElementsAre(STATUS_SUCCESS));

    connect();
    LogCapture log;
    receive(frame);
    EXPECT_EQ(messages, 0);
    EXPECT_THAT(closed, ElementsAre(STATUS_INVALID_PARAMETER));
    EXPECT_THAT(log.lines(), SizeIs(1));
}

// ---- Whatever arrives ---------------------------------------------------------------------------

/** One end, with a line in the log unless it came in order. */
void expectOneEnd(const std::vector<int>& closed, const LogCapture& log)
{
    ASSERT_THAT(closed, SizeIs(1));
    EXPECT_THAT(log.lines(), SizeIs(closed.front() == STATUS_SUCCESS ? 0 : 1));
}

TEST_F(ChannelHostileTest, EveryByteInTurnIsAnother)
{
    int refused = 0;
    for (std::size_t i = 0; i < GREETING.size(); ++i) {
        for (const int bits : {0x01, 0x02, 0x40, 0x80, 0xFF}) {
            connect();
            LogCapture log;
            std::string frame = GREETING;
            frame[i] = static_cast<char>(frame[i] ^ bits);

            receive(frame + GREETING);

            SCOPED_TRACE(std::to_string(i) + " " + std::to_string(bits));
            expectOneEnd(closed, log);
            refused += closed.front() != STATUS_SUCCESS;
        }
    }
    EXPECT_GT(refused, 50);  // and not all: letters and numbers may be others
}

TEST_F(ChannelHostileTest, TheStreamEndsAtEveryByte)
{
    for (std::size_t size = 1; size < GREETING.size(); ++size) {
        connect();
        LogCapture log;

        receive(GREETING + GREETING.substr(0, size));

        SCOPED_TRACE(size);
        EXPECT_EQ(messages, 1);
        EXPECT_THAT(closed, ElementsAre(STATUS_INVALID_STATE));
        EXPECT_THAT(log.lines(), ElementsAre(Field(&LogLine::message, "Closed within a message.")));
    }
}

TEST_F(ChannelHostileTest, BytesAtRandom)
{
    std::mt19937 random(14);
    for (int round = 0; round < 300; ++round) {
        connect();
        LogCapture log;
        std::string bytes;
        const std::size_t size = 1 + random() % 200;
        if (round % 2 == 0) {
            bytes.assign("\0\0\0\0\0Ox\x01", 8);  // what follows is looked at, too
        }
        while (bytes.size() < size) {
            bytes += static_cast<char>(random());
        }

        receive(bytes);

        SCOPED_TRACE(round);
        expectOneEnd(closed, log);
        EXPECT_NE(closed.front(), STATUS_SUCCESS);
    }
}

TEST_F(ChannelHostileTest, WhatFollowsIsNotRead)
{
    connect();
    LogCapture log;
    ASSERT_TRUE(writeAll(peer.get(), "x" + std::string(100, 'y')));
    ASSERT_TRUE(iterateUntil([this] { return !closed.empty(); }, 10s));

    // The peer learns of it: nobody is there.
    EXPECT_EQ(send(peer.get(), "z", 1, MSG_NOSIGNAL), -1);
    iterateFor(10ms);
    EXPECT_THAT(closed, SizeIs(1));
    EXPECT_THAT(log.lines(), SizeIs(1));
}

TEST_F(ChannelHostileTest, TheChannelCanBeOpenedAgain)
{
    connect();
    {
        LogCapture log;
        receive("xxxxxxxxxxxx");
        EXPECT_THAT(closed, SizeIs(1));
    }

    connect();
    receive(GREETING);
    EXPECT_EQ(messages, 1);
    EXPECT_THAT(closed, ElementsAre(STATUS_SUCCESS));
}

}  // namespace
}  // namespace oxil::test
