#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "ChannelEnd.h"
#include "MainLoop.h"
#include "OxChannel.h"
#include "OxLogMatchers.h"
#include "OxStatus.h"
#include "Records.h"
#include "Streams.h"

namespace oxil::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

// GLib, which uses malloc(), ends the process where it has no memory itself. The queue keeps what it
// once got from `new`, so that comes first.
constexpr Allocation KINDS[] = {Allocation::ThrowingNew, Allocation::NothrowNew};
constexpr int ENOUGH = 100;

/** What a call did, one of whose allocations may have failed. */
struct Outcome {
    bool failed = false;  // an allocation
    bool thrown = false;  // std::bad_alloc
    int status = 1;
};

Outcome withFailure(Allocation kind, int nth, const std::function<int()>& call)
{
    Outcome outcome;
    const AllocationFailure failure(kind, nth);
    try {
        outcome.status = call();
    } catch (const std::bad_alloc&) {
        outcome.thrown = true;
    }
    outcome.failed = failure.happened();
    return outcome;
}

class ChannelMemoryTest : public testing::Test {
protected:
    ChannelMemoryTest()
    {
        Sockets sockets = makeSockets();
        near.open(std::move(sockets.near));
        peer = std::move(sockets.far);
    }

    /**
     * Lets each allocation of a call fail in turn. The call succeeds at last, having sent the
     * frame; before that nothing is sent.
     */
    void expectAllOrNothing(const std::function<int()>& call, const std::string& frame)
    {
        for (const Allocation kind : KINDS) {
            int nth = 1;
            for (bool done = false; !done; ++nth) {
                ASSERT_LT(nth, ENOUGH);
                LogCapture log(50);
                const Outcome outcome = withFailure(kind, nth, call);
                done = !outcome.failed;
                if (done) {
                    EXPECT_EQ(outcome.status, STATUS_SUCCESS);
                    EXPECT_THAT(log.lines(), IsEmpty());
                    EXPECT_EQ(readAvailable(peer.get()).substr(5), frame.substr(5));
                } else if (outcome.thrown) {
                    EXPECT_EQ(readAvailable(peer.get()), "");
                } else {
                    EXPECT_EQ(outcome.status, STATUS_OUT_OF_MEMORY);
                    EXPECT_FALSE(log.lines().empty());
                    EXPECT_EQ(readAvailable(peer.get()), "");
                }
                EXPECT_EQ(near.channel.getQueueSize(), 0u);
                EXPECT_TRUE(near.channel.isOpen());
            }
        }
    }

    ChannelEnd near;
    Descriptor peer;
};

TEST_F(ChannelMemoryTest, WhatCantBeSentForLackOfMemoryIsNot)
{
    const KeyValues record = recordOf({{"name", std::string(200, 'x')}, {"other", 2}});
    const std::string method(40, 'm');
    const Values params = {1, "text"};
    const Records list = {record, small("n", 1)};

    expectAllOrNothing([&] { return near.channel.send(record); }, frameOf(record));
    expectAllOrNothing(
        [&] {
            return near.channel.send({method, params});
        },
        frameOf({method, params}));
    expectAllOrNothing([&] { return near.channel.send(list); }, frameOf(list));
    expectAllOrNothing([&] { return near.channel.answer(7, record); },
                       frameOf(record, Kind::ANSWER, 7));
}

TEST_F(ChannelMemoryTest, WhatCantBeAskedForLackOfMemoryIsNot)
{
    const KeyValues record = recordOf({{"name", std::string(200, 'x')}});
    const auto captured = std::make_shared<std::string>("captured");
    const Channel::OnAnswer onAnswer = [this, captured, more = std::string(100, 'x')](
                                           int, const SerializedData&) {
        near.answers.push_back(*captured);
    };
    const long users = captured.use_count();

    expectAllOrNothing([&] { return near.channel.request(record, 1, onAnswer); },
                       frameOf(record, Kind::REQUEST, 1));

    // Only those that were sent time out.
    const std::size_t sent = 2;
    EXPECT_EQ(captured.use_count(), users + static_cast<long>(sent));
    ASSERT_TRUE(near.waitForAnswers(sent));
    iterateFor(20ms);
    EXPECT_THAT(near.answers, SizeIs(sent));
    EXPECT_EQ(captured.use_count(), users);
}

