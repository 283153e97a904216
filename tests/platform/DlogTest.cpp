#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <functional>
#include <future>
#include <limits>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "AllocationFailure.h"
#include "OxPlatform.h"
#include "WaitUntil.h"

namespace oxil::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int MAIN = 0;
constexpr int ERROR = 6;

int checked(int result, const char* what)
{
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

/** A file descriptor, closed at the end. */
class Descriptor {
public:
    explicit Descriptor(int number = -1) : __number(number) {}
    ~Descriptor() { reset(); }

    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return __number; }

    void reset(int number = -1)
    {
        if (__number >= 0) {
            close(__number);
        }
        __number = number;
    }

private:
    int __number;
};

/** Sends standard error to another file while it lives. */
class Redirection {
public:
    explicit Redirection(int target)
        : __kept(checked(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3), "dup"))
    {
        checked(dup2(target, STDERR_FILENO), "dup2");
    }
    ~Redirection() { dup2(__kept.get(), STDERR_FILENO); }

    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;

private:
    Descriptor __kept;
};

/** Runs the action and returns what it wrote to standard error, write by write. */
std::vector<std::string> writesOf(const std::function<void()>& action)
{
    int ends[2];
    // Of all channels, this kind keeps apart what different calls of write() sent.
    checked(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), "socketpair");
    const Descriptor reader(ends[0]);
    Descriptor writer(ends[1]);
    {
        const Redirection redirection(writer.get());
        action();
    }
    writer.reset();

    std::vector<std::string> writes;
    std::vector<char> buffer(1 << 20);
    ssize_t size = 0;
    while ((size = recv(reader.get(), buffer.data(), buffer.size(), 0)) > 0) {
        writes.emplace_back(buffer.data(), static_cast<std::size_t>(size));
    }
    return writes;
}

/** The one line that a message becomes, without its end. */
std::string lineOf(const std::string& message)
{
    const std::vector<std::string> writes =
        writesOf([&] { __dlog_print(MAIN, ERROR, "OX", "%s", message.c_str()); });
    if (writes.size() != 1 || writes[0].empty() || writes[0].back() != '\n') {
        ADD_FAILURE() << "not one line: " << testing::PrintToString(writes);
        return {};
    }
    return writes[0].substr(0, writes[0].size() - 1);
}

/** A pipe that holds a single page, so that writers have to wait for the reader. */
class SmallPipe {
public:
    SmallPipe()
    {
        int ends[2];
        checked(pipe2(ends, O_CLOEXEC), "pipe2");
        reader.reset(ends[0]);
        writer.reset(ends[1]);
        checked(fcntl(writer.get(), F_SETPIPE_SZ, 4096), "F_SETPIPE_SZ");
    }

    /** Leaves room for not one more byte; returns how many there are now. */
    std::size_t fill()
    {
        setNonBlocking(true);
        std::size_t size = 0;
        while (::write(writer.get(), "x", 1) == 1) {
            ++size;
        }
        setNonBlocking(false);
        return size;
    }

    void setNonBlocking(bool nonBlocking)
    {
        checked(fcntl(writer.get(), F_SETFL, nonBlocking ? O_NONBLOCK : 0), "F_SETFL");
    }

    /** Reads this many bytes, or fewer if the last writer closes its end before. */
    std::string read(std::size_t size) const
    {
        std::string text;
        char buffer[4096];
        while (text.size() < size) {
            const ssize_t taken =
                ::read(reader.get(), buffer, std::min(sizeof buffer, size - text.size()));
            if (taken <= 0) {
                break;
            }
            text.append(buffer, static_cast<std::size_t>(taken));
        }
        return text;
    }

    /** Reads until the last writer has closed its end. */
    std::string readAll() const { return read(std::numeric_limits<std::size_t>::max()); }

    Descriptor reader;
    Descriptor writer;
};

std::vector<std::string> splitLines(const std::string& text)
{
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end = 0; (end = text.find('\n', start)) != std::string::npos;
         start = end + 1) {
        lines.push_back(text.substr(start, end - start));
    }
    if (start < text.size()) {
        lines.push_back(text.substr(start) + " (without an end)");
    }
    return lines;
}

