#pragma once

#include <cstddef>
#include <functional>
#include <set>

namespace oxil::test {

/**
 * Stands between this thread and some of its descriptors while it lives: read(), write(), send()
 * and close() are counted, pass few bytes, or fail.
 *
 * One lives at a time.
 */
class StreamCalls {
public:
    explicit StreamCalls(const std::set<int>& descriptors);
    ~StreamCalls();

    StreamCalls(const StreamCalls&) = delete;
    StreamCalls& operator=(const StreamCalls&) = delete;

    /** Lets each call read or write no more than this. */
    void passAtMost(std::size_t bytes) { __most = bytes; }

    /** Makes every second call of a kind fail with this errno, although there was something to do. */
    void disturb(int error) { __disturbance = error; }

    /** Makes all reading, or writing, fail with this errno from now on. */
    void failReading(int error) { __readError = error; }
    void failWriting(int error) { __writeError = error; }

    /** Calls this before each read(). */
    void whenRead(const std::function<void()>& function) { __whenRead = function; }

    int readCount() const { return __reads; }
    int writeCount() const { return __writes; }
    int closeCount() const { return __closes; }

private:
    friend struct StreamRecorder;

    std::set<int> __descriptors;
    std::size_t __most;
    int __disturbance = 0;
    std::function<void()> __whenRead = [] {};
    int __readError = 0;
    int __writeError = 0;
    int __reads = 0;
    int __writes = 0;
    int __closes = 0;
};

}  // namespace oxil::test
