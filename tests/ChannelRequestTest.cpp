#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "CallLater.h"
#include "ChannelEnd.h"
#include "MainLoop.h"
#include "OxChannel.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"
#include "OxWaitingLoop.h"
#include "Records.h"
#include "Streams.h"

namespace oxil::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::_;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Lt;

const LoggedBy logged("OxChannel.cpp");

constexpr int LONG = 60000;  // milliseconds: no time-out comes up
const std::string TIMED_OUT = "status " + std::to_string(STATUS_TIMED_OUT);
const std::string FAILED = "status " + std::to_string(STATUS_FAILURE);

/** Two channels. */
class ChannelRequestTest : public testing::Test {
protected:
    ChannelRequestTest()
    {
        Sockets sockets = makeSockets();
        near.open(std::move(sockets.near));
        far.open(std::move(sockets.far));
    }

    int request(int number, int timeout = LONG)
    {
        return near.channel.request(numbered(number), timeout, near.onAnswer());
    }

    ChannelEnd near;
    ChannelEnd far;
};

/** A channel, and a peer whose bytes the test writes itself. */
class ChannelRawRequestTest : public testing::Test {
protected:
    ChannelRawRequestTest()
    {
        Sockets sockets = makeSockets();
        near.open(std::move(sockets.near));
        peer = std::move(sockets.far);
    }

    /** Makes a request and returns the number that it travels with. */
    std::uint32_t request(int timeout = LONG)
    {
        EXPECT_EQ(near.channel.request(numbered(1), timeout, near.onAnswer()), STATUS_SUCCESS);
        const std::string frame = readBytes(peer.get(), frameOf(numbered(1)).size());
        EXPECT_EQ(frame.size(), frameOf(numbered(1)).size());
        std::uint32_t number = 0;
        for (int i = 4; i > 0; --i) {
            number = number << 8 | static_cast<unsigned char>(frame[static_cast<std::size_t>(i)]);
        }
        EXPECT_EQ(frame, frameOf(numbered(1), Kind::REQUEST, number));
        EXPECT_NE(number, 0u);
        return number;
    }

    bool answer(std::uint32_t number, int value)
    {
        return writeAll(peer.get(), frameOf(numbered(value), Kind::ANSWER, number));
    }

    ChannelEnd near;
    Descriptor peer;
};

// ---- Answers ------------------------------------------------------------------------------------

TEST_F(ChannelRequestTest, AnswersFindTheirRequestsWhateverTheirOrder)
{
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(near.channel.request(numbered(i), LONG,
                                       [this, i](int status, const SerializedData& answer) {
                                           near.answers.push_back(std::to_string(i) + ":" +
                                                                  std::to_string(status) + ":" +
                                                                  textOf(answer));
                                       }),
                  STATUS_SUCCESS);
    }
    ASSERT_TRUE(far.waitForMessages(4));
    ASSERT_THAT(far.messages, ElementsAre("0", "1", "2", "3"));
    EXPECT_EQ(std::set<unsigned int>(far.contextIds.begin(), far.contextIds.end()).size(), 4u);

    for (const std::size_t i : {2u, 0u, 3u, 1u}) {
        ASSERT_EQ(far.channel.answer(far.contextIds[i], numbered(10 * static_cast<int>(i))),
                  STATUS_SUCCESS);
    }

    ASSERT_TRUE(near.waitForAnswers(4));
    EXPECT_THAT(near.answers, ElementsAre("2:0:20", "0:0:0", "3:0:30", "1:0:10"));
    EXPECT_THAT(near.messages, IsEmpty());
}

TEST_F(ChannelRequestTest, RequestsAndMessagesKeepTheirOrder)
{
    ASSERT_EQ(near.send(1), STATUS_SUCCESS);
    ASSERT_EQ(request(2), STATUS_SUCCESS);
    ASSERT_EQ(near.send(3), STATUS_SUCCESS);

    ASSERT_TRUE(far.waitForMessages(3));
    EXPECT_THAT(far.messages, ElementsAre("1", "2", "3"));
    EXPECT_THAT(far.contextIds, ElementsAre(0u, testing::Ne(0u), 0u));
}