/** A thread that logs one message, and whose state can be watched. */
class LoggingThread {
public:
    explicit LoggingThread(std::string message)
        : __worker([this, message = std::move(message)] {
              __id = static_cast<pid_t>(syscall(SYS_gettid));
              __result = __dlog_print(MAIN, ERROR, "OX", "%s", message.c_str());
          })
    {
    }

    /** Waits until the thread sleeps in the kernel. */
    bool waitUntilBlocked() const
    {
        return waitUntil([this] { return __id != 0 && state() == 'S'; }, 10s);
    }

    void interrupt() { pthread_kill(__worker.native_handle(), SIGUSR1); }

    int join()
    {
        __worker.join();
        return __result;
    }

private:
    char state() const
    {
        std::ifstream stream("/proc/self/task/" + std::to_string(__id) + "/stat");
        std::string text;
        std::getline(stream, text);
        const std::size_t end = text.rfind(") ");
        return end == std::string::npos ? '?' : text[end + 2];
    }

    std::atomic<pid_t> __id{0};
    int __result = 0;
    std::thread __worker;
};

// ---- The line

TEST(DlogTest, AMessageIsALineWithPriorityAndTag)
{
    const auto writes = writesOf([] {
        __dlog_print(MAIN, ERROR, "OX", "%s: %s(%d) > Invalid conversion (%d) to INT",
                     "OxVariant.cpp", "toInt", 12, 10);
    });

    EXPECT_THAT(writes,
                ElementsAre("E/OX: OxVariant.cpp: toInt(12) > Invalid conversion (10) to INT\n"));
}

TEST(DlogTest, EveryPriorityHasItsLetter)
{
    const std::pair<int, char> letters[] = {
        {INT_MIN, '?'}, {-1, '?'}, {0, '?'}, {1, '?'}, {2, 'V'}, {3, 'D'},      {4, 'I'},
        {5, 'W'},       {6, 'E'},  {7, 'F'}, {8, '?'}, {9, '?'}, {INT_MAX, '?'}};
    for (const auto& [priority, letter] : letters) {
        const int number = priority;
        EXPECT_THAT(writesOf([=] { __dlog_print(MAIN, number, "TAG", "text"); }),
                    ElementsAre(std::string(1, letter) + "/TAG: text\n"))
            << priority;
    }
}

TEST(DlogTest, EveryBufferGoesToStandardError)
{
    const auto writes = writesOf([] {
        for (const int logId : {-1, 0, 1, 2, 3, 99}) {
            __dlog_print(logId, ERROR, "OX", "%d", logId);
        }
    });

    EXPECT_THAT(writes, ElementsAre("E/OX: -1\n", "E/OX: 0\n", "E/OX: 1\n", "E/OX: 2\n",
                                    "E/OX: 3\n", "E/OX: 99\n"));
}

TEST(DlogTest, TheNumberOfBytesWrittenIsReturned)
{
    int results[3] = {};
    const auto writes = writesOf([&] {
        results[0] = __dlog_print(MAIN, ERROR, "OX", "%s", "");
        results[1] = __dlog_print(MAIN, ERROR, "OX", "a\nb\n");
        results[2] = __dlog_print(MAIN, ERROR, "OX", "%s", std::string(10000, 'x').c_str());
    });

    ASSERT_EQ(writes.size(), 3U);
    for (std::size_t i = 0; i < writes.size(); ++i) {
        EXPECT_EQ(results[i], static_cast<int>(writes[i].size()));
    }
}

TEST(DlogTest, ControlCharactersAreShownEscaped)
{
    const std::pair<const char*, const char*> cases[] = {
        {"one\ntwo", R"(one\ntwo)"},
        {"\nfirst", R"(\nfirst)"},
        {"one\r\ntwo", R"(one\r\ntwo)"},
        {"one\ttwo", R"(one\ttwo)"},
        {"\033[31mred\033[0m", R"(\x1b[31mred\x1b[0m)"},
        {"\001\037\177", R"(\x01\x1f\x7f)"},
        {"last\r", R"(last\r)"},
        // What is no control character stays as it is.
        {" ~ \"'?%", " ~ \"'?%"},
        {R"(C:\new)", R"(C:\new)"},
        {"Gr\xc3\xbc\xc3\x9f"
         "e \xe2\x82\xac \xf0\x9f\x98\x80",
         "Gr\xc3\xbc\xc3\x9f"
         "e \xe2\x82\xac \xf0\x9f\x98\x80"},
        {"\xff\x80", "\xff\x80"},
    };
    for (const auto& [message, shown] : cases) {
        EXPECT_EQ(lineOf(message), std::string("E/OX: ") + shown);
    }
}