TEST_F(ChannelMemoryTest, AStreamThatCantBeTakenStaysTheCallers)
{
    const Channel::OnMessage onMessage = [more = std::string(100, 'x')](const SerializedData&) {};
    const Channel::OnClosed onClosed = [more = std::string(100, 'x')](int) {};
    Sockets other = makeSockets();
    int failures = 0;
    for (int nth = 1;; ++nth) {
        ASSERT_LT(nth, ENOUGH);
        const Outcome outcome = withFailure(Allocation::ThrowingNew, nth, [&] {
            return near.channel.open(other.near.get(), onMessage, onClosed);
        });
        if (!outcome.failed) {
            EXPECT_EQ(outcome.status, STATUS_SUCCESS);
            other.near.release();
            break;
        }
        ++failures;
        EXPECT_TRUE(outcome.thrown);
        EXPECT_TRUE(isOpenDescriptor(other.near.get()));

        // The channel is as it was.
        ASSERT_TRUE(near.channel.isOpen());
        ASSERT_EQ(near.send(1), STATUS_SUCCESS);
        EXPECT_EQ(readAvailable(peer.get()), frameOf(numbered(1)));
    }
    EXPECT_GT(failures, 0);
    EXPECT_TRUE(isAtEnd(peer.get()));
}

TEST(ChannelReceivingMemoryTest, WhatCantBeReceivedEndsTheConnection)
{
    for (const Allocation kind : {Allocation::NothrowNew, Allocation::ThrowingNew}) {
        int ended = 0;
        for (int nth = 1;; ++nth) {
            ASSERT_LT(nth, ENOUGH);
            Sockets sockets = makeSockets();
            int messages = 0;
            std::vector<int> closed;
            closed.reserve(2);
            Channel channel;
            ASSERT_EQ(channel.open(
                          sockets.near.release(), [&](const SerializedData&) { ++messages; },
                          [&](int status) { closed.push_back(status); }),
                      STATUS_SUCCESS);
            ASSERT_TRUE(
                writeAll(sockets.far.get(), frameOf(recordOf({{"name", std::string(200, 'x')}}))));
            LogCapture log;

            const Outcome outcome = withFailure(kind, nth, [&] {
                while (messages == 0 && closed.empty()) {
                    g_main_context_iteration(nullptr, TRUE);
                }
                return STATUS_SUCCESS;
            });

            EXPECT_FALSE(outcome.thrown);
            if (!outcome.failed) {
                EXPECT_EQ(messages, 1);
                EXPECT_THAT(log.lines(), IsEmpty());
                break;
            }
            ++ended;
            EXPECT_EQ(messages, 0);
            EXPECT_THAT(closed, ElementsAre(STATUS_OUT_OF_MEMORY));
            EXPECT_THAT(log.lines(),
                        ElementsAre(Field(&LogLine::message, "Memory allocation failed.")));
            EXPECT_TRUE(isAtEnd(sockets.far.get()));
        }
        EXPECT_GT(ended, 0);
    }
}

TEST(ChannelReceivingMemoryTest, AMessageThatIsGoneTakesNone)
{
    Sockets sockets = makeSockets();
    int messages = 0;
    Channel channel;
    ASSERT_EQ(channel.open(
                  sockets.near.release(), [&](const SerializedData&) { ++messages; }, nullptr),
              STATUS_SUCCESS);
    const std::string frame = frameOf(recordOf({{"name", std::string(200, 'x')}}));
    const auto receive = [&] {
        const int before = messages;
        ASSERT_TRUE(writeAll(sockets.far.get(), frame));
        while (messages == before) {
            g_main_context_iteration(nullptr, TRUE);
        }
    };
    receive();  // the buffers have their size now

    const AllocationMeter meter;
    const long long before = meter.held();
    for (int i = 0; i < 100; ++i) {
        receive();
    }
    EXPECT_LT(meter.held() - before, 1024);
}

}  // namespace
}  // namespace oxil::test