TEST_F(ChannelRequestTest, AnAnswerIsOfAnyPayload)
{
    ASSERT_EQ(near.channel.request({"getRooms", {}}, LONG, near.onAnswer()), STATUS_SUCCESS);
    ASSERT_TRUE(far.waitForMessages(1));
    EXPECT_THAT(far.messages, ElementsAre("getRooms()"));

    ASSERT_EQ(far.channel.answer(far.contextIds.front(), {"rooms", {2, "hall"}}), STATUS_SUCCESS);

    ASSERT_TRUE(near.waitForAnswers(1));
    EXPECT_THAT(near.answers, ElementsAre("rooms(2, hall)"));
}

TEST_F(ChannelRequestTest, ASecondAnswerIsDropped)
{
    ASSERT_EQ(request(1), STATUS_SUCCESS);
    ASSERT_TRUE(far.waitForMessages(1));

    ASSERT_EQ(far.channel.answer(far.contextIds.front(), numbered(1)), STATUS_SUCCESS);
    ASSERT_EQ(far.channel.answer(far.contextIds.front(), numbered(2)), STATUS_SUCCESS);
    ASSERT_EQ(far.send(3), STATUS_SUCCESS);

    ASSERT_TRUE(near.waitForMessages(1));
    EXPECT_THAT(near.answers, ElementsAre("1"));
    EXPECT_THAT(near.messages, ElementsAre("3"));
    EXPECT_THAT(near.closed, IsEmpty());
}

TEST_F(ChannelRawRequestTest, AnAnswerToNothingIsIgnored)
{
    ASSERT_TRUE(answer(1, 1));
    ASSERT_TRUE(answer(0xFFFFFFFF, 1));
    iterateFor(5ms);
    const std::uint32_t number = request();
    ASSERT_TRUE(answer(number + 1, 5));
    ASSERT_TRUE(answer(number, 6));

    ASSERT_TRUE(near.waitForAnswers(1));
    EXPECT_THAT(near.answers, ElementsAre("6"));
    EXPECT_THAT(near.messages, IsEmpty());
    EXPECT_TRUE(near.channel.isOpen());
}

TEST_F(ChannelRawRequestTest, AnAnswerHasTheNumberOfItsRequest)
{
    for (const std::uint32_t number : {1u, 0x01020304u, 0xFFFFFFFFu}) {
        ASSERT_TRUE(writeAll(peer.get(), frameOf(numbered(1), Kind::REQUEST, number)));
        ASSERT_TRUE(near.waitForMessages(1));
        EXPECT_THAT(near.contextIds, ElementsAre(number));

        ASSERT_EQ(near.channel.answer(number, numbered(2)), STATUS_SUCCESS);

        const std::string expected = frameOf(numbered(2), Kind::ANSWER, number);
        EXPECT_EQ(readBytes(peer.get(), expected.size()), expected);
        near.messages.clear();
        near.contextIds.clear();
    }
}

TEST_F(ChannelRawRequestTest, EachEndNumbersItsOwnRequests)
{
    const std::uint32_t number = request();
    ASSERT_TRUE(writeAll(peer.get(), frameOf(numbered(7), Kind::REQUEST, number)));

    ASSERT_TRUE(near.waitForMessages(1));
    EXPECT_THAT(near.contextIds, ElementsAre(number));
    EXPECT_THAT(near.answers, IsEmpty());
    ASSERT_TRUE(answer(number, 8));
    ASSERT_TRUE(near.waitForAnswers(1));
    EXPECT_THAT(near.answers, ElementsAre("8"));
}

TEST_F(ChannelRequestTest, AnAnswerMayComeLongAfterItsCallback)
{
    ASSERT_EQ(request(1), STATUS_SUCCESS);
    ASSERT_TRUE(far.waitForMessages(1));
    const CallLater later(30ms, [this] {
        EXPECT_EQ(far.channel.answer(far.contextIds.front(), numbered(5)), STATUS_SUCCESS);
    });

    ASSERT_TRUE(near.waitForAnswers(1));
    EXPECT_THAT(near.answers, ElementsAre("5"));
}

TEST_F(ChannelRequestTest, AnAnswerMayBeGivenInsideTheCallback)
{
    Sockets sockets = makeSockets();
    near.open(std::move(sockets.near));
    ASSERT_EQ(far.channel.open(
                  sockets.far.release(),
                  [this](const SerializedData& message) {
                      EXPECT_EQ(far.channel.answer(message.getContextId(),
                                                   numbered(numberOf(message) + 1)),
                                STATUS_SUCCESS);
                  },
                  far.onClosed()),
              STATUS_SUCCESS);

    ASSERT_EQ(request(1), STATUS_SUCCESS);
    ASSERT_EQ(request(2), STATUS_SUCCESS);

    ASSERT_TRUE(near.waitForAnswers(2));
    EXPECT_THAT(near.answers, ElementsAre("2", "3"));
}