TEST(DlogTest, ANulByteIsShownEscapedToo)
{
    EXPECT_THAT(writesOf([] { __dlog_print(MAIN, ERROR, "OX", "a%cb", '\0'); }),
                ElementsAre("E/OX: a\\x00b\n"));
}

TEST(DlogTest, OneNewlineAtTheEndIsDropped)
{
    EXPECT_EQ(lineOf("text\n"), "E/OX: text");
    EXPECT_EQ(lineOf("text\n\n"), "E/OX: text\\n");
    EXPECT_EQ(lineOf("text\r\n"), "E/OX: text\\r");
    EXPECT_EQ(lineOf("\n"), "E/OX: ");
    EXPECT_EQ(lineOf(""), "E/OX: ");
}

TEST(DlogTest, ATagCannotBreakTheLineEither)
{
    EXPECT_THAT(writesOf([] { __dlog_print(MAIN, ERROR, "a\nb\n", "text"); }),
                ElementsAre("E/a\\nb\\n: text\n"));
    EXPECT_THAT(writesOf([] { __dlog_print(MAIN, ERROR, "", "text"); }), ElementsAre("E/: text\n"));
    EXPECT_THAT(writesOf([] { __dlog_print(MAIN, ERROR, "100%s", "text"); }),
                ElementsAre("E/100%s: text\n"));
}

TEST(DlogTest, NullPointersAreShownAsSuch)
{
    const char* const none = nullptr;

    EXPECT_THAT(writesOf([=] { __dlog_print(MAIN, ERROR, none, "text"); }),
                ElementsAre("E/(null): text\n"));
    EXPECT_THAT(writesOf([=] { __dlog_print(MAIN, ERROR, "OX", none); }),
                ElementsAre("E/OX: (null)\n"));
    EXPECT_THAT(writesOf([=] { __dlog_print(MAIN, ERROR, "OX", "%s", none); }),
                ElementsAre("E/OX: (null)\n"));
}

TEST(DlogTest, ALongMessageIsWhole)
{
    for (const std::size_t size : {100U, 1000U, 1023U, 1024U, 2048U, 4000U, 4089U, 4090U, 4091U,
                                   4096U, 5000U, 8192U, 65536U, 150000U}) {
        std::string message(size, 'x');
        message.back() = 'y';
        EXPECT_EQ(lineOf(message), "E/OX: " + message) << size;
    }

    std::string escaped;
    for (int i = 0; i < 20000; ++i) {
        escaped += R"(\x01)";
    }
    EXPECT_EQ(lineOf(std::string(20000, '\001')), "E/OX: " + escaped);
}

TEST(DlogTest, ALongTagIsWhole)
{
    const std::string tag(10000, 't');
    EXPECT_THAT(writesOf([&] { __dlog_print(MAIN, ERROR, tag.c_str(), "text"); }),
                ElementsAre("E/" + tag + ": text\n"));
}

// ---- The caller's errno

TEST(DlogTest, TheCallersErrnoIsLeftAlone)
{
    int after[2] = {};
    const auto writes = writesOf([&] {
        errno = ENOENT;
        __dlog_print(MAIN, ERROR, "OX", "text");
        after[0] = errno;

        errno = 0;
        __dlog_print(MAIN, ERROR, "OX", "%s", std::string(10000, 'x').c_str());
        after[1] = errno;
    });

    EXPECT_EQ(writes.size(), 2U);
    EXPECT_THAT(after, ElementsAre(ENOENT, 0));
}

TEST(DlogTest, TheCallersErrnoCanBeLogged)
{
    EXPECT_THAT(writesOf([] {
                    errno = ENOENT;
                    __dlog_print(MAIN, ERROR, "OX", "%m");
                }),
                ElementsAre("E/OX: No such file or directory\n"));
}

