#pragma once

#include <glib.h>

#include <chrono>
#include <deque>
#include <functional>
#include <initializer_list>
#include <vector>

namespace oxil::test {

/** Calls a function once from the default main context after a delay, if it still lives then. */
class CallLater {
public:
    CallLater(std::chrono::milliseconds delay, const std::function<void()>& function);
    ~CallLater();

    CallLater(const CallLater&) = delete;
    CallLater& operator=(const CallLater&) = delete;

private:
    std::function<void()> __function;
    GSource* __source;
};

/**
 * Calls functions from the default main context one after the other: each in an iteration of its
 * own and, however slow the host is, in this order. A function may block in a loop; the next one is
 * called from inside it then.
 */
class CallInTurn {
public:
    CallInTurn(std::initializer_list<std::function<void()>> functions);

private:
    void __callNext();

    std::vector<std::function<void()>> __functions;
    std::deque<CallLater> __calls;
};

/** Ends the process, saying so, if code that blocks in a main loop is still there after a delay. */
class Watchdog {
public:
    explicit Watchdog(std::chrono::milliseconds limit);

private:
    CallLater __call;
};

}  // namespace oxil::test