TEST_F(ChannelRequestTest, ARequestMayFollowInsideTheAnswer)
{
    std::vector<int> values;
    std::function<void(int, const SerializedData&)> next = [&](int status,
                                                               const SerializedData& answer) {
        ASSERT_EQ(status, STATUS_SUCCESS);
        values.push_back(numberOf(answer));
        if (values.size() < 5) {
            ASSERT_EQ(near.channel.request(numbered(values.back()), LONG, next), STATUS_SUCCESS);
        }
    };
    Sockets sockets = makeSockets();
    near.open(std::move(sockets.near));
    ASSERT_EQ(far.channel.open(
                  sockets.far.release(),
                  [this](const SerializedData& message) {
                      EXPECT_EQ(far.channel.answer(message.getContextId(),
                                                   numbered(2 * numberOf(message))),
                                STATUS_SUCCESS);
                  },
                  far.onClosed()),
              STATUS_SUCCESS);

    ASSERT_EQ(near.channel.request(numbered(1), LONG, next), STATUS_SUCCESS);

    EXPECT_TRUE(iterateUntil([&] { return values.size() == 5; }, 10s));
    EXPECT_THAT(values, ElementsAre(2, 4, 8, 16, 32));
}

TEST_F(ChannelRequestTest, AFunctionMayBeEmpty)
{
    ASSERT_EQ(near.channel.request(numbered(1), LONG, nullptr), STATUS_SUCCESS);
    ASSERT_EQ(near.channel.request(numbered(2), 1, nullptr), STATUS_SUCCESS);
    ASSERT_TRUE(far.waitForMessages(2));
    ASSERT_EQ(far.channel.answer(far.contextIds.front(), numbered(1)), STATUS_SUCCESS);
    ASSERT_EQ(far.send(3), STATUS_SUCCESS);

    ASSERT_TRUE(near.waitForMessages(1));
    iterateFor(10ms);
    EXPECT_TRUE(near.channel.isOpen());
}

TEST_F(ChannelRequestTest, WhatAFunctionCapturesGoesWithTheAnswer)
{
    auto captured = std::make_shared<int>(5);
    const std::weak_ptr<int> watch = captured;
    bool alive = false;
    ASSERT_EQ(near.channel.request(numbered(1), LONG,
                                   [&alive, watch, captured](int, const SerializedData&) {
                                       alive = !watch.expired();
                                   }),
              STATUS_SUCCESS);
    captured.reset();
    ASSERT_FALSE(watch.expired());
    ASSERT_TRUE(far.waitForMessages(1));
    ASSERT_EQ(far.channel.answer(far.contextIds.front(), numbered(1)), STATUS_SUCCESS);

    EXPECT_TRUE(iterateUntil([&] { return watch.expired(); }, 10s));
    EXPECT_TRUE(alive);
}

// ---- Time-outs ----------------------------------------------------------------------------------

TEST_F(ChannelRequestTest, ARequestWithoutAnswerTimesOut)
{
    const Clock::time_point start = Clock::now();
    ASSERT_EQ(near.channel.request(numbered(1), 30,
                                   [this](int status, const SerializedData& answer) {
                                       EXPECT_EQ(status, STATUS_TIMED_OUT);
                                       EXPECT_EQ(answer.getData(), nullptr);
                                       EXPECT_EQ(answer.getTotalDataSize(), 0);
                                       near.answers.push_back("out");
                                   }),
              STATUS_SUCCESS);

    ASSERT_TRUE(near.waitForAnswers(1));
    EXPECT_GE(Clock::now() - start, 30ms);
    EXPECT_TRUE(near.channel.isOpen());
    iterateFor(50ms);
    EXPECT_THAT(near.answers, ElementsAre("out"));
    EXPECT_THAT(near.closed, IsEmpty());
}