// ---- Failures

/** Logs into the descriptor; returns the result, and the errno that was 4711 before. */
std::pair<int, int> logInto(int descriptor)
{
    const Redirection redirection(descriptor);
    errno = 4711;
    const int result = __dlog_print(MAIN, ERROR, "OX", "text");
    return {result, errno};
}

TEST(DlogTest, AFailedWriteIsReported)
{
    const Descriptor full(checked(open("/dev/full", O_WRONLY | O_CLOEXEC), "/dev/full"));
    EXPECT_EQ(logInto(full.get()), std::pair(-ENOSPC, 4711));

    const Descriptor readOnly(checked(open("/dev/null", O_RDONLY | O_CLOEXEC), "/dev/null"));
    EXPECT_EQ(logInto(readOnly.get()), std::pair(-EBADF, 4711));
}

TEST(DlogTest, AClosedStandardErrorIsReported)
{
    const Descriptor null(checked(open("/dev/null", O_WRONLY | O_CLOEXEC), "/dev/null"));
    int result = 0;
    {
        const Redirection redirection(null.get());
        close(STDERR_FILENO);
        result = __dlog_print(MAIN, ERROR, "OX", "text");
    }

    EXPECT_EQ(result, -EBADF);
}

TEST(DlogTest, WhatCannotBeFormattedIsReported)
{
    const wchar_t unknown[] = {static_cast<wchar_t>(0x10ffff), 0};  // in the "C" locale
    int result = 0;
    int number = 0;
    const auto writes = writesOf([&] {
        errno = 4711;
        result = __dlog_print(MAIN, ERROR, "OX", "%ls", unknown);
        number = errno;
    });

    EXPECT_EQ(result, -EILSEQ);
    EXPECT_EQ(number, 4711);
    EXPECT_THAT(writes, IsEmpty());
}

TEST(DlogTest, AfterAFailureOtherThreadsCanLog)
{
    const Descriptor full(checked(open("/dev/full", O_WRONLY | O_CLOEXEC), "/dev/full"));
    ASSERT_EQ(logInto(full.get()).first, -ENOSPC);

    EXPECT_THAT(writesOf([] { LoggingThread("text").join(); }), ElementsAre("E/OX: text\n"));
}

TEST(DlogTest, ALineOfUsualLengthNeedsNoMemory)
{
    const std::string message(500, 'x');
    long allocations = -1;
    const auto writes = writesOf([&] {
        const long before = allocationCount();
        __dlog_print(MAIN, ERROR, "OX", "%s", message.c_str());
        allocations = allocationCount() - before;
    });

    EXPECT_EQ(allocations, 0);
    EXPECT_THAT(writes, ElementsAre("E/OX: " + message + "\n"));
}

TEST(DlogTest, ExhaustedMemoryIsReportedAndNotThrown)
{
    const std::string message(100000, 'x');
    for (const int nth : {1, 2}) {
        int result = 0;
        int number = 0;
        bool happened = false;
        const auto writes = writesOf([&] {
            const AllocationFailure failure(Allocation::NothrowNew, nth);
            errno = 4711;
            result = __dlog_print(MAIN, ERROR, "OX", "%s", message.c_str());
            number = errno;
            happened = failure.happened();
        });

        EXPECT_TRUE(happened);
        EXPECT_EQ(result, -ENOMEM);
        EXPECT_EQ(number, 4711);
        EXPECT_EQ(writes.size(), 0U);
    }
}

// ---- Slow readers, signals, threads, child processes

