#include "OxChannel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "ChannelEnd.h"
#include "MainLoop.h"
#include "OxLogMatchers.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "Records.h"
#include "Streams.h"

namespace oxil::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

const LoggedBy logged("OxChannel.cpp");

static_assert(std::is_nothrow_default_constructible_v<Channel>);
static_assert(std::is_nothrow_destructible_v<Channel>);
static_assert(!std::is_copy_constructible_v<Channel> && !std::is_copy_assignable_v<Channel>);
static_assert(!std::is_polymorphic_v<Channel>);

// ---- What travels -------------------------------------------------------------------------------

/** A connection of either kind between two ends. */
class ChannelTest : public testing::TestWithParam<bool> {
protected:
    void SetUp() override
    {
        if (GetParam()) {
            Sockets sockets = makeSockets();
            near.open(std::move(sockets.near));
            far.open(std::move(sockets.far));
        } else {
            Pipe there = makePipe();
            Pipe back = makePipe();
            near.open(std::move(back.input), std::move(there.output));
            far.open(std::move(there.input), std::move(back.output));
        }
    }

    ChannelEnd near;
    ChannelEnd far;
};

TEST_P(ChannelTest, MessagesArriveInOrderBothWays)
{
    for (int i = 1; i <= 3; ++i) {
        ASSERT_EQ(near.send(i), STATUS_SUCCESS);
        ASSERT_EQ(far.send(10 * i), STATUS_SUCCESS);
    }

    ASSERT_TRUE(near.waitForMessages(3));
    ASSERT_TRUE(far.waitForMessages(3));
    EXPECT_THAT(far.messages, ElementsAre("1", "2", "3"));
    EXPECT_THAT(near.messages, ElementsAre("10", "20", "30"));
    EXPECT_THAT(far.contextIds, ElementsAre(0u, 0u, 0u));
    EXPECT_EQ(near.channel.getQueueSize(), 0u);
}

TEST_P(ChannelTest, RequestsGetTheirAnswersBothWays)
{
    ASSERT_EQ(near.channel.request(numbered(1), 20000, near.onAnswer()), STATUS_SUCCESS);
    ASSERT_EQ(far.channel.request(numbered(2), 20000, far.onAnswer()), STATUS_SUCCESS);
    ASSERT_TRUE(far.waitForMessages(1));
    ASSERT_TRUE(near.waitForMessages(1));
    ASSERT_EQ(far.channel.answer(far.contextIds.front(), numbered(100)), STATUS_SUCCESS);
    ASSERT_EQ(near.channel.answer(near.contextIds.front(), numbered(200)), STATUS_SUCCESS);

    ASSERT_TRUE(near.waitForAnswers(1));
    ASSERT_TRUE(far.waitForAnswers(1));
    EXPECT_THAT(near.answers, ElementsAre("100"));
    EXPECT_THAT(far.answers, ElementsAre("200"));
    EXPECT_THAT(near.messages, ElementsAre("2"));
}

TEST_P(ChannelTest, ClosingOneEndIsToldAtTheOtherBehindTheLastMessage)
{
    ASSERT_EQ(near.send(1), STATUS_SUCCESS);
    near.channel.close();

    ASSERT_TRUE(far.waitForClosed());
    EXPECT_THAT(far.messages, ElementsAre("1"));
    EXPECT_THAT(far.closed, ElementsAre(STATUS_SUCCESS));
    EXPECT_FALSE(far.channel.isOpen());
    iterateFor(20ms);
    EXPECT_THAT(far.closed, ElementsAre(STATUS_SUCCESS));
    EXPECT_THAT(near.closed, IsEmpty());
}

std::string streamName(const testing::TestParamInfo<bool>& test)
{
    return test.param ? "Sockets" : "Pipes";
}

INSTANTIATE_TEST_SUITE_P(Streams, ChannelTest, testing::Bool(), streamName);

}  // namespace
}  // namespace oxil::test