TEST_F(ChannelRequestTest, TimeOutsComeInTheOrderOfTheirTime)
{
    ASSERT_EQ(
        near.channel.request(numbered(1), 80,
                             [this](int, const SerializedData&) { near.answers.push_back("80"); }),
        STATUS_SUCCESS);
    ASSERT_EQ(
        near.channel.request(numbered(2), 10,
                             [this](int, const SerializedData&) { near.answers.push_back("10"); }),
        STATUS_SUCCESS);
    ASSERT_EQ(
        near.channel.request(numbered(3), 40,
                             [this](int, const SerializedData&) { near.answers.push_back("40"); }),
        STATUS_SUCCESS);

    ASSERT_TRUE(near.waitForAnswers(3));
    EXPECT_THAT(near.answers, ElementsAre("10", "40", "80"));
}

TEST_F(ChannelRequestTest, ALaterRequestDoesNotPutOffAnEarlierTimeOut)
{
    ASSERT_EQ(request(1, 40), STATUS_SUCCESS);
    const Clock::time_point start = Clock::now();
    EXPECT_TRUE(iterateUntil(
        [&] {
            // Each asks for another time, and there is always one more.
            EXPECT_EQ(near.channel.request(numbered(2), LONG, nullptr), STATUS_SUCCESS);
            return !near.answers.empty();
        },
        20s));
    EXPECT_THAT(near.answers, ElementsAre(TIMED_OUT));
    EXPECT_LT(Clock::now() - start, 10s);
}

TEST_F(ChannelRequestTest, AShortTimeOutDoesNotWaitForALongOne)
{
    ASSERT_EQ(request(1, LONG), STATUS_SUCCESS);
    ASSERT_EQ(request(2, 5), STATUS_SUCCESS);

    ASSERT_TRUE(near.waitForAnswers(1));
    EXPECT_THAT(near.answers, ElementsAre(TIMED_OUT));
}

TEST_F(ChannelRawRequestTest, AnAnswerThatHasArrivedIsNotTooLate)
{
    ASSERT_TRUE(answer(request(5), 7));
    const Clock::time_point start = Clock::now();
    while (Clock::now() - start < 20ms) {  // nobody looks at it in time
    }

    ASSERT_TRUE(near.waitForAnswers(1));
    EXPECT_THAT(near.answers, ElementsAre("7"));
}

TEST_F(ChannelRawRequestTest, ALateAnswerIsDropped)
{
    const std::uint32_t number = request(1);
    ASSERT_TRUE(near.waitForAnswers(1));

    ASSERT_TRUE(answer(number, 5));
    ASSERT_TRUE(writeAll(peer.get(), frameOf(numbered(6))));

    ASSERT_TRUE(near.waitForMessages(1));
    EXPECT_THAT(near.answers, ElementsAre(TIMED_OUT));
    EXPECT_THAT(near.messages, ElementsAre("6"));
}

TEST_F(ChannelRequestTest, AnAnsweredRequestDoesNotTimeOut)
{
    ASSERT_EQ(request(1, 200), STATUS_SUCCESS);
    ASSERT_TRUE(far.waitForMessages(1));
    ASSERT_EQ(far.channel.answer(far.contextIds.front(), numbered(5)), STATUS_SUCCESS);
    ASSERT_TRUE(near.waitForAnswers(1));

    iterateFor(250ms);

    EXPECT_THAT(near.answers, ElementsAre("5"));
}

TEST_F(ChannelRequestTest, SeveralTimeOutsAtOnceAreToldInOrder)
{
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(near.channel.request(numbered(i), 5,
                                       [this, i](int status, const SerializedData&) {
                                           EXPECT_EQ(status, STATUS_TIMED_OUT);
                                           near.answers.push_back(std::to_string(i));
                                       }),
                  STATUS_SUCCESS);
    }
    const Clock::time_point start = Clock::now();
    while (Clock::now() - start < 20ms) {  // all of them are over before the loop looks
    }

    ASSERT_TRUE(near.waitForAnswers(5));
    EXPECT_THAT(near.answers, ElementsAre("0", "1", "2", "3", "4"));
}

TEST_F(ChannelRequestTest, AfterATimeOutThatClosesTheChannelNothingIsTold)
{
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(near.channel.request(numbered(i), 5,
                                       [this, i](int, const SerializedData&) {
                                           near.answers.push_back(std::to_string(i));
                                           if (i == 2) {
                                               near.channel.close();
                                           }
                                       }),
                  STATUS_SUCCESS);
    }
    const Clock::time_point start = Clock::now();
    while (Clock::now() - start < 20ms) {
    }

    ASSERT_TRUE(near.waitForAnswers(3));
    iterateFor(20ms);
    EXPECT_THAT(near.answers, ElementsAre("0", "1", "2"));
    EXPECT_THAT(near.closed, IsEmpty());
}

