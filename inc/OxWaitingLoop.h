#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "OxCallback.h"
#include "OxExport.h"
#include "OxMilliseconds.h"
#include "OxWatchedObject.h"

struct _GMainLoop;

namespace oxil {

class Timer;

/**
 * Blocks the caller in place until something happens, while the main loop goes on dispatching.
 *
 * Two modes, which may be active at the same time:
 * - run() blocks in a nested `GMainLoop`, without using the processor, until quit();
 * - wait() iterates the default main context until go(). It never sleeps: it keeps one processor
 *   busy, deliberately, and is meant for short waits.
 *
 * Either can be given a time-out, or a predicate that is asked again and again. Whichever of the
 * two timers comes to its end ends both modes: a run that times out also releases a pending wait,
 * and the other way round.
 *
 * @par Nesting
 * Code that is dispatched inside may run and wait again, on this loop or others. Nested loops end
 * from the innermost one outwards, whatever the order in which they are told to end. A second run()
 * on the same loop replaces the time-out and the predicate of the first, and one quit() ends both;
 * wait() and go() likewise. A quit() or go() that comes before run() or wait() is not remembered.
 *
 * @par Memory
 * A time-out without predicate that comes to its end gives up a cell of memory, as each expiry of a
 * Timer that fires once does. GLib ends the process when it has no memory for a loop or a time-out.
 *
 * @par Threads
 * All members are called on the thread that runs the default main context.
 *
 * @par Example
 * @snippet countdown/main.cpp wait
 */
class OXIL_API WaitingLoop : private internal::WatchedObject {
public:
    /** Makes an idle loop. Without memory for its timers the loop can't time out, see run(int). */
    WaitingLoop();

    /**
     * Lets go of the main loop and the timers.
     *
     * Code dispatched inside may destroy the loop it runs in. A wait() ends then. A run() does not:
     * nobody is left to end it, so say quit() first.
     */
    ~WaitingLoop();

    WaitingLoop(const WaitingLoop&) = delete;
    WaitingLoop& operator=(const WaitingLoop&) = delete;

    /** Blocks until quit(). Returns 0. */
    int run();

    /**
     * Blocks until quit() or until @p interval milliseconds have passed.
     *
     * A time-out that can't be armed leaves only quit() to end the run. It is logged: as "Invalid
     * state." under the name __startRunTimer if there was no memory for the timer when the loop was
     * made, or as Timer::start() says.
     *
     * @param interval  milliseconds; -1 and only -1 means no time-out, 0 the next iteration;
     *                  other negative values are very long, see Timer::start()
     * @return 0
     */
    int run(int interval);

    /**
     * Blocks until quit() or until the predicate, asked every @p interval milliseconds, is true.
     *
     * @param interval   milliseconds between two questions; with -1 it is never asked
     * @param predicate  copied and kept until the next run() of any form; its own state lasts from
     *                   one question to the next. An empty one makes this run(int). It must not
     *                   throw: the process ends if it does.
     * @return 0
     * @throws  what copying the predicate throws; the loop is as it was before then
     */
    int run(int interval, const std::function<bool()>& predicate);

    /** The same as run(int) with a duration: `loop.run(2s)`. It is rounded up to milliseconds; a
     *  negative one is 0, and the longest one INT_MAX milliseconds. */
    template <typename Rep, typename Period>
    int run(std::chrono::duration<Rep, Period> interval)
    {
        return run(internal::toMilliseconds(interval));
    }

    /** The same as run(int, const std::function<bool()>&) with a duration. */
    template <typename Rep, typename Period>
    int run(std::chrono::duration<Rep, Period> interval, const std::function<bool()>& predicate)
    {
        return run(internal::toMilliseconds(interval), predicate);
    }

    /** Keeps iterating until go(). Returns 0. */
    int wait();

    /**
     * Keeps iterating until go() or until @p interval milliseconds have passed.
     *
     * @param interval  as for run(int). A time-out that can't be armed leaves only go() to end the
     *                  wait; the name in the log is __startWaitTimer.
     * @return 0
     */
    int wait(int interval);

    /** Keeps iterating until go() or until the predicate, asked every @p interval milliseconds, is
     *  true; interval, predicate and what is thrown are as for run(). Returns 0. */
    int wait(int interval, const std::function<bool()>& predicate);

    /** The same as wait(int) with a duration, taken as by run(). */
    template <typename Rep, typename Period>
    int wait(std::chrono::duration<Rep, Period> interval)
    {
        return wait(internal::toMilliseconds(interval));
    }

    /** The same as wait(int, const std::function<bool()>&) with a duration. */
    template <typename Rep, typename Period>
    int wait(std::chrono::duration<Rep, Period> interval, const std::function<bool()>& predicate)
    {
        return wait(internal::toMilliseconds(interval), predicate);
    }

    /**
     * Ends run mode.
     *
     * Cancels the time-out of the run and, while waiting, that of the wait as well, which then ends
     * only by go(). Does nothing that shows on an idle loop.
     */
    void quit();

    /**
     * Ends wait mode.
     *
     * Cancels the time-out of the wait and, while running, that of the run as well, which then ends
     * only by quit(): a `go()` while only running turns `run(60)` into `run()`.
     */
    void go();

    /** Whether run mode is active: from the start of run() to quit(). */
    bool isRunning() const;

    /** Whether wait mode is active: from the start of wait() to go(). */
    bool isWaiting() const;

private:
    using Predicate = internal::Callback<bool()>;

    int __startRunTimer(int interval, const std::function<bool()>& predicate);
    int __startWaitTimer(int interval, const std::function<bool()>& predicate);
    void __cancelTimer() const;
    void __runTimerExpired() noexcept;
    void __waitTimerExpired() noexcept;
    OXIL_LOCAL void __expire(Predicate& predicate);

    Predicate __runPredicate;
    Predicate __waitPredicate;
    Timer* __runTimer;
    Timer* __waitTimer;
    std::unique_ptr<_GMainLoop, std::function<void(_GMainLoop*)>> __mainLoop;
    bool __running = false;
    bool __waiting = false;
    const int __noTimeout = -1;
};

}  // namespace oxil
