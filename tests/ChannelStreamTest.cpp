#include <fcntl.h>
#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <thread>
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
#include "StreamCalls.h"
#include "Streams.h"

namespace oxil::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

const LoggedBy logged("OxChannel.cpp");

// ---- Descriptors --------------------------------------------------------------------------------

bool isPrepared(int descriptor)
{
    return (fcntl(descriptor, F_GETFL) & O_NONBLOCK) != 0 &&
           (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0;
}

TEST(ChannelDescriptorTest, ASocketIsPreparedAndClosedWithTheChannel)
{
    const int before = openDescriptorCount();
    {
        Sockets sockets = makeSockets();
        const int number = sockets.near.get();
        ASSERT_FALSE(isPrepared(number));
        Channel channel;

        ASSERT_EQ(channel.open(sockets.near.release(), nullptr, nullptr), STATUS_SUCCESS);

        EXPECT_TRUE(channel.isOpen());
        EXPECT_TRUE(isPrepared(number));
        channel.close();
        EXPECT_FALSE(channel.isOpen());
        EXPECT_FALSE(isOpenDescriptor(number));
        EXPECT_TRUE(isAtEnd(sockets.far.get()));
    }
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST(ChannelDescriptorTest, PipesArePreparedAndClosedWithTheChannel)
{
    const int before = openDescriptorCount();
    {
        Pipe in = makePipe();
        Pipe out = makePipe();
        const int input = in.input.get();
        const int output = out.output.get();
        auto channel = std::make_unique<Channel>();

        ASSERT_EQ(channel->open(in.input.release(), out.output.release(), nullptr, nullptr),
                  STATUS_SUCCESS);

        EXPECT_TRUE(isPrepared(input));
        EXPECT_TRUE(isPrepared(output));
        channel.reset();
        EXPECT_FALSE(isOpenDescriptor(input));
        EXPECT_FALSE(isOpenDescriptor(output));
        EXPECT_TRUE(isAtEnd(out.input.get()));
    }
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST(ChannelDescriptorTest, OtherFlagsStayAsTheyAre)
{
    Pipe in = makePipe();
    Sockets sockets = makeSockets();
    ASSERT_EQ(fcntl(sockets.near.get(), F_SETFL, O_RDWR | O_ASYNC), 0);
    const int number = sockets.near.get();
    Channel channel;
    ASSERT_EQ(channel.open(sockets.near.release(), nullptr, nullptr), STATUS_SUCCESS);
    EXPECT_NE(fcntl(number, F_GETFL) & O_ASYNC, 0);
}

TEST(ChannelDescriptorTest, OneSocketForBothDirectionsIsClosedOnce)
{
    Sockets sockets = makeSockets();
    const int number = sockets.near.release();
    Channel channel;
    ASSERT_EQ(channel.open(number, number, nullptr, nullptr), STATUS_SUCCESS);
    ChannelEnd far;
    far.open(std::move(sockets.far));
    ASSERT_EQ(channel.send(numbered(1)), STATUS_SUCCESS);
    ASSERT_TRUE(far.waitForMessages(1));

    channel.close();

    EXPECT_FALSE(isOpenDescriptor(number));
    // A second close() would hit whoever has got the number by then: see the counting test.
    ASSERT_TRUE(far.waitForClosed());
}

TEST(ChannelDescriptorTest, TheDescriptorIsClosedBeforeTheEndIsTold)
{
    Sockets sockets = makeSockets();
    const int number = sockets.near.release();
    bool told = false;
    Channel channel;
    ASSERT_EQ(channel.open(number, nullptr,
                           [&](int) {
                               EXPECT_FALSE(isOpenDescriptor(number));
                               told = true;
                           }),
              STATUS_SUCCESS);
    sockets.far.close();
    EXPECT_TRUE(iterateUntil([&] { return told; }, 10s));
}

TEST(ChannelDescriptorTest, PipesAreClosedBeforeTheEndIsTold)
{
    Pipe in = makePipe();
    Pipe out = makePipe();
    ChannelEnd near;
    near.open(std::move(in.input), std::move(out.output));
    in.output.close();

    ASSERT_TRUE(near.waitForClosed());
    EXPECT_TRUE(isAtEnd(out.input.get()));
}

TEST(ChannelDescriptorTest, ADescriptorThatIsNotOpenIsRefused)
{
    Channel channel;
    Pipe pipe = makePipe();
    const int closedNumber = fcntl(pipe.input.get(), F_DUPFD, 900);
    ASSERT_EQ(close(closedNumber), 0);
    const auto captured = std::make_shared<int>(1);
    const auto onClosed = [captured](int) {};
    LogCapture log;

    EXPECT_EQ(channel.open(-1, nullptr, onClosed), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(channel.open(closedNumber, nullptr, onClosed), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(channel.open(-1, pipe.output.get(), nullptr, onClosed), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(channel.open(pipe.input.get(), closedNumber, nullptr, onClosed),
              STATUS_INVALID_PARAMETER);

    const std::string closedLine = "Invalid descriptor (" + std::to_string(closedNumber) + ").";
    EXPECT_THAT(
        log.lines(),
        ElementsAre(logged("open", "Invalid descriptor (-1)."), logged("open", closedLine),
                    logged("open", "Invalid descriptor (-1)."), logged("open", closedLine)));
    EXPECT_FALSE(channel.isOpen());
    EXPECT_TRUE(isOpenDescriptor(pipe.input.get()));
    EXPECT_TRUE(isOpenDescriptor(pipe.output.get()));
    EXPECT_EQ(captured.use_count(), 2);
    // They are as they were.
    EXPECT_EQ(fcntl(pipe.input.get(), F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(pipe.input.get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST(ChannelDescriptorTest, OpeningAgainClosesTheFirstConnection)
{
    Sockets first = makeSockets();
    Sockets second = makeSockets();
    ChannelEnd near;
    near.open(std::move(first.near));
    near.open(std::move(second.near));

    EXPECT_TRUE(isAtEnd(first.far.get()));
    iterateFor(5ms);
    EXPECT_THAT(near.closed, IsEmpty());
    ASSERT_EQ(near.send(1), STATUS_SUCCESS);
    EXPECT_EQ(readBytes(second.far.get(), frameOf(numbered(1)).size()), frameOf(numbered(1)));
}

// ---- Little by little ---------------------------------------------------------------------------

/** Passes bytes on, one at a time and each way. */
class Relay {
public:
    Relay(Descriptor left, Descriptor right) : __left(std::move(left)), __right(std::move(right))
    {
        fcntl(__left.get(), F_SETFL, O_NONBLOCK);
        fcntl(__right.get(), F_SETFL, O_NONBLOCK);
    }

    void pass()
    {
        __passOne(__left.get(), __right.get());
        __passOne(__right.get(), __left.get());
    }

private:
    static void __passOne(int from, int to)
    {
        char byte = '\0';
        if (read(from, &byte, 1) == 1) {
            EXPECT_TRUE(writeAll(to, std::string(1, byte)));
        }
    }

    Descriptor __left;
    Descriptor __right;
};

TEST(ChannelRelayTest, BytesMayArriveOneByOne)
{
    Sockets first = makeSockets();
    Sockets second = makeSockets();
    ChannelEnd near;
    ChannelEnd far;
    near.open(std::move(first.near));
    far.open(std::move(second.near));
    Relay relay(std::move(first.far), std::move(second.far));
    for (int i = 1; i <= 50; ++i) {
        ASSERT_EQ(near.send(i), STATUS_SUCCESS);
        ASSERT_EQ(far.channel.request({"call", {i, "text"}}, 60000, far.onAnswer()),
                  STATUS_SUCCESS);
    }

    EXPECT_TRUE(iterateUntil(
        [&] {
            relay.pass();
            return far.messages.size() == 50 && near.messages.size() == 50;
        },
        20s));
    for (int i = 1; i <= 50; ++i) {
        EXPECT_EQ(far.messages[static_cast<std::size_t>(i - 1)], std::to_string(i));
        EXPECT_EQ(near.messages[static_cast<std::size_t>(i - 1)],
                  "call(" + std::to_string(i) + ", text)");
        EXPECT_EQ(
            near.channel.answer(near.contextIds[static_cast<std::size_t>(i - 1)], numbered(i)),
            STATUS_SUCCESS);
    }
    EXPECT_TRUE(iterateUntil(
        [&] {
            relay.pass();
            return far.answers.size() == 50;
        },
        20s));
    EXPECT_EQ(far.answers.back(), "50");
}

TEST(ChannelRelayTest, TheSmallestBuffersDo)
{
    Sockets sockets = makeSmallSockets();
    ChannelEnd near;
    ChannelEnd far;
    near.open(std::move(sockets.near));
    far.open(std::move(sockets.far));
    const std::string text(250, 'x');
    for (int i = 1; i <= 300; ++i) {
        ASSERT_EQ(near.channel.send({"call", {i, text, text, text}}), STATUS_SUCCESS);
        ASSERT_EQ(far.channel.send({"back", {i, text}}), STATUS_SUCCESS);
    }
    EXPECT_GT(near.channel.getQueueSize(), 0u);

    ASSERT_TRUE(far.waitForMessages(300));
    ASSERT_TRUE(near.waitForMessages(300));
    for (int i = 1; i <= 300; ++i) {
        EXPECT_EQ(far.messages[static_cast<std::size_t>(i - 1)],
                  "call(" + std::to_string(i) + ", " + text + ", " + text + ", " + text + ")");
        EXPECT_EQ(near.messages[static_cast<std::size_t>(i - 1)],
                  "back(" + std::to_string(i) + ", " + text + ")");
    }
}

TEST(ChannelRelayTest, AMessageLargerThanAPipeGoesThroughIt)
{
    Pipe there = makePipe();
    Pipe back = makePipe();
    ChannelEnd near;
    ChannelEnd far;
    near.open(std::move(back.input), std::move(there.output));
    far.open(std::move(there.input), std::move(back.output));
    const std::vector<Variant> params(600, std::string(250, 'x'));

    ASSERT_EQ(near.channel.send({"large", params}), STATUS_SUCCESS);
    ASSERT_EQ(near.send(2), STATUS_SUCCESS);
    EXPECT_GT(near.channel.getQueueSize(), 0u);

    ASSERT_TRUE(far.waitForMessages(2));
    EXPECT_EQ(far.messages[0].size(), 600 * 252 - 2 + std::string("large()").size());
    EXPECT_EQ(far.messages[1], "2");
}

// ---- Signals ------------------------------------------------------------------------------------

/** Counts what arrives of a signal while it lives. */
class SignalCount {
public:
    explicit SignalCount(int signal) : __signal(signal)
    {
        caught = 0;
        struct sigaction action = {};
        action.sa_handler = [](int) { ++caught; };
        EXPECT_EQ(sigaction(signal, &action, &__before), 0);
    }

    ~SignalCount() { sigaction(__signal, &__before, nullptr); }

    SignalCount(const SignalCount&) = delete;
    SignalCount& operator=(const SignalCount&) = delete;

    static inline std::atomic<int> caught = 0;

private:
    int __signal;
    struct sigaction __before;
};

TEST(ChannelSignalTest, SignalsInBetweenLoseNothing)
{
    const SignalCount signals(SIGUSR1);
    std::atomic<bool> over = false;
    const pthread_t self = pthread_self();
    std::thread sender([&] {
        while (!over) {
            pthread_kill(self, SIGUSR1);
            std::this_thread::sleep_for(50us);
        }
    });
    Sockets sockets = makeSmallSockets();
    ChannelEnd near;
    ChannelEnd far;
    near.open(std::move(sockets.near));
    far.open(std::move(sockets.far));
    for (int i = 1; i <= 1000; ++i) {
        ASSERT_EQ(near.send(i), STATUS_SUCCESS);
    }

    EXPECT_TRUE(far.waitForMessages(1000));
    EXPECT_TRUE(iterateUntil([] { return SignalCount::caught > 5; }, 10s));
    over = true;
    sender.join();
    EXPECT_EQ(far.messages.back(), "1000");
    EXPECT_THAT(far.closed, IsEmpty());
}

/** A way to be connected to nobody. */
struct Broken {
    Descriptor input;
    Descriptor output;
};

Broken brokenSocket()
{
    Sockets sockets = makeSockets();
    const int copy = dup(sockets.near.get());
    return {std::move(sockets.near), Descriptor(copy)};
}

Broken brokenPipe()
{
    Pipe in = makePipe();
    Pipe out = makePipe();
    return {std::move(in.input), std::move(out.output)};
}

class ChannelBrokenTest : public testing::TestWithParam<Broken (*)()> {
protected:
    ChannelBrokenTest()
    {
        Broken broken = GetParam()();
        near.open(std::move(broken.input), std::move(broken.output));
    }

    void expectFailure()
    {
        LogCapture log;
        EXPECT_EQ(near.send(1), STATUS_FAILURE);
        EXPECT_THAT(log.lines(), ElementsAre(Field(&LogLine::message, "Failed to write (32).")));
        EXPECT_TRUE(near.waitForClosed());
        EXPECT_THAT(near.closed, ElementsAre(STATUS_FAILURE));
        EXPECT_EQ(log.lines().size(), 1u);
    }

    ChannelEnd near;
};

sigset_t currentMask()
{
    sigset_t mask;
    EXPECT_EQ(pthread_sigmask(SIG_BLOCK, nullptr, &mask), 0);
    return mask;
}

bool isPending(int signal)
{
    sigset_t pending;
    EXPECT_EQ(sigpending(&pending), 0);
    return sigismember(&pending, signal) == 1;
}

sigset_t only(int signal)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    return set;
}

TEST_P(ChannelBrokenTest, RaisesNoSignal)
{
    const SignalCount signals(SIGPIPE);
    const sigset_t before = currentMask();
    ASSERT_EQ(sigismember(&before, SIGPIPE), 0);  // nor has any earlier test left it blocked

    expectFailure();

    EXPECT_EQ(SignalCount::caught, 0);
    const sigset_t after = currentMask();
    for (int signal = 1; signal < NSIG; ++signal) {
        EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << signal;
    }
    EXPECT_FALSE(isPending(SIGPIPE));
}

TEST_P(ChannelBrokenTest, LeavesABlockedSignalBlocked)
{
    const SignalCount signals(SIGPIPE);
    const sigset_t pipe = only(SIGPIPE);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &pipe, nullptr), 0);

    expectFailure();

    const sigset_t after = currentMask();
    EXPECT_EQ(sigismember(&after, SIGPIPE), 1);
    EXPECT_FALSE(isPending(SIGPIPE));
    EXPECT_EQ(pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr), 0);
    EXPECT_EQ(SignalCount::caught, 0);
}

TEST_P(ChannelBrokenTest, LeavesAPendingSignalPending)
{
    const SignalCount signals(SIGPIPE);
    const sigset_t pipe = only(SIGPIPE);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &pipe, nullptr), 0);
    ASSERT_EQ(pthread_kill(pthread_self(), SIGPIPE), 0);

    expectFailure();

    EXPECT_TRUE(isPending(SIGPIPE));  // somebody else's
    EXPECT_EQ(pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr), 0);
    EXPECT_EQ(SignalCount::caught, 1);
}

std::string brokenName(const testing::TestParamInfo<Broken (*)()>& test)
{
    return test.param == brokenSocket ? "Socket" : "Pipe";
}

INSTANTIATE_TEST_SUITE_P(Streams, ChannelBrokenTest, testing::Values(brokenSocket, brokenPipe),
                         brokenName);

// ---- What was there before the end --------------------------------------------------------------

TEST(ChannelEndTest, WhatHadArrivedIsDeliveredAlsoAfterAFailedWrite)
{
    Sockets sockets = makeSockets();
    ChannelEnd near;
    near.open(std::move(sockets.near));
    for (int i = 1; i <= 3; ++i) {
        ASSERT_TRUE(writeAll(sockets.far.get(), frameOf(numbered(i))));
    }
    sockets.far.close();
    LogCapture log;

    EXPECT_EQ(near.send(1), STATUS_FAILURE);

    ASSERT_TRUE(near.waitForClosed());
    EXPECT_THAT(near.messages, ElementsAre("1", "2", "3"));
    EXPECT_THAT(near.closed, ElementsAre(STATUS_FAILURE));
    EXPECT_THAT(log.lines(), ElementsAre(Field(&LogLine::message, "Failed to write (32).")));
}

TEST(ChannelEndTest, WhatHadArrivedIsDeliveredAlsoWhenThePeerHadNotReadAll)
{
    Sockets sockets = makeSockets();
    ChannelEnd near;
    near.open(std::move(sockets.near));
    ASSERT_EQ(near.send(1), STATUS_SUCCESS);  // taken by the stream, and read by nobody
    for (int i = 1; i <= 3; ++i) {
        ASSERT_TRUE(writeAll(sockets.far.get(), frameOf(numbered(i))));
    }
    sockets.far.close();
    LogCapture log;

    ASSERT_TRUE(near.waitForClosed());
    EXPECT_THAT(near.messages, ElementsAre("1", "2", "3"));
    EXPECT_THAT(near.closed, ElementsAre(STATUS_FAILURE));
    EXPECT_THAT(log.lines(), ElementsAre(Field(&LogLine::message, "Failed to read (104).")));
}

TEST(ChannelEndTest, WhatHadArrivedIsDeliveredAlsoWhenACallbackCantSend)
{
    Sockets sockets = makeSockets();
    ChannelEnd near;
    near.open(std::move(sockets.near));
    LogCapture log;
    ASSERT_EQ(
        near.channel.request(numbered(1), 1,
                             [&](int, const SerializedData&) {
                                 EXPECT_TRUE(writeAll(sockets.far.get(), frameOf(numbered(1))));
                                 EXPECT_TRUE(writeAll(sockets.far.get(), frameOf(numbered(2))));
                                 sockets.far.close();
                                 EXPECT_EQ(near.send(5), STATUS_FAILURE);
                             }),
        STATUS_SUCCESS);

    ASSERT_TRUE(near.waitForClosed());
    EXPECT_THAT(near.messages, ElementsAre("1", "2"));
    EXPECT_THAT(near.closed, ElementsAre(STATUS_FAILURE));
    EXPECT_THAT(log.lines(), ElementsAre(Field(&LogLine::message, "Failed to write (32).")));
}

TEST(ChannelEndTest, AfterAFailedWriteTheChannelRefuses)
{
    Sockets sockets = makeSockets();
    ChannelEnd near;
    near.open(std::move(sockets.near));
    sockets.far.close();
    LogCapture log;
    ASSERT_EQ(near.send(1), STATUS_FAILURE);

    EXPECT_FALSE(near.channel.isOpen());
    EXPECT_EQ(near.send(2), STATUS_INVALID_STATE);

    ASSERT_TRUE(near.waitForClosed());
    EXPECT_THAT(near.closed, ElementsAre(STATUS_FAILURE));
}

TEST(ChannelEndTest, APeerThatOnlyEndsItsOwnDirectionHasClosed)
{
    Sockets sockets = makeSockets();
    ChannelEnd near;
    near.open(std::move(sockets.near));
    ASSERT_TRUE(writeAll(sockets.far.get(), frameOf(numbered(1))));
    ASSERT_EQ(shutdown(sockets.far.get(), SHUT_WR), 0);

    ASSERT_TRUE(near.waitForClosed());
    EXPECT_THAT(near.messages, ElementsAre("1"));
    EXPECT_THAT(near.closed, ElementsAre(STATUS_SUCCESS));
}

TEST(ChannelEndTest, APeerThatEndsItsOwnDirectionLeavesWhatWaitsInDoubt)
{
    Sockets sockets = makeSmallSockets();
    ChannelEnd near;
    near.open(std::move(sockets.near));
    while (near.channel.getQueueSize() < 1000) {
        ASSERT_EQ(near.send(1), STATUS_SUCCESS);
    }
    ASSERT_EQ(near.channel.request(numbered(1), 60000, near.onAnswer()), STATUS_SUCCESS);
    const std::string line = "Not sent (" + std::to_string(near.channel.getQueueSize()) + ").";
    LogCapture log;
    ASSERT_EQ(shutdown(sockets.far.get(), SHUT_WR), 0);

    ASSERT_TRUE(near.waitForClosed());
    EXPECT_THAT(near.answers, ElementsAre("status -1"));
    EXPECT_THAT(near.closed, ElementsAre(STATUS_FAILURE));
    EXPECT_THAT(log.lines(), ElementsAre(Field(&LogLine::message, line)));
    EXPECT_EQ(near.channel.getQueueSize(), 0u);
}

// ---- What the system says -----------------------------------------------------------------------

/** Two channels, and what the system does for one of them. */
class ChannelSystemTest : public testing::Test {
protected:
    void exchange()
    {
        const std::string text(200, 'x');
        for (int i = 1; i <= 20; ++i) {
            ASSERT_EQ(near.channel.send({"call", {i, text}}), STATUS_SUCCESS);
            ASSERT_EQ(far.channel.request({"call", {i, text}}, 60000, far.onAnswer()),
                      STATUS_SUCCESS);
        }
        ASSERT_TRUE(near.waitForMessages(20));
        ASSERT_TRUE(far.waitForMessages(20));
        for (const unsigned int id : near.contextIds) {
            ASSERT_EQ(near.channel.answer(id, numbered(5)), STATUS_SUCCESS);
        }
        ASSERT_TRUE(far.waitForAnswers(20));
        for (int i = 1; i <= 20; ++i) {
            const std::string expected = "call(" + std::to_string(i) + ", " + text + ")";
            EXPECT_EQ(near.messages[static_cast<std::size_t>(i - 1)], expected);
            EXPECT_EQ(far.messages[static_cast<std::size_t>(i - 1)], expected);
        }
        EXPECT_EQ(near.channel.getQueueSize(), 0u);
        EXPECT_THAT(near.closed, IsEmpty());
        EXPECT_THAT(far.closed, IsEmpty());
    }

    void openSockets()
    {
        Sockets sockets = makeSockets();
        descriptor = sockets.near.get();
        near.open(std::move(sockets.near));
        far.open(std::move(sockets.far));
    }

    int descriptor = -1;
    ChannelEnd near;
    ChannelEnd far;
};

TEST_F(ChannelSystemTest, EveryCallMayPassOneByte)
{
    openSockets();
    StreamCalls calls({descriptor});
    calls.passAtMost(1);
    exchange();
}

TEST_F(ChannelSystemTest, EveryCallMayPassOneByteThroughPipes)
{
    Pipe there = makePipe();
    Pipe back = makePipe();
    StreamCalls calls({there.output.get(), back.input.get()});
    calls.passAtMost(1);
    near.open(std::move(back.input), std::move(there.output));
    far.open(std::move(there.input), std::move(back.output));
    exchange();
}

TEST_F(ChannelSystemTest, SignalsMayInterruptCalls)
{
    openSockets();
    StreamCalls calls({descriptor});
    calls.disturb(EINTR);
    calls.passAtMost(7);
    exchange();
}

TEST_F(ChannelSystemTest, AStreamMayNotBeReadyAfterAll)
{
    openSockets();
    StreamCalls calls({descriptor});
    calls.disturb(EAGAIN);
    calls.passAtMost(100);
    exchange();
}

TEST_F(ChannelSystemTest, WhatCantBeReadEndsTheConnection)
{
    openSockets();
    StreamCalls calls({descriptor});
    calls.failReading(EIO);
    LogCapture log;
    ASSERT_EQ(far.send(1), STATUS_SUCCESS);

    ASSERT_TRUE(near.waitForClosed());
    EXPECT_THAT(near.closed, ElementsAre(STATUS_FAILURE));
    EXPECT_THAT(log.lines(), ElementsAre(Field(&LogLine::message, "Failed to read (5).")));
}

TEST_F(ChannelSystemTest, WhatCantBeWrittenEndsTheConnection)
{
    openSockets();
    StreamCalls calls({descriptor});
    calls.failWriting(EIO);
    LogCapture log;

    EXPECT_EQ(near.channel.request(numbered(1), 1, near.onAnswer()), STATUS_FAILURE);

    ASSERT_TRUE(near.waitForClosed());
    EXPECT_THAT(near.closed, ElementsAre(STATUS_FAILURE));
    EXPECT_THAT(near.answers, IsEmpty());
    EXPECT_THAT(log.lines(), ElementsAre(Field(&LogLine::message, "Failed to write (5).")));
}

TEST_F(ChannelSystemTest, WhatWaitsAndCantBeWrittenEndsTheConnection)
{
    Sockets sockets = makeSmallSockets();
    descriptor = sockets.near.get();
    near.open(std::move(sockets.near));
    while (near.channel.getQueueSize() < 1000) {
        ASSERT_EQ(near.send(1), STATUS_SUCCESS);
    }
    StreamCalls calls({descriptor});
    calls.failWriting(EIO);
    LogCapture log;
    readAvailable(sockets.far.get());

    ASSERT_TRUE(near.waitForClosed());
    EXPECT_THAT(near.closed, ElementsAre(STATUS_FAILURE));
    EXPECT_THAT(log.lines(), ElementsAre(Field(&LogLine::message, "Failed to write (5).")));
}

TEST_F(ChannelSystemTest, AMessageIsWrittenInOneCallAndNothingIsTriedWhileOthersWait)
{
    Sockets sockets = makeSmallSockets();
    StreamCalls calls({sockets.near.get()});
    near.open(std::move(sockets.near));
    ASSERT_EQ(near.send(1), STATUS_SUCCESS);
    EXPECT_EQ(calls.writeCount(), 1);
    while (near.channel.getQueueSize() == 0) {
        ASSERT_EQ(near.send(1), STATUS_SUCCESS);
    }
    const int before = calls.writeCount();

    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(near.send(1), STATUS_SUCCESS);
    }

    EXPECT_EQ(calls.writeCount(), before);
}

TEST_F(ChannelSystemTest, EachDescriptorIsClosedOnce)
{
    openSockets();
    {
        const StreamCalls calls({descriptor});
        near.channel.close();
        near.channel.close();
        EXPECT_EQ(calls.closeCount(), 1);
        ASSERT_TRUE(far.waitForClosed());
    }
    Sockets sockets = makeSockets();
    StreamCalls calls({sockets.near.get()});
    {
        Channel channel;
        const int number = sockets.near.release();
        ASSERT_EQ(channel.open(number, number, nullptr, nullptr), STATUS_SUCCESS);
        sockets.far.close();
        EXPECT_TRUE(iterateUntil([&] { return !channel.isOpen(); }, 10s));
        EXPECT_EQ(calls.closeCount(), 1);
    }
    EXPECT_EQ(calls.closeCount(), 1);
}

/** A pipe with a name, whose reader may change. */
class NamedPipe {
public:
    NamedPipe() : __path(testing::TempDir() + "oxil-pipe-" + std::to_string(getpid()))
    {
        EXPECT_EQ(mkfifo(__path.c_str(), 0600), 0);
    }

    ~NamedPipe() { unlink(__path.c_str()); }

    NamedPipe(const NamedPipe&) = delete;
    NamedPipe& operator=(const NamedPipe&) = delete;

    Descriptor open(int flags) { return Descriptor(::open(__path.c_str(), flags | O_NONBLOCK)); }

private:
    std::string __path;
};

TEST_F(ChannelSystemTest, APipeMayGetAnotherReader)
{
    NamedPipe named;
    Descriptor first = named.open(O_RDONLY);
    Pipe back = makePipe();
    near.open(std::move(back.input), named.open(O_WRONLY));
    first.close();
    iterateFor(5ms);

    Descriptor second = named.open(O_RDONLY);
    std::string expected;
    while (near.channel.getQueueSize() < 1000) {
        ASSERT_EQ(near.send(1), STATUS_SUCCESS);
        expected += frameOf(numbered(1));
    }
    std::string received;
    EXPECT_TRUE(iterateUntil(
        [&] {
            received += readAvailable(second.get());
            return received.size() >= expected.size();
        },
        10s));
    EXPECT_TRUE(received == expected) << received.size() << " of " << expected.size();
}

// ---- Idling -------------------------------------------------------------------------------------

/** How often the main loop wakes up in this time when nothing of the test's own wakes it. */
int wakeUps(std::chrono::milliseconds time)
{
    bool over = false;
    const CallLater end(time, [&] { over = true; });
    int count = 0;
    while (!over) {
        g_main_context_iteration(nullptr, TRUE);
        ++count;
    }
    return count;
}

class ChannelIdleTest : public testing::Test {
protected:
    void expectRest(std::chrono::milliseconds time = 50ms) { EXPECT_LE(wakeUps(time), 5); }

    void drain()
    {
        while (g_main_context_iteration(nullptr, FALSE)) {
        }
    }

    ChannelEnd near;
    ChannelEnd far;
};

TEST_F(ChannelIdleTest, WithNothingToDo)
{
    Sockets sockets = makeSockets();
    near.open(std::move(sockets.near));
    far.open(std::move(sockets.far));
    expectRest();
    ASSERT_EQ(near.send(1), STATUS_SUCCESS);
    ASSERT_TRUE(far.waitForMessages(1));
    expectRest();
}

TEST_F(ChannelIdleTest, WithAFullQueue)
{
    Sockets sockets = makeSmallSockets();
    near.open(std::move(sockets.near));
    while (near.channel.getQueueSize() < 10000) {
        ASSERT_EQ(near.send(1), STATUS_SUCCESS);
    }
    drain();
    expectRest();
}

TEST_F(ChannelIdleTest, AfterAQueueHasGone)
{
    Sockets sockets = makeSmallSockets();
    Pipe there = makePipe();
    Pipe back = makePipe();
    near.open(std::move(sockets.near));
    far.open(std::move(back.input), std::move(there.output));
    for (int i = 0; i < 10000; ++i) {
        ASSERT_EQ(near.send(1), STATUS_SUCCESS);
        ASSERT_EQ(far.send(1), STATUS_SUCCESS);
    }
    EXPECT_GT(near.channel.getQueueSize(), 0u);
    EXPECT_GT(far.channel.getQueueSize(), 0u);
    EXPECT_TRUE(iterateUntil(
        [&] {
            readAvailable(sockets.far.get());
            readAvailable(there.input.get());
            return near.channel.getQueueSize() == 0 && far.channel.getQueueSize() == 0;
        },
        20s));
    drain();
    expectRest();
    there.input.close();
    drain();
    expectRest();
}

TEST_F(ChannelIdleTest, WithAPipeThatNobodyReads)
{
    Pipe there = makePipe();
    Pipe back = makePipe();
    near.open(std::move(back.input), std::move(there.output));
    there.input.close();
    drain();
    expectRest();
    EXPECT_THAT(near.closed, IsEmpty());

    // What the other end sends still arrives.
    ASSERT_TRUE(writeAll(back.output.get(), frameOf(numbered(1))));
    ASSERT_TRUE(near.waitForMessages(1));
}

TEST_F(ChannelIdleTest, WithAMessageThatHasArrivedInPart)
{
    Sockets sockets = makeSockets();
    near.open(std::move(sockets.near));
    ASSERT_TRUE(writeAll(sockets.far.get(), frameOf(numbered(1)).substr(0, 9)));
    drain();
    expectRest();
}

TEST_F(ChannelIdleTest, WithRequestsThatWaitAndRequestsThatAreOver)
{
    Sockets sockets = makeSockets();
    near.open(std::move(sockets.near));
    ASSERT_EQ(near.channel.request(numbered(1), 1, near.onAnswer()), STATUS_SUCCESS);
    ASSERT_EQ(near.channel.request(numbered(2), 60000, near.onAnswer()), STATUS_SUCCESS);
    ASSERT_TRUE(near.waitForAnswers(1));
    expectRest();
}

TEST_F(ChannelIdleTest, WhileACallbackWaits)
{
    Sockets sockets = makeSockets();
    far.open(std::move(sockets.far));
    WaitingLoop loop;
    bool in = false;
    bool out = false;
    ASSERT_EQ(near.channel.open(
                  sockets.near.release(),
                  [&](const SerializedData&) {
                      in = true;
                      expectRest();
                      out = true;
                  },
                  nullptr),
              STATUS_SUCCESS);
    ASSERT_EQ(far.send(1), STATUS_SUCCESS);

    while (!in || !out) {
        g_main_context_iteration(nullptr, TRUE);
    }
}

TEST_F(ChannelIdleTest, WhatIsThereAlreadyWakesACallbackThatWaits)
{
    Sockets sockets = makeSockets();
    far.open(std::move(sockets.far));
    const Watchdog watchdog{20s};
    WaitingLoop loop;
    int last = 0;
    ASSERT_EQ(near.channel.open(
                  sockets.near.release(),
                  [&](const SerializedData& message) {
                      if (numberOf(message) == 1) {
                          loop.run();
                          last = 1;
                      } else {
                          loop.quit();
                      }
                  },
                  nullptr),
              STATUS_SUCCESS);
    ASSERT_EQ(far.send(1), STATUS_SUCCESS);
    ASSERT_EQ(far.send(2), STATUS_SUCCESS);  // read with the first

    while (last == 0) {
        g_main_context_iteration(nullptr, TRUE);
    }
}

TEST_F(ChannelIdleTest, WhileTheEndWaits)
{
    Sockets sockets = makeSockets();
    bool out = false;
    ASSERT_EQ(near.channel.open(sockets.near.release(), nullptr,
                                [&](int) {
                                    expectRest();
                                    out = true;
                                }),
              STATUS_SUCCESS);
    sockets.far.close();

    while (!out) {
        g_main_context_iteration(nullptr, TRUE);
    }
}

TEST_F(ChannelIdleTest, AfterTheEnd)
{
    Sockets sockets = makeSockets();
    near.open(std::move(sockets.near));
    sockets.far.close();
    ASSERT_TRUE(near.waitForClosed());
    expectRest();
}

}  // namespace
}  // namespace oxil::test