TEST_F(ChannelRequestTest, ATimeOutMayDestroyTheChannel)
{
    Sockets sockets = makeSockets();
    auto channel = std::make_unique<Channel>();
    ASSERT_EQ(channel->open(sockets.near.release(), near.onMessage(), near.onClosed()),
              STATUS_SUCCESS);
    const auto captured = std::make_shared<std::string>("still there");
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(channel->request(numbered(i), 5,
                                   [this, &channel, captured](int, const SerializedData&) {
                                       channel.reset();
                                       near.answers.push_back(*captured);
                                   }),
                  STATUS_SUCCESS);
    }

    ASSERT_TRUE(near.waitForAnswers(1));
    iterateFor(20ms);
    EXPECT_THAT(near.answers, ElementsAre("still there"));
    EXPECT_THAT(near.closed, IsEmpty());
    EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(ChannelRequestTest, ATimeOutMayReopenTheChannel)
{
    Sockets sockets = makeSockets();
    ChannelEnd other;
    other.open(std::move(sockets.far));
    ASSERT_EQ(near.channel.request(numbered(1), 5,
                                   [&](int, const SerializedData&) {
                                       near.answers.push_back("first");
                                       near.open(std::move(sockets.near));
                                       EXPECT_EQ(near.send(5), STATUS_SUCCESS);
                                   }),
              STATUS_SUCCESS);
    ASSERT_EQ(request(2, 5), STATUS_SUCCESS);

    ASSERT_TRUE(other.waitForMessages(1));
    EXPECT_THAT(other.messages, ElementsAre("5"));
    iterateFor(20ms);
    EXPECT_THAT(near.answers, ElementsAre("first"));
    EXPECT_THAT(near.closed, IsEmpty());
    ASSERT_TRUE(far.waitForClosed());
    EXPECT_THAT(far.closed, ElementsAre(STATUS_SUCCESS));
}

TEST_F(ChannelRequestTest, ATimeOutComesUpWhileAnotherCallbackWaits)
{
    WaitingLoop loop;
    ASSERT_EQ(near.channel.request(numbered(1), 5,
                                   [&](int, const SerializedData&) {
                                       near.answers.push_back("outer in");
                                       loop.run();
                                       near.answers.push_back("outer out");
                                   }),
              STATUS_SUCCESS);
    ASSERT_EQ(near.channel.request(numbered(2), 20,
                                   [&](int status, const SerializedData&) {
                                       EXPECT_EQ(status, STATUS_TIMED_OUT);
                                       near.answers.push_back("inner");
                                       loop.quit();
                                   }),
              STATUS_SUCCESS);

    ASSERT_TRUE(near.waitForAnswers(3));
    EXPECT_THAT(near.answers, ElementsAre("outer in", "inner", "outer out"));
}

TEST_F(ChannelRequestTest, ATimeOutThatIsDueAtOnceComesUpWhileTheFirstWaits)
{
    WaitingLoop loop;
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(near.channel.request(numbered(i), 5,
                                       [&, i](int, const SerializedData&) {
                                           near.answers.push_back("in " + std::to_string(i));
                                           if (i == 0) {
                                               loop.run();
                                           } else {
                                               loop.quit();
                                           }
                                           near.answers.push_back("out " + std::to_string(i));
                                       }),
                  STATUS_SUCCESS);
    }
    const Clock::time_point start = Clock::now();
    while (Clock::now() - start < 20ms) {
    }

    ASSERT_TRUE(near.waitForAnswers(4));
    EXPECT_THAT(near.answers, ElementsAre("in 0", "in 1", "out 1", "out 0"));
}

