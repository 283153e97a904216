#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
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
#include "Streams.h"

namespace oxil::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::Field;

#if defined(__SANITIZE_ADDRESS__) || !defined(__x86_64__)
constexpr int MANY = 5000;  // where everything takes longer
#else
constexpr int MANY = 100000;
#endif

constexpr std::chrono::seconds LIMIT(60);

/** A process of its own, which runs a function and ends with what that returns. */
class ChildProcess {
public:
    explicit ChildProcess(const std::function<int()>& body) : __id(fork())
    {
        if (__id == 0) {
            std::_Exit(body());
        }
    }

    ~ChildProcess()
    {
        if (__id > 0) {
            kill();
        }
    }

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void kill()
    {
        ::kill(__id, SIGKILL);
        wait();
    }

    /** What the function returned; -1 if the process was killed. */
    int wait()
    {
        int status = 0;
        EXPECT_EQ(waitpid(std::exchange(__id, -1), &status, 0) > 0, true);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t __id;
};

/** Answers each request with its number and passes on every message, until the other end closes. */
int reflect(int socket)
{
    Channel channel;
    bool over = false;
    int result = 1;
    const auto onMessage = [&](const SerializedData& message) {
        const unsigned int id = message.getContextId();
        const int sent = id != 0 ? channel.answer(id, message) : channel.send(message);
        if (sent != STATUS_SUCCESS) {
            over = true;
        }
    };
    ChannelLimits limits;
    limits.queue = 64 * 1024 * 1024;
    if (channel.open(
            socket, onMessage,
            [&](int status) {
                result = status == STATUS_SUCCESS ? 0 : 2;
                over = true;
            },
            limits) != STATUS_SUCCESS) {
        return 3;
    }
    while (!over) {
        g_main_context_iteration(nullptr, TRUE);
    }
    return result;
}

TEST(ChannelProcessTest, ManyMessagesComeBackInOrder)
{
    Sockets sockets = makeSockets();
    ChildProcess child([&] {
        sockets.near.close();
        return reflect(sockets.far.release());
    });
    sockets.far.close();
    int sent = 0;
    int received = 0;
    int misplaced = 0;
    Channel channel;
    ASSERT_EQ(channel.open(
                  sockets.near.release(),
                  [&](const SerializedData& message) {
                      misplaced += message.getContextId() != 0 || numberOf(message) != received;
                      ++received;
                  },
                  [](int) { FAIL(); }),
              STATUS_SUCCESS);
    KeyValues record = numbered(0);

    EXPECT_TRUE(iterateUntil(
        [&] {
            while (sent < MANY && channel.getQueueSize() < 64 * 1024) {
                record.update("n", sent);
                EXPECT_EQ(channel.send(record), STATUS_SUCCESS);
                ++sent;
            }
            return received == MANY;
        },
        LIMIT));

    EXPECT_EQ(misplaced, 0);
    channel.close();
    EXPECT_EQ(child.wait(), 0);
}

TEST(ChannelProcessTest, ManyRequestsAtOnceGetTheirAnswers)
{
    Sockets sockets = makeSockets();
    ChildProcess child([&] {
        sockets.near.close();
        return reflect(sockets.far.release());
    });
    sockets.far.close();
    Channel channel;
    ASSERT_EQ(channel.open(sockets.near.release(), nullptr, [](int) { FAIL(); }), STATUS_SUCCESS);
    int right = 0;
    for (int i = 0; i < 5000; ++i) {
        ASSERT_EQ(channel.request({"call", {i}}, 60000,
                                  [&right, i](int status, const SerializedData& answer) {
                                      right += status == STATUS_SUCCESS &&
                                               textOf(answer) == "call(" + std::to_string(i) + ")";
                                  }),
                  STATUS_SUCCESS);
    }

    EXPECT_TRUE(iterateUntil([&] { return right == 5000; }, LIMIT));
    channel.close();
    EXPECT_EQ(child.wait(), 0);
}

TEST(ChannelProcessTest, AMessageIsTheSameBehindTheBoundary)
{
    Sockets sockets = makeSockets();
    ChildProcess child([&] {
        sockets.near.close();
        return reflect(sockets.far.release());
    });
    sockets.far.close();
    SerializedData sent;
    ASSERT_EQ(Serializer::serialize(recordOf({{"volume", 40}, {"name", "hall"}}), "apply",
                                    {1.5, true, "now"}, sent),
              STATUS_SUCCESS);
    bool told = false;
    Channel channel;
    ASSERT_EQ(channel.open(sockets.near.release(), nullptr, nullptr), STATUS_SUCCESS);
    ASSERT_EQ(channel.request(
                  sent, 60000,
                  [&](int status, const SerializedData& answer) {
                      ASSERT_EQ(status, STATUS_SUCCESS);
                      told = true;
                      EXPECT_EQ(
                          std::memcmp(&answer.getSerializationInfo(), &sent.getSerializationInfo(),
                                      sizeof(SerializationInfo)),
                          0);
                      ASSERT_EQ(answer.getTotalDataSize(), sent.getTotalDataSize());
                      EXPECT_EQ(std::memcmp(answer.getData(), sent.getData(),
                                            static_cast<std::size_t>(sent.getTotalDataSize())),
                                0);
                  }),
              STATUS_SUCCESS);

    EXPECT_TRUE(iterateUntil([&] { return told; }, LIMIT));
}

TEST(ChannelProcessTest, APeerKilledInTheMiddleOfAMessageIsTold)
{
    Sockets sockets = makeSockets();
    ChildProcess child([&] {
        sockets.near.close();
        const std::string bytes = frameOf(numbered(1)) + frameOf(numbered(2)).substr(0, 12);
        if (!writeAll(sockets.far.get(), bytes)) {
            return 1;
        }
        pause();
        return 0;
    });
    sockets.far.close();
    ChannelEnd near;
    near.open(std::move(sockets.near));
    LogCapture log;
    ASSERT_TRUE(near.waitForMessages(1));
    ASSERT_EQ(near.channel.request(numbered(5), 60000, near.onAnswer()), STATUS_SUCCESS);
    iterateFor(20ms);
    EXPECT_TRUE(near.closed.empty());

    child.kill();

    ASSERT_TRUE(near.waitForClosed());
    EXPECT_THAT(near.messages, ElementsAre("1"));
    // The request that it had not read is what the system tells of.
    EXPECT_THAT(near.closed, ElementsAre(STATUS_FAILURE));
    EXPECT_THAT(near.answers, ElementsAre("status -1"));
    EXPECT_THAT(log.lines(), ElementsAre(Field(&LogLine::message, "Failed to read (104).")));
}

TEST(ChannelProcessTest, APeerKilledInTheMiddleOfAMessageThroughAPipeIsTold)
{
    Pipe there = makePipe();
    Pipe back = makePipe();
    ChildProcess child([&] {
        back.input.close();
        there.output.close();
        const std::string bytes = frameOf(numbered(1)) + frameOf(numbered(2)).substr(0, 12);
        if (!writeAll(back.output.get(), bytes)) {
            return 1;
        }
        pause();
        return 0;
    });
    back.output.close();
    there.input.close();
    ChannelEnd near;
    near.open(std::move(back.input), std::move(there.output));
    LogCapture log;
    ASSERT_TRUE(near.waitForMessages(1));

    child.kill();

    ASSERT_TRUE(near.waitForClosed());
    EXPECT_THAT(near.closed, ElementsAre(STATUS_INVALID_STATE));
    EXPECT_THAT(log.lines(), ElementsAre(Field(&LogLine::message, "Closed within a message.")));
}

TEST(ChannelProcessTest, APeerKilledWhileMuchWaitsIsTold)
{
    Sockets sockets = makeSockets();
    ChildProcess child([&] {
        sockets.near.close();
        pause();
        return 0;
    });
    sockets.far.close();
    ChannelEnd near;
    near.open(std::move(sockets.near));
    while (near.channel.getQueueSize() < 100000) {
        ASSERT_EQ(near.channel.send({"call", {std::string(200, 'x')}}), STATUS_SUCCESS);
    }
    LogCapture log;

    child.kill();

    ASSERT_TRUE(near.waitForClosed());
    EXPECT_THAT(near.closed, ElementsAre(STATUS_FAILURE));
    EXPECT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(near.channel.getQueueSize(), 0u);
}

}  // namespace
}  // namespace oxil::test
