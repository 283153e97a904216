#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
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
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

const LoggedBy logged("OxChannel.cpp");

/** A channel that the test opens with functions of its own, and one at the other end. */
class ChannelLifetimeTest : public testing::Test {
protected:
    void open(const Channel::OnMessage& onMessage, const Channel::OnClosed& onClosed = nullptr)
    {
        Sockets sockets = makeSockets();
        far.open(std::move(sockets.far));
        ASSERT_EQ(channel->open(sockets.near.release(), onMessage, onClosed), STATUS_SUCCESS);
    }

    bool waitForLines(std::size_t count)
    {
        return iterateUntil([&] { return lines.size() >= count; }, 10s);
    }

    void add(const std::string& line) { lines.push_back(line); }

    std::vector<std::string> lines;
    ChannelEnd far;
    std::unique_ptr<Channel> channel = std::make_unique<Channel>();
    const Watchdog watchdog{60s};
};

// ---- Callbacks that end the channel -------------------------------------------------------------

TEST_F(ChannelLifetimeTest, AMessageMayDestroyTheChannel)
{
    const auto captured = std::make_shared<std::string>("still there");
    open(
        [this, captured](const SerializedData& message) {
            channel.reset();
            add(*captured + " " + textOf(message));
        },
        [this](int) { add("closed"); });
    ASSERT_EQ(far.send(1), STATUS_SUCCESS);
    ASSERT_EQ(far.send(2), STATUS_SUCCESS);

    ASSERT_TRUE(far.waitForClosed());
    iterateFor(10ms);
    EXPECT_THAT(lines, ElementsAre("still there 1"));
    EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(ChannelLifetimeTest, AMessageMayCloseTheChannel)
{
    const auto captured = std::make_shared<std::string>("still there");
    open(
        [this, captured](const SerializedData& message) {
            channel->close();
            EXPECT_FALSE(channel->isOpen());
            add(*captured + " " + textOf(message));
        },
        [this](int) { add("closed"); });
    ASSERT_EQ(far.send(1), STATUS_SUCCESS);
    ASSERT_EQ(far.send(2), STATUS_SUCCESS);

    ASSERT_TRUE(far.waitForClosed());
    iterateFor(10ms);
    EXPECT_THAT(lines, ElementsAre("still there 1"));
    EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(ChannelLifetimeTest, AMessageMayReopenTheChannel)
{
    Sockets sockets = makeSockets();
    ChannelEnd other;
    other.open(std::move(sockets.far));
    const auto captured = std::make_shared<std::string>("old");
    open(
        [&, captured](const SerializedData& message) {
            ASSERT_EQ(channel->open(
                          sockets.near.release(),
                          [this](const SerializedData& next) { add("new " + textOf(next)); },
                          [this](int status) { add("new " + std::to_string(status)); }),
                      STATUS_SUCCESS);
            add(*captured + " " + textOf(message));
        },
        [this](int) { add("closed"); });
    ASSERT_EQ(far.send(1), STATUS_SUCCESS);
    ASSERT_EQ(far.send(2), STATUS_SUCCESS);  // of the old connection, and gone with it
    ASSERT_TRUE(waitForLines(1));
    EXPECT_EQ(captured.use_count(), 1);
    ASSERT_EQ(other.send(3), STATUS_SUCCESS);
    ASSERT_TRUE(waitForLines(2));
    other.channel.close();
    ASSERT_TRUE(waitForLines(3));

    EXPECT_THAT(lines, ElementsAre("old 1", "new 3", "new 0"));
    EXPECT_THAT(far.closed, ElementsAre(STATUS_SUCCESS));
}

TEST_F(ChannelLifetimeTest, TheEndMayDestroyTheChannel)
{
    const auto captured = std::make_shared<std::string>("still there");
    open(nullptr, [this, captured](int) {
        EXPECT_FALSE(channel->isOpen());
        channel.reset();
        add(*captured);
    });
    far.channel.close();

    ASSERT_TRUE(waitForLines(1));
    iterateFor(10ms);
    EXPECT_THAT(lines, ElementsAre("still there"));
    EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(ChannelLifetimeTest, TheEndMayReopenTheChannel)
{
    std::function<void(int)> reconnect = [&](int status) {
        add(std::to_string(status));
        if (lines.size() < 3) {
            open(nullptr, reconnect);
            far.channel.close();
        }
    };
    open(nullptr, reconnect);
    far.channel.close();

    ASSERT_TRUE(waitForLines(3));
    EXPECT_THAT(lines, ElementsAre("0", "0", "0"));
    EXPECT_FALSE(channel->isOpen());
}

TEST_F(ChannelLifetimeTest, TheEndLetsGoOfTheFunctions)
{
    const auto captured = std::make_shared<int>(1);
    open([captured](const SerializedData&) {}, [this, captured](int) { add("closed"); });
    far.channel.close();

    ASSERT_TRUE(waitForLines(1));
    EXPECT_TRUE(iterateUntil([&] { return captured.use_count() == 1; }, 1s));
}

TEST_F(ChannelLifetimeTest, ClosingLetsGoOfTheFunctions)
{
    const auto captured = std::make_shared<int>(1);
    open([captured](const SerializedData&) {}, [captured](int) {});
    EXPECT_EQ(captured.use_count(), 3);

    channel->close();
    EXPECT_EQ(captured.use_count(), 1);
    channel->close();

    open([captured](const SerializedData&) {}, [captured](int) {});
    open(nullptr);
    EXPECT_EQ(captured.use_count(), 1);

    open([captured](const SerializedData&) {}, [captured](int) {});
    channel.reset();
    EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(ChannelLifetimeTest, WhatAFunctionCapturesMayOwnTheChannel)
{
    std::weak_ptr<Channel> watch;
    Sockets sockets = makeSockets();
    {
        const auto owned = std::make_shared<Channel>();
        watch = owned;
        ASSERT_EQ(owned->open(
                      sockets.near.release(), [](const SerializedData&) {},
                      [this, owned](int status) { add(std::to_string(status)); }),
                  STATUS_SUCCESS);
    }
    ASSERT_FALSE(watch.expired());
    sockets.far.close();

    ASSERT_TRUE(waitForLines(1));
    EXPECT_TRUE(iterateUntil([&] { return watch.expired(); }, 1s));
    EXPECT_THAT(lines, ElementsAre("0"));
}

TEST_F(ChannelLifetimeTest, ClosingMayDestroyTheChannelByWhatAFunctionCaptures)
{
    Sockets sockets = makeSockets();
    Channel* raw = new Channel();
    {
        const std::shared_ptr<Channel> owned(raw);
        ASSERT_EQ(raw->open(
                      sockets.near.release(), [owned](const SerializedData&) {}, nullptr),
                  STATUS_SUCCESS);
    }

    raw->close();  // lets go of the function, which lets go of the channel

    EXPECT_TRUE(isAtEnd(sockets.far.get()));
}

TEST_F(ChannelLifetimeTest, AMutableFunctionKeepsItsState)
{
    int count = 0;
    open([this, count](const SerializedData&) mutable { add(std::to_string(++count)); });
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(far.send(i), STATUS_SUCCESS);
    }

    ASSERT_TRUE(waitForLines(3));
    EXPECT_THAT(lines, ElementsAre("1", "2", "3"));
}

// ---- Callbacks that send ------------------------------------------------------------------------

TEST_F(ChannelLifetimeTest, AMessageMaySend)
{
    open([this](const SerializedData& message) {
        EXPECT_EQ(channel->send(numbered(numberOf(message) * 2)), STATUS_SUCCESS);
        EXPECT_EQ(channel->send(numbered(numberOf(message) * 3)), STATUS_SUCCESS);
    });
    ASSERT_EQ(far.send(1), STATUS_SUCCESS);
    ASSERT_EQ(far.send(10), STATUS_SUCCESS);

    ASSERT_TRUE(far.waitForMessages(4));
    EXPECT_THAT(far.messages, ElementsAre("2", "3", "20", "30"));
}

TEST_F(ChannelLifetimeTest, NothingCanBeSentAtTheEnd)
{
    LogCapture log;
    open(nullptr, [this](int) {
        EXPECT_EQ(channel->send(numbered(1)), STATUS_INVALID_STATE);
        add("closed");
    });
    far.channel.close();

    ASSERT_TRUE(waitForLines(1));
    EXPECT_THAT(log.lines(), ElementsAre(logged("send", "Invalid state.")));
}

TEST_F(ChannelLifetimeTest, CallbacksAreNeverCalledFromInsideAMember)
{
    bool inside = false;
    open(
        [&](const SerializedData&) {
            EXPECT_FALSE(inside);
            add("message");
        },
        [&](int) {
            EXPECT_FALSE(inside);
            add("closed");
        });
    ASSERT_EQ(far.send(1), STATUS_SUCCESS);
    far.channel.close();

    inside = true;
    LogCapture log;
    EXPECT_EQ(channel->send(numbered(1)), STATUS_FAILURE);
    EXPECT_THAT(log.lines(),
                ElementsAre(testing::Field(&LogLine::message, "Failed to write (32).")));
    EXPECT_TRUE(lines.empty());
    inside = false;

    ASSERT_TRUE(waitForLines(2));
    iterateFor(10ms);
    EXPECT_THAT(lines, ElementsAre("message", "closed"));
    EXPECT_EQ(log.lines().size(), 1u);
}

// ---- Callbacks that wait ------------------------------------------------------------------------

TEST_F(ChannelLifetimeTest, AMessageMayWaitForTheNextOnes)
{
    WaitingLoop loop;
    open([&](const SerializedData& message) {
        add("in " + textOf(message));
        if (numberOf(message) == 1) {
            loop.run();
        } else if (numberOf(message) == 3) {
            loop.quit();
        }
        add("out " + textOf(message));
    });
    for (int i = 1; i <= 4; ++i) {
        ASSERT_EQ(far.send(i), STATUS_SUCCESS);  // all of them are there when the first is told
    }

    ASSERT_TRUE(waitForLines(8));
    EXPECT_THAT(std::vector<std::string>(lines.begin(), lines.begin() + 5),
                ElementsAre("in 1", "in 2", "out 2", "in 3", "out 3"));
    EXPECT_THAT(std::vector<std::string>(lines.begin() + 5, lines.end()),
                UnorderedElementsAre("out 1", "in 4", "out 4"));
}

TEST_F(ChannelLifetimeTest, WaitingNests)
{
    WaitingLoop loops[3];
    open([&](const SerializedData& message) {
        const int number = numberOf(message);
        add("in " + textOf(message));
        if (number < 3) {
            loops[number].run();
        } else {
            loops[0].quit();
            loops[1].quit();
            loops[2].quit();
        }
        add("out " + textOf(message));
    });
    for (int i = 0; i <= 3; ++i) {
        ASSERT_EQ(far.send(i), STATUS_SUCCESS);
    }

    ASSERT_TRUE(waitForLines(8));
    EXPECT_THAT(lines,
                ElementsAre("in 0", "in 1", "in 2", "in 3", "out 3", "out 2", "out 1", "out 0"));
}

TEST_F(ChannelLifetimeTest, WhatArrivesLaterReachesACallbackThatWaits)
{
    WaitingLoop loop;
    open([&](const SerializedData& message) {
        add("in " + textOf(message));
        if (numberOf(message) == 1) {
            EXPECT_EQ(channel->send(numbered(1)), STATUS_SUCCESS);
            loop.wait();
        } else {
            loop.go();
        }
        add("out " + textOf(message));
    });
    ASSERT_EQ(far.send(1), STATUS_SUCCESS);
    const CallLater later(20ms, [this] { EXPECT_EQ(far.send(2), STATUS_SUCCESS); });

    ASSERT_TRUE(waitForLines(4));
    EXPECT_THAT(lines, ElementsAre("in 1", "in 2", "out 2", "out 1"));
    EXPECT_THAT(far.messages, ElementsAre("1"));
}

TEST_F(ChannelLifetimeTest, AMessageMayWaitForTheEnd)
{
    WaitingLoop loop;
    open(
        [&](const SerializedData& message) {
            add("in " + textOf(message));
            if (numberOf(message) == 1) {
                loop.run();
            }
            add("out " + textOf(message));
        },
        [&](int status) {
            add("closed " + std::to_string(status));
            loop.quit();
        });
    ASSERT_EQ(far.send(1), STATUS_SUCCESS);
    ASSERT_EQ(far.send(2), STATUS_SUCCESS);
    far.channel.close();

    ASSERT_TRUE(waitForLines(5));
    EXPECT_THAT(lines, ElementsAre("in 1", "in 2", "out 2", "closed 0", "out 1"));
}

TEST_F(ChannelLifetimeTest, WhatACallbackThatWaitsCapturesOutlivesTheEnd)
{
    WaitingLoop loop;
    auto captured = std::make_shared<int>(1);
    const std::weak_ptr<int> watch = captured;
    open(
        [&loop, &watch, this, captured](const SerializedData&) {
            loop.run();
            add(watch.expired() ? "gone" : "still there");
        },
        [&](int) { loop.quit(); });
    captured.reset();
    ASSERT_EQ(far.send(1), STATUS_SUCCESS);
    far.channel.close();

    ASSERT_TRUE(waitForLines(1));
    EXPECT_THAT(lines, ElementsAre("still there"));
    EXPECT_TRUE(watch.expired());
}

TEST_F(ChannelLifetimeTest, TheChannelMayGoWhileACallbackWaits)
{
    WaitingLoop loop;
    const auto captured = std::make_shared<std::string>("still there");
    open(
        [&, captured](const SerializedData& message) {
            add("in " + textOf(message));
            if (numberOf(message) == 1) {
                loop.run();
                add(*captured);
            } else {
                channel.reset();
                loop.quit();
                add("gone");
            }
        },
        [this](int) { add("closed"); });
    for (int i = 1; i <= 3; ++i) {
        ASSERT_EQ(far.send(i), STATUS_SUCCESS);
    }

    ASSERT_TRUE(waitForLines(4));
    iterateFor(10ms);
    EXPECT_THAT(lines, ElementsAre("in 1", "in 2", "gone", "still there"));
    EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(ChannelLifetimeTest, AReopenedChannelDeliversWhileTheOldCallbackWaits)
{
    WaitingLoop loop;
    Sockets sockets = makeSockets();
    ChannelEnd other;
    other.open(std::move(sockets.far));
    ASSERT_EQ(other.send(7), STATUS_SUCCESS);
    open([&](const SerializedData& message) {
        add("old " + textOf(message));
        ASSERT_EQ(channel->open(
                      sockets.near.release(),
                      [&](const SerializedData& next) {
                          add("new " + textOf(next));
                          loop.quit();
                      },
                      nullptr),
                  STATUS_SUCCESS);
        loop.run();
        add("out " + textOf(message));
    });
    ASSERT_EQ(far.send(1), STATUS_SUCCESS);
    ASSERT_EQ(far.send(2), STATUS_SUCCESS);

    ASSERT_TRUE(waitForLines(3));
    iterateFor(10ms);
    EXPECT_THAT(lines, ElementsAre("old 1", "new 7", "out 1"));
}

TEST_F(ChannelLifetimeTest, TheEndMayWait)
{
    WaitingLoop loop;
    open(nullptr, [&](int) {
        add("in");
        loop.run(20);
        add("out");
    });
    far.channel.close();

    ASSERT_TRUE(waitForLines(2));
    iterateFor(10ms);
    EXPECT_THAT(lines, ElementsAre("in", "out"));
}

TEST_F(ChannelLifetimeTest, MessagesStayReadableWhileACallbackWaits)
{
    WaitingLoop loop;
    open([&](const SerializedData& message) {
        if (numberOf(message) == 1) {
            loop.run();
            add(textOf(message));
        } else if (numberOf(message) == 200) {
            loop.quit();
        }
    });
    for (int i = 1; i <= 200; ++i) {
        ASSERT_EQ(far.send(i), STATUS_SUCCESS);
    }

    ASSERT_TRUE(waitForLines(1));
    EXPECT_THAT(lines, ElementsAre("1"));
}

// ---- Callbacks that throw -----------------------------------------------------------------------

using ChannelDeathTest = ChannelLifetimeTest;

[[noreturn]] void throwError()
{
    throw std::runtime_error("from a callback");
}

void exitAtTerminate()
{
    std::set_terminate([] { std::_Exit(86); });
}

TEST_F(ChannelDeathTest, AMessageMustNotThrow)
{
    open([](const SerializedData&) { throwError(); });
    ASSERT_EQ(far.send(1), STATUS_SUCCESS);
    EXPECT_EXIT(
        {
            exitAtTerminate();
            try {
                iterateFor(1s);
            } catch (...) {
            }
        },
        testing::ExitedWithCode(86), "");
}

TEST_F(ChannelDeathTest, WhatAMessageThrowsIsNotTakenForTheChannels)
{
    open([](const SerializedData&) { throw std::bad_alloc(); });
    ASSERT_EQ(far.send(1), STATUS_SUCCESS);
    EXPECT_EXIT(
        {
            exitAtTerminate();
            iterateFor(1s);
        },
        testing::ExitedWithCode(86), "");
}

TEST_F(ChannelDeathTest, TheEndMustNotThrow)
{
    open(nullptr, [](int) { throwError(); });
    far.channel.close();
    EXPECT_EXIT(
        {
            exitAtTerminate();
            try {
                iterateFor(1s);
            } catch (...) {
            }
        },
        testing::ExitedWithCode(86), "");
    channel->close();
}

TEST_F(ChannelDeathTest, AnAnswerMustNotThrow)
{
    open(nullptr);
    ASSERT_EQ(
        channel->request(numbered(1), 60000, [](int, const SerializedData&) { throwError(); }),
        STATUS_SUCCESS);
    ASSERT_TRUE(far.waitForMessages(1));
    ASSERT_EQ(far.channel.answer(far.contextIds.front(), numbered(1)), STATUS_SUCCESS);
    EXPECT_EXIT(
        {
            exitAtTerminate();
            try {
                iterateFor(1s);
            } catch (...) {
            }
        },
        testing::ExitedWithCode(86), "");
    channel->close();
}

TEST_F(ChannelDeathTest, ATimeOutMustNotThrow)
{
    open(nullptr);
    ASSERT_EQ(channel->request(numbered(1), 1, [](int, const SerializedData&) { throwError(); }),
              STATUS_SUCCESS);
    EXPECT_EXIT(
        {
            exitAtTerminate();
            try {
                iterateFor(1s);
            } catch (...) {
            }
        },
        testing::ExitedWithCode(86), "");
    channel->close();
}

}  // namespace
}  // namespace oxil::test