TEST_F(ChannelRequestTest, ACallbackMayWaitForAnAnswer)
{
    WaitingLoop loop;
    Sockets sockets = makeSockets();
    ASSERT_EQ(near.channel.open(
                  sockets.near.release(),
                  [&](const SerializedData& message) {
                      near.messages.push_back(textOf(message));
                      // In front of the answer, and delivered while the other end waits for that.
                      EXPECT_EQ(near.send(2), STATUS_SUCCESS);
                      EXPECT_EQ(near.channel.answer(message.getContextId(), numbered(51)),
                                STATUS_SUCCESS);
                  },
                  nullptr),
              STATUS_SUCCESS);
    ASSERT_EQ(far.channel.open(
                  sockets.far.release(),
                  [&](const SerializedData& message) {
                      far.messages.push_back(textOf(message));
                      if (far.messages.size() > 1) {
                          return;
                      }
                      ASSERT_EQ(far.channel.request(numbered(50), LONG,
                                                    [&](int status, const SerializedData& answer) {
                                                        EXPECT_EQ(status, STATUS_SUCCESS);
                                                        far.answers.push_back(textOf(answer));
                                                        loop.quit();
                                                    }),
                                STATUS_SUCCESS);
                      loop.run();
                      EXPECT_EQ(far.channel.answer(message.getContextId(), numbered(60)),
                                STATUS_SUCCESS);
                  },
                  nullptr),
              STATUS_SUCCESS);

    ASSERT_EQ(request(1), STATUS_SUCCESS);

    ASSERT_TRUE(near.waitForAnswers(1));
    EXPECT_THAT(near.messages, ElementsAre("50"));
    EXPECT_THAT(far.messages, ElementsAre("1", "2"));
    EXPECT_THAT(far.answers, ElementsAre("51"));
    EXPECT_THAT(near.answers, ElementsAre("60"));
}

TEST_F(ChannelRequestTest, TheLongestTimeOutIsPossible)
{
    ASSERT_EQ(request(1, INT_MAX), STATUS_SUCCESS);
    iterateFor(10ms);
    EXPECT_THAT(near.answers, IsEmpty());
    ASSERT_TRUE(far.waitForMessages(1));
    ASSERT_EQ(far.channel.answer(far.contextIds.front(), numbered(5)), STATUS_SUCCESS);
    ASSERT_TRUE(near.waitForAnswers(1));
    EXPECT_THAT(near.answers, ElementsAre("5"));
}

// ---- The end of the connection ------------------------------------------------------------------

TEST_F(ChannelRequestTest, WhenTheOtherEndClosesRequestsFailFirst)
{
    std::vector<std::string> order;
    Sockets sockets = makeSockets();
    ASSERT_EQ(near.channel.open(
                  sockets.near.release(),
                  [&](const SerializedData& message) { order.push_back(textOf(message)); },
                  [&](int status) { order.push_back("closed " + std::to_string(status)); }),
              STATUS_SUCCESS);
    far.open(std::move(sockets.far));
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(near.channel.request(numbered(i), LONG,
                                       [&order, i](int status, const SerializedData& answer) {
                                           EXPECT_EQ(answer.getData(), nullptr);
                                           order.push_back("request " + std::to_string(i) + ": " +
                                                           std::to_string(status));
                                       }),
                  STATUS_SUCCESS);
    }
    ASSERT_TRUE(far.waitForMessages(3));
    ASSERT_EQ(far.send(7), STATUS_SUCCESS);
    far.channel.close();

    ASSERT_TRUE(iterateUntil([&] { return order.size() == 5; }, 10s));
    EXPECT_THAT(order,
                ElementsAre("7", "request 0: -1", "request 1: -1", "request 2: -1", "closed 0"));
}

TEST_F(ChannelRawRequestTest, WhenTheOtherEndIsHostileRequestsGetItsStatus)
{
    request();
    LogCapture log;
    ASSERT_TRUE(writeAll(peer.get(), "x"));

    ASSERT_TRUE(near.waitForClosed());
    EXPECT_THAT(near.closed, ElementsAre(STATUS_INVALID_PARAMETER));
    EXPECT_THAT(near.answers, ElementsAre("status " + std::to_string(STATUS_INVALID_PARAMETER)));
}

TEST_F(ChannelRequestTest, ClosingOneselfTellsNobody)
{
    ASSERT_EQ(request(1, 5), STATUS_SUCCESS);
    near.channel.close();

    iterateFor(30ms);
    EXPECT_THAT(near.answers, IsEmpty());
    EXPECT_THAT(near.closed, IsEmpty());
}