TEST(DlogTest, LinesOfSeveralThreadsStayWhole)
{
    constexpr int THREADS = 8;
    constexpr int LINES = 40;

    const auto message = [](int thread, int line) {
        // Longer than what the kernel keeps together by itself, and than the pipe.
        const std::size_t size = 3000U + static_cast<std::size_t>(line) * 500U;
        return std::to_string(thread) + "," + std::to_string(line) + ":" +
               std::string(size, static_cast<char>('a' + thread));
    };

    SmallPipe pipe;
    std::future<std::string> text;
    {
        const Redirection redirection(pipe.writer.get());
        pipe.writer.reset();
        text = std::async(std::launch::async, [&] { return pipe.readAll(); });

        std::vector<std::thread> threads;
        for (int thread = 0; thread < THREADS; ++thread) {
            threads.emplace_back([&, thread] {
                for (int line = 0; line < LINES; ++line) {
                    __dlog_print(MAIN, ERROR, "OX", "%s", message(thread, line).c_str());
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    std::multiset<std::string> expected;
    for (int thread = 0; thread < THREADS; ++thread) {
        for (int line = 0; line < LINES; ++line) {
            expected.insert("E/OX: " + message(thread, line));
        }
    }
    const std::vector<std::string> lines = splitLines(text.get());
    // Without a matcher, whose explanation would be megabytes long.
    EXPECT_EQ(lines.size(), expected.size());
    EXPECT_TRUE(std::multiset<std::string>(lines.begin(), lines.end()) == expected);
}

TEST(DlogTest, ANonBlockingStandardErrorGetsWholeLines)
{
    const std::string message(100000, 'x');

    SmallPipe pipe;
    const std::size_t filled = pipe.fill();
    pipe.setNonBlocking(true);
    std::future<std::string> text;
    int result = 0;
    {
        const Redirection redirection(pipe.writer.get());
        pipe.writer.reset();
        LoggingThread thread(message);
        EXPECT_TRUE(thread.waitUntilBlocked());
        text = std::async(std::launch::async, [&] { return pipe.readAll(); });
        result = thread.join();
    }

    EXPECT_EQ(result, static_cast<int>(message.size()) + 7);
    EXPECT_TRUE(text.get() == std::string(filled, 'x') + "E/OX: " + message + "\n");
}

std::atomic<int> interruptions{0};

TEST(DlogTest, SignalsDoNotBreakALine)
{
    struct sigaction counting = {};
    struct sigaction before = {};
    counting.sa_handler = [](int) { ++interruptions; };  // without SA_RESTART
    ASSERT_EQ(sigaction(SIGUSR1, &counting, &before), 0);

    const std::string message(20000, 'x');

    SmallPipe pipe;
    const std::size_t filled = pipe.fill();
    std::string text;
    std::future<std::string> rest;
    int result = 0;
    {
        const Redirection redirection(pipe.writer.get());
        pipe.writer.reset();
        LoggingThread thread(message);

        // Before the first byte is through, and then in the middle of the line.
        for (const std::size_t size : {0U, 4096U, 4096U}) {
            text += pipe.read(size);
            EXPECT_TRUE(thread.waitUntilBlocked());
            const int expected = interruptions + 1;
            thread.interrupt();
            EXPECT_TRUE(waitUntil([=] { return interruptions == expected; }, 10s));
        }
        rest = std::async(std::launch::async, [&] { return pipe.readAll(); });
        result = thread.join();
    }
    text += rest.get();
    sigaction(SIGUSR1, &before, nullptr);

    EXPECT_EQ(result, static_cast<int>(message.size()) + 7);
    EXPECT_TRUE(text == std::string(filled, 'x') + "E/OX: " + message + "\n");
}

TEST(DlogTest, AChildForkedInTheMiddleOfALineCanLog)
{
    SmallPipe pipe;
    pipe.fill();
    int status = -1;
    {
        const Redirection redirection(pipe.writer.get());
        LoggingThread thread("of the parent");
        EXPECT_TRUE(thread.waitUntilBlocked());

        const pid_t child = fork();
        if (child == 0) {
            alarm(10);  // the end of a child that waits for the parent's thread
            const auto writes = writesOf([] { __dlog_print(MAIN, ERROR, "OX", "of the child"); });
            _exit(writes == std::vector<std::string>{"E/OX: of the child\n"} ? 0 : 1);
        }
        waitpid(child, &status, 0);

        EXPECT_EQ(pipe.read(4096).size(), 4096U);
        EXPECT_GT(thread.join(), 0);
    }

    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    pipe.writer.reset();
    EXPECT_EQ(pipe.readAll(), "E/OX: of the parent\n");
}

}  // namespace
}  // namespace oxil::test
