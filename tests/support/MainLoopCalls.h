#pragma once

#include <glib.h>

#include <functional>
#include <string>
#include <vector>

namespace oxil::test {

/**
 * Records what the library asks of GLib's main loop while it lives, and can refuse timeouts.
 *
 * Timeouts without data belong to the test support and are passed over. One recorder lives at a
 * time. A recorded timeout that is still attached when the recorder goes fails the test: make the
 * recorder before whatever owns the timeouts.
 */
class MainLoopCalls {
public:
    /** What a timeout was added with; the id is 0 if it was refused. */
    struct Timeout {
        guint id;
        guint interval;
        GSourceFunc function;
        gpointer data;
    };

    MainLoopCalls();
    ~MainLoopCalls();

    MainLoopCalls(const MainLoopCalls&) = delete;
    MainLoopCalls& operator=(const MainLoopCalls&) = delete;

    /**
     * The calls in order, timeouts being numbered from 1 as they are added: "add #1: 20 ms",
     * "refuse: 20 ms", "remove #1", "new loop", "run loop", "quit loop", "unref loop"; and notes.
     */
    const std::vector<std::string>& lines() const { return __lines; }

    /** Forgets the lines; the numbering goes on. */
    void clear() { __lines.clear(); }

    /** Adds a line, to relate something else to the calls. */
    void note(const std::string& line) { __lines.push_back(line); }

    /** The timeout with this number. */
    const Timeout& timeout(std::size_t number) const { return __timeouts.at(number - 1); }

    /** How many timeouts were added. */
    std::size_t timeoutCount() const { return __timeouts.size(); }

    /** Whether the timeout with this number is attached to the default main context. */
    bool isAttached(std::size_t number) const;

    /** Removes a timeout that nobody owns. */
    void remove(std::size_t number);

    /** Makes g_timeout_add() return 0, or work again. */
    void refuse(bool refusing) { __refusing = refusing; }

    /** Calls the hook once, when the call that leaves this line is about to be made. */
    void before(const std::string& line, const std::function<void()>& hook)
    {
        __hookedLine = line;
        __hook = hook;
    }

    /** The nested main loop that was made, run or quit last. */
    GMainLoop* loop() const { return __loop; }

    /** Whether the last loop was made for the default context. */
    bool madeForDefaultContext() const { return __defaultContext; }

    /** Calls of g_main_context_iteration() for the default context: waiting for events, or not. */
    long blockingIterations() const { return __blocking; }
    long pollingIterations() const { return __polling; }

private:
    friend struct MainLoopRecorder;

    /** Notes a call that is about to be made. */
    void __calling(const std::string& line);

    std::vector<std::string> __lines;
    std::vector<Timeout> __timeouts;
    bool __refusing = false;
    std::string __hookedLine;
    std::function<void()> __hook;
    GMainLoop* __loop = nullptr;
    bool __defaultContext = false;
    long __blocking = 0;
    long __polling = 0;
};

}  // namespace oxil::test