TEST_F(ChannelRequestTest, ClosingLetsGoOfWhatFunctionsCapture)
{
    const auto captured = std::make_shared<int>(5);
    ASSERT_EQ(near.channel.request(numbered(1), LONG, [captured](int, const SerializedData&) {}),
              STATUS_SUCCESS);
    ASSERT_EQ(captured.use_count(), 2);

    near.channel.close();

    EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(ChannelRequestTest, ARequestThatIsToldOfTheEndMayAskAgainInVain)
{
    int status = 1;
    bool open = true;
    LogCapture log;
    ASSERT_EQ(near.channel.request(numbered(1), LONG,
                                   [&](int, const SerializedData&) {
                                       open = near.channel.isOpen();
                                       status = request(2);
                                   }),
              STATUS_SUCCESS);
    ASSERT_TRUE(far.waitForMessages(1));
    far.channel.close();

    ASSERT_TRUE(near.waitForClosed());
    EXPECT_FALSE(open);
    EXPECT_EQ(status, STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(), ElementsAre(logged("request", "Invalid state.")));
    EXPECT_THAT(near.answers, IsEmpty());
}

TEST_F(ChannelRequestTest, ARequestThatIsToldOfTheEndMayReopenTheChannel)
{
    Sockets sockets = makeSockets();
    ASSERT_EQ(near.channel.request(numbered(1), LONG,
                                   [&](int, const SerializedData&) {
                                       near.answers.push_back("told");
                                       near.open(std::move(sockets.near));
                                   }),
              STATUS_SUCCESS);
    ASSERT_EQ(request(2), STATUS_SUCCESS);
    ASSERT_TRUE(far.waitForMessages(2));
    far.channel.close();

    ASSERT_TRUE(near.waitForAnswers(1));
    iterateFor(10ms);
    EXPECT_THAT(near.answers, ElementsAre("told"));  // what belonged to the old connection is gone
    EXPECT_THAT(near.closed, IsEmpty());
    EXPECT_TRUE(near.channel.isOpen());
}

// ---- What is refused ----------------------------------------------------------------------------

TEST_F(ChannelRawRequestTest, ATimeOutOfLessThanAMillisecondIsRefused)
{
    LogCapture log;
    const auto captured = std::make_shared<int>(1);
    for (const int timeout : {0, -1, INT_MIN}) {
        EXPECT_EQ(near.channel.request(numbered(1), timeout,
                                       [captured](int, const SerializedData&) { FAIL(); }),
                  STATUS_INVALID_PARAMETER);
    }
    EXPECT_THAT(log.lines(), ElementsAre(logged("request", "Invalid parameter (0)."),
                                         logged("request", "Invalid parameter (-1)."),
                                         logged("request", "Invalid parameter (-2147483648).")));
    EXPECT_EQ(captured.use_count(), 1);
    EXPECT_EQ(readAvailable(peer.get()), "");
}

TEST_F(ChannelRawRequestTest, TheNumberOfNoRequestIsNotAnswered)
{
    LogCapture log;
    EXPECT_EQ(near.channel.answer(0, numbered(1)), STATUS_INVALID_PARAMETER);
    EXPECT_THAT(log.lines(), ElementsAre(logged("answer", "Invalid parameter (0).")));
    EXPECT_EQ(readAvailable(peer.get()), "");
}

TEST_F(ChannelRawRequestTest, WhatCantBePackedIsNotAsked)
{
    LogCapture log;
    const auto captured = std::make_shared<int>(1);
    EXPECT_EQ(
        near.channel.request(KeyValues(), 5, [captured](int, const SerializedData&) { FAIL(); }),
        STATUS_INVALID_STATE);
    EXPECT_THAT(log.lines(),
                ElementsAre(testing::Field(&LogLine::message, "Invalid data size (0).")));
    EXPECT_EQ(captured.use_count(), 1);
    iterateFor(20ms);
    EXPECT_EQ(readAvailable(peer.get()), "");
    EXPECT_EQ(near.channel.answer(1, KeyValues()), STATUS_INVALID_STATE);
}

TEST(ChannelClosedRequestTest, AClosedChannelRefuses)
{
    Channel channel;
    LogCapture log;
    const auto captured = std::make_shared<int>(1);

    EXPECT_EQ(channel.request(numbered(1), 5, [captured](int, const SerializedData&) { FAIL(); }),
              STATUS_INVALID_STATE);
    EXPECT_EQ(channel.answer(1, numbered(1)), STATUS_INVALID_STATE);

    EXPECT_THAT(log.lines(), ElementsAre(logged("request", "Invalid state."),
                                         logged("answer", "Invalid state.")));
    EXPECT_EQ(captured.use_count(), 1);
}

}  // namespace
}  // namespace oxil::test
